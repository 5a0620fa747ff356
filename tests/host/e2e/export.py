#!/usr/bin/env python3
"""The MRIB in a kernel table, beside the MRIB, whatever happens to either.

usage: export.py MRIB MRIBD
"""

import os
import random
import statistics
import subprocess
import sys
import time

from varlink import Connection, add_link, ip, own_namespace

TABLE = 250
LINKS = ("va", "vb")
SOCKET = f"/tmp/mrib-export-{os.getpid()}"
CONFIG = SOCKET + ".conf"
LINES = ["ip multicast export-table 250", "ip mroute 20.1.0.0/16 10.1.0.2", "ip mroute 20.1.0.0/16 10.2.0.2 2",
         "ip mroute 20.2.0.0/16 10.1.0.2", "ip mroute 20.2.0.0/16 10.2.0.2", "ip mroute 20.3.0.0/16 va neighbor 10.1.0.9",
         "ip mroute 20.4.0.0/16 20.3.0.1", "ip mroute 20.5.0.0/16 vb 3", "ip mroute 20.6.0.0/16 va",
         "ip mroute 20.7.0.0/16 vb neighbor 10.3.0.1"]
FOREIGN = ["99.0.0.0/8 dev lo proto 99", "20.2.0.0/16 dev lo proto 99 metric 9"]


def output(command):
    return subprocess.run(command, shell=True, capture_output=True, text=True).stdout


def prepare(lines=()):
    """The links, routes of others in the table, and a configuration."""
    for number, link in enumerate(LINKS, 1):
        add_link(link)
        ip(f"addr add 10.{number}.0.1/24 dev {link}")
    ip("addr add 10.2.9.1 peer 10.2.9.2/32 dev vb", "route add 10.3.0.1 dev vb", *(f"route add {route} table {TABLE}" for route in FOREIGN))
    configure(lines)


def configure(lines):
    with open(CONFIG, "w") as file:
        file.write("\n".join([*LINES, *lines]) + "\n")


def start(mribd, *options):
    daemon = subprocess.Popen([mribd, "-c", CONFIG, "--socket", SOCKET, *options], stderr=subprocess.DEVNULL)
    while daemon.poll() is None:
        try:
            Connection(SOCKET).call("GetStatus")
            return daemon
        except OSError:
            time.sleep(0.02)
    raise SystemExit(f"mribd ended with {daemon.returncode}")


def table(proto):
    """Of a prefix its ways."""
    routes, prefix = {}, None
    for line in output(f"ip route show table {TABLE} proto {proto}").splitlines():
        words = line.split()
        if not line.startswith("\t"):
            prefix = words[0]
            routes[prefix] = []
        if "via" in words:
            routes[prefix].append((words[words.index("via") + 1], words[words.index("dev") + 1]))
    return routes


def wanted():
    peers = {"20.3.0.0/16": "10.1.0.9", "20.4.0.0/16": "10.1.0.9", "20.5.0.0/16": "10.2.9.2",
             "20.7.0.0/16": "10.3.0.1"}
    routes = {}
    without = {"20.6.0.0/16"} | (set() if "10.2.9.2" in output("ip addr show vb") else {"20.5.0.0/16"})
    for route in Connection(SOCKET).call("ListRoutes")["routes"]:
        if route["preference"] > 0 and route["prefix"] not in without:
            routes[route["prefix"]] = [(via["nextHop"] or peers[route["prefix"]], via["interface"]) for via in route["vias"]]
    return routes


def agree(what, limit=2.5):
    """The same twice, some time apart."""
    end, since = time.monotonic() + limit, None
    while since is None or time.monotonic() < since + 0.1:
        have, want = table(220), wanted()
        since = (since or time.monotonic()) if have == want else None
        if time.monotonic() > end and since is None:
            sys.exit(f"FAILED after {what}:\ntable {have}\nMRIB  {want}")
    if len(table(99)) != len(FOREIGN):
        sys.exit(f"FAILED after {what}: routes of others are gone")


def until(route, since):
    """Seconds until the table has it."""
    while f"via {route}" not in output(f"ip route show table {TABLE} exact 20.1.0.0/16"):
        if time.monotonic() > since + 3:
            sys.exit(f"FAILED: no route by {route}")
    return time.monotonic() - since


