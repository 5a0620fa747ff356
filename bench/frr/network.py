"""A source, routers A and R with links between them, and a receiver; A and R run FRRouting.

             10.1.1.0/24, A .1, R .2  (a1, r1; unicast leads here)
  source --- A                        R --- receiver
  10.0.0.2   10.9.0.1 peer 10.9.0.2   10.2.0.2
             (a2, r2)

A third link (a3, r3) has no addresses of its own.
"""

import os
import subprocess
import time

from machine import Machine, cable, skip

SOURCE, RP, GROUP = "10.0.0.2", "10.255.0.1", "232.1.1.1"
ANY_GROUP = "239.1.1.1"
RATE = 1000
ROUTER = ["router pim", f" rp {RP} 239.0.0.0/8", " join-prune-interval 5", " ecmp", " ecmp rebalance"]
PIM = ["interface {}", " ip pim", " ip pim hello 1", "exit"]


def pim(*links):
    return [line.format(link) for link in links for line in PIM]


def compiled(folder):
    program = f"{folder}/traffic"
    source = os.path.join(os.path.dirname(os.path.abspath(__file__)), "traffic.c")
    if subprocess.run(["cc", "-O2", "-o", program, source]).returncode:
        skip("no C compiler")
    return program


class Network:
    def __init__(self, tree, traffic, empty=False):
        """`empty`: R has nothing but its links."""
        self.traffic = traffic
        self.source, self.a = Machine("source"), Machine("a", tree)
        self.r, self.receiver = Machine("r", tree), Machine("receiver")
        cable(self.source, "s0", self.a, "a0")
        cable(self.a, "a1", self.r, "r1")
        cable(self.a, "a2", self.r, "r2")
        cable(self.a, "a3", self.r, "r3")
        cable(self.r, "r0", self.receiver, "h0")
        self.source.ip("addr add 10.0.0.2/24 dev s0", "route add default via 10.0.0.1")
        self.a.ip("addr add 10.0.0.1/24 dev a0", "addr add 10.1.1.1/24 dev a1", "addr add 10.9.0.1 peer 10.9.0.2 dev a2",
                  "addr add 10.255.0.1/32 dev lo", "route add default via 10.1.1.2")
        if not empty:
            self.r.ip("addr add 10.2.0.1/24 dev r0", "addr add 10.1.1.2/24 dev r1", "addr add 10.9.0.2 peer 10.9.0.1 dev r2",
                      "route add default via 10.1.1.1")
        self.receiver.ip("addr add 10.2.0.2/24 dev h0", "route add default via 10.2.0.1")

    def upstream(self):
        return [*pim("a0", "a1", "a2", "a3", "lo"), *ROUTER, "exit"]

    def routing(self, mode, own_lines=(), table=True):
        self.a.frr(*self.upstream())
        self.r.frr(*(["ip import-table 250 mrib"] if table else []), *own_lines, *pim("r0", "r1", "r2", "r3"), "interface r0",
                   " ip igmp", "exit", *ROUTER, f" rpf-lookup-mode {mode}", "exit")

    def wait(self, what, test, limit=15):
        end = time.monotonic() + limit
        while not test():
            if time.monotonic() > end:
                raise SystemExit(f"FAILED: {what} does not come\n{self.state()}")
            time.sleep(0.05)

    def state(self):
        return self.r.vtysh("show ip pim neighbor", "show ip pim rpf", "show ip mroute", "show ip pim upstream",
                            "show ip route table 250") + self.r.run("ip route show table 250; ip mroute show; ip -br a")

    def flow(self, group, source=""):
        self.sender = self.source.start(self.traffic, "send", group, SOURCE, str(RATE), stdin=subprocess.PIPE)
        self.listener = self.receiver.start(self.traffic, "receive", group, "10.2.0.2", *([source] if source else []),
                                            stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)

    def count(self):
        """Packets received and lost since the last call, and milliseconds since the last packet."""
        self.listener.stdin.write("\n")
        self.listener.stdin.flush()
        return [int(word) for word in self.listener.stdout.readline().split()]

    def link(self):
        """That by which the packets come, as the kernel forwards them."""
        for line in self.r.run("ip mroute show").splitlines():
            if SOURCE in line and "Iif: " in line:
                return line.split("Iif: ")[1].split()[0]
        return None

    def lost_by(self, action, link, limit=20, quiet=0.6):
        """How many packets an action costs, until they come by the link again."""
        self.count()
        action()
        end = time.monotonic() + limit
        time.sleep(quiet)
        while self.link() != link or self.count_since(0.05) < 40:
            if time.monotonic() > end:
                raise SystemExit(f"FAILED: packets by {self.link()}, not {link}\n{self.state()}")
        time.sleep(quiet)
        lost = self.lost + self.count()[1]
        self.lost = 0
        return lost

    lost = 0

    def count_since(self, seconds):
        time.sleep(seconds)
        received, lost, _ = self.count()
        self.lost += lost
        return received

    def end(self):
        for machine in (self.source, self.a, self.r, self.receiver):
            machine.end()
