#!/usr/bin/env python3
"""FRRouting's PIM by the exported MRIB, with real packets: what moves, failures and deaths cost.

usage: frr.py MRIB MRIBD TREE FOLDER [ROUNDS]

TREE is that of debian13.py. Prints what is lost of 1,000 packets a second, beside what is lost where FRRouting has the
same multicast routes of its own instead (`ip mroute`).
"""

import itertools
import os
import statistics
import subprocess
import sys
import threading
import time

from machine import NAMESPACES, ahead_of_others
from network import ANY_GROUP, GROUP, RATE, RP, SOURCE, Network, compiled
from varlink import own_namespace

DESTINATIONS = ("10.0.0.0/24", f"{RP}/32")
WAYS = ("10.9.0.1", "10.1.1.1")
MOVE, FAILURE, DEATH = 2, 20, 0
MEANWHILE = ", meanwhile"
FLAPPING = [f"route {{}} 30.{i // 200}.{i % 200}.0/24 via 10.1.1.1 dev r1" for i in range(10000)]


def own_lines(order=(0, 1)):
    return [f"ip mroute {to} {WAYS[way]} {preference}" for to in DESTINATIONS for way, preference in zip(order, (1, 250))]


class Mrib:
    """The routes are mribd's."""

    lines = None  # instead of those that FRRouting can have, too

    def __init__(self, mribd, mrib, mode, group, source):
        self.mribd, self.mrib, self.mode, self.group, self.source = mribd, mrib, mode, group, source
        self.name = f"{mode}, {'(S,G)' if source else 'RP'}"

    def begin(self, network):
        self.r = network.r
        self.configure()
        self.start()
        network.routing(self.mode)

    def configure(self, order=(0, 1)):
        lines = [f"ip multicast rpf-lookup-mode {self.mode}", *(self.lines or own_lines(order))]
        self.r.run("mkdir -p /run/mrib; cat >/etc/mrib.conf <<'END'\n" + "\n".join(lines) + "\nEND")

    def start(self):
        self.daemon = self.r.start(self.mribd, "--export-table", "250", stderr=subprocess.DEVNULL)

    def order(self, order):
        self.configure(order)
        self.r.run(f"{self.mrib} reload")

    def kill(self):
        self.daemon.kill()
        self.daemon.wait()


class Own:
    """The routes are FRRouting's."""

    name, group, source = "FRRouting's own", GROUP, SOURCE

    def begin(self, network):
        self.r = network.r
        network.routing("mrib-then-urib", own_lines(), table=False)

    def order(self, order):
        gone, come = own_lines(order[::-1]), own_lines(order)
        self.r.vtysh("configure terminal", *("no " + line for line in gone if line not in come), *come)


def crossing(network, what):
    network.r.ip(f"route {what} {DESTINATIONS[0]} via {WAYS[1]} dev r1 table 250 proto 99 metric 9")


def restart_frr(network):
    for daemon in network.r.daemons:
        daemon.terminate()
    for daemon in network.r.daemons:
        daemon.wait()
    network.r.start_frr()


# What is done, by which link packets come then, how many may be lost; None: not judged.
def steps(network, routes):
    yield "moved by the configuration", lambda: routes.order((1, 0)), "r1", MOVE
    yield "moved back", lambda: routes.order((0, 1)), "r2", MOVE
    yield from failures(network)
    if isinstance(routes, Mrib):
        yield "another route of the prefix comes", lambda: crossing(network, "add"), "r2", DEATH
        yield "another route of the prefix goes", lambda: crossing(network, "del"), "r2", DEATH
        yield "mribd killed", routes.kill, "r2", DEATH
        yield "mribd started again", routes.start, "r2", DEATH
    with Flapping(network.r):
        yield "10,000 other routes flap", lambda: time.sleep(2), "r2", DEATH
        for what, *rest in failures(network):
            yield what + MEANWHILE, *rest
    yield "FRRouting restarted", lambda: restart_frr(network), "r2", None


def failures(network):
    r, a = network.r, network.a
    yield "link down here", lambda: r.ip("link set r2 down"), "r1", FAILURE
    yield "up again here", lambda: r.ip("link set r2 up"), "r2", MOVE
    yield "link down at the far end", lambda: a.ip("link set a2 down"), "r1", FAILURE
    yield "up again at the far end", lambda: a.ip("link set a2 up"), "r2", MOVE


