#!/usr/bin/env python3
"""What is said of the kernel's multicast forwarding, with real packets: smcroute, FRR, and a routing daemon that does
what the test wants.

usage: flows.py MRIB MRIBD
"""

import contextlib
import json
import os
import re
import shutil
import subprocess
import sys
import tempfile
import time

from varlink import SKIPPED, Daemon, Mrouter, ip, own_namespace

FRR = "/usr/lib/frr/"
SEND = """import socket, sys
s = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
s.setsockopt(0, socket.IP_MULTICAST_TTL, 8)
s.setsockopt(0, socket.IP_MULTICAST_IF, socket.inet_aton(sys.argv[1]))
s.bind((sys.argv[2], 0))
for _ in range(9): s.sendto(b"x", (sys.argv[3], 5000))
"""
JOIN = """import socket, sys, time
s = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
s.setsockopt(0, 39, b"".join(map(socket.inet_aton, sys.argv[1:])))  # IP_ADD_SOURCE_MEMBERSHIP
time.sleep(1000)
"""
faults = []


def expect(holds, what):
    if not holds:
        faults.append(what)
        print("FAILED:", what, file=sys.stderr)


def run(*words):
    return subprocess.run(words, capture_output=True, text=True, check=False)


class Hosts:
    """Beyond each of the links e1, e2 and e3 there is a host, with the address .2 and those that it claims."""

    def __init__(self):
        self.hosts = {}
        for n in (1, 2, 3):
            host = subprocess.Popen(["unshare", "-n", "sleep", "inf"])
            self.hosts[n] = host.pid
            time.sleep(0.2)
            ip(f"link add e{n} type veth peer name p{n}", f"link set p{n} netns {host.pid}", f"link set e{n} up",
               f"addr add 10.{n}.0.1/24 dev e{n}")
            self.inside(n, "ip", "link", "set", f"p{n}", "up")
            self.claim(n, f"10.{n}.0.2/24")
            self.inside(n, "ip", "route", "add", "default", "via", f"10.{n}.0.1")
        for name in ("all", "default", "e1", "e2", "e3"):
            filter_is(name, 0)

    def inside(self, n, *words):
        return run("nsenter", "-t", str(self.hosts[n]), "-n", *words)

    def claim(self, n, address):
        self.inside(n, "ip", "addr", "add", address, "dev", f"p{n}")

    def send(self, n, source, group):
        """Nine packets."""
        sent = self.inside(n, sys.executable, "-c", SEND, f"10.{n}.0.2", source, group)
        assert sent.returncode == 0, sent


def filter_is(name, value):
    with open(f"/proc/sys/net/ipv4/conf/{name}/rp_filter", "w") as file:
        file.write(str(value))


class Asker:
    def __init__(self, mrib, daemon):
        self.command = [mrib, "--socket", daemon.path]

    def mrib(self, *words):
        return run(*self.command, *words)

    def check(self, *words, meanwhile=None):
        """What is said of flows; `meanwhile` is done between the two readings."""
        options = ["--interval", "1.5" if meanwhile else "0"]
        asked = subprocess.Popen([*self.command, "-j", "check", *words, *options], stdout=subprocess.PIPE, text=True)
        if meanwhile:
            time.sleep(0.5)
            meanwhile()
        document = json.loads(asked.communicate()[0])
        bad = sum(document["summary"][verdict] for verdict in ("wrong", "notFollowed", "dropped", "noRpf"))
        expect(asked.returncode == (4 if bad else 0), f"exit code {asked.returncode} of {document['summary']}")
        return document["flows"]

    def flow(self, *words, meanwhile=None):
        flows = self.check(*words, meanwhile=meanwhile)
        return flows[0] if len(flows) == 1 else {"verdict": f"{len(flows)} flows", "why": str(flows)}

    def expect(self, what, verdict, why, *words, meanwhile=None):
        flow = self.flow(*words, meanwhile=meanwhile)
        expect(flow["verdict"] == verdict and why in flow["why"], f"{what}: {flow}")
        return flow


