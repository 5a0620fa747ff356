#!/usr/bin/env python3
"""Faults beside a running daemon, one row each. After each one, and again when the world is as it was, the daemon has
to say what a fresh start says, within a second and without a restart; its descriptors and its memory have to be what
they were, and its log has to name the fault in one line. The rows that take long only with --all.

usage: faults.py MRIB MRIBD [--all] [WORD OF A ROW'S NAME ...]
"""

import os
import random
import re
import resource
import signal
import socket
import subprocess
import sys
import threading
import time
import traceback
from contextlib import suppress
from dataclasses import dataclass
from pathlib import Path

from varlink import Daemon, add_link, add_tunnel, ip, own_namespace

LIMIT = 1.0  # seconds
SANITIZED = b"__asan_init" in Path(sys.argv[2]).read_bytes()
ROOM = 1 << (30 if SANITIZED else 20)  # bytes that the daemon may hold more; a sanitizer keeps what is freed
LINES = """ip mroute 203.0.113.0/24 10.1.0.2
ip mroute 203.0.113.0/24 d2 250
ip mroute 203.0.113.128/25 203.0.113.7
ip mroute 100.64.0.0/10 99.0.0.1
"""
LINKS = ("d0", "d1", "d2")
WAYS = [*(f"addr add 10.{i}.0.1/24 dev d{i}" for i in range(3)), "addr add 10.1.0.3/24 dev d1",
        "nexthop add id 1 via 10.1.0.2 dev d1", "nexthop add id 2 via 10.2.0.2 dev d2", "nexthop add id 3 group 1/2",
        "route add 192.0.2.0/24 nhid 3", "route add 198.51.100.0/24 via 10.1.0.2"]
HOSTILE = [b'a"b', b"\\x41'", b"\x1b[2J", b"\xff\xfe", b"$(reboot)", b"<b>&amp;", b"!#;,|", b"1.2.3.4", b"null", b"..a"]
FEW = ("setpriv", "--bounding-set=-all", "--inh-caps=-all")  # and a receive buffer of the ordinary size
SIGNALS = [signal.SIGHUP, signal.SIGPIPE, signal.SIGCONT, signal.SIGWINCH, signal.SIGCHLD, signal.SIGURG]
MANAGER = f"mrib-faults-{os.getpid()}"


def nets(count):
    return [f"{20 + (i >> 16)}.{i >> 8 & 255}.{i & 255}.0/24" for i in range(count)]


def mroutes(count):
    return "".join(f"ip mroute {net} 10.1.0.2\n" for net in nets(count))


