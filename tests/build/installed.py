"""What `cmake --install` leaves: the files that belong there and no others; programs that run wherever the tree lies; pages that
name every option, every key of the configuration, and render without a warning; and completion that knows the units of a
maintd that runs.

Usage: installed.py SOURCE_DIR BUILD_DIR      runs in a network namespace of its own, which it makes
"""
import os
import pathlib
import re
import signal
import subprocess
import sys
import tempfile
import time

SOURCE, BUILD = (pathlib.Path(argument).resolve() for argument in sys.argv[1:3])
PROGRAMS = {"maintctl": "bin", "maintsim": "bin", "maintfleet": "bin", "maintd": "sbin"}
PAGES = {"maintctl": 1, "maintsim": 1, "maintd.conf": 5, "maintd": 8, "maintfleet": 8}
# What may lie where, below the prefix.
EXPECTED = re.compile(
    r"(bin/(maintctl|maintsim|maintfleet)|sbin/maintd"
    r"|lib/[^/]+/ratemon/(RateMonPlugin|libratemon-[a-z]+)\.so"
    r"|lib/ratemon/hooks/frr[a-z-]*(\.bash)?"
    r"|lib/(systemd/system/(maintd|maintfleet-(agent|controller))\.service|sysusers\.d/ratemon\.conf|tmpfiles\.d/ratemon\.conf)"
    r"|share/man/man\d/maint[a-z.]+\.\d\.gz"
    r"|share/(bash-completion/completions/|zsh/vendor-completions/_)(maintctl|maintfleet)"
    r"|share/doc/ratemon/(README\.md|copyright|changelog\.Debian\.gz|(docs|examples)/.+)"
    r"|etc/ratemon/(maintd\.yaml|maintfleet-(agent|controller)\.conf))")
CONFIG = """profiles: { quick: { threshold: 100kbps } }
default-profile: quick
groups: { g: { interfaces: [lo1, lo2] } }
units: { fabric: { groups: [g] }, "pod:7": { groups: [g] }, rack-12: { groups: [g] } }
"""

problems = []


def holds(condition, problem):
    if not condition:
        problems.append(problem)


def output(*command, **more):
    result = subprocess.run(command, capture_output=True, text=True, timeout=60, **more)
    return result.stdout + result.stderr


def check_files(prefix):
    found = {str(file.relative_to(prefix)) for file in prefix.rglob("*") if file.is_file()}
    for file in sorted(found):
        holds(EXPECTED.fullmatch(file), f"{file} is installed, and belongs nowhere")
    for kind in ("RateMonPlugin", "libratemon-kel", "maintd.service", "maintd.yaml", "frr-graceful-shutdown", "maintd.conf.5.gz"):
        holds(any(kind in file for file in found), f"{kind} is not installed")
    # The inventory is the operator's.
    for service in ("maintd", "maintfleet-agent", "maintfleet-controller"):
        unit = (prefix / f"lib/systemd/system/{service}.service").read_text()
        named = re.findall(r"^(?:ExecStart|EnvironmentFile)=(\S+)|--config (\S+)|--inventory (\S+)", unit, re.MULTILINE)
        for file in ("".join(groups) for groups in named):
            there = os.path.exists(file) or file.endswith("/fleet.yaml")
            holds(pathlib.Path(file).is_relative_to(prefix) and there, f"{service}.service names {file}, which is not installed")
    for file in prefix.rglob("*.so"):
        holds("$ORIGIN" in output("readelf", "-d", str(file)), f"{file.name} does not look beside itself for libraries")


def check_programs(prefix):
    version = re.search(r"VERSION ([\d.]+)", (SOURCE / "CMakeLists.txt").read_text().split("project(")[1])[1]
    for program, folder in PROGRAMS.items():
        said = output(str(prefix / folder / program), "--version")
        holds(said == f"{program} {version}\n", f"{program} --version says {said!r}")
    # maintsim cannot do it without the plug-in, and maintctl not without maintd.
    said = output(str(prefix / "bin/maintsim"), str(SOURCE / "examples/scenarios/what-if.jsonl"))
    holds('"ready": true' in said, f"maintsim answers {said[-300:]!r}")
    said = output(str(prefix / "bin/maintctl"), "check-config", str(prefix / "etc/ratemon/maintd.yaml"))
    holds("holds: 0 units, 0 warnings" in said, f"the configuration that is installed: {said!r}")


def check_hardening(prefix):
    if "RATEMON_HARDEN:BOOL=ON" not in (BUILD / "CMakeCache.txt").read_text():
        return
    program = str(prefix / "sbin/maintd")
    symbols, dynamic = output("nm", "-D", "--undefined-only", program), output("readelf", "-d", program)
    holds("__stack_chk_fail" in symbols, "maintd has no stack protector")
    holds(re.search(r"__\w+_chk@", symbols.replace("__stack_chk_fail", "")), "maintd has no fortified calls")
    holds("BIND_NOW" in dynamic and "PIE" in dynamic, "maintd is no position-independent executable with full RELRO")


def words_of_page(prefix, name):
    page = prefix / f"share/man/man{PAGES[name]}/{name}.{PAGES[name]}.gz"
    plain = subprocess.run(("gzip", "-dc", str(page)), capture_output=True, check=True).stdout
    result = subprocess.run(("groff", "-ww", "-mandoc", "-Tutf8", "-P-cbou"), input=plain, capture_output=True)
    holds(not result.stderr, f"{page.name}: {result.stderr.decode()}")
    return re.sub(r"\s+", " ", result.stdout.decode().replace("\u2010\n", "-"))


def options_of(*command):
    lines = re.findall(r"^  (-\S*)", output(*command, "--help"), re.MULTILINE)
    return {option for line in lines for option in line.split(",")}