@contextlib.contextmanager
def running(*words):
    process = subprocess.Popen(words, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    try:
        yield process
    finally:
        process.terminate()
        process.wait()


def until(what, holds, limit=15):
    end = time.monotonic() + limit
    while not holds():
        if time.monotonic() > end:
            expect(False, what + " in time")
            return
        time.sleep(0.1)


# ---- smcroute ----

SMCROUTE = """phyint e1 enable
phyint e2 enable
phyint e3 enable
mroute from e1 source 10.1.0.2 group 239.1.1.1 to e2 e3
mroute from e3 source 10.50.0.9 group 239.1.1.2 to e2
"""


def with_smcroute(hosts, asker, folder):
    with open(folder + "/smcroute.conf", "w") as file:
        file.write(SMCROUTE)
    with running("smcrouted", "-n", "-f", folder + "/smcroute.conf", "-i", f"mrib{os.getpid()}",
                 "-u", folder + "/smcroute", "-P", folder + "/smcroute.pid"):
        until("smcroute's entries", lambda: len(asker.check()) == 2)
        flow = asker.expect("a flow as it should be", "right", "", "10.1.0.2",
                            meanwhile=lambda: hosts.send(1, "10.1.0.2", "239.1.1.1"))
        expect(flow["growth"] == {"packets": 9, "wrongPackets": 0} and flow["outgoing"] == ["e2", "e3"], flow)
        hosts.claim(2, "10.1.0.2/32")
        flow = asker.expect("a source that has moved", "wrong", "all packets of late (9) came in by other interfaces",
                            "239.1.1.1", meanwhile=lambda: hosts.send(2, "10.1.0.2", "239.1.1.1"))
        expect(flow["growth"] == {"packets": 9, "wrongPackets": 9}, flow)
        with_another_rpf(hosts, asker)
        with_strict_filter(hosts, asker)


def with_another_rpf(hosts, asker):
    watch = subprocess.Popen([*asker.command, "check", "--watch", "--interval", "0.2", "10.1.0.0/24"],
                             stdout=subprocess.PIPE, text=True)
    for line in watch.stdout:
        if line.startswith("1 flow"):
            break
    expect(asker.mrib("configure", "ip mroute 10.1.0.0/24 e2").returncode == 0, "the configuration is taken")
    flow = asker.expect("an entry that does not follow", "wrong",
                        "packets must come in by e2: the command line (ip mroute 10.1.0.0/24 e2)", "10.1.0.2",
                        meanwhile=lambda: hosts.send(2, "10.1.0.2", "239.1.1.1"))
    expect(flow["incoming"] == "e1" and flow["expected"] == ["e2"], flow)
    said = watch.stdout.readline() + watch.stdout.readline()
    expect(re.match(r"wrong +10\.1\.0\.2 +239\.1\.1\.1 +e1 +e2 .*\n  packets must come in by e2", said), said)
    watch.terminate()
    watch.wait()
    text = asker.mrib("check", "--interval", "0").stdout
    expect(text.splitlines()[3].startswith("wrong ") and text.endswith("\n2 flows: 1 wrong, 1 no RPF\n"), text)
    asker.mrib("configure", "no ip mroute 10.1.0.0/24 e2")


def with_strict_filter(hosts, asker):
    """A static multicast route beside another unicast route, which is what such routes are for."""
    ip("route add default via 10.1.0.2")
    asker.mrib("configure", "ip mroute 10.50.0.0/16 e3")
    hosts.claim(3, "10.50.0.9/32")
    packets = lambda: hosts.send(3, "10.50.0.9", "239.1.1.2")
    flow = asker.expect("a flow without a filter", "right", "", "10.50.0.9", meanwhile=packets)
    expect(flow["growth"]["packets"] == 9, flow)
    filter_is("e3", 1)
    flow = asker.expect("a flow that rp_filter drops", "dropped", "rp_filter is 1 and the unicast route to 10.50.0.9 leaves"
                        " by e1; `sysctl -w net.ipv4.conf.e3.rp_filter=2` would change it", "10.50.0.9", meanwhile=packets)
    expect(flow["growth"] == {"packets": 0, "wrongPackets": 0}, flow)
    filter_is("e3", 2)
    asker.expect("a flow that a loose filter lets pass", "right", "", "10.50.0.9", meanwhile=packets)


# ---- A routing daemon that does what is wanted ----

def with_own_daemon(hosts, asker):
    mrouter = Mrouter(["e1", "e2", "e1"])
    hosts.send(1, "10.1.0.2", "239.2.2.2")
    asker.expect("a flow that nobody answers", "unresolved", "no routing daemon has said", "239.2.2.2")
    hosts.claim(1, "192.0.2.9/32")
    ip("route del default")
    hosts.send(1, "192.0.2.9", "239.2.2.4")
    asker.expect("a source that nothing leads to", "noRpf", "packets from 192.0.2.9 have no way in", "192.0.2.9")
    mrouter.add("10.3.0.2", "239.2.2.5", mrouter.registers, [1])
    asker.expect("a flow that comes in registers", "registered", "", "239.2.2.5")
    mrouter.add("0.0.0.0", "0.0.0.0", 0, [0, 1], proxy=True)
    mrouter.add("0.0.0.0", "239.2.2.3", 0, [1], proxy=True)
    packets = lambda: hosts.send(2, "10.2.0.2", "239.2.2.3")
    flow = asker.expect("an entry for any source", "anySource", "packets of any source are taken from e1", "239.2.2.3",
                        meanwhile=packets)
    expect(flow["source"] is None and flow["growth"] == {"packets": 9, "wrongPackets": 0}, flow)
    proxies = [flow["why"] for flow in asker.check("0.0.0.0") if flow["group"] is None]
    expect(proxies == ["a proxy entry: packets of any source and group from e1 or e2 go to e1"], proxies)
    return mrouter


def metrics(asker, interface):
    """By Prometheus' own tool where that is; by the format's rules: fuzz/WritersFuzz.cc."""
    text = asker.mrib("metrics", "--interval", "0").stdout
    escaped = interface.replace("\\", "\\\\").replace('"', '\\"').replace("\x1b", "\\\\x1B")
    expect(f'mrib_multicast_packets_total{{interface="{escaped}",table="253",direction="in"}}' in text, text)
    expect('\nmrib_flows{verdict="anySource"} 2\n' in text, text)
    samples = [line.rsplit(" ", 1)[0] for line in text.splitlines() if not line.startswith("#")]
    expect(len(samples) == len(set(samples)), "an interface that was added twice: " + text)
    if shutil.which("promtool"):
        checked = subprocess.run(["promtool", "check", "metrics"], input=text, capture_output=True, text=True, check=False)
        expect(checked.returncode == 0, checked)


def many(mrouter, asker, count):
    """More than the kernel tells in one piece."""
    for i in range(count):
        mrouter.add(f"10.1.{i >> 8 & 255}.{i & 255}", f"239.{3 + (i >> 16)}.0.1", i % 2, [1])
    flows = asker.check("239.3.0.0/16")
    expect(len(flows) == count, f"{len(flows)} flows")


# ---- FRR ----

def with_frr(hosts, asker, folder):
    """FRR reads no table here, as if somebody had forgotten to tell it: it does not follow."""
    shutil.chown(folder, "frr", "frr")
    common = ["-u", "frr", "-g", "frr", "-z", folder + "/zserv", "--vty_socket", folder, "--log", "stdout"]
    receiver = ["nsenter", "-t", str(hosts.hosts[2]), "-n", sys.executable, "-c", JOIN, "232.1.1.1", "10.2.0.2", "10.1.0.2"]
    with contextlib.ExitStack() as stack:
        for name, lines in (("zebra", ""), ("pimd", "interface e1\n ip pim\ninterface e2\n ip pim\n ip igmp\n")):
            with open(f"{folder}/{name}.conf", "w") as file:
                file.write(lines)
            stack.enter_context(running(FRR + name, *common, "-f", f"{folder}/{name}.conf", "-i", f"{folder}/{name}.pid"))
            time.sleep(1)
        stack.enter_context(running(*receiver))
        until("FRR's entry", lambda: [f for f in asker.check("232.1.1.1") if f["outgoing"]], 30)
        asker.expect("a flow by FRR", "right", "", "232.1.1.1", meanwhile=lambda: hosts.send(1, "10.1.0.2", "232.1.1.1"))
        asker.mrib("configure", "ip mroute 10.1.0.0/24 10.3.0.2")
        time.sleep(1.5)
        asker.expect("a route that FRR does not follow", "notFollowed",
                     "FRR does not follow the exported table, which has said e3 for ",
                     "232.1.1.1")
        asker.mrib("configure", "no ip mroute 10.1.0.0/24 10.3.0.2")


def main():
    own_namespace()
    hosts = Hosts()
    folder = tempfile.mkdtemp(prefix="mrib-flows-")
    config = folder + "/mrib.conf"
    with open(config, "w") as file:
        file.write("ip multicast export-table 250\n")
    daemon = Daemon(sys.argv[2], config)
    asker = Asker(sys.argv[1], daemon)
    tools = {"smcroute": shutil.which("smcrouted"), "FRR": os.access(FRR + "pimd", os.X_OK)}
    try:
        if tools["smcroute"]:
            with_smcroute(hosts, asker, folder)
        if tools["FRR"]:
            with_frr(hosts, asker, folder)
        mrouter = with_own_daemon(hosts, asker)
        run("ip", "link", "set", "e2", "down")
        run("ip", "link", "set", "e2", "name", 'e"2\\\x1b')
        metrics(asker, 'e"2\\\x1b')
        many(mrouter, asker, 20000)
    finally:
        for pid in hosts.hosts.values():
            os.kill(pid, 15)
        expect(daemon.stop()[0] == 0, "the daemon's end")
        shutil.rmtree(folder)
    missing = [name for name, there in tools.items() if not there]
    if missing and not faults:
        print("skipped in part: not installed:", ", ".join(missing))
        sys.exit(SKIPPED)
    sys.exit(bool(faults))


main()
