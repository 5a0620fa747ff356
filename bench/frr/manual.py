#!/usr/bin/env python3
"""Runs the commands of a document on a router, and compares what they say with what the document says.

usage: manual.py DOCUMENT MRIB MRIBD FOLDER [TREE]

Commands stand in blocks of "console" behind a prompt, "r# ", and go on behind "> ". Of what they say a word "*" is any,
and a line "..." any lines. With TREE, of debian13.py, there is FRRouting, and an upstream router that runs it.
"""

import os
import re
import subprocess
import sys
import time

from machine import NAMESPACES, Machine, cable
from network import GROUP, SOURCE, Network, compiled
from varlink import own_namespace

PROJECT = os.path.dirname(os.path.abspath(__file__)) + "/../.."
LOOKS = re.compile(r"vtysh -c 'show|mrib (route|status)|ip (route|rule|mroute) show")
# What a machine has that is installed and has a service manager.
INSTALLED = r"""
mkdir -p /run/bin /run/mrib /run/doc/mrib/examples /run/docwork
cp {project}/packaging/mribd-export.conf /run/doc/mrib/examples
mount -t overlay overlay -o lowerdir=/usr/share/doc,upperdir=/run/doc,workdir=/run/docwork /usr/share/doc
rm -f /etc/systemd/system/mribd.service.d/export.conf
ln -s {mrib} /run/bin/mrib
ln -s {mribd} /run/bin/mribd
cat >/run/bin/vtysh <<'END'
#!/bin/sh
exec chroot {tree} /usr/bin/vtysh "$@"
END
cat >/run/bin/systemctl <<'END'
#!/bin/sh
case "$*" in
  "restart frr") exec chroot {tree} /usr/lib/frr/frrinit.sh restart >/dev/null 2>&1 </dev/null ;;
  "restart mribd") test -e /etc/systemd/system/mribd.service.d/export.conf && exec mribd --log-level error & ;;
esac
END
chmod +x /run/bin/*
"""


def blocks(path):
    """Commands, and the lines that they say."""
    for block in re.findall(r"```console\n(.*?)```", open(path).read(), re.S):
        for said in re.split(r"(?m)^r# ", block)[1:]:
            lines = said.splitlines()
            more = [line for line in lines[1:] if line.startswith(">")]
            yield "\n".join([lines[0], *(line[2:] for line in more)]), lines[1 + len(more):]


def agrees(expected, said):
    pattern = ""
    for line in (line.split() for line in expected if line.split()):
        words = [r"\S+" if word == "*" else re.escape(word) for word in line]
        pattern += r"(?:.*\n)*?" if line == ["..."] else " ".join(words) + "\n"
    text = "".join(" ".join(line.split()) + "\n" for line in said.splitlines() if line.split())
    return re.fullmatch(pattern, text) is not None


class Shell:
    def __init__(self, machine):
        path = "/run/bin:" + os.environ["PATH"]
        self.process = machine.start("env", "PATH=" + path, "LC_ALL=C", "bash", stdin=subprocess.PIPE,
                                     stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)

    def run(self, command):
        self.process.stdin.write("{ " + command + "\n} </dev/null\necho; echo end of it\n")
        self.process.stdin.flush()
        said = ""
        for line in self.process.stdout:
            if line == "end of it\n":
                return said[:-1]
            said += line
        sys.exit("FAILED: the shell has ended\n" + said)


def follow(shell, document):
    count = 0
    for command, expected in blocks(document):
        end = time.monotonic() + 15
        said = shell.run(command)
        while not agrees(expected, said):
            if not LOOKS.match(command) or time.monotonic() > end:
                sys.exit(f"FAILED: {document}\n# {command}\nis to say\n" + "\n".join(expected) + f"\nand says\n{said}")
            time.sleep(0.2)
            said = shell.run(command)
        count += 1
    print(f"{os.path.basename(document)}: {count} commands do and say what they are said to")


def main():
    own_namespace(*NAMESPACES)
    document, mrib, mribd, folder = (os.path.abspath(path) for path in sys.argv[1:5])
    tree = os.path.abspath(sys.argv[5]) if len(sys.argv) > 5 else None
    if tree:
        network = Network(tree, compiled(folder), empty=True)
        router = network.r
        network.a.frr(*network.upstream())
        network.flow(GROUP, SOURCE)
    else:
        router, other = Machine("r"), Machine("a")
        cable(other, "a1", router, "r1")
        cable(other, "a2", router, "r2")
    router.run(INSTALLED.format(project=PROJECT, mrib=mrib, mribd=mribd, tree=tree))
    follow(Shell(router), document)


if __name__ == "__main__":
    main()
