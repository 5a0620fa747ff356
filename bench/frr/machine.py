"""Machines that are namespaces: each with a network, an /etc and a /run of its own."""

import os
import subprocess
import sys
import time

from varlink import SKIPPED

NAMESPACES = ("-p", "-f", "--kill-child", "--mount-proc")  # all ends with the test
SETUP = r"""
set -e
hostname {name}
mount -t tmpfs tmpfs /run
mkdir -p /run/upper /run/work /run/tmp
mount -t overlay overlay -o lowerdir=/etc,upperdir=/run/upper,workdir=/run/work /etc
rm -rf /etc/frr /etc/mrib.conf
ip link set lo up
for all in /proc/sys/net/ipv4/conf/*/rp_filter; do echo 0 >$all; done
"""
# The routing daemons run in a tree of their own, and share with the machine what they talk by.
SETUP_FRR = r"""
mkdir -p /run/frr /etc/frr
cp {tree}/etc/frr/* /etc/frr
mount --rbind /run {tree}/run
mount --bind /etc/frr {tree}/etc/frr
mount --rbind /proc {tree}/proc
mount --rbind /dev {tree}/dev
mount -t tmpfs tmpfs {tree}/var/tmp
echo 1 >/proc/sys/net/ipv4/ip_forward
"""


def skip(reason):
    print("skipped: " + reason)
    sys.exit(SKIPPED)


def ahead_of_others():
    """What is measured is not what else runs on this machine."""
    try:
        os.sched_setscheduler(0, os.SCHED_FIFO, os.sched_param(10))
    except PermissionError:
        print("without the right to real-time scheduling: other load counts", file=sys.stderr)


class Machine:
    def __init__(self, name, tree=None):
        self.name, self.tree = name, tree
        self.holder = subprocess.Popen(["unshare", "-n", "-m", "-u", "sleep", "inf"])
        self.started = []
        self.inside = ["nsenter", "-t", str(self.holder.pid), "-n", "-m", "-u"]
        while os.readlink(f"/proc/{self.holder.pid}/ns/uts") == os.readlink("/proc/self/ns/uts"):
            time.sleep(0.01)
        self.run((SETUP + (SETUP_FRR if tree else "")).format(name=name, tree=tree))

    def run(self, command, check=True):
        """What it says."""
        done = subprocess.run([*self.inside, "sh", "-c", command], capture_output=True, text=True)
        if check and done.returncode:
            sys.exit(f"FAILED on {self.name}: {command}\n{done.stdout}{done.stderr}")
        return done.stdout

    def ip(self, *lines):
        done = subprocess.run([*self.inside, "ip", "-force", "-batch", "-"], input="\n".join(lines), text=True,
                              capture_output=True)
        if done.returncode:
            sys.exit(f"FAILED on {self.name}: {lines}\n{done.stderr}")

    def start(self, *words, **options):
        process = subprocess.Popen([*self.inside, *words], **options)
        self.started.append(process)
        return process

    # ---- Routing daemons ----

    def frr(self, *lines):
        """Starts them with this configuration."""
        self.run("cat >/etc/frr/frr.conf <<'END'\n" + "\n".join(lines) + "\nEND")
        self.start_frr()

    def start_frr(self):
        self.daemons = [self.start("chroot", self.tree, f"/usr/lib/frr/{words[0]}", "-A", "127.0.0.1", *words[1:],
                                   stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
                        for words in (["mgmtd"], ["zebra", "-s", "90000000"], ["staticd"], ["pimd"])]
        end = time.monotonic() + 10
        # A pimd that is configured before it has zebra never learns the way to its RP, whoever's route that is.
        while "pim" not in self.vtysh("show zebra client summary", check=False):
            if time.monotonic() > end:
                sys.exit("FAILED: FRRouting does not come up")
            time.sleep(0.1)
        self.run(f"chroot {self.tree} vtysh -b")

    def vtysh(self, *commands, check=True):
        return self.run(f"chroot {self.tree} vtysh " + " ".join(f"-c '{c}'" for c in commands), check)

    def end(self):
        for process in self.started:
            process.kill()
        self.holder.kill()


def cable(a, a_link, b, b_link):
    subprocess.run(["ip", "link", "add", a_link, "netns", str(a.holder.pid), "type", "veth", "peer", "name", b_link, "netns",
                    str(b.holder.pid)], check=True)
    a.ip(f"link set {a_link} up")
    b.ip(f"link set {b_link} up")
