"""Checks that the folders are still floors. Prints each offence as file:line and fails if there is one.

A folder includes lower floors only, files and folders do not include each other in a circle, the operating
system is met in platform/linux alone, what is installed includes nothing that is not, and no file is too long.
An argument names another tree to check.
"""

import re
import sys
from pathlib import Path

RANKS = {"platform": 0, "diag": 1, "account": 2, "fixers": 3, "notify": 3, "store": 4, "migration": 5, "plugins": 6,
         "tools": 6}
# They stand outside the house and may look into every room.
VISITORS = ("tests", "bench", "fuzz", "examples")
LONGEST_FILE = 400

SYSTEM_HEADERS = re.compile(
    r"^((arpa|linux|net|netinet|sys|systemd)/.*"
    r"|(dirent|dlfcn|expat|expat_external|fcntl|ftw|glob|grp|libgen|link|mqueue|netdb|poll|pthread|pwd|sched|semaphore"
    r"|signal|spawn|syslog|termios|ucontext|unistd|utime)\.h|csignal)$")
INCLUDE = re.compile(r'^\s*#\s*include\s*(["<])([^">]+)[">]')


def sources(root):
    """Every source of the house and its visitors, as {path from the root: lines}."""
    found = {}
    for folder in (*RANKS, *VISITORS):
        for path in sorted((root / folder).rglob("*")):
            if path.is_file() and path.suffix in (".h", ".cpp", ".hpp", ".cc", ".cxx", ".hh"):
                found[path.relative_to(root).as_posix()] = path.read_text(encoding="utf-8").splitlines()
    for path in sorted(root.glob("*.h")):
        found[path.name] = path.read_text(encoding="utf-8").splitlines()
    return found


def includes(lines):
    for number, line in enumerate(lines, 1):
        match = INCLUDE.match(line)
        if match:
            yield number, match[2], match[1] == "<"


def floor(path):
    return path.split("/", 1)[0]


def is_installed(path):
    folders = path.split("/")[:-1]
    return path.endswith(".h") and folders != ["platform", "linux"] and "internal" not in folders \
        and (not folders or folders[0] in RANKS and folders[0] not in ("plugins", "tools"))


def check_include(path, target, is_system):
    """What is wrong with one include, or None."""
    own = floor(path)
    if is_system:
        exempt = path.startswith("platform/linux/") or own in (*VISITORS, "tools")
        if SYSTEM_HEADERS.match(target) and not exempt:
            return f"<{target}> belongs in platform/linux/"
        return None
    if own in RANKS:
        other = floor(target)
        if other in VISITORS:
            return f'"{target}" is not part of the library'
        if other not in RANKS:
            return f'"{target}" is not written from the root'
        if other != own and RANKS[other] >= RANKS[own]:
            return f'"{target}": {own}/ does not stand above {other}/'
    if is_installed(path) and not is_installed(target):
        return f'"{target}" is not installed, and this header is'
    return None


def circles(graph):
    """Each circle of {node: {neighbour: place}} once, as the list of its nodes."""
    found, done, way = [], set(), []

    def visit(node):
        if node in way:
            found.append(way[way.index(node):])
            return
        if node in done:
            return
        way.append(node)
        for neighbour in graph.get(node, {}):
            visit(neighbour)
        way.pop()
        done.add(node)

    for node in graph:
        visit(node)
    return found


def check(root):
    files = sources(root)
    offences, file_graph, folder_graph = [], {}, {}
    for path, lines in files.items():
        if not path.endswith((".h", ".cpp")):
            offences.append(f"{path}:1: sources are called .h and .cpp")
        if len(lines) > LONGEST_FILE:
            offences.append(f"{path}:{LONGEST_FILE + 1}: {len(lines)} lines, more than {LONGEST_FILE}")
        for number, target, is_system in includes(lines):
            place = f"{path}:{number}"
            wrong = check_include(path, target, is_system)
            if wrong:
                offences.append(f"{place}: {wrong}")
            if target in files:
                file_graph.setdefault(path, {}).setdefault(target, place)
                here, there = path.rpartition("/")[0], target.rpartition("/")[0]
                if here != there and floor(path) in RANKS:
                    folder_graph.setdefault(here, {}).setdefault(there, place)
    for graph in (file_graph, folder_graph):
        for circle in circles(graph):
            place = graph[circle[-1]][circle[0]]
            offences.append(f"{place}: closes a circle: {' > '.join([*circle, circle[0]])}")
    return len(files), offences


def main():
    root = Path(sys.argv[1]) if len(sys.argv) > 1 else Path(__file__).resolve().parent.parent
    count, offences = check(root)
    for offence in offences:
        print(offence)
    if count == 0:
        print(f"{root}: no sources")
    return 1 if offences or count == 0 else 0


if __name__ == "__main__":
    sys.exit(main())
