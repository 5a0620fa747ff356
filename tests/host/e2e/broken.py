#!/usr/bin/env python3
"""Broken networks: `mrib explain` names the cause in its last line, and is right about what the kernel itself drops.

Each network is a namespace with three links; packets are put on their other ends. A packet that the kernel takes in and
may forward makes an entry in its multicast forwarding cache, whatever becomes of it there.

usage: broken.py MRIB
"""

import ctypes
import json
import os
import re
import socket
import struct
import subprocess
import sys
import tempfile
import time

from varlink import Mrouter, add_link, add_tunnel, ip, own_namespace

S, P = "203.0.113.9", "203.0.113.0/24"
TO_1, TO_2 = f"ip mroute {P} 10.0.1.7", f"ip mroute {P} 10.0.2.7"
STRICT, LOOSE = "sysctl eth1 rp_filter=1", "sysctl eth1 rp_filter=2"
NO_ROUTE = "route del default"
MODE = "ip multicast rpf-lookup-mode "

# What is broken; the lines that break it; the configuration; what is asked; the exit code; what the last line says.
NETWORKS = [
    ("nothing", [], [TO_1], S, 0, r"must come in by eth1: mrib.conf:1 \(ip mroute 203.0.113.0/24 10.0.1.7\) decides$"),
    ("wrong unicast route back", [], [], f"{S} --in eth1", 4, r"fail on eth1 and must come in by eth0: the unicast route 0.0.0.0/0"),
    ("tunnel without a static route", ["tunnel"], [], f"{S} --in tun0", 4, "by eth0: the unicast.*the MRIB has no route"),
    ("interface renamed", ["link set eth1 down", "link set eth1 name lan1", "link set lan1 up"], [f"ip mroute {P} eth1"], S, 0,
     r"by eth0: .*; mrib.conf:1 \(.* eth1\).* does not resolve: there is no such interface$"),
    ("backup hidden by a line that half resolves", [], [TO_1, f"ip mroute {P} 10.9.9.9", TO_2 + " 5"], S, 0,
     r"mrib.conf:1 .*; mrib.conf:2 .*no MRIB route leads to 10.9.9.9.*; mrib.conf:3 .* waits as long as one of preference 1"),
    ("better line gone", [], [f"ip mroute {P} tun0", TO_2 + " 5"], S, 0,
     r"by eth2: mrib.conf:2 .* decides; mrib.conf:1 .*of a better preference, does not resolve"),
    ("longer prefix does not resolve", [], ["ip mroute 203.0.0.0/16 10.0.2.7", f"ip mroute {P} 10.9.9.9"], S, 0,
     r"by eth2: mrib.conf:1 .*; mrib.conf:2 .*a longer match, does not resolve"),
    ("asymmetric paths", [f"route add {P} nexthop via 10.0.1.7 nexthop via 10.0.2.7"], [TO_1], f"{S} --in eth2", 4,
     "fail on eth2 and must come in by eth1: mrib.conf:1"),
    ("asymmetric paths, strict", [f"route add {P} nexthop via 10.0.0.7 nexthop via 10.0.2.7", STRICT], [TO_1], S, 0,
     "drops them there: rp_filter is 1 and the unicast route to 203.0.113.9 leaves by eth0 or eth2"),
    ("asymmetric paths, next-hop objects", ["nexthop add id 1 via 10.0.0.7 dev eth0", "nexthop add id 2 via 10.0.2.7 dev eth2",
     "nexthop add id 3 group 1/2", f"route add {P} nhid 3", "sysctl .. nexthop_compat_mode=0", STRICT], [TO_1], S, 0,
     "leaves by eth0 or eth2"),
    ("next hop is the router's own address", [], [f"ip mroute {P} 10.0.1.1"], S, 0, "10.0.1.1 .* is this router's own address"),
    ("source is the router's own address", [], [], "10.0.1.1 --in eth1", 4, "10.0.1.1 is this router's own address"),
    ("own address, taken by settings", ["sysctl eth1 accept_local=1"], [TO_1], "10.0.2.1 --in eth1", 4, "fail on eth1 and must come in by eth2"),
    ("source in a local route", [f"route add local {P} dev lo"], [TO_1], S, 0, r"a local route \(203.0.113.0/24\) makes"),
    ("source is a broadcast address", [STRICT], [], "10.0.1.255", 0, "10.0.1.255 is a broadcast address"),
    ("source is a loopback address", [], [], "127.9.9.9 --in eth1", 4, "127.9.9.9 is a loopback address$"),
    ("blackhole", [f"route add blackhole {P}"], [], S, 3, "no way in: the unicast route 203.0.113.0/24 is a blackhole"),
    ("blackhole behind a static route", [f"route add blackhole {P}", LOOSE], [TO_1], S, 0,
     "rp_filter is 2 and the unicast route to 203.0.113.9 is a blackhole; `sysctl -w net.ipv4.conf.eth1.rp_filter=0`"),
    ("unreachable behind a static route", [f"route add unreachable {P}", LOOSE], [TO_1], S, 0, "rp_filter is 2 and the unicast route"),
    ("prohibited behind a static route", [f"route add prohibit {P}", STRICT], [TO_1], S, 0, "rp_filter is 1 and the unicast route"),
    ("blackhole without a filter", [f"route add blackhole {P}"], [TO_1], S, 0, "by eth1: mrib.conf:1 .* decides$"),
    ("strict filter", [STRICT], [TO_1], S, 0, "the MRIB accepts .* on eth1 .*, the kernel drops them there: rp_filter is 1 and "
     "the unicast route to 203.0.113.9 leaves by eth0; `sysctl -w net.ipv4.conf.eth1.rp_filter=2`"),
    ("strict filter of all", ["sysctl all rp_filter=1"], [TO_1], f"{S} --in eth1", 4, "rp_filter=2` would change it$"),
    ("loose without a route", [NO_ROUTE, "sysctl all rp_filter=2"], [TO_1], S, 0, "rp_filter is 2 and there is no unicast route to "
     "203.0.113.9; `sysctl -w net.ipv4.conf.all.rp_filter=0`"),
    ("loose, unnumbered tunnel", ["tunnel", "route add 198.51.100.0/24 dev tun0", "sysctl tun0 rp_filter=2"], [f"ip mroute {P} tun0"],
     S, 0, "rp_filter is 2, tun0 has no IPv4 address, and the unicast route to 203.0.113.9 leaves by eth0"),
    ("policy rule", [f"rule add to {P} table 100", f"route add {P} via 10.0.2.7 table 100", STRICT], [TO_1], S, 0,
     r"leaves by eth2 \(table 100\)"),
    ("rule of other packets", ["rule add iif lo uidrange 100-100 table 100", f"route add {P} via 10.0.1.7 table 100", STRICT],
     [TO_1], S, 0, "the unicast route to 203.0.113.9 leaves by eth0;"),
    ("route of a better metric", [f"route add {P} via 10.0.1.7 metric 9", f"route add {P} via 10.0.2.7 metric 5", STRICT], [TO_1], S,
     0, "leaves by eth2"),
    ("no routing daemon", ["no daemon"], [TO_1], S, 0, "the kernel forwards no multicast from eth1: mc_forwarding is off"),
    ("link down", ["link set eth1 down"], [TO_1], S, 0,
     "by eth0: .*mrib.conf:1 .* no MRIB route leads to 10.0.1.7; 10.0.1.7 is on the subnet of eth1, which is down$"),
    ("link of an interface RPF down", ["link set eth1 down"], [f"ip mroute {P} eth1"], S, 0, "the interface has no connected route; it is down"),
    ("carrier lost", ["link set eth1p down"], [TO_1], S, 0, "by eth1: .* decides; eth1 has no carrier"),
    ("carrier lost, routes left alone", ["sysctl eth1 ignore_routes_with_linkdown=1", "link set eth1p down", "until dead"], [TO_1], S, 0,
     "no MRIB route leads to 10.0.1.7; 10.0.1.7 is on the subnet of eth1, which has no carrier"),
    ("interface without any route", ["tunnel"], [f"ip mroute {P} tun0"], S, 0, "mrib.conf:1 .* the interface has no IPv4 address"),
    ("circle held back", [], ["ip mroute 10.0.1.0/24 10.0.2.7", "ip mroute 10.0.2.0/24 eth1"], "10.0.2.9", 0,
     "mrib.conf:2 .* held back: .* circle, with mrib.conf:1"),
    ("covered by itself", [], ["ip mroute 10.8.0.0/16 10.0.1.7", "ip mroute 10.8.1.0/24 10.8.2.1"], "10.8.1.9", 0,
     "mrib.conf:2 .* 10.8.2.1 resolves through 10.8.0.0/16, which covers the prefix itself"),
    ("through itself", [], [TO_1, f"ip mroute {P} 203.0.113.7"], S, 0, "mrib.conf:2 .* it would resolve through itself"),
    ("only the default route", ["route replace default dev eth0"], [f"ip mroute {P} 198.51.100.1"], S, 0,
     "only the default route leads to 198.51.100.1"),
    ("unicast route in the middle", ["route add 198.51.100.0/24 via 10.0.1.7"], [f"ip mroute {P} 198.51.100.1"], S, 0,
     r"no MRIB route leads to 198.51.100.1; the unicast route to 198.51.100.1, 198.51.100.0/24, does not count"),
    ("broken far away", [], [f"ip mroute {P} 192.0.2.9", "ip mroute 192.0.2.0/24 198.51.100.9", "ip mroute 198.51.100.0/24 tun7"], S, 0,
     "mrib.conf:1 .*no MRIB route leads to 192.0.2.9.*, since mrib.conf:3 .* no such interface"),
    ("the MRIB alone", [], [MODE + "mrib-only"], S, 3, "mrib-only keeps the unicast table from being asked, which has 0.0.0.0/0"),
    ("the unicast table alone", [], [TO_1, MODE + "urib-only"], f"{S} --in eth1", 4, "by eth0: the unicast route 0.0.0.0/0"),
    ("longer unicast route", [f"route add {P} via 10.0.2.7"], ["ip mroute 203.0.0.0/16 10.0.1.7", MODE + "longer-prefix"],
     f"{S} --in eth1", 4, "by eth2: the unicast route 203.0.113.0/24 leads there, and by longer-prefix it comes before"),
    ("no route at all", [NO_ROUTE], [], S, 3, "neither the MRIB nor the unicast table has a route to it"),
]  # fmt: skip

