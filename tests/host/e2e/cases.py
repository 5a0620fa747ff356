#!/usr/bin/env python3
"""What has to be seen with the real kernel: a tunnel without addresses.

usage: cases.py MRIB MRIBD
"""

import json
import os
import subprocess
import sys
import time

from varlink import Daemon, add_link, add_tunnel, ip, own_namespace


def fresh_routes(mrib, *options):
    said = subprocess.run([mrib, "--once", "-j", *options], capture_output=True, text=True, check=True).stdout
    return json.loads(said)["routes"]


def within(seconds, what, holds):
    start = time.monotonic()
    while not holds():
        if time.monotonic() - start > seconds:
            raise SystemExit(f"{what}: not within {seconds} s")
        time.sleep(0.002)
    print(f"{what}: {1000 * (time.monotonic() - start):.1f} ms")


def tunnel(mrib, mribd):
    """A static multicast route over an unnumbered tunnel, whose second preference takes over while it is down."""
    held = add_tunnel("tun0")
    assert add_link("d0") and ip("addr add 192.0.2.1/24 dev d0", "route add 198.51.100.0/24 dev tun0")
    config = f"/tmp/mrib-tunnel-{os.getpid()}.conf"
    with open(config, "w") as file:
        file.write("ip mroute 203.0.113.0/24 tun0\nip mroute 203.0.113.0/24 192.0.2.7 250\n")
    daemon = Daemon(mribd, config)
    try:
        connection = daemon.connect()

        def way(preference, hop, interface):
            answer = connection.call("Lookup", addresses=["203.0.113.5"])["answers"][0]["route"]
            return answer and (answer["preference"], answer["vias"]) == (
                preference, [{"nextHop": hop, "interface": interface}])

        text = subprocess.run([mrib, "--socket", daemon.path, "rpf", "203.0.113.5"], capture_output=True, text=True)
        assert "directly connected" in text.stdout, text
        for command, first in (("link set tun0 down", False), ("link set tun0 up", None),
                               ("route replace 198.51.100.0/24 dev tun0", True), ("addr add 192.0.2.1/32 dev tun0", True),
                               ("link set tun0 down", False)):
            assert ip(command)
            if first is not None:
                expected = (1, None, "tun0") if first else (250, "192.0.2.7", "d0")
                within(0.5, command, lambda: way(*expected))
        assert connection.whole("ListRoutes", "routes", []) == fresh_routes(mrib, "-c", config)
        assert daemon.stop() == (0, [])
    finally:
        daemon.process.kill()
        os.close(held)
        os.remove(config)


if __name__ == "__main__":
    own_namespace()
    tunnel(*sys.argv[1:])
