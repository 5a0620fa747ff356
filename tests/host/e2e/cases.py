#!/usr/bin/env python3
"""Two things that have to be seen with the real kernel: a daemon that stood still, and a tunnel without addresses.

usage: cases.py MRIB MRIBD
"""

import json
import os
import signal
import subprocess
import sys
import time

from varlink import Daemon, Monitor, add_link, add_tunnel, ip, own_namespace


def fresh_routes(mrib, *options):
    said = subprocess.run([mrib, "--once", "-j", *options], capture_output=True, text=True, check=True).stdout
    return json.loads(said)["routes"]


def routes_of(connection):
    connection.send("ListRoutes", more=True)
    routes, more = [], True
    while more:
        part = connection.next()
        routes += part["parameters"]["routes"]
        more = part.get("continues", False)
    return routes


def within(seconds, what, holds):
    start = time.monotonic()
    while not holds():
        if time.monotonic() - start > seconds:
            raise SystemExit(f"{what}: not within {seconds} s")
        time.sleep(0.002)
    print(f"{what}: {1000 * (time.monotonic() - start):.1f} ms")


def stood_still(mrib, mribd):
    """10,000 changes while the daemon is stopped, and a receive buffer too small for them."""
    assert add_link("d0") and ip("addr add 10.0.0.1/24 dev d0")
    unprivileged = ["setpriv", "--bounding-set=-net_admin", "--inh-caps=-net_admin"]
    daemon = Daemon(mribd, prefix=unprivileged)
    try:
        monitor = Monitor(daemon.path)
        connection = daemon.connect()
        daemon.process.send_signal(signal.SIGSTOP)
        large, nets = " nexthop via 10.0.0.2" * 64, [f"172.{16 + (i >> 8)}.{i & 255}.0/24" for i in range(7000)]
        assert ip(*(f"route add {net}{large if i < 3000 else ' dev d0'}" for i, net in enumerate(nets)))
        assert ip(*(f"route del {net}" for net in nets[:3000]))
        expected = fresh_routes(mrib)
        assert len(expected) > 4000
        daemon.process.send_signal(signal.SIGCONT)
        within(1, "equal after 10,000 changes", lambda: routes_of(connection) == expected)
        within(1, "the monitor as well", lambda: monitor.mrib() == sorted(expected, key=lambda r: r["prefix"]))
        status = connection.call("GetStatus")
        assert status["mirror"]["overruns"] > 0, status
        assert daemon.process.poll() is None and not monitor.misfits
        assert daemon.stop() == (0, [])
    finally:
        daemon.process.kill()
    ip("link del d0")


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
        assert routes_of(connection) == fresh_routes(mrib, "-c", config)
        assert daemon.stop() == (0, [])
    finally:
        daemon.process.kill()
        os.close(held)
        os.remove(config)


if __name__ == "__main__":
    own_namespace()
    stood_still(*sys.argv[1:])
    tunnel(*sys.argv[1:])