groups = iter(range(0xEF010101, 0xEFFFFFFF))


def new_namespace():
    if ctypes.CDLL(None, use_errno=True).unshare(0x40000000):
        raise OSError(ctypes.get_errno(), "unshare")


def build(lines):
    """What has to be kept while the network is used: sockets, and descriptors of tunnels."""
    new_namespace()
    assert ip("link set lo up")
    kept, daemon = [], "no daemon" not in lines
    for i in range(3):
        assert add_link(f"eth{i}") and ip(f"addr add 10.0.{i}.1/24 dev eth{i}")
    assert ip("route add default via 10.0.0.254")
    if "tunnel" in lines:
        kept.append(os.fdopen(add_tunnel("tun0"), "w"))
    for setting in ("all rp_filter=0", *(f"{name} rp_filter=0" for _, name in socket.if_nameindex()),
                    *(line[7:] for line in lines if line.startswith("sysctl "))):
        where, _, value = setting.partition("=")
        with open("/proc/sys/net/ipv4/conf/" + where.replace(" ", "/"), "w", encoding="ascii") as file:
            file.write(value)
    for line in lines:
        if line.startswith("until "):
            wait_for_routes(line[6:])
            continue
        assert line in ("tunnel", "no daemon") or line.startswith("sysctl ") or ip(line), line
    if daemon:
        kept.append(Mrouter(links()))
    return kept