def check_pages(prefix):
    for program, folder in PROGRAMS.items():
        path, page = str(prefix / folder / program), words_of_page(prefix, program)
        section = re.search(r"^Subcommands:\n(.*?)\n\n", output(path, "--help"), re.MULTILINE | re.DOTALL)
        commands = re.findall(r"^  ([a-z-]+)", section[1], re.MULTILINE) if section else []
        wanted = options_of(path).union(*(options_of(path, command) for command in commands))
        holds(len(wanted) > 5, f"{program} has hardly an option: {wanted}")
        for word in sorted(wanted) + commands:
            holds(re.search(rf"(?<![\w-]){re.escape(word)}(?![\w-])", page), f"the page of {program} says nothing of {word}")
    page = words_of_page(prefix, "maintd.conf")
    keys = re.findall(r'Field<\w+>{\s*"([\w-]+)"', (SOURCE / "service/config/Config.cpp").read_text())
    holds(len(keys) > 15, f"hardly a key is found in the configuration's reader: {keys}")
    for key in keys:
        holds(re.search(rf"(?<![\w-]){key}(:|(?![\w-]))", page), f"the page of maintd.conf says nothing of {key}")


BASH = r"""source "$1"; COMP_WORDS=( "$2" "${@:4}" ); COMP_LINE=${COMP_WORDS[*]}
COMP_LINE=${COMP_LINE// : /:}; COMP_CWORD=$(( ${#COMP_WORDS[@]} - 1 )); "_$2" "$3"; printf '%s\n' "${COMPREPLY[@]}" """
ZSH = r"""zmodload zsh/zpty
zpty shell zsh -f -i
drain() { local text; while zpty -r -t shell text; do seen+=$text; done; sleep 0.1; }
wait_for() { local i; for i in {1..300}; do drain; [[ $seen == *$1* ]] && return; done; }
zpty -w shell "PS1=; fpath=( $1 \$fpath ); autoload -Uz compinit; compinit -u -D; path=( $2 \$path ); setopt no_list_ambiguous; echo prepa''red"
wait_for prepared
seen=''
zpty -w -n shell "$3"$'\t'
wait_for "$4"
print -r -- $seen"""


def check_completion(prefix, socket, units):
    zsh = prefix / "share/zsh/vendor-completions"

    def completes(what, words, wanted, program="maintctl"):
        bash, path = str(prefix / "share/bash-completion/completions" / program), str(prefix / "bin" / program)
        # The shell waits for two seconds and does without then: on a busy machine it is asked again.
        for _ in range(5):
            found = output("bash", "-c", BASH, "bash", bash, program, path, "--socket", socket, *words).split()
            if found == wanted:
                return
        holds(False, f"bash completes {what}: {found}")

    completes("units", ("enter", ""), units)
    completes("en", ("en",), ["enter"])
    completes("--dr", ("enter", "--dr"), ["--dry-run"])
    completes("und", ("und",), ["undrain"], "maintfleet")
    completes("hold", ("plan", "--at-deadline", "h"), ["hold"], "maintfleet")
    if not units:
        return
    completes("fa", ("enter", "fa"), ["fabric"])
    completes("lo", ("explain", "lo"), ["lo1", "lo2"])
    completes("an interface of a unit", ("enter", "fabric", "--without", "lo1"), ["lo1"])
    # Readline gives what stands before and behind a colon as words of their own, and wants only what is behind it.
    completes("pod:", ("enter", "pod", ":", ""), ["7"])
    completes("an interface of pod:7", ("enter", "pod", ":", "7", "--without", "lo1"), ["lo1"])
    said = output("zsh", "-f", "-c", ZSH, "zsh", str(zsh), str(prefix / "bin"), f"maintctl --socket {socket} enter rack", "rack-12")
    holds("rack-12" in said, f"zsh completes rack: {said!r}")


def check_live(prefix, directory):
    socket, config = str(directory / "control.sock"), directory / "maintd.yaml"
    config.write_text(CONFIG)
    check_completion(prefix, socket, [])  # nobody answers, and nobody complains
    # In a network namespace of its own: a maintd of the machine, or of another test, has that of everyone.
    alone = ("unshare", "--user", "--map-root-user", "--net")
    maintd = subprocess.Popen((*alone, prefix / "sbin/maintd", "--config", config, "--socket", socket, "--state", directory / "state"),
                              stderr=subprocess.DEVNULL)
    try:
        for _ in range(200):
            if "fabric" in output(str(prefix / "bin/maintctl"), "--socket", socket, "units"):
                break
            time.sleep(0.1)
        check_completion(prefix, socket, ["fabric", "pod:7", "rack-12"])
    finally:
        maintd.send_signal(signal.SIGTERM)
        holds(maintd.wait(20) == 0, "maintd does not end by itself")


def main():
    with tempfile.TemporaryDirectory() as directory:
        prefix = pathlib.Path(directory) / "usr"
        said = output("cmake", "--install", str(BUILD), "--prefix", str(prefix), env={**os.environ, "DESTDIR": ""})
        holds(prefix.is_dir(), said)
        check_files(prefix)
        check_programs(prefix)
        check_hardening(prefix)
        check_pages(prefix)
        check_live(prefix, pathlib.Path(directory))
    for problem in problems:
        print(problem)
    return 1 if problems else 0


if __name__ == "__main__":
    if os.environ.get("RATEMON_INSIDE") != "yes":
        os.execvpe("unshare", ["unshare", "--user", "--map-root-user", "--net", "--", sys.executable, *sys.argv],
                   {**os.environ, "RATEMON_INSIDE": "yes"})
    sys.exit(main())
