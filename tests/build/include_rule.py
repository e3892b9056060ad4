"""Holds the build itself against the layering: what the sources of each folder can include, with the flags they really get.

Usage: include_rule.py SOURCE_DIR BUILD_DIR
"""
import json
import pathlib
import shlex
import subprocess
import sys

LAYERED_TOPS = ("platform", "MaintenancePlugin", "report", "usage", "service", "host", "sim", "cli")

# Folder of the tree -> what its sources may include at most, besides their own headers. "platform", "service" and
# "host" stand for all the folders below. The longest name that fits counts.
REACH = {
    "platform": {"platform"},
    "platform/kel": set(),
    "platform/brim": {"kel"},
    "platform/brisklog": {"kel"},
    "platform/records": {"kel", "brisklog"},
    "platform/dovra": {"kel"},
    "platform/quill": {"kel", "brim", "records", "brisklog"},
    "MaintenancePlugin": {"platform"},
    "report": {"platform"},
    "usage": {"platform", "report"},
    "service": {"platform", "service"},
    "service/config": {"kel"},
    "service/events": {"platform"},
    "service/evidence": {"platform", "events"},
    "service/links": {"platform", "events"},
    "service/units": {"platform", "config", "events", "evidence", "links"},
    "host": {"platform", "report", "usage", "service", "host"},
    "host/linux": set(),
    "sim": {"platform", "report", "usage", "service", "sim"},
    "sim/world": {"platform", "service"},
    "sim/scenario": {"platform", "report", "service", "world"},
    "cli": {"report", "platform", "usage", "cli"},
}


def probes(source):
    """One header of every folder that has any: {"kel": "kel/Assert.h", ...}."""
    found = {}
    for top in LAYERED_TOPS:
        for header in sorted((source / top).rglob("*.h")):
            found.setdefault(header.parent.name, f"{header.parent.name}/{header.name}")
    return found


def allowed(source, folder):
    """Names of the folders that the sources in `folder` may include."""
    rule = REACH[max((name for name in REACH if f"{folder}/".startswith(f"{name}/")), key=len)]
    names = {pathlib.PurePath(folder).name}
    for name in rule:
        names |= {name, *(sub.name for sub in (source / name).iterdir())} if name in LAYERED_TOPS else {name}
    return names


def flags_by_folder(source, build):
    """The language and include flags of one source of each layered folder, and that source's directory."""
    flags = {}
    for entry in json.loads((build / "compile_commands.json").read_text()):
        file = pathlib.Path(entry["file"])
        if file.is_relative_to(build):  # it includes several sources of the folder, and is compiled as each of them would be
            folder = str(file.relative_to(build)).split("/CMakeFiles/")[0]
        else:
            folder = str(file.parent.relative_to(source))
        if folder.split("/")[0] not in LAYERED_TOPS:
            continue
        words = shlex.split(entry["command"])
        compiler = next(word for word in words if word.endswith("++"))
        flags.setdefault(folder, [compiler, *(w for w in words if w.startswith(("-I", "-std", "-D", "-iquote")))])
    return flags


def compiles(command, text, cwd):
    # A quoted include is also looked for beside the file, and standard input counts as standing in the working
    # directory.
    run = subprocess.run([*command, "-fsyntax-only", "-x", "c++", "-"], input=text, text=True, cwd=cwd,
                         capture_output=True, check=False)
    return run.returncode == 0, run.stderr


def reachable(command, headers, cwd):
    lines = [f'#if __has_include( "{header}" )\nREACHES {folder}\n#endif' for folder, header in headers.items()]
    run = subprocess.run([*command, "-E", "-P", "-x", "c++", "-"], input="\n".join(lines), text=True, cwd=cwd,
                         capture_output=True, check=True)
    return {line.split()[1] for line in run.stdout.splitlines() if line.startswith("REACHES ")}


def reach_problems(source, headers, flags):
    for folder, command in sorted(flags.items()):
        for name in sorted(reachable(command, headers, source / folder) - allowed(source, folder)):
            yield f"{folder} can include {headers[name]}, and must not"


def plugin_problems(source, flags):
    """The same for real compilations, so that the test does not rest on __has_include alone."""
    command = flags.get("MaintenancePlugin")
    if command is None:
        yield "compile_commands.json names no source of MaintenancePlugin"
        return
    cases = {"kel/Ptr.h": True, "config/Config.h": False, "service/config/Config.h": False, "platform/kel/Ptr.h": False}
    for header, should in cases.items():
        done, errors = compiles(command, f'#include "{header}"\n', source / "MaintenancePlugin")
        if done != should:
            yield f'MaintenancePlugin with #include "{header}": should {"" if should else "not "}compile\n{errors}'


def main(source, build):
    headers, flags = probes(source), flags_by_folder(source, build)
    if "kel" not in headers or "platform/kel" not in flags:
        sys.exit("found neither a header nor a compile command of platform/kel: nothing was tested")
    if "kel" not in reachable(flags["platform/kel"], headers, source / "platform/kel"):
        sys.exit("platform/kel does not reach its own headers: the test cannot see what is reachable")
    problems = [*reach_problems(source, headers, flags), *plugin_problems(source, flags)]
    print(f"{len(flags)} folders against {len(headers)} headers")
    sys.exit("\n".join(problems) or 0)


if __name__ == "__main__":
    main(pathlib.Path(sys.argv[1]).resolve(), pathlib.Path(sys.argv[2]).resolve())
