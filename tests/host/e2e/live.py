#!/usr/bin/env python3
"""The daemon beside a fresh reading of the kernel, after each of MRIB_STEPS random steps of MRIB_SEED.

usage: live.py MRIB MRIBD
"""

import json
import os
import random
import statistics
import subprocess
import sys
import time

from varlink import Daemon, Monitor, add_link, add_tunnel, ip, own_namespace

LIMIT = 1.0  # seconds from a step to the same answers
SOURCES = [f"10.{i}.0.{j}" for i in range(8) for j in (1, 2, 9)] + [
    "198.51.100.1", "203.0.113.9", "127.0.0.1", "2001:db8::1", "2001:db8:1::9", "fe80::1"]
LINKS = ["va", "vc", "d0", "d1", "br0", "mv0", "t0", "g0", "new0"]
SAVED = {"link": "link", "addr": "addr", "nexthop": "nexthop", "route": "route", "route6": "-6 route"}
MODES = ["mrib-only", "mrib-then-urib", "urib-only", "longer-prefix", "lower-distance"]


class Test:
    def __init__(self, mrib, mribd, seed):
        self.random = random.Random(seed)
        self.mrib = mrib
        self.far = subprocess.Popen(["unshare", "-n", "sleep", "inf"])
        time.sleep(0.2)
        self.prepare()
        self.daemon = Daemon(mribd)
        self.pid = self.daemon.process.pid
        self.connection = self.daemon.connect()
        self.monitor = Monitor(self.daemon.path)
        self.times = []

    def shell(self, command):
        subprocess.run(command, shell=True, capture_output=True)

    def prepare(self):
        for name in ("vc", "d0", "d1"):
            add_link(name)
        self.tunnel = add_tunnel("g0")
        ip("link add va type veth peer name vb", f"link set vb netns {self.far.pid}", "link add br0 type bridge",
           "link add mv0 link d0 type macvlan", "tuntap add t0 mode tap",
           *(f"link set {name} up" for name in LINKS), "addr add 10.0.0.1/24 dev va",
           "addr add 10.1.0.1/24 dev d0", "addr add 10.2.0.1/24 dev br0", "link set d1 master br0")
        self.shell(f"nsenter -t {self.far.pid} -n ip link set vb up")

    # ---- Steps ----

    def step(self):
        r = self.random
        link, other = r.choice(LINKS), r.choice(LINKS)
        net, host = r.randrange(8), r.choice([1, 2, 9])
        metric = r.choice(["", "", f" metric {r.randrange(3)}", f" metric {r.randrange(3)}", " tos 0x10"])
        prefix = r.choice([f"10.{net}.0.0/24", f"10.{net}.0.{host}", "10.0.0.0/13", "default", "198.51.100.0/24",
                           f"203.0.113.0/{r.choice([24, 28, 29])}"])
        gateway = f"10.{r.randrange(8)}.0.{r.choice([1, 2, 9])}"
        verb = r.choice(["add", "add", "replace", "append", "prepend", "del", "del"])
        far = f"nsenter -t {self.far.pid} -n ip link set"
        one = r.randrange(1, 4)
        way = r.choice([f"via {gateway}", f"via {gateway} dev {link} onlink", f"dev {link}", f"nhid {one}",
                        f"dev {link} scope global", "via inet6 fe80::9 dev " + link,
                        f"nexthop via {gateway} weight 2 nexthop dev {link}",
                        f"nexthop via {gateway} dev {link} onlink nexthop via 10.1.0.9 dev {other} onlink"])
        six = f"nexthop via fe80::9 dev {link} nexthop via fe80::a dev {other}"
        kind = r.choice(["blackhole", "unreachable", "prohibit", "throw"])
        route = f"{kind} {prefix}{metric}" if r.random() < 0.2 else f"{prefix} {way}{metric}"
        address = r.choice([f"10.{net}.0.{host}/24", f"10.{net}.0.{host}/24", f"10.{net}.0.{host}/32",
                            f"10.{net}.0.{host} peer {gateway}", f"10.0.0.1/32", f"2001:db8:{net}::{host}/64"])
        mroute = f"ip mroute {prefix if '/' in prefix else '10.0.0.0/8'} {r.choice([gateway, link])} {one}"
        files = "/proc/sys/net/ipv4"
        commands = {
            "link": [f"ip link set {link} {r.choice(['up', 'down', 'down', 'up', 'up'])}",
                     f"ip link set {link} up", f"ip link del {link}", "ip link add new0 type ifb",
                     "ip link add va type veth peer name vb; ip link set va up; ip link set vb up",
                     f"ip link add {link} type bridge; ip link set {link} up",
                     "ip tuntap add g0 mode tun; ip link set g0 up",
                     f"ip link add mv0 link {other} type macvlan; ip link set mv0 up",
                     "ip tuntap add t0 mode tun; ip link set t0 up",
                     f"ip link set {link} down; ip link set {link} name new0; ip link set new0 up",
                     f"ip link set {link} name new0", f"ip link set new0 name {link}",
                     # Linux tells of alternative names only when the link is up.
                     f"ip link property add dev {link} altname alt{one}; ip link set {link} up",
                     f"ip link property del dev {link} altname alt{one}; ip link set {link} up",
                     f"ip link set {link} netns {self.far.pid}; {far} {link} up",
                     f"ip link set {link} netns {self.far.pid}; {far} {link} netns {os.getpid()}; ip link set {link} up",
                     f"{far} {link} netns {os.getpid()}", f"ip link set {link} master br0",
                     f"ip link set {link} nomaster", f"ip link set {link} down; ip link set {link} up"],
            "carrier": [f"{far} vb down", f"{far} vb up", f"ip link set {link}p down", f"ip link set {link}p up",
                        f"ip link set {link} carrier off", f"ip link set {link} carrier on"],
            "address": [f"ip addr add {address} dev {link}"] * 3 + [
                f"ip addr del {address} dev {link}", f"ip addr flush dev {link}",
                f"ip addr add 10.{net}.0.1/24 dev {link}; ip addr add 10.{net}.0.2/24 dev {link}",
                f"ip addr add 10.0.0.1/32 dev g0; ip route add 198.51.100.0/24 dev g0",
                f"ip addr replace 10.{net}.0.1/24 dev {link}"],
            "route": [f"ip route {verb} {route}"] * 5 + [
                f"ip route flush root 10.{net}.0.0/16 proto boot",
                f"ip -6 route {verb} 2001:db8:{net % 2}::/48 {r.choice(['', 'metric 7 '])}{r.choice(['dev ' + link, 'via fe80::9 dev ' + link, six, six])}",
                f"ip route {verb} {r.choice(['local', 'broadcast', 'multicast', 'anycast'])} 100.64.{net}.0/24 dev {link} table main"],
            "nexthop": [f"ip nexthop replace id {one} via {gateway} dev {link} onlink",
                        f"ip nexthop replace id {one} dev {link}", f"ip nexthop replace id {one} blackhole",
                        "ip nexthop replace id 3 group 1/2", f"ip nexthop replace id 3 group {one % 2 + 1}", f"ip nexthop del id {one}",
                        f"ip nexthop replace id 1 via {gateway}"],
            "setting": [f"echo {r.randrange(2)} >{files}/conf/{r.choice([link, 'all'])}/ignore_routes_with_linkdown",
                        f"echo {r.randrange(2)} >{files}/nexthop_compat_mode",
                        f"echo {r.randrange(2)} >{files}/conf/all/promote_secondaries"],
            "configuration": [f"{self.mrib} configure '{mroute}'"] * 3 + [
                f"{self.mrib} configure 'ip mroute 203.0.113.0/24 alt{one} 2'",
                f"{self.mrib} configure '{mroute}' 'ip mroute 203.0.113.0/24 g0' 'ip mroute 198.51.100.0/24 {other} 9'",
                f"{self.mrib} configure 'no {mroute.rsplit(' ', 1)[0]}'",
                f"{self.mrib} configure 'ip multicast rpf-lookup-mode {r.choice(MODES)}'"],
        }
        weights = {"link": 5, "carrier": 2, "address": 4, "route": 6, "nexthop": 3, "setting": 1, "configuration": 4}
        kind = r.choices(list(weights), list(weights.values()))[0]
        command = r.choice(commands[kind])
        self.shell(command)
        return command

    # ---- What has to be equal ----

    def answers(self):
        """What the daemon says: the parts that a fresh reading has too."""
        whole = self.connection.call("ListRoutes")
        unresolved = self.connection.call("ListUnresolved")["unresolved"]
        unicast = self.connection.call("ListUnicastRoutes")["routes"]
        rpf = self.connection.call("Lookup", addresses=SOURCES)
        return comparable(whole["routes"], unresolved, unicast, rpf["answers"], rpf["lookupMode"])

    def once(self):
        config = self.daemon.folder + "/running"
        with open(config, "w") as file:
            file.write(self.connection.call("GetConfiguration")["text"])
        base = [self.mrib, "--once", "-c", config, "-j"]
        running = [subprocess.Popen(base + words, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
                   for words in ([], ["unicast"], ["rpf", *SOURCES])]
        return running

    def settle(self, since, what):
        """Polls until both agree; the time is that of the first of the answers that have stayed the same."""
        first, last, running = None, None, None
        while True:
            now, answers = time.monotonic(), self.answers()
            if answers != last:
                first, last = now, answers
            running = running or self.once()
            if all(each.poll() is not None for each in running):
                whole, unicast, rpf = (json.loads(each.stdout.read()) for each in running)
                fresh = comparable(whole["routes"], whole["unresolved"], unicast["routes"], rpf["answers"],
                                   rpf["lookupMode"])
                if fresh == last and self.monitor.mrib() == sorted(last["routes"], key=lambda r: r["prefix"]):
                    self.times.append(first - since)
                    return
                if now - since > LIMIT:
                    self.fail(what, fresh, last)
                running = None
            time.sleep(0.004)

    def fail(self, what, fresh, last):
        for part, expected in fresh.items():
            show(part, expected, last[part])
        show("monitor", last["routes"], self.monitor.mrib())
        print(self.connection.call("GetStatus"))
        raise SystemExit(f"not equal {LIMIT} s after: {what}")

    def compare_with_kernel(self, what):
        """The unicast view beside the kernel's own look-up, where both are about the same; links change late."""
        end = time.monotonic() + LIMIT
        while different := self.differs_from_kernel():
            if time.monotonic() > end:
                raise SystemExit(f"after {what}: {different}")

    def compare_with_saved(self, what):
        """The unicast view beside what saved output of `ip -j` comes to."""
        end = time.monotonic() + LIMIT
        while True:
            for name, words in SAVED.items():
                with open(f"{self.daemon.folder}/{name}.json", "w") as file:
                    subprocess.run(["ip", "-j", *words.split()], stdout=file, check=True)
            saved = subprocess.run([self.mrib, "--from", self.daemon.folder, "unicast", "-j"], capture_output=True)
            expected, seen = json.loads(saved.stdout)["routes"], self.connection.call("ListUnicastRoutes")["routes"]
            if expected == seen:
                return
            if time.monotonic() > end:
                show("saved", expected, seen)
                raise SystemExit(f"not as saved after {what}")

    def differs_from_kernel(self):
        lines = "".join(f"route get {source}\n" for source in SOURCES)
        got = subprocess.run(["ip", "-j", "-force", "-batch", "-"], input=lines, text=True, capture_output=True)
        failed = {int(line.rsplit(":", 1)[1]) for line in got.stderr.splitlines() if line.startswith("Command failed")}
        own = [r["prefix"].split("/")[0] for r in self.connection.call("ListUnicastRoutes")["routes"]
               if r["type"] == "local"]
        found = iter([json.loads(line)[0] for line in got.stdout.splitlines() if line.strip()])
        for number, source in enumerate(SOURCES, 1):
            kernel = None if number in failed else next(found)
            if kernel and kernel.get("type") == "broadcast" or source.startswith("fe80"):
                continue
            routes = self.connection.call("ListUnicastRoutes", address=source)["routes"]
            if not agrees(kernel, routes[0] if routes else None, own):
                return f"{source}: the kernel says {kernel}, the daemon {routes}"
        return None

    def run(self, steps):
        done = []
        for number in range(steps):
            # Now and then several at once.
            commands = [self.step() for _ in range(self.random.choice([1, 1, 1, 1, 4]))]
            done += commands
            self.settle(time.monotonic(), "\n".join(done[-12:]))
            if number % 5 == 4:
                self.compare_with_kernel("\n".join(done[-12:]))
            if number % 20 == 19:
                time.sleep(1.2)  # what the kernel does late, as losing a carrier
                self.settle(time.monotonic(), "\n".join(done[-40:]))
                self.compare_with_saved("\n".join(done[-40:]))
        if self.monitor.misfits:
            raise SystemExit(f"monitor: changes from what was not: {self.monitor.misfits[:3]}")
        if self.monitor.restarts != 1:
            raise SystemExit(f"monitor: {self.monitor.restarts} beginnings")

    def summary(self):
        milliseconds = sorted(1000 * each for each in self.times)
        status = self.connection.call("GetStatus")
        print(f"{len(milliseconds)} states, {status['generation']} generations; equal after: median "
              f"{statistics.median(milliseconds):.1f} ms, 99 % {milliseconds[len(milliseconds) * 99 // 100]:.1f} ms, "
              f"maximum {milliseconds[-1]:.1f} ms; {status['mirror']}")


def comparable(routes, unresolved, unicast, answers, mode):
    reasons = sorted((u["prefix"], u["rpf"], u["preference"], u["reason"]) for u in unresolved)
    return {"routes": routes, "unresolved": [list(each) for each in reasons], "unicast": unicast,
            "answers": answers, "mode": mode}


def show(part, expected, seen):
    if expected == seen:
        return
    for each in expected if isinstance(expected, list) else [expected]:
        if each not in seen:
            print(f"{part}: missing {each}")
    for each in seen if isinstance(seen, list) else [seen]:
        if each not in expected:
            print(f"{part}: too much {each}")
    if isinstance(expected, list) and sorted(map(str, expected)) == sorted(map(str, seen)):
        print(f"{part}: in another order: {expected} {seen}")


def agrees(kernel, route, own):
    if kernel is None:
        return route is None or route["type"] in ("blackhole", "unreachable", "prohibit", "throw")
    if route is None:
        return False
    if kernel.get("type") == "local":
        return route["type"] == "local" or kernel["dst"].startswith("127.") or kernel["dst"] == "::1"
    gateway = kernel.get("gateway") or kernel.get("via", {}).get("host")
    # A route by way of an address of the router's own is, to Linux, one without a gateway.
    vias = [(None if via["nextHop"] in own else via["nextHop"], via["interface"]) for via in route["vias"]]
    return (None if gateway in own else gateway, kernel["dev"]) in vias


def main(kind, steps):
    """Runs so many steps, or MRIB_STEPS."""
    own_namespace()
    seed = int(os.environ.get("MRIB_SEED", random.randrange(1 << 30)))
    print(f"MRIB_SEED={seed}", flush=True)
    test = kind(sys.argv[1], sys.argv[2], seed)
    os.environ["MRIB_SOCKET"] = test.daemon.path
    try:
        test.run(int(os.environ.get("MRIB_STEPS", steps)))
        test.summary()
        assert (ended := test.daemon.stop()) == (0, []), ended
    finally:
        test.far.kill()
        test.daemon.process.kill()


if __name__ == "__main__":
    main(Test, 60)
