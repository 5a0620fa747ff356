#!/usr/bin/env python3
"""Kills mribd at random moments, while much changes: routes that are not concerned are never missing, and the next one
makes the table what it is to be.

usage: killed.py MRIBD [TIMES]
"""

import os
import random
import signal
import socket
import struct
import sys
import threading
import time

import export
from varlink import ip, own_namespace

RTM_DELROUTE = 25  # linux/rtnetlink.h
STEADY = [f"ip mroute 30.0.{i}.0/24 10.1.0.2" for i in range(250)]
RESTLESS = [f"ip mroute 31.{i >> 8}.{i & 255}.0/24 10.2.0.2" for i in range(1000)]
BACKUP = [line.replace("10.2.0.2", "10.1.0.3 7") for line in RESTLESS]
STEPS = [["link set vb down", "link set vb up"], ["addr del 10.2.0.1/24 dev vb", "addr add 10.2.0.1/24 dev vb"],
         ["link set vbp down", "link set vbp up"], [f"route flush table {export.TABLE} proto 220 root 31.0.0.0/14"]]


class Reader(threading.Thread):
    """Of the table, by the kernel's notifications: keeps which steady prefixes have been missing."""

    def __init__(self):
        super().__init__(daemon=True)
        self.socket = socket.socket(socket.AF_NETLINK, socket.SOCK_RAW, 0)
        self.socket.setsockopt(socket.SOL_SOCKET, 33, 64 << 20)  # SO_RCVBUFFORCE
        self.socket.bind((0, 0x40))  # RTMGRP_IPV4_ROUTE
        self.missing, self.heard = [], 0
        self.start()

    def run(self):
        while True:
            data = self.socket.recv(1 << 20)
            while data:
                length, kind = struct.unpack_from("=IH", data)
                self.route(kind, data[16:length])
                data = data[length + 3 & ~3:]

    def route(self, kind, body):
        self.heard += 1
        # The destination is the attribute behind the table's.
        if kind == RTM_DELROUTE and body[5] == 220 and socket.inet_ntoa(body[24:28]).startswith("30.0."):
            self.missing.append(socket.inet_ntoa(body[24:28]))


class Load(threading.Thread):
    """Changes, until it is told to end."""

    def __init__(self, dice, daemon):
        super().__init__(daemon=True)
        self.dice, self.daemon, self.ended = dice, daemon, False
        self.start()

    def run(self):
        while not self.ended:
            for line in self.dice.choice(STEPS):
                ip(line)
                time.sleep(self.dice.random() * 0.01)
            if self.dice.random() < 0.3:
                export.configure(STEADY + (RESTLESS if self.dice.random() < 0.5 else RESTLESS + BACKUP))
                self.daemon.send_signal(signal.SIGHUP)


def main():
    own_namespace()
    times, dice = int(sys.argv[2]) if len(sys.argv) > 2 else 5, random.Random(int(os.environ.get("MRIB_SEED", "1")))
    export.prepare(STEADY + RESTLESS)
    daemon = export.start(sys.argv[1])
    export.agree("the start")
    reader = Reader()
    for number in range(times):
        load = Load(dice, daemon)
        time.sleep(dice.random() ** 2 * 0.5)
        daemon.kill()
        daemon.wait()
        load.ended = True
        load.join()
        daemon = export.start(sys.argv[1])
        if dice.random() < 0.5:  # also while it has hardly begun
            daemon.kill()
            daemon.wait()
            daemon = export.start(sys.argv[1])
        export.agree(f"kill {number}", 4)
        if reader.missing:
            sys.exit(f"FAILED: missing for no reason, at kill {number}: {sorted(set(reader.missing))[:5]}")
    print(f"killed {times} times: the table was right each time, and no route was missing that had not changed "
          f"({reader.heard} changes)")
    daemon.terminate()
    daemon.wait()


if __name__ == "__main__":
    main()
