#!/usr/bin/env python3
"""Clients that are not ours: a Go program on Debian's varlink package, and plain socat.

usage: clients.py go|socat MRIBD INTERFACE-FILE
"""

import os
import shutil
import subprocess
import sys
import tempfile

from varlink import SKIPPED, Daemon, add_link, ip, own_namespace

GO_SOURCES = "/usr/share/gocode"  # Debian's golang-github-varlink-go-dev
GO_SAYS = """info: mribd [org.varlink.service org.mrib]
lookup: mrib-then-urib found mrib 10.1.0.0/24 d0
group: true
routes: 2
configure: 1 0
change: true 10.1.0.2
"""


def skip(why):
    print("skipped: " + why)
    sys.exit(SKIPPED)


def go_program(interface, folder):
    """Bindings generated from the interface file, and the program on them; nothing is fetched."""
    bindings = folder + "/src/orgmrib"
    os.makedirs(bindings)
    shutil.copy(interface, bindings)
    environment = {**os.environ, "GO111MODULE": "off", "GOPATH": f"{folder}:{GO_SOURCES}", "GOFLAGS": "-p=2",
                   "GOCACHE": folder + "/cache"}
    generator = "github.com/varlink/go/cmd/varlink-go-interface-generator"
    subprocess.run(["go", "run", generator, "org.mrib.varlink"], cwd=bindings, env=environment, check=True)
    source = os.path.join(os.path.dirname(os.path.abspath(__file__)), "goclient", "main.go")
    subprocess.run(["go", "build", "-o", folder + "/client", source], env=environment, check=True)
    return folder + "/client"


def by_go(daemon, program):
    said = subprocess.run([program, daemon.path], capture_output=True, text=True)
    assert said.returncode == 0 and said.stdout == GO_SAYS, said


def by_socat(daemon):
    request = '{"method":"org.mrib.Lookup","parameters":{"addresses":["10.2.0.7"]}}\0'
    said = subprocess.run(["socat", "-t5", "-", "UNIX-CONNECT:" + daemon.path], input=request, text=True,
                          capture_output=True)
    assert said.stdout.endswith('"vias":[{"nextHop":null,"interface":"d1"}]}}]}}\0'), said


def main():
    client, mribd, interface = sys.argv[1:]
    if not shutil.which(client):
        skip(client + " is not installed")
    if client == "go" and not os.path.isdir(GO_SOURCES + "/src/github.com/varlink/go"):
        skip("golang-github-varlink-go-dev is not installed")
    own_namespace()
    with tempfile.TemporaryDirectory() as folder:
        program = client == "go" and go_program(interface, folder)
        for i in (1, 2):
            assert add_link(f"d{i - 1}") and ip(f"addr add 10.{i}.0.1/24 dev d{i - 1}")
        daemon = Daemon(mribd)
        try:
            by_go(daemon, program) if program else by_socat(daemon)
            assert daemon.stop() == (0, [])
        finally:
            daemon.process.kill()


main()
