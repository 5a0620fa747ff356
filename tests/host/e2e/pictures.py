#!/usr/bin/python3
"""usage: pictures.py MRIB MRIBD

The pictures and the page of `mrib graph` and `mrib report`, of random networks in saved files: that they say what
`mrib route` and `mrib unresolved` say, and what Graphviz makes of names. The other forms: fuzz/WritersFuzz.cc.
"""
import json
import os
import pathlib
import random
import re
import shutil
import subprocess
import sys
import tempfile
import xml.etree.ElementTree as ElementTree

mrib = sys.argv[1]
dice = random.Random(int(os.environ.get("MRIB_SEED", "12")))
has_dot = shutil.which("dot") is not None


def name_of(i):
    """Names as hostile as Linux takes them, and plain ones."""
    hostile = ['"]; x[a="', "\\", '\\"', "<script>", "]]>", "--><b>", "&lt;&#0;", "\x1b[31m", "a\x07\x7f", "\u202eeno",
               "\ufffe\uffff", "</title><i>", "#quot;", "|x|;", "`x`", "'onload=x '", "%%{init}", "\\N\\l", "tab\tx"]  # fmt: skip
    return (hostile[i] if i < len(hostile) else f"eth{i}")[:15]


def write(folder, links, addresses, routes, lines):
    for name, value in {"link": links, "addr": addresses, "route": routes}.items():
        (folder / f"{name}.json").write_text(json.dumps(value))
    (folder / "mrib.conf").write_text("".join(line + "\n" for line in dict.fromkeys(lines)), encoding="utf-8")


def network(folder, links, prefixes):
    """Interfaces with a subnet each, some of them down, and configured prefixes with lines of all kinds."""
    up = [dice.random() < 0.9 for _ in range(links)]
    flags = [["UP", "LOWER_UP"] if is_up else [] for is_up in up]
    lines = []
    for i in range(prefixes):
        prefix = dice.choice([f"30.{i}.0.0/16", f"30.{i}.0.0/16", f"30.{i // 2}.5.0/24"])
        for _ in range(dice.choice([1, 2, 3])):
            rpf = dice.choice([f"20.0.{dice.randrange(links)}.9", f"20.0.{dice.randrange(links)}.9", "99.1.1.1",
                               f"30.{dice.randrange(i + 1)}.7.1", f"30.{dice.randrange(i + 1)}.7.1",
                               f"eth{dice.randrange(19, links + 3)}"])  # fmt: skip
            lines.append(f"ip mroute {prefix} {rpf} {dice.choice([1, 1, 5])}")
    write(folder,
          [{"ifindex": i + 1, "ifname": name_of(i), "flags": flags[i], "operstate": "UP"} for i in range(links)],
          [{"ifindex": i + 1, "addr_info": [{"family": "inet", "local": f"20.0.{i}.1", "prefixlen": 24}]}
           for i in range(links)],
          [{"dst": f"20.0.{i}.0/24", "dev": name_of(i), "protocol": "kernel", "scope": "link"}
           for i in range(links) if up[i]],
          lines)  # fmt: skip


def run(folder, *words, expected=0):
    command = [mrib, "--from", str(folder), "-c", str(folder / "mrib.conf"), *words]
    done = subprocess.run(command, capture_output=True, timeout=120, env={**os.environ, "LC_ALL": "C.UTF-8"})
    assert done.returncode == expected, f"{command}: {done.returncode} {done.stderr}"
    return done.stdout.decode("utf-8")


def ask(folder, *words):
    return json.loads(run(folder, "-j", *words))


# ---- What it says ----


def ends(graph, node, edges):
    """The interfaces that a node leads to by what is in force."""
    if graph["nodes"][node]["kind"] == "interface":
        return {graph["nodes"][node]["names"][0]}
    return set().union(*(ends(graph, e["to"], edges) for e in edges.get(node, []) if e["state"] == "inForce"))


def check_truth(folder):
    graph = ask(folder, "graph", "--most", "20000")
    nodes, edges = graph["nodes"], {}
    for edge in graph["edges"]:
        edges.setdefault(edge["from"], []).append(edge)
    by_name = {node["names"][0]: node["id"] for node in nodes if node["kind"] in ("configured", "connected")}
    routes = ask(folder, "route")["routes"]
    for route in routes:
        node = by_name[route["prefix"]]
        assert nodes[node]["usable"], route
        assert ends(graph, node, edges) == {via["interface"] for via in route["vias"]}, route
    assert sum(n["usable"] for n in nodes if n["kind"] in ("configured", "connected")) == len(routes)
    drawn = {(nodes[e["from"]]["names"][0], e["rpf"], e["preference"]): e for e in graph["edges"] if e["place"]}
    unresolved = ask(folder, "unresolved", "--waiting")["unresolved"]
    for line in unresolved:
        edge = drawn.pop((line["prefix"], line["rpf"], line["preference"]))
        assert edge["place"] == line["place"] and edge["state"] != "inForce", (edge, line)
        if line["reason"] != "waiting":  # what waits may also have a fault of its own
            assert (edge["reason"], edge["why"]) == (line["reason"], line["why"]), (edge, line)
    assert all(edge["state"] == "inForce" for edge in drawn.values())
    return graph


