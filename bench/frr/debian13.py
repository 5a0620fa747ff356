#!/usr/bin/env python3
"""FRRouting as Debian 13 has it, in a folder of its own: nothing is installed on this machine.

usage: debian13.py FOLDER, which prints where in the folder it is; with 77 it is not to be had here
"""

import glob
import os
import re
import subprocess
import sys

from varlink import SKIPPED

SUITE = "trixie"
PACKAGES = ["frr", "iproute2", "base-files", "bash", "coreutils", "dash", "grep", "procps", "sed", "util-linux"]
# What the packages' scripts would do. There need be no other user than the one that runs the tests.
FILES = {"passwd": "root:x:0:0::/root:/bin/sh\nfrr:x:0:0::/:/bin/sh\n", "group": "root:x:0:\nfrr:x:0:\nfrrvty:x:0:\n",
         **{f"pam.d/{name}": "auth required pam_permit.so\naccount required pam_permit.so\n" for name in ("frr", "other")}}


class NotPossible(Exception):
    pass


def sources():
    """What apt is configured to here, with another suite."""
    own = re.search(r"VERSION_CODENAME=(\w+)", open("/etc/os-release").read())
    text = ""
    for path in ["/etc/apt/sources.list", *sorted(glob.glob("/etc/apt/sources.list.d/*.list"))]:
        for line in open(path).read().splitlines() if own and os.path.exists(path) else []:
            if re.match(rf"deb\s.*\b{own[1]}\b", line):
                text += "\n" + one_line(line)
    for path in sorted(glob.glob("/etc/apt/sources.list.d/*.sources")):
        text += "\n\n" + re.sub(r"(?m)^#.*\n", "", open(path).read())
    return "\n\n".join(stanza for stanza in text.split("\n\n") if own and own[1] in stanza).replace(own[1], SUITE)


def one_line(line):
    """As a stanza: deb [OPTIONS] URI SUITE COMPONENT ..."""
    found = re.match(r"deb\s+(?:\[(.*?)\]\s*)?(\S+)\s+(\S+)\s+(.*)", line)
    signed = re.search(r"signed-by=(\S+)", found[1] or "")
    return (f"\nTypes: deb\nURIs: {found[2]}\nSuites: {found[3]}\nComponents: {found[4]}\n"
            + (f"Signed-By: {signed[1]}\n" if signed else ""))


def apt(folder, *words):
    options = [f"Dir::Etc::SourceList={folder}/{SUITE}.sources", "Dir::Etc::SourceParts=/dev/null",
               f"Dir::State={folder}/state", f"Dir::State::status={folder}/state/status", f"Dir::Cache={folder}/cache",
               "APT::Install-Recommends=false", "APT::Sandbox::User=root", "Acquire::Retries=3"]
    done = subprocess.run(["apt-get", "-q", *(word for option in options for word in ("-o", option)), *words],
                          capture_output=True, text=True)
    if done.returncode:
        raise NotPossible(f"apt-get {words[-1]}: {(done.stderr.strip() or 'failed').splitlines()[-1]}")


def unpack(folder, tree):
    for package in sorted(glob.glob(f"{folder}/cache/archives/*.deb")):
        subprocess.run(f"dpkg-deb --fsys-tarfile '{package}' | tar -x -C '{tree}' --no-same-owner "
                       "--keep-directory-symlink", shell=True, check=True, stderr=subprocess.DEVNULL)
    for name, text in FILES.items():
        with open(f"{tree}/etc/{name}", "w") as file:
            file.write(text)


def tree(folder):
    """Where it is; fetched the first time. Raises NotPossible."""
    whole = folder + "/" + SUITE
    if os.path.exists(whole):
        return whole
    text = sources()
    if not text:
        raise NotPossible("apt's configuration names no source of this Debian")
    for part in ("state/lists/partial", "cache/archives/partial", "new"):
        os.makedirs(f"{folder}/{part}", exist_ok=True)
    open(f"{folder}/state/status", "w").close()
    with open(f"{folder}/{SUITE}.sources", "w") as file:
        file.write(text + "\n")
    apt(folder, "update")
    apt(folder, "-y", "--download-only", "install", *PACKAGES)
    unpack(folder, folder + "/new")
    os.rename(folder + "/new", whole)
    return whole


if __name__ == "__main__":
    try:
        print(tree(os.path.abspath(sys.argv[1])))
    except NotPossible as reason:
        print(f"no FRRouting of Debian 13: {reason}", file=sys.stderr)
        sys.exit(SKIPPED)
