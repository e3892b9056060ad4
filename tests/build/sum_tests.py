"""The sum that ./check closes with: every kind of outcome in ctest's report is counted once, and rightly.

Usage: sum_tests.py SOURCE_DIR BUILD_DIR
"""
import pathlib
import subprocess
import sys

# What GoogleTest programs print.
ALL_KINDS = """Running main() from gmock_main.cc
Note: This is test shard 1 of 2.
[==========] Running 4 tests from 2 test suites.
[ RUN      ] Suite.good
[  FAILED] it prints, and is not
and half a line[       OK ] Suite.good (0 ms)
[ RUN      ] With/Suite.parameters/0
a.cpp:1: Failure
[  FAILED  ] With/Suite.parameters/0, where GetParam() = two
lines (3 ms)
[ RUN      ] Suite.leftItselfOut
[  SKIPPED ] Suite.leftItselfOut (0 ms)
[ RUN      ] Other.good
[       OK ] Other.good (12 ms)
[==========] 4 tests from 2 test suites ran. (15 ms total)
[  PASSED  ] 2 tests.
[  SKIPPED ] 1 test, listed below:
[  SKIPPED ] Suite.leftItselfOut
[  FAILED  ] 1 test, listed below:
[  FAILED  ] With/Suite.parameters/0, where GetParam() = two
lines

 1 FAILED TEST
  YOU HAVE 2 DISABLED TESTS
"""
CRASH = """[==========] Running 4 tests from 1 test suite.
[ RUN      ] Suite.good
[       OK ] Suite.good (0 ms)
[ RUN      ] Suite.crashes
"""
ALL_GOOD = """[==========] Running 1 test from 1 test suite.
[ RUN      ] Suite.good
[       OK ] Suite.good (0 ms)
[  PASSED  ] 1 test.
"""

# What a test is, its status in ctest's report, what stands inside; passed, failed, skipped; the lines about what
# failed.
TESTS = [
    ("a program that passes", "run", "<system-out>FAILED, it prints, and is not</system-out>", (1, 0, 0), []),
    ("a program that fails", "fail", '<failure message=""/>', (0, 1, 0), [""]),
    ("left itself out", "notrun", '<skipped message="SKIP_REGULAR_EXPRESSION_MATCHED"/>', (0, 0, 1), []),
    ("switched off", "disabled", "", (0, 0, 1), []),
    ("not built", "notrun", '<skipped message="Unable to find executable"/>', (0, 1, 0), [""]),
    ("all kinds", "fail", f"<system-out>{ALL_KINDS}</system-out>", (2, 1, 3), [" With/Suite.parameters/0"]),
    ("crashed", "fail", f"<system-out>{CRASH}</system-out>", (1, 3, 0),
     [" Suite.crashes: it did not end", ": 2 cases did not begin"]),
    ("left in good order, but early", "run", f"<system-out>{CRASH}</system-out>", (1, 3, 0),
     [" Suite.crashes: it did not end", ": 2 cases did not begin"]),
    ("crashed after its last case", "fail", f"<system-out>{ALL_GOOD}</system-out>", (1, 1, 0),
     [": the program failed, though none of its cases did"]),
]


def report(tests):
    return "<testsuite>" + "".join(
        f'<testcase name="{name}" status="{status}">{inside}</testcase>' for name, status, inside, *_ in tests) + "</testsuite>"


def run(source, file, text):
    file.write_text(text)
    return subprocess.run([sys.executable, source / "tools/sum-tests", file], capture_output=True, text=True, check=False)


def main(source, scratch):
    scratch.mkdir(parents=True, exist_ok=True)
    file = scratch / "sum_tests.xml"

    for test in TESTS:
        done, (name, _, _, counts, failures) = run(source, file, report([test])), test
        assert (done.returncode, done.stdout) == (0, "{} {} {}\n".format(*counts)), (name, done)
        assert done.stderr.splitlines() == [f"FAILED {name}{failure}" for failure in failures], (name, done.stderr)

    done = run(source, file, report(TESTS))
    assert done.stdout == "{} {} {}\n".format(*map(sum, zip(*(counts for _, _, _, counts, _ in TESTS)))), done

    left_out = '<skipped message="SKIP_RETURN_CODE=77"/><system-out>x\nSKIPPED: no y\n</system-out>'
    done = run(source, file, report([("vm", "notrun", left_out)]))
    assert (done.stdout, done.stderr) == ("0 0 1\n", "vm: SKIPPED: no y\n"), done

    assert run(source, file, report([])).returncode != 0, "a report without a test passed"
    assert run(source, file, "<testsuite><testcase").returncode != 0, "half a report passed"


if __name__ == "__main__":
    main(pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2]) / "tests/build")