def check_part(folder, graph, prefix):
    """Of a prefix: all that it leads to, and all lines that lead to it."""
    part = ask(folder, "graph", prefix, "--most", "20000")
    named = lambda g, e: (g["nodes"][e["from"]]["names"][0], e["rpf"], e["preference"], g["nodes"][e["to"]]["names"][0])
    lines = {named(graph, e) for e in graph["edges"]}
    wanted, todo = set(), {prefix}
    while todo:
        new = {line for line in lines if line[0] in todo} - wanted
        wanted, todo = wanted | new, {line[3] for line in new}
    wanted |= {line for line in lines if line[3] == prefix}
    assert {named(part, e) for e in part["edges"]} == wanted, prefix


def sums(graph):
    count = lambda state: sum(e["count"] for e in graph["edges"] if e["state"] == state)
    return sum(n["count"] for n in graph["nodes"]), [count(s) for s in ("inForce", "waiting", "unresolved")]


def check_groups(folder, whole, most):
    graph = ask(folder, "graph", "--most", str(most))
    assert len(graph["nodes"]) <= most and graph["all"] == len(whole["nodes"]), (len(graph["nodes"]), most)
    assert sums(graph) == sums(whole)
    kind = lambda g: {name: n["kind"] for n in g["nodes"] for name in n["names"]}
    assert kind(graph).items() <= kind(whole).items()


# ---- How it is read ----


def harmless(text):
    assert not re.search("[\x00-\x08\x0b-\x1f\x7f-\x9f\u202a-\u202e\ufffe\uffff]", text), ascii(text)
    return text


def shown(names):
    """As mrib prints them."""
    for name in names:
        escaped = "".join(
            "\\" + c if c in '"\\' else
            "".join(f"\\x{b:02X}" for b in c.encode()) if re.match("[\x00-\x1f\x7f\u202a-\u202e\ufffe\uffff]", c) else c
            for c in name)  # fmt: skip
        yield escaped


def check_svg(text, names):
    root = ElementTree.fromstring(text)
    known = {"svg", "g", "title", "polygon", "polyline", "path", "text"}
    assert {element.tag.split("}")[1] for element in root.iter()} <= known
    assert not [a for element in root.iter() for a in element.attrib if a.startswith("on") or "href" in a]
    words = {(element.text or "").replace("\u00a0", " ") for element in root.iter()}
    assert names <= words, names - words


def check_forms(folder, graph):
    names = set(shown(n["names"][0] for n in graph["nodes"] if n["kind"] == "interface"))
    tree = run(folder, "graph", "--most", "20000")
    assert all(name in tree for name in names)
    if has_dot:
        check_svg(harmless(run(folder, "graph", "--format", "svg", "--most", "20000")), names)
        ElementTree.fromstring(run(folder, "report"))


# ---- ----


def check_files(folder):
    """A file is replaced as a whole or stays; its name says what is drawn."""
    for name, beginning in {"a.dot": "digraph", "a.mmd": "flowchart", "a.json": "{", "a.txt": "the files in"}.items():
        (folder / name).write_text("before")
        assert run(folder, "graph", "-o", str(folder / name)) == ""
        assert (folder / name).read_text().startswith(beginning), name
    run(folder, "report", "-o", str(folder / "none/a.html"), expected=2)
    run(folder, "report", "-o", str(folder), expected=2)
    assert run(folder, "graph", "-o", "-").startswith("the files in")
    without = {**os.environ, "PATH": "/nonexistent"}
    words = [mrib, "--from", folder, "-c", folder / "mrib.conf"]
    done = subprocess.run([*words, "graph", "-o", folder / "a.svg"], capture_output=True, text=True, env=without)
    assert done.returncode == 2 and "apt install graphviz" in done.stderr and not (folder / "a.svg").exists()
    done = subprocess.run([*words, "report", "-o", folder / "a.html"], env=without)
    assert done.returncode == 0 and "<svg" not in (folder / "a.html").read_text()


def check_large(folder):
    """5,000 prefixes: flat, in a chain, and each by an interface of its own."""
    links = [{"ifindex": i + 1, "ifname": f"ppp{i}", "flags": ["UP", "LOWER_UP"], "operstate": "UP"} for i in range(5000)]
    routes = [{"dst": f"20.{i // 256}.{i % 256}.0/24", "dev": f"ppp{i}", "protocol": "kernel", "scope": "link"} for i in range(5000)]
    prefix = [f"30.{i // 256}.{i % 256}" for i in range(5000)]
    for kind, count, rpf in (("flat", 16, lambda i: f"20.0.{i % 16}.{i % 200 + 2}"),
                             ("chain", 16, lambda i: f"{prefix[i - 1]}.1" if i else "20.0.0.2"),
                             ("own", 5000, lambda i: f"ppp{i}")):  # fmt: skip
        write(folder, links[:count], [], routes[:count], [f"ip mroute {p}.0/24 {rpf(i)}" for i, p in enumerate(prefix)])
        whole = ask(folder, "graph", "--most", "20000")
        assert len(whole["nodes"]) == 5000 + 2 * count, kind
        for most in (200, 20, 5):
            check_groups(folder, whole, most)


with tempfile.TemporaryDirectory() as path:
    folder = pathlib.Path(path)
    for _ in range(6):
        network(folder, 24, dice.randrange(5, 40))
        graph = check_truth(folder)
        for node in dice.sample([n for n in graph["nodes"] if n["kind"] in ("configured", "connected")], 5):
            check_part(folder, graph, node["names"][0])
        for most in (40, 12, 6):
            check_groups(folder, graph, max(most, 6))
        check_forms(folder, graph)
    check_files(folder)
    check_large(folder)