class World:
    def __init__(self, mrib, mribd, prefix, limit):
        self.mrib, self.limit = mrib, limit
        self.folder = subprocess.check_output(["mktemp", "-d"], text=True).strip()
        self.etc = self.folder + "/etc"
        os.mkdir(self.etc)
        self.config = self.etc + "/mrib.conf"
        self.daemon = None
        self.rebuild()
        self.daemon = Daemon(mribd, self.config, ("setpriv", "--pdeathsig=KILL", *prefix))
        self.heard = len(self.daemon.messages())

    # ---- What is there ----

    def rebuild(self):
        """The world as it was; the links of a group go at once."""
        names = {os.fsencode(name) for _, name in socket.if_nameindex()} - {b"lo"}
        for name in names.intersection(HOSTILE):
            subprocess.run([b"ip", b"link", b"del", name], check=True)
        ip(*(f"link set {name.decode()} group 7" for name in names.difference(HOSTILE)), "link del group 7")
        assert all([add_link(name) for name in LINKS]) and ip(*WAYS)
        self.write(LINES)

    def write(self, text):
        subprocess.run(["rm", "-rf", self.config], check=True)
        with open(self.config, "w") as file:
            file.write(text)
        if self.daemon:
            connection = self.daemon.connect()
            connection.send("Reload")
            return connection.next()
        return None

    @property
    def pid(self):
        return self.daemon.process.pid

    def restart(self):
        """Seconds until it says what a fresh start says."""
        self.daemon.process.wait()
        begin = time.monotonic()
        self.daemon.start()
        return time.monotonic() - begin + self.equal()

    # ---- What has to be so ----

    def running(self):
        with open(self.folder + "/running", "w") as file:
            file.write(self.daemon.connect().whole("GetConfiguration", "text", ""))
        return file.name

    def says(self, *where):
        """All answers, without what differs by nature: who answers, the generation, the names of files."""
        asked = [subprocess.Popen([self.mrib, *where, "-j", *words], stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
                 for words in ([], ["unicast"])]
        said = b"".join([each.communicate()[0] for each in asked])
        said = re.sub(rb'^  "(answeredBy|generation|stale)":.*\n', b"", said, flags=re.M)
        return re.sub(rb'"[^"]*(mrib\.conf|running):\d+', b'"', said)

    def equal(self):
        """Seconds until the daemon's answer is that which turns out to be the right one."""
        begin, last = time.monotonic(), None
        while True:
            asked, answers = time.monotonic(), self.says("--socket", self.daemon.path)
            if answers != last:
                since, last = asked, answers
            if last == self.says("--once", "-c", self.running()) == self.says("--socket", self.daemon.path):
                assert since - begin < self.limit, f"equal only after {since - begin:.2f} s"
                return since - begin
            if asked - begin > self.limit + 9:
                fresh = self.says("--once", "-c", self.running())
                raise AssertionError(f"not equal: {sorted(set(last.splitlines()) ^ set(fresh.splitlines()))[:20]}")

    def state(self):
        """What a fault must leave as it found it."""
        return self.daemon.connect().call("GetStatus")["links"], self.says("--socket", self.daemon.path)

    def descriptors(self):
        return len(os.listdir(f"/proc/{self.pid}/fd"))

    def memory(self, which=1):
        with open(f"/proc/{self.pid}/statm") as file:
            return int(file.read().split()[which]) * resource.getpagesize()

    def until(self, what, holds, limit=LIMIT):
        end = time.monotonic() + limit
        while not holds():
            assert time.monotonic() < end, f"{what}: not within {limit} s"
            time.sleep(0.01)


# ---- Faults that need more than a line ----

def overrun(w):
    """Messages of 2.5 KiB: of smaller ones more would be needed, and the kernel yields the processor for each."""
    with socket.socket(socket.AF_NETLINK, socket.SOCK_RAW) as like:
        like.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 8 << 20)
        room = like.getsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF) // 2500
    large = " nexthop via 10.0.0.2" * 160
    os.kill(w.pid, signal.SIGSTOP)
    assert ip(*(f"route replace {net}{large}" for net in nets(room // 2)), *(f"route del {net}" for net in nets(room // 2)[9:]))
    os.kill(w.pid, signal.SIGCONT)


def overrun_in_resync(w):
    for _ in range(3):
        overrun(w)
        time.sleep(random.uniform(0.05, 0.08))  # a reading begins 50 ms after the first cause
    assert w.daemon.connect().call("GetStatus")["mirror"]["overruns"] == 3


def comes_and_goes(w):
    w.write(LINES + "ip mroute 198.18.0.0/15 new0\nip mroute 198.18.0.0/15 d0 7\n")
    for line in ("link add new0 type bridge", "link set new0 up", "addr add 10.9.0.1/24 dev new0", "link set new0 down",
                 "link set new0 name new1", "link set new1 name new0", "link set new0 up", "link del new0"):
        assert ip(line)
        w.equal()


def tunnel(w):
    """A static route over an unnumbered tunnel, whose second preference takes over while it is down."""
    held = add_tunnel("tun0")
    assert ip("route add 198.51.100.0/25 dev tun0")
    w.write("ip mroute 203.0.113.0/24 tun0\nip mroute 203.0.113.0/24 10.2.0.7 250\n")
    for line, way in (("link set tun0 down", "d2"), ("link set tun0 up", None), ("route replace 198.51.100.0/25 dev tun0", "tun0"),
                      ("addr add 10.1.0.1/32 dev tun0", "tun0"), ("link set tun0 down", "d2")):
        assert ip(line)
        w.equal()
        said = subprocess.run([w.mrib, "--socket", w.daemon.path, "rpf", "203.0.113.5"], capture_output=True, text=True).stdout
        assert way is None or f"RPF interface: {way}\n" in said and ("directly connected" in said) == (way == "tun0"), said
    os.close(held)


def hostile(w):
    for i, name in enumerate(HOSTILE, 1):
        for words in (b"link add name %s type bridge", b"link set %s up", b"addr add 10.9.%d.1/24 dev %%s" % i,
                      b"route add 20.%d.0.0/24 dev %%s" % i):
            subprocess.run([b"ip"] + [name if word == b"%s" else word for word in words.split()], check=True)
    routes = w.daemon.connect().whole("ListRoutes", "routes", [])
    ways = {r["prefix"]: r["vias"][0]["interface"] for r in routes if r["prefix"].startswith("20.")}
    assert len(set(ways.values())) == len(HOSTILE)
    w.write("".join(f'ip mroute {prefix} {written(name)}\n' for prefix, name in zip(sorted(ways, key=len), HOSTILE)))
    w.equal()
    text = subprocess.run([w.mrib, "--socket", w.daemon.path], capture_output=True, check=True).stdout
    assert all(32 <= byte < 127 or byte == 10 for byte in text), text
    assert w.daemon.connect().call("ListUnresolved")["unresolved"] == []
    for i, name in enumerate(HOSTILE, 1):
        said = subprocess.run([w.mrib, "--socket", w.daemon.path, "explain", f"20.{i}.0.9", "--in", name], capture_output=True)
        assert b"there is no interface" not in said.stderr and said.stdout, said


def written(name):
    return '"' + "".join(f"\\x{byte:02x}" if byte in b'"\\' or not 32 <= byte < 127 else chr(byte) for byte in name) + '"'


def killed(w):
    """At random times, also while it starts or writes its configuration."""
    w.write(mroutes(10000))
    times = []
    for i in range(7):
        saving = subprocess.Popen([w.mrib, "--socket", w.daemon.path, "configure", "--save",
                                   f"ip mroute 100.{i}.0.0/16 10.0.0.9"], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        time.sleep(random.uniform(0, 0.1))
        w.daemon.process.kill()
        w.daemon.process.wait()
        saving.wait()
        ip(f"link set d2 {['up', 'down'][i % 2]}")
        w.daemon.process = subprocess.Popen(w.daemon.command, stderr=w.daemon.log)
        time.sleep(random.uniform(0, 0.1))
        w.daemon.process.kill()
        times.append(w.restart())
    print("back and equal after", *(f"{1000 * each:.0f}" for each in sorted(times)), "ms")
    assert sorted(times)[len(times) // 2] < 0.5


def cut(w):
    for end in range(len(LINES)):
        before = open(w.running()).read()
        refused = "error" in w.write(LINES[:end])
        if refused:
            assert open(w.running()).read() == before
        elif end % 8 == 0 or LINES[end - 1] == "\n":
            w.equal()


def full_disk(w):
    subprocess.run(f"mount -t tmpfs -o size=16k none {w.etc} && cp {w.folder}/running {w.config}; "
                   f"cat /dev/zero >{w.etc}/big 2>/dev/null", shell=True, check=False)
    before, names = open(w.config).read(), os.listdir(w.etc)
    connection = w.daemon.connect()
    connection.send("Configure", commands=[f"ip mroute {net} 10.1.0.9" for net in nets(300)], save=True)
    assert "No space left" in str(connection.next())
    assert open(w.config).read() == before == open(w.running()).read() and os.listdir(w.etc) == names
    subprocess.run(["umount", w.etc], check=True)


def no_descriptors(w):
    most = resource.prlimit(w.pid, resource.RLIMIT_NOFILE)
    resource.prlimit(w.pid, resource.RLIMIT_NOFILE, (w.descriptors() + 1, most[1]))
    clients = [w.daemon.connect() for _ in range(5)]
    w.until("the log", lambda: "no client can be accepted" in w.daemon.messages())
    ip("link set d1 down")
    time.sleep(0.2)
    resource.prlimit(w.pid, resource.RLIMIT_NOFILE, most)
    assert all(not each.call("GetStatus")["stale"] for each in clients)


def no_memory(w):
    resource.prlimit(w.pid, resource.RLIMIT_AS, (w.memory(0) + (1 << 20), resource.RLIM_INFINITY))
    ip(*(f"route add {net} dev d0" for net in nets(12000)))
    assert w.daemon.process.wait(5) == 2
    assert w.restart() < 0.5


def rude(request, piece, limit):
    """A client that is dropped when its time is over."""
    def run(w):
        connection = w.daemon.connect()
        threading.Thread(target=lambda: send(connection.socket), daemon=True).start()
        w.until("the log", lambda: "is dropped" in w.daemon.messages(), limit)

    def send(to):
        with suppress(OSError):
            for i in range(0, len(request), piece):
                to.sendall(request[i:i + piece])
                time.sleep(1)
    return run


def malicious(w):
    for bad in (b'{"method":"org.mrib.Lookup","parameters":{"addresses":["' + b"9" * 60000 + b'"]}}', b'{"method":1}',
                b'{"method":"org.mrib.Lookup","parameters":{"addresses":' + b"[" * 30 + b"]" * 30 + b"}}",
                b'{"method":"org.mrib.Configure","parameters":{"commands":["no ip mroute 203.0.113.0/24 \\u0000"]}}',
                b'{"method":"org.mrib.ListRoutes","parameters":{"prefix":"1.2.3.4/33","longer":7}}',
                b"\xff\xfe", b"[" * 60000, b"x" * 70000, b"\0" * 60000):
        connection = w.daemon.connect()
        connection.socket.sendall(bad + b"\0")
        assert "error" in connection.next(), bad[:60]


def connections(w):
    for i in range(10000):
        connection = w.daemon.connect()
        if i % 2:
            connection.send("ListUnicastRoutes", more=True)
        connection.socket.close()


def vanishes(w):
    ip(*(f"route add {net} dev d0" for net in nets(5000)))
    for i in range(50):
        connection = w.daemon.connect()
        for _ in range(20):
            connection.send("ListUnicastRoutes", more=True)
        connection.socket.recv(1 + i * 999)
        connection.socket.close()


def reader_vanishes(w):
    """Nothing changes meanwhile: what prints has to find out by itself."""
    for words in ("monitor", "watch 10.0.0.9", "check --watch --interval 0.1"):
        for who in ("--socket " + w.daemon.path, "--once"):
            run = subprocess.run(f"{w.mrib} {who} {words} 2>/dev/null | head -n 1", shell=True, timeout=5, capture_output=True)
            assert run.stdout, words


def closed(w):
    """Else the log would go to the kernel, by a socket of netlink."""
    assert {os.readlink(f"/proc/{w.pid}/fd/{fd}") for fd in range(3)} == {"/dev/null"}


def stuck(w):
    manager = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
    manager.bind("\0" + MANAGER)
    manager.settimeout(0.3)  # a watchdog of 200 ms, with patience

    def hears():
        try:
            return b"WATCHDOG=1" in manager.recv(999) or hears()
        except TimeoutError:
            return False
    assert hears() and hears() and hears()
    os.kill(w.pid, signal.SIGSTOP)
    while hears():
        pass
    w.daemon.process.kill()
    assert w.restart() < 0.5 and hears()


def million_lines(w):
    difference = w.write(mroutes(1000000))["parameters"]["difference"]
    assert len(difference["added"]) == 20000 and difference["left"] >= 980000, difference["left"]


def ten_thousand_links(w):
    ip(*(f"link add p{i} type veth peer name q{i}" for i in range(5000)), *(f"link set q{i} up" for i in range(5000)),
       *(f"link set p{i} up" for i in range(5000)), *(f"addr add 10.9.{i >> 6}.{4 * (i & 63) + 1}/30 dev p{i}" for i in range(5000)))


@dataclass
class Row:
    name: str
    fault: object  # lines of ip, or of a shell after "$ ", or a function of the world
    says: str = None  # what one line of the log has
    prefix: tuple = ()
    lines: int = 1  # of the log
    restarts: bool = False
    turns: int = 2  # the second one finds the memory that the first one took
    limit: float = LIMIT  # more where there is much to read
    heavy: bool = False


READ_AGAIN = "configuration read again"
ROWS = [
    Row("link down", "link set d1 down"),
    Row("link down and up", "link set d1 down\nlink set d1 up"),
    Row("link deleted", "link del d1"),
    Row("link in a bridge", "link add br0 type bridge\nlink set d1 master br0\nlink set br0 up\nlink del br0"),
    Row("link moved to another namespace", "$ unshare -n sleep 1 & sleep 0.2; ip link set d1 netns $!"),
    Row("address deleted, and its secondary", "addr del 10.1.0.1/24 dev d1"),
    Row("addresses flushed", "addr flush dev d1"),
    Row("next hop deleted", "nexthop del id 1"),
    Row("next hops flushed", "nexthop flush"),
    Row("carrier lost", "link set d1p down"),
    Row("carrier lost, and not to be used", "$ echo 1 >/proc/sys/net/ipv4/conf/d1/ignore_routes_with_linkdown; ip link set d1p down"),
    Row("name used again", "link set d1 name old\nlink add d1 type veth peer name d9\nlink set d1 up\naddr add 10.1.0.1/24 dev d1"),
    Row("index used again", "$ i=$(cat /proc/net/if_inet6 | wc -l); n=$(ip -o link show d1 | cut -d: -f1); ip link del d1;"
        "ip link add d1 index $n type bridge; ip link set d1 up; ip addr add 10.2.0.9/24 dev d1"),
    Row("names exchanged", "link set d1 name x\nlink set d2 name d1\nlink set x name d2"),
    Row("configured interface comes and goes", comes_and_goes),
    Row("unnumbered tunnel", tunnel),
    Row("hostile names", hostile),
    Row("129 next hops", "route add 20.0.0.0/8" + "".join(f" nexthop via 10.0.0.{i + 2}" for i in range(129))),
    Row("overrun", overrun, "lost track of the kernel .overrun", FEW, limit=3),
    Row("overrun in a resync", overrun_in_resync, "lost track of the kernel .overrun", FEW, turns=1, limit=3, heavy=True),
    Row("no privileges", "link set d1 down\nroute add 20.0.0.0/8 via 10.2.0.2", None, FEW),
    Row("killed", killed, restarts=True, turns=1),
    Row("stuck, and the watchdog", stuck, prefix=("env", "NOTIFY_SOCKET=@" + MANAGER, "WATCHDOG_USEC=200000"), restarts=True, turns=1),
    Row("memory exhausted", no_memory, "out of memory|Cannot allocate memory", restarts=True, turns=1),
    Row("no descriptors", no_descriptors, "no client can be accepted"),
    Row("closed standard descriptors", closed, prefix=("sh", "-c", 'exec "$@" <&- >&- 2>&-', "sh")),
    Row("configuration cut", cut),
    *(Row("configuration: " + what, f"$ {how}; kill -HUP {{w.pid}}; sleep 0.1", says) for what, how, says in (
        ("renamed over", "echo ip mroute 9.0.0.0/8 d1 >{w.etc}/new; mv {w.etc}/new {w.config}", READ_AGAIN),
        ("truncated", ": >{w.config}", READ_AGAIN),
        ("a symlink", "mv {w.config} {w.etc}/x; echo ip mroute 9.0.0.0/8 d2 >>{w.etc}/x; ln -s x {w.config}", READ_AGAIN),
        ("a circle", "ln -sf mrib.conf {w.config}", "not reloaded: .*symbolic links"),
        ("gone", "rm {w.config}", "not reloaded: .*No such file"),
        ("a directory", "rm {w.config}; mkdir {w.config}", "not reloaded: .*it is a directory"),
        ("a FIFO", "rm {w.config}; mkfifo {w.config}", "not reloaded: .*it is a FIFO"),
        ("endless zeros", "ln -sf /dev/zero {w.config}", "not reloaded: .*it is a device"),
        ("sparse zeros", "truncate -s 60M {w.config}", "not reloaded: .*NUL byte"))),
    Row("disk full", full_disk),
    Row("malicious requests", malicious, "is dropped: no request", lines=3),
    Row("client vanishes", vanishes),
    Row("reader vanishes", reader_vanishes),
    Row("10,000 connections", connections),
    Row("signals", lambda w: [os.kill(w.pid, number) for number in SIGNALS * 500], READ_AGAIN),
    Row("client never reads", rude(b'{"method":"org.mrib.GetConfiguration"}\0' * 9000, 1 << 20, 40), "nothing read", turns=1, heavy=True),
    Row("client writes a byte a second", rude(b'{"method":"org.mrib.GetConfiguration"}', 1, 20), "half a request", turns=1, heavy=True),
    Row("a million lines", million_lines, limit=60, turns=1, heavy=True),
    Row("a million routes", lambda w: ip(*(f"route add {net} via 10.0.0.7" for net in nets(1000000))), limit=30, turns=1, heavy=True),
    Row("10,000 links", ten_thousand_links, limit=60, turns=1, heavy=True),
]


def perform(row, w):
    """One fault."""
    if callable(row.fault):
        row.fault(w)
    elif row.fault.startswith("$ "):
        subprocess.run(row.fault[2:].format(w=w), shell=True, check=True)
    else:
        assert ip(*row.fault.split("\n")), row.fault


def check_log(row, w):
    lines = w.daemon.messages()[w.heard:].splitlines()
    found = [line for line in lines if row.says and re.search(row.says, line)]
    assert len(found) == (row.lines if row.says else 0), lines
    assert not [line for line in lines if line[1:2] in "01234" and line not in found], lines


def play(row, w):
    w.equal()
    before, pid, memory = w.state(), w.pid, None
    time.sleep(0.05)  # until those who asked are gone
    fds = w.descriptors()
    for turn in range(row.turns):
        perform(row, w)
        w.equal()
        if turn == 0:
            check_log(row, w)
        w.rebuild()
        w.equal()
        w.until("as it was", lambda: w.state() == before, 3)  # links are not up at once
        assert row.restarts or w.pid == pid
        w.until("descriptors", lambda: w.descriptors() == fds)
        assert memory is None or w.memory() < memory + ROOM, f"{w.memory() - memory} bytes more"
        memory = w.memory()
    print(row.name, flush=True)


def main():
    own_namespace()
    with open("/proc/sys/net/ipv6/conf/default/addr_gen_mode", "w") as file:
        file.write("1")  # no addresses that come by themselves, and late
    words = [word for word in sys.argv[3:] if word != "--all"]
    rows = [row for row in ROWS if ("--all" in sys.argv or not row.heavy) and all(word in row.name for word in words)]
    random.seed(int(os.environ.get("MRIB_SEED", "1")))
    for row in rows:
        if SANITIZED and row.name in ("memory exhausted", "no descriptors"):
            continue  # of which a sanitizer needs some itself
        w = World(*sys.argv[1:3], row.prefix, row.limit)
        try:
            play(row, w)
            assert w.daemon.stop() == (0, [])
        except AssertionError as e:
            where = traceback.extract_tb(e.__traceback__)[-1]
            raise SystemExit(f"FAILED: {row.name}: line {where.lineno}, {where.line}: {e}\n{w.daemon.messages()}") from e
        finally:
            w.daemon.process.kill()
            subprocess.run(["rm", "-rf", w.folder], check=True)
    print(f"{len(rows)} faults")


if __name__ == "__main__":
    main()
