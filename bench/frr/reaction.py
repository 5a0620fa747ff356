#!/usr/bin/env python3
"""How long after the kernel's word the exported table is written: the first route, and the last.

usage: reaction.py MRIBD [ROUNDS]
"""

import signal
import socket
import statistics
import struct
import subprocess
import sys
import time

import export
from machine import ahead_of_others
from netlink import RTM_DELROUTE, RTM_NEWLINK, RTM_NEWROUTE
from varlink import ip, own_namespace

RTM_NEWADDR, RTM_DELADDR, RTM_NEWNEXTHOP, RTM_DELNEXTHOP = 20, 21, 104, 105
UP, RUNNING = 1, 0x40
LIMIT = 1.0  # milliseconds to the first write


def lines(count, gateway):
    return [f"ip mroute 31.{i >> 8}.{i & 255}.0/24 {way}" for i in range(count) for way in (gateway, "10.2.0.2 250")]


class Ear:
    """Hears what the kernel tells everybody, at the time that mribd hears it."""

    def __init__(self):
        self.socket = socket.socket(socket.AF_NETLINK, socket.SOCK_RAW, 0)
        self.socket.setsockopt(socket.SOL_SOCKET, 33, 64 << 20)  # SO_RCVBUFFORCE
        self.socket.bind((0, 0x51))  # links, addresses, routes of IPv4
        self.socket.setsockopt(270, 1, 32)  # next hops
        self.socket.settimeout(0.5)
        self.link = socket.if_nametoindex("va")

    def times(self, command, is_event):
        """From the event to the first and the last write of a route, in milliseconds."""
        subprocess.Popen(["ip", *command.split()])
        event, first, last = None, None, None
        end = time.monotonic() + 3
        while time.monotonic() < end and (last is None or time.monotonic() < last + 0.3):
            try:
                data = self.socket.recv(1 << 16)
            except TimeoutError:
                continue
            now, kind = time.monotonic(), struct.unpack_from("=IH", data)[1]
            if kind in (RTM_NEWROUTE, RTM_DELROUTE) and data[16 + 5] == 220 and data[40] == 31:
                # What is repeated after a while is no news.
                if first is None or now < first + 0.003 or now < last + 0.001:
                    first, last = first or now, now
            elif event is None and is_event(kind, data[16:], self.link):
                event = now
        if event is None or first is None:
            sys.exit(f"FAILED: nothing is written after {command}")
        return (first - event) * 1e3, (last - event) * 1e3


def flags(wanted, mask):
    def is_event(kind, body, link):
        _, index, now = struct.unpack_from("=IiI", body)
        return kind == RTM_NEWLINK and index == link and now & mask == wanted
    return is_event


def message(wanted):
    return lambda kind, body, link: kind == wanted


EVENTS = [("carrier lost", "link set vap down", flags(0, RUNNING), "10.1.0.2"),
          ("carrier back", "link set vap up", flags(RUNNING, RUNNING), "10.1.0.2"),
          ("link down", "link set va down", flags(0, UP), "10.1.0.2"),
          ("link up", "link set va up", flags(UP | RUNNING, UP | RUNNING), "10.1.0.2"),
          ("address deleted", "addr del 10.1.0.1/24 dev va", message(RTM_DELADDR), "10.1.0.2"),
          ("address added", "addr add 10.1.0.1/24 dev va", message(RTM_NEWADDR), "10.1.0.2"),
          ("next hop deleted", "nexthop del id 7", message(RTM_DELNEXTHOP), "10.7.0.2")]


def measure(daemon, count, rounds):
    ear, results, gateway = Ear(), {}, None
    for _ in range(rounds):
        for what, command, is_event, needed in EVENTS:
            ip("nexthop replace id 7 dev va", "route replace 10.7.0.0/24 nhid 7")
            if needed != gateway:
                gateway = needed
                export.configure(lines(count, gateway))
                daemon.send_signal(signal.SIGHUP)
            time.sleep(1.3)  # the kernel takes its time over carriers
            drain(ear.socket)
            results.setdefault(what, []).append(ear.times(command, is_event))
    return results


def drain(reader):
    reader.setblocking(False)
    try:
        while True:
            reader.recv(1 << 16)
    except BlockingIOError:
        reader.settimeout(0.5)


def main():
    own_namespace()
    ahead_of_others()
    rounds, late = int(sys.argv[2]) if len(sys.argv) > 2 else 5, []
    export.prepare(lines(3, "10.1.0.2"))
    daemon = export.start(sys.argv[1])
    print("| milliseconds after the event | 3 routes: first | last | 10,000 routes: first | last |\n|---|---|---|---|---|")
    columns = [measure(daemon, count, rounds) for count in (3, 10000)]
    for what, *_ in EVENTS:
        medians = [statistics.median(times) for column in columns for times in zip(*column[what])]
        print(f"| {what} | " + " | ".join(f"{each:.2f}" for each in medians) + " |")
        late += [what] if medians[0] > LIMIT else []
    daemon.kill()
    if late:
        sys.exit(f"FAILED: later than {LIMIT} ms: {late}")


if __name__ == "__main__":
    main()