class Flapping(threading.Thread):
    """Each of them goes or comes every ten seconds."""

    def __init__(self, machine):
        super().__init__(daemon=True)
        self.machine, self.ended = machine, False

    def run(self):
        add_and_del = [line.format(what) for what in ("add", "del") for line in FLAPPING]
        with self.machine.start("ip", "-force", "-batch", "-", stdin=subprocess.PIPE, text=True,
                                stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL) as batch:
            for number, line in enumerate(itertools.cycle(add_and_del)):
                if self.ended:
                    break
                batch.stdin.write(line + "\n")
                if number % 20 == 0:
                    batch.stdin.flush()
                    time.sleep(0.02)

    def __enter__(self):
        self.start()

    def __exit__(self, *_):
        self.ended = True
        self.join()


def column(tree, traffic, routes, rounds):
    """Of each step what it cost, by round."""
    costs = {}
    for _ in range(rounds):
        network = Network(tree, traffic)
        routes.begin(network)
        network.flow(routes.group, routes.source)
        network.wait("the flow", lambda: network.count()[0] > 0 and network.link() == "r2")
        time.sleep(3)
        for what, action, link, limit in steps(network, routes):
            costs.setdefault(what, (limit, []))[1].append(cost(network, action, link, limit))
            print(f"{routes.name}: {what}: {costs[what][1][-1]}", file=sys.stderr, flush=True)
            time.sleep(1.5)  # the kernel takes its time over carriers
        network.end()
    return costs


def cost(network, action, link, limit):
    if limit is not None:
        return network.lost_by(action, link)
    try:
        return network.lost_by(action, link, 60)
    except SystemExit:
        return 60 * RATE


def alone(mrib, mribd, tree, traffic):
    """What FRRouting's own multicast routes don't do: lead through each other, and by a link without a subnet."""
    network = Network(tree, traffic)
    network.a.ip("addr add 10.0.0.1/32 dev a3", "route add 10.2.0.1 dev a3")
    network.r.ip("addr add 10.2.0.1/32 dev r3", "route add 10.0.0.1 dev r3")
    routes = Mrib(mribd, mrib, "mrib-then-urib", GROUP, SOURCE)
    routes.lines = [f"ip mroute 10.0.0.0/24 {RP}", f"ip mroute {RP}/32 10.66.0.1", "ip mroute 10.66.0.0/16 r2"]
    routes.begin(network)
    network.flow(GROUP, SOURCE)
    network.wait("the flow through other multicast routes", lambda: network.link() == "r2" and network.count()[0] > 0)
    routes.lines = ["ip mroute 10.0.0.0/24 r3 neighbor 10.0.0.1"]
    lost = network.lost_by(lambda: routes.order(()), "r3")
    print(f"\nthrough other multicast routes, then by a link without a subnet: works; {lost} lost by the move")
    network.end()


def most(limit, what, columns):
    """While FRRouting is busy with other routes, what it needs for its own counts, too."""
    return limit + max(columns[Own.name][what][1]) if what.endswith(MEANWHILE) else limit


def report(columns):
    rows = list(dict.fromkeys(what for costs in columns.values() for what in costs))
    print("packets lost of 1,000 a second: median (most)\n")
    print("| | " + " | ".join(columns) + " |\n|---|" + "---|" * len(columns))
    wrong = []
    for what in rows:
        cells = []
        for name, costs in columns.items():
            limit, lost = costs.get(what, (None, None))
            cells.append(f"{statistics.median_low(lost)} ({max(lost)})" if lost else "-")
            if lost and name != Own.name and limit is not None and statistics.median_low(lost) > most(limit, what, columns):
                wrong.append(f"{what}, {name}: {lost}, at most {limit}")
        print(f"| {what} | " + " | ".join(cells) + " |", flush=True)
    return wrong


def main():
    own_namespace(*NAMESPACES)
    ahead_of_others()
    # What runs in another mount namespace runs in another folder.
    mrib, mribd, tree, folder = map(os.path.abspath, sys.argv[1:5])
    rounds = int(sys.argv[5]) if len(sys.argv) > 5 else 3
    traffic = compiled(folder)
    columns = {}
    for routes in [Own()] + [Mrib(mribd, mrib, mode, *of) for of in ((GROUP, SOURCE), (ANY_GROUP, ""))
                             for mode in ("mrib-then-urib", "mrib-only")]:
        columns[routes.name] = column(tree, traffic, routes, rounds)
    wrong = report(columns)
    alone(mrib, mribd, tree, traffic)
    if wrong:
        sys.exit("FAILED: too much is lost\n" + "\n".join(wrong))


if __name__ == "__main__":
    main()
