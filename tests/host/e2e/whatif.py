#!/usr/bin/env python3
"""What `what-if` says beside doing it: MRIB_STEPS random questions of MRIB_SEED about random states.

usage: whatif.py MRIB MRIBD
"""

import subprocess
import time

import live
from varlink import Mrouter

LATE = 1.3  # seconds after which links have lost their carrier
LIMIT = 3.0
NAMES = [*live.LINKS, "lo", "alt1", "nowhere"]
SCOPES = ["global", "link", "host", "nowhere"]
TYPES = ["blackhole", "unreachable", "prohibit", "throw", "unicast", "local", "broadcast", "multicast", "anycast"]


class Test(live.Test):
    def __init__(self, mrib, mribd, seed):
        super().__init__(mrib, mribd, seed)
        self.changed, self.refused, self.flows, self.late = 0, 0, 0, True
        lines = [f"ip mroute 192.{net}.0.0/16 {rpf} {preference}" for net in range(8) for preference, rpf in
                 enumerate([f"10.{net}.0.9", self.random.choice(live.LINKS), f"192.{(net + 1) % 8}.0.1"], 1)]
        self.connection.call("Configure", commands=lines)
        self.sources = [f"{net}.{i}.0.{host}" for net in (10, 192) for i in range(8) for host in (2, 9)]
        # Before its first rule Linux also takes routes of the main table for local addresses and groups.
        subprocess.run("ip rule add from 192.0.2.77 lookup 77", shell=True, check=True)
        links = ["va", "d0", "br0", "vc"]
        self.mrouter = Mrouter(links)
        for source in self.sources:
            self.mrouter.add(source, "239.1.1.1", self.random.randrange(len(links)))

    def shell(self, command):
        # Whether these links will have a carrier when they come up, only their other end knows.
        uncertain = ["/all/", "/t0/", "/g0/", "/va/", "/new0/"]
        if "set new0 name" in command or ("linkdown" in command and any(name in command for name in uncertain)):
            return
        if "mroute" in command:
            command = command.replace(" alt", " d")
        super().shell(command)

    def question(self):
        """A change in the words of what-if, and the command that makes it; many that are to be refused."""
        r = self.random
        link, other = r.choice(NAMES), r.choice(NAMES)
        net, host, one = r.randrange(8), r.choice([1, 2, 9]), r.randrange(1, 4)
        prefix = r.choice([f"10.{net}.0.0/24", f"10.{net}.0.{host}", "10.0.0.0/13", "default", "198.51.100.0/24"])
        near = self.known_address() or (link, "127")
        near = (link, f"10.{net}.0.1/24") if near[1].startswith("127") else near
        gateway = f"{near[1].rpartition('.')[0]}.{r.choice([1, 2, 9, 9, 255])}"
        link = near[0] if r.random() < 0.4 else link
        metric = r.choice(["", "", f" metric {r.randrange(3)}", f" metric {r.randrange(3)} tos 0x10"])
        option = r.choice(["", "", f" scope {r.choice(SCOPES)}", f" src 10.{net}.0.{host}", f" scope {r.choice(SCOPES)}", " table main",
                           f" proto {r.choice(['static', 'kernel', 'boot'])}", f" nhid {one}", " frob"])
        beyond = f"{near[1].rpartition('.')[0]}.7"  # which of several links holds an address, only the kernel knows
        way = r.choice([f"via {beyond}", f"via {gateway} dev {link} onlink", f"dev {link}", f"nhid {one}", "",
                        f"dev {link} scope global", f"via {gateway} dev {link}", f"dev {link} src 10.{net}.0.1",
                        f"via inet6 fe80::9 dev {link}", f"nexthop via {beyond} weight 2 nexthop dev {link}",
                        f"nexthop via {gateway} dev {link} onlink nexthop via 10.1.0.9 dev {other} onlink"])
        verb = r.choice(["add", "replace", "replace", "append", "append", "prepend", "change", "del", "del"])
        route = f"{verb} {prefix}{metric}{option} {way}"
        if r.random() < 0.3:
            route = f"{verb} {r.choice(TYPES)} {prefix}{metric} table main{option} {r.choice(['', way, f'dev {link}'])}"
        if verb == "del" and r.random() < 0.7:
            route = f"del {self.known_prefix() or prefix} {r.choice(['', metric, option, way])}"
        address = self.known_address() if r.random() < 0.6 else None
        link_of, address = address or (link, f"{100 if link == 'lo' else r.choice([10, 10, 127])}.{net}.0.{host}/{r.choice([24, 24, 16, 32])}")
        mroute = f"mroute {prefix if '/' in prefix else '10.0.0.0/8'} {r.choice([gateway, link])}"
        state = "up" if link == "lo" else r.choice(["up", "down"])
        return r.choice([
            *[(f"link {link} {state}", f"ip link set {link} {state}")] * 2,
            *[(f"address {link_of} {verb} {address}", f"ip addr {verb} {address} dev {link_of}") for verb in ("add", "del", "del")],
            *[(f"route {route}", f"ip -4 route {route}")] * 5,
            (f"ip {mroute} {one}", f"{self.mrib} configure 'ip {mroute} {one}'"),
            (f"no ip {mroute}", f"{self.mrib} configure 'no ip {mroute}'")])

    def known_prefix(self):
        lines = subprocess.run(["ip", "route"], text=True, capture_output=True).stdout.splitlines()
        words = [line.split() for line in lines if not line.startswith((" ", "\t"))]
        return self.random.choice([each[each[0] in TYPES] for each in words]) if words else None

    def known_address(self):
        lines = subprocess.run(["ip", "-o", "-4", "addr"], text=True, capture_output=True).stdout.splitlines()
        known = [(words[1], words[3]) for words in map(str.split, lines) if words[1] != "lo" and "peer" not in words]
        return self.random.choice(known) if known else None

    # ---- Before and after ----

    def state(self):
        def rows(method, name):
            return {row["prefix"]: in_order(row) for row in self.connection.call(method)[name] if ":" not in row["prefix"]}
        answers = self.connection.call("Lookup", addresses=self.sources)["answers"]
        return {"ways": {a["source"]: [via["interface"] for via in a["route"]["vias"]] if a["status"] == "found" else None
                         for a in answers}, "routes": rows("ListRoutes", "routes"), "unicast": rows("ListUnicastRoutes", "routes"),
                "unresolved": {key(u): True for u in self.connection.call("ListUnresolved")["unresolved"]}}

    def rest(self, late):
        """Waits until nothing more comes of what was done."""
        time.sleep(LATE if late else 0.08)
        while self.connection.call("GetStatus")["stale"]:
            time.sleep(0.01)

    def case(self):
        """Asks until something can be done, and does it; what is refused, the kernel has to refuse. False: it did a part."""
        steps = [self.step() for _ in range(self.random.choice([0, 0, 1, 2]))]
        self.rest(self.late or any("ip link" in step or "nsenter" in step for step in steps))
        before = self.state()
        while True:
            questions = [self.question() for _ in range(self.random.choice([1, 1, 1, 2, 3]))]
            self.connection.send("WhatIf", changes=[words for words, _ in questions])
            answer = self.connection.next()
            what = steps + [words for words, _ in questions]
            ran = [subprocess.run(command, shell=True, text=True, capture_output=True) for _, command in questions]
            done = [each.returncode == 0 for each in ran]
            self.late = any("ip link" in command for _, command in questions)
            if "error" not in answer:
                break
            self.refused += 1
            if all(done):
                self.fail(f"after {what}: {answer} and yet it can be done")
            if any(done):
                return False
        if not all(done):
            self.fail(f"after {what}: {[each.stderr for each in ran]}, and yet {answer}")
        after = self.compare(what, expected(before, answer["parameters"], questions))
        self.compare_flows(what, before["ways"], after["ways"], answer["parameters"]["flows"])
        self.changed += bool(answer["parameters"]["changes"])
        return True

    def compare(self, what, right):
        end = time.monotonic() + LIMIT
        while True:
            after = self.state()
            is_right = all(after[part] == rows for part, rows in right.items())
            if is_right and not self.connection.call("GetStatus")["stale"]:
                return self.state()  # all of it at rest
            if time.monotonic() > end:
                break
            time.sleep(0.02)
        for part, rows in right.items():
            for name in rows.keys() | after[part].keys():
                if rows.get(name) != after[part].get(name):
                    print(f"{part} {name}: said {rows.get(name)}, is {after[part].get(name)}")
        self.fail(f"not what it is after {what}")

    def fail(self, why):
        subprocess.run("ip -br link; ip -br addr; ip route; ip route show table local; ip nexthop", shell=True)
        raise SystemExit(why)

    def compare_flows(self, what, before, after, flows):
        said = {(f["source"], f["interface"]): f["verdict"] for f in flows}
        mroutes = subprocess.run(["ip", "mroute"], text=True, capture_output=True).stdout.splitlines()
        entries = [line.replace(",", " ").replace("(", " ").split() for line in mroutes]
        right = {}
        for source, link in [(words[0], words[words.index("Iif:") + 1]) for words in entries]:
            was, now = link in (before[source] or []), link in (after[source] or [])
            if was != now:
                right[source, link] = "recovers" if now else "dies" if after[source] is None else "moves"
        if said != right:
            raise SystemExit(f"after {what}: flows {said}, and not {right}: {mroutes}")
        self.flows += len(said)

    def run(self, steps):
        answered = 0
        while answered < steps:
            answered += self.case()

    def summary(self):
        print(f"as it became: answers of which {self.changed} change the MRIB, {self.flows} verdicts of flows; "
              f"{self.refused} other questions were refused as the kernel refuses it")


def in_order(row):
    """Where an interface stands among the ways, its address decides, which is not told."""
    return row and {**row, "vias": sorted(row["vias"], key=str)}


def key(unresolved):
    return unresolved["prefix"], unresolved["rpf"], unresolved["preference"]


def expected(before, answer, questions):
    """What the answer makes of a state. What is not configured any more is not unresolved any more."""
    after = {part: dict(rows) for part, rows in before.items() if part != "ways"}
    after["unresolved"].update((key(u), True) for u in answer["unresolved"])
    for u in answer["resolved"]:
        del after["unresolved"][key(u)]
    for words in [words.split() for words, _ in questions if words.startswith("no ip mroute")]:
        after["unresolved"] = {k: True for k in after["unresolved"] if list(k[:2]) != words[3:5]}
    for part, changes in (("routes", answer["changes"]), ("unicast", answer["unicast"])):
        for change in changes:
            if after[part].get(change["prefix"]) != in_order(change["before"]):
                raise SystemExit(f"{part}: it is not so now: {change}")
            after[part][change["prefix"]] = in_order(change["after"])
        after[part] = {prefix: row for prefix, row in after[part].items() if row}
    return after


if __name__ == "__main__":
    live.main(Test, 30)
