"""Rules about includes that the compiler cannot hold: no path leads upwards, no file includes itself by a detour, the platform
and the plug-in use nothing but the standard library and POSIX, and the service neither clock, kernel nor file.

Usage: source_rule.py SOURCE_DIR BUILD_DIR
"""
import pathlib
import re
import sys

TOPS = ("platform", "MaintenancePlugin", "report", "service", "host", "sim", "cli", "tests", "bench")
PLAIN = ("platform", "MaintenancePlugin", "report")
# What lets service/ reach past what it is handed, besides the headers of C, which end in ".h".
OUTSIDE = {"cerrno", "chrono", "csignal", "cstdio", "ctime", "filesystem", "fstream", "iostream", "thread"}
SYSTEM_FOLDERS = ("sys/", "linux/", "net/", "netinet/", "arpa/")
INCLUDE = re.compile(r'^[ \t]*#[ \t]*include[ \t]+(["<])([^">]+)[">]', re.MULTILINE)


def includes(file):
    return INCLUDE.findall(file.read_text())


def is_plain(name):
    """A header of the standard library, of POSIX or of the kernel."""
    return "/" not in name or name.startswith(SYSTEM_FOLDERS)


def is_free_of_outside(name):
    """A header of yaml-cpp, or of the standard library without clocks, files, processes and whatever is POSIX."""
    return name.startswith("yaml-cpp/") or ("/" not in name and not name.endswith(".h") and name not in OUTSIDE)


def path_problems(source, files):
    for file in files:
        for quote, name in includes(file):
            where = f"{file.relative_to(source)}: #include of {name}"
            if ".." in pathlib.PurePath(name).parts:
                yield f"{where} leads upwards"
            top = file.relative_to(source).parts[0]
            if quote == "<" and top in PLAIN and not is_plain(name):
                yield f"{where}: neither standard library nor POSIX"
            if quote == "<" and top == "service" and not is_free_of_outside(name):
                yield f"{where}: the service reaches past what it is handed"


def include_graph(files):
    """File -> files it includes, by the two ways the tree includes: "folder/Header.h" and "Header.h" beside it."""
    by_name = {f"{file.parent.name}/{file.name}": file for file in files}
    known = set(files)
    graph = {}
    for file in files:
        names = [name for quote, name in includes(file) if quote == '"']
        targets = (file.parent / name if file.parent / name in known else by_name.get(name) for name in names)
        graph[file] = [target for target in targets if target]
    return graph


def find_circle(graph):
    """The first circle of includes as a list of files, or None."""
    done, path = set(), []

    def visit(file):
        if file in path:
            return [*path[path.index(file):], file]
        if file in done:
            return None
        path.append(file)
        circle = next(filter(None, map(visit, graph[file])), None)
        path.pop()
        done.add(file)
        return circle

    return next(filter(None, map(visit, graph)), None)


def problems(source):
    files = [file for top in TOPS for file in sorted((source / top).rglob("*")) if file.suffix in (".h", ".cpp")]
    if not files:
        return ["found no source: nothing was tested"]
    found = list(path_problems(source, files))
    circle = find_circle(include_graph(files))
    if circle:
        found.append("circle of includes: " + " -> ".join(str(file.relative_to(source)) for file in circle))
    return found


def self_test(scratch):
    """Each rule finds its own offence in a small tree, and only there."""
    cases = {
        '#include "kel/B.h"\n#include <vector>\n#include <sys/mman.h>\n': [],
        '#include "../kel/B.h"\n': ["leads upwards"],
        '#include <boost/json.hpp>\n': ["neither standard"],
        '  #  include "kel/A.h"\n': ["circle of includes: platform/kel/A.h -> platform/kel/A.h"],
    }
    folder = scratch / "platform/kel"
    folder.mkdir(parents=True, exist_ok=True)
    (folder / "B.h").write_text("#pragma once\n")
    for text, expected in cases.items():
        (folder / "A.h").write_text(text)
        found = problems(scratch)
        assert len(found) == len(expected) and all(e in f for e, f in zip(expected, found)), (text, found)
    (folder / "A.h").write_text("")
    service = scratch / "service/units"
    service.mkdir(parents=True, exist_ok=True)
    for name, held in {"vector": True, "yaml-cpp/yaml.h": True, "chrono": False, "unistd.h": False,
                       "boost/json.hpp": False}.items():
        (service / "C.h").write_text(f"#include <{name}>\n")
        assert bool(problems(scratch)) != held, name
    (service / "C.h").write_text("")
    (folder / "A.h").write_text('#include "B.h"\n')
    (folder / "B.h").write_text('#include "kel/A.h"\n')
    assert "A.h -> platform/kel/B.h -> platform/kel/A.h" in problems(scratch)[0]


if __name__ == "__main__":
    self_test(pathlib.Path(sys.argv[2]).resolve() / "tests/build/source_rule")
    sys.exit("\n".join(problems(pathlib.Path(sys.argv[1]).resolve())) or 0)
