"""The sum that ./check closes with: every kind of outcome in ctest's report is counted once, and rightly.

Usage: sum_tests.py SOURCE_DIR BUILD_DIR
"""
import pathlib
import subprocess
import sys

# (name, status, what stands inside)
CASES = [
    ("good", "run", ""),
    ("alsoGood", "run", "<system-out>FAILED, it prints, and is not</system-out>"),
    ("wrong", "fail", '<failure message=""/>'),
    ("leftItselfOut", "notrun", '<skipped message="SKIP_REGULAR_EXPRESSION_MATCHED"/>'),
    ("switchedOff", "disabled", ""),
    ("notBuilt", "notrun", '<skipped message="Unable to find executable"/>'),
]


def report(cases):
    return "<testsuite>" + "".join(
        f'<testcase name="{name}" status="{status}">{inside}</testcase>' for name, status, inside in cases) + "</testsuite>"


def run(source, file, text):
    file.write_text(text)
    return subprocess.run([sys.executable, source / "tools/sum-tests", file], capture_output=True, text=True, check=False)


def main(source, scratch):
    scratch.mkdir(parents=True, exist_ok=True)
    file = scratch / "sum_tests.xml"

    done = run(source, file, report(CASES))
    assert (done.returncode, done.stdout) == (0, "2 2 2\n"), done
    assert done.stderr == "FAILED wrong\nFAILED notBuilt\n", done.stderr

    assert run(source, file, report([])).returncode != 0, "a report without a test passed"
    assert run(source, file, "<testsuite><testcase").returncode != 0, "half a report passed"


if __name__ == "__main__":
    main(pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2]) / "tests/build")