def wait_for_routes(word):
    """Carrier loss takes the kernel a second to tell its routes."""
    for _ in range(500):
        if word in subprocess.run(["ip", "route"], capture_output=True, text=True, check=True).stdout:
            return
        time.sleep(0.01)
    raise SystemExit(f"no route says {word}")


def links():
    return sorted(name for _, name in socket.if_nameindex() if re.fullmatch("(eth|lan)[0-9]", name))


def is_taken_in(source, link):
    """Whether a packet that comes in by a link gets as far as the multicast forwarding cache."""
    group = next(groups)
    packet = struct.pack("!BBHHHBBH4s4s", 0x45, 0, 29, 0, 0, 9, 17, 0, socket.inet_aton(source), struct.pack("!I", group))
    total = sum(struct.unpack("!10H", packet))
    total = (total & 0xFFFF) + (total >> 16)
    packet = packet[:10] + struct.pack("!H", 0xFFFF - total) + packet[12:] + struct.pack("!HHHHc", 9, 9, 9, 0, b"x")
    ethernet = struct.pack("!HI", 0x0100, 0x5E000000 | group & 0x7FFFFF) + b"\x02\0\0\0\0\1\x08\0"
    with socket.socket(socket.AF_PACKET, socket.SOCK_RAW) as sender:
        sender.bind((link.replace("lan", "eth") + "p", 0))
        sender.send(ethernet + packet)
    wanted = f"{socket.htonl(group):08X}"
    for _ in range(20):
        with open("/proc/thread-self/net/ip_mr_cache", encoding="ascii") as cache:
            if wanted in cache.read():
                return True
        time.sleep(0.001)
    return False


