"""A few lines of Varlink, and a daemon under test in a network namespace of its own."""

import fcntl
import json
import os
import shutil
import socket
import struct
import subprocess
import sys
import tempfile
import threading
import time

SKIPPED = 77


def own_namespace(*more):
    """Runs the calling program again in a user and network namespace of its own, and more of unshare's."""
    if os.environ.get("MRIB_NAMESPACE") == "own":
        subprocess.run("ip link set lo up", shell=True, check=True)
        return
    os.environ["MRIB_NAMESPACE"] = "own"
    options = ["-n", "-m"] if os.getuid() == 0 else ["-r", "-n", "-m"]
    if subprocess.run(["unshare", *options, "ip", "link", "add", "type", "veth"], capture_output=True).returncode:
        print("skipped: no network namespace of its own, or no veth links in it")
        sys.exit(SKIPPED)
    os.execvp("unshare", ["unshare", *options, *more, sys.executable, *sys.argv])


def ip(*lines):
    """Runs all lines, and stops at none that fails; True when none did."""
    return subprocess.run(["ip", "-force", "-batch", "-"], input="\n".join(lines), text=True,
                          capture_output=True).returncode == 0


def add_link(name):
    """A link with a carrier, as all kernels have it."""
    return ip(f"link add {name} type veth peer name {name}p", f"link set {name}p up", f"link set {name} up")


def add_tunnel(name):
    """A point-to-point link; it has a carrier as long as the descriptor that comes back is open."""
    tunnel = os.open("/dev/net/tun", os.O_RDWR)
    fcntl.ioctl(tunnel, 0x400454CA, struct.pack("16sH", name.encode(), 0x1001))
    ip(f"link set {name} up")
    return tunnel


class Mrouter:
    """A multicast routing daemon that does what is wanted; its interfaces are numbered as the links are given."""

    def __init__(self, links):
        self.socket = socket.socket(socket.AF_INET, socket.SOCK_RAW, socket.IPPROTO_IGMP)
        self.socket.setsockopt(0, 200, 1)  # MRT_INIT
        for vif, link in enumerate(links):
            by_index = struct.pack("=HBBIi4x", vif, 8, 1, 0, socket.if_nametoindex(link))
            self.socket.setsockopt(0, 202, by_index)  # MRT_ADD_VIF
        self.registers = len(links)
        self.socket.setsockopt(0, 202, struct.pack("=HBBIi4x", self.registers, 4, 1, 0, 0))  # makes pimreg

    def add(self, source, group, incoming, outgoing=(), proxy=False):
        ttls = bytes(1 if n in outgoing else 0 for n in range(32))
        entry = struct.pack("=4s4sH32s18x", socket.inet_aton(source), socket.inet_aton(group), incoming, ttls)
        self.socket.setsockopt(0, 210 if proxy else 204, entry)  # MRT_ADD_MFC_PROXY, MRT_ADD_MFC

    def close(self):
        self.socket.close()


class Connection:
    def __init__(self, path):
        self.socket = socket.socket(socket.AF_UNIX)
        self.socket.connect(path)
        self.bytes = b""

    def send(self, method, more=False, **parameters):
        request = {"method": "org.mrib." + method, "parameters": parameters, "more": more}
        self.socket.sendall(json.dumps(request).encode() + b"\0")

    def next(self):
        while b"\0" not in self.bytes:
            got = self.socket.recv(1 << 20)
            if not got:
                raise EOFError
            self.bytes += got
        message, _, self.bytes = self.bytes.partition(b"\0")
        return json.loads(message)

    def call(self, method, **parameters):
        self.send(method, **parameters)
        return self.next()["parameters"]

    def whole(self, method, part, empty):
        """What comes in several replies, in one piece."""
        self.send(method, more=True)
        more = True
        while more:
            reply = self.next()
            empty += reply["parameters"][part]
            more = reply.get("continues", False)
        return empty


class Monitor(threading.Thread):
    """Has the MRIB by applying what `Monitor` says, and keeps what did not fit."""

    def __init__(self, path):
        super().__init__(daemon=True)
        self.connection = Connection(path)
        self.routes, self.misfits, self.heard, self.generation = {}, [], 0.0, 0
        self.restarts = 0
        self.start()

    def run(self):
        self.connection.send("Monitor", more=True)
        whole = True
        try:
            while True:
                reply = self.connection.next()["parameters"]
                if reply["restart"] and whole:
                    self.restarts += 1
                    self.routes = {}
                whole = reply["complete"]
                for change in reply["changes"]:
                    self.apply(change)
                self.generation, self.heard = reply["generation"], time.monotonic()
        except (EOFError, OSError):
            return

    def apply(self, change):
        if self.routes.get(change["prefix"]) != change["before"]:
            self.misfits.append((self.routes.get(change["prefix"]), change))
        if change["after"]:
            self.routes[change["prefix"]] = change["after"]
        else:
            self.routes.pop(change["prefix"], None)

    def mrib(self):
        return sorted(list(self.routes.values()), key=lambda r: r["prefix"])


class Daemon:
    def __init__(self, mribd, config=None, prefix=()):
        self.folder = tempfile.mkdtemp(prefix="mrib-e2e-")
        self.path = self.folder + "/socket"
        self.log = open(self.folder + "/log", "a+")
        options = ["-c", config] if config else []
        self.command = [*prefix, mribd, "--foreground", "--socket", self.path, *options]
        self.start()

    def start(self):
        self.process = subprocess.Popen(self.command, stderr=self.log)
        for _ in range(6000):
            try:
                if not self.connect().call("GetStatus")["stale"]:
                    return
            except OSError:
                pass
            if self.process.poll() is not None:
                break
            time.sleep(0.01)
        raise SystemExit("mribd does not come up: " + self.messages())

    def connect(self):
        return Connection(self.path)

    def messages(self):
        self.log.seek(0)
        return self.log.read()

    def stop(self):
        """Returns how it ended, and what it left behind."""
        self.process.terminate()
        code = self.process.wait(5)
        left = [name for name in os.listdir(self.folder) if name.startswith("socket")]
        shutil.rmtree(self.folder)
        return code, left