def main():
    own_namespace()
    mribd, dice = sys.argv[2], random.Random(int(os.environ.get("MRIB_SEED", "1")))
    prepare()
    left = [f"iif lo uidrange 1-1 lookup 251 pref 32000 protocol {protocol}" for protocol in (220, 99)]
    ip(*("rule add " + rule for rule in left))
    rule = ["--export-rule", "nobody"]
    daemon = start(mribd, *rule)
    agree("the start")
    if output("ip rule").count("uidrange 1-1") != 1:
        sys.exit("FAILED: of the rules of others and of a former run are left " + output("ip rule"))
    if "onlink" not in output(f"ip route show table {TABLE} exact 20.7.0.0/16"):
        sys.exit("FAILED: to a reader of the table the gateway is nowhere")
    lookup = ["ip", "route", "get", "fibmatch", "20.1.0.1"]
    ip("route add default via 10.2.0.77")
    other = subprocess.run(["setpriv", "--reuid", "nobody", *lookup], capture_output=True, text=True).stdout
    if "10.1.0.2" not in other or "10.2.0.77" not in output(" ".join(lookup)):
        sys.exit("FAILED: a user's look-up " + other)
    reasons = {u["reason"] for u in Connection(SOCKET).call("ListUnresolved")["unresolved"]}
    if reasons != {"notExportable"}:
        sys.exit(f"FAILED: unresolved for {reasons}")
    steps = ["link set va down", "link set va up", "link set vap down", "link set vap up", "link set vb down",
             "link set vb up", "link set va down\nlink set va up", "addr del 10.1.0.1/24 dev va", "addr add 10.1.0.1/24 dev va",
             "addr flush dev vb", "addr add 10.2.0.1/24 dev vb", "addr add 10.2.9.1 peer 10.2.9.2/32 dev vb",
             f"route del 20.1.0.0/16 table {TABLE} proto 220", f"route flush table {TABLE} proto 220",
             f"route add 77.0.0.0/8 dev lo table {TABLE} proto 220",
             f"route add 79.0.0.0/8 table {TABLE} proto 220 nexthop dev va nexthop dev vb",
             f"route add 76.0.0.0/8 via inet6 fe80::9 dev va table {TABLE} proto 220",
             f"route change 20.1.0.0/16 via 10.2.0.9 table {TABLE} proto 220 metric 220", "kill"]
    for _ in range(int(os.environ.get("MRIB_STEPS", "60"))):
        step = dice.choice(steps)
        if step == "kill":
            daemon.kill()
            daemon.wait()
            ip(dice.choice(["link set va down", "link set vb up", f"route add 78.0.0.0/8 dev lo table {TABLE} proto 220"]))
            daemon = start(mribd, *rule)
        else:
            ip(*step.split("\n"))
        agree(step)
    ip("link set va up", "link set vap up", "link set vb up", "addr add 10.1.0.1/24 dev va", "addr add 10.2.0.1/24 dev vb")
    agree("all is up")
    times = []
    for _ in range(20):
        time.sleep(1.2)  # the kernel takes its time over carriers
        until("10.1.0.2", time.monotonic())
        ip("link set va down")
        times.append(until("10.2.0.2", time.monotonic()))
        ip("link set va up")
    print(f"down to written, as ip shows it: median {statistics.median(times) * 1e3:.1f} ms")
    configure([f"ip mroute 40.{n}.0.0/16 10.{net}.0.{host}" for n in range(6) for net in (1, 2) for host in range(2, 250)])
    Connection(SOCKET).call("Reload")
    time.sleep(0.5)
    if [len(ways) for prefix, ways in table(220).items() if prefix.startswith("40.")] != [128] * 6:
        sys.exit("FAILED: of many ways not 128 are written")
    daemon.terminate()
    time.sleep(0.002)
    daemon.terminate()  # it ends already
    if daemon.wait() != 0 or table(220) or output("ip rule").count("uidrange") != 1 or len(table(99)) != len(FOREIGN):
        sys.exit("FAILED: what is left at the end")


if __name__ == "__main__":
    main()