def explained(mrib, question, *options):
    return subprocess.run([mrib, "--once", "-c", "mrib.conf", *options, "explain", *question.split()], text=True,
                          capture_output=True)


def explained_from_files(mrib, question):
    """The last line that another machine prints from what `ip` saves here."""
    for words, file in (("link", "link"), ("addr", "addr"), ("route", "route"), ("nexthop", "nexthop"), ("-4 netconf", "netconf")):
        with open(file + ".json", "w", encoding="utf-8") as saved:
            subprocess.run(["ip", "-j", *words.split()], stdout=saved, check=True)
    command = [mrib, "--from", ".", "-c", "mrib.conf", "explain", *question.split()]
    return subprocess.run(command, text=True, capture_output=True, check=False).stdout.splitlines()[-1]


def faults(mrib, lines, config, question, code, expected):
    kept = build(lines)
    with open("mrib.conf", "w", encoding="utf-8") as file:
        file.write("".join(line + "\n" for line in config))
    said = explained(mrib, question)
    last = said.stdout.splitlines()[-1] if said.stdout else said.stderr
    if said.returncode != code or not re.search(expected, last):
        yield f"{said.returncode}: {last}"
    if not re.search("rule|local", " ".join(lines)) and (from_files := explained_from_files(mrib, question)) != last:
        yield f"from files: {from_files}"
    source = question.split()[0]
    for link in links():
        document = json.loads(explained(mrib, f"{source} --in {link}", "-j").stdout)
        checks = [step["kernel"] for step in document["steps"] if "kernel" in step]
        says = checks[0]["cause"] == "none" and checks[0]["multicastForwarding"]
        if has_carrier(link) and says != is_taken_in(source, link):
            yield f"in by {link}: the kernel {'drops' if says else 'takes'} it: {checks}"
    for each in kept:
        each.close()


def has_carrier(link):
    shown = json.loads(subprocess.run(["ip", "-j", "link", "show", link], capture_output=True, check=True).stdout)
    return "LOWER_UP" in shown[0]["flags"]


def main(mrib):
    mrib = os.path.abspath(mrib)
    failed = 0
    with tempfile.TemporaryDirectory(prefix="mrib-broken-") as folder:
        os.chdir(folder)
        for name, *network in NETWORKS:
            found = list(faults(mrib, *network))
            failed += bool(found)
            print(f"{'FAILED' if found else 'named'}: {name}", *found, sep="\n  " if found else "")
        os.chdir("/")
    sys.exit(1 if failed else 0)


if __name__ == "__main__":
    own_namespace()
    main(*sys.argv[1:])
