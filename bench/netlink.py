"""A few requests to the kernel, without a process for each."""

import os
import socket
import struct

RTM_NEWLINK, RTM_NEWROUTE, RTM_DELROUTE = 16, 24, 25
REQUEST, ACK, CREATE = 1, 4, 0x400


class Kernel:
    def __init__(self):
        self.socket = socket.socket(socket.AF_NETLINK, socket.SOCK_RAW, 0)
        self.socket.bind((0, 0))

    def request(self, kind, flags, body):
        self.socket.sendall(struct.pack("=IHHII", 16 + len(body), kind, REQUEST | ACK | flags, 1, 0) + body)
        error = struct.unpack("=i", self.socket.recv(4096)[16:20])[0]
        if error:
            raise OSError(-error, os.strerror(-error))

    def device_route(self, kind, network, link):
        attribute = struct.pack("=HH4sHHI", 8, 1, socket.inet_aton(network), 8, 4, link)
        header = struct.pack("=BBBBBBBBI", socket.AF_INET, 24, 0, 0, 254, 4, 253, 1, 0)
        self.request(kind, CREATE if kind == RTM_NEWROUTE else 0, header + attribute)

    def link(self, index, up):
        self.request(RTM_NEWLINK, 0, struct.pack("=BBHiII", 0, 0, 0, index, up, 1))
