"""What tools/check-comments complains of, what it leaves alone, and what it mends.

Usage: check_comments.py SOURCE_DIR BUILD_DIR
"""
import pathlib
import subprocess
import sys

LONG = "word " * 24 + "end"  # with slashes before it more than 120 columns
FULL = "x" * 117

# (file, text, numbers of the lines that are complained of)
CASES = [
    ("Fits.h", f"// {FULL}\nint a;  // said behind\n", []),
    ("Long.h", f"// {FULL}y\n", [1]),
    ("LongBehind.h", f"int a;  // {LONG}\n", [1]),
    ("Raw.cpp", f'char const * a = R"(\n{LONG} // {LONG}\n)";\nchar const * b = "//";\n', []),
    ("Breaks.h", f"struct A {{\n   int f() const {{\n      return 1;\n   }}  // {FULL[:90]}\n}};\n", [2]),
    ("BreaksList.h", f"int f( int one,\n       int two );  // {FULL[:90]}\n", [1]),
    ("Enumeration.h", "enum class E {\n   a = 0,  // first\n   b,      // second\n};\n\nnamespace N {}  // namespace N\n", []),
    ("Script.py", f"# {LONG}\nlong = '{LONG}'\n", [1]),
]

TO_MEND = f"""// {LONG}
// and on.
//
//    a drawing {LONG}
// - {LONG}
//   and on
//     deeper
// {LONG}
// - next
// {LONG}
// a  table
// of  {LONG}
"""
MENDED = f"""// {LONG[:114]}
// {LONG[115:]} and on.
//
//    a drawing {LONG}
// - {LONG[:114]}
//   {LONG[115:]} and on
//     deeper
// {LONG[:114]}
// {LONG[115:]}
// - next
// {LONG[:114]}
// {LONG[115:]}
// a  table
// of  {LONG}
"""


def run(source, *arguments):
    return subprocess.run([source / "tools/check-comments", *arguments], capture_output=True, text=True, check=False)


def main(source, scratch):
    scratch.mkdir(parents=True, exist_ok=True)
    for name, text, lines in CASES:
        file = scratch / name
        file.write_text(text)
        done = run(source, file)
        found = [int(line.removeprefix(f"{file}:").split(":")[0]) for line in done.stderr.splitlines()]
        assert (found, done.returncode) == (lines, 1 if lines else 0), (name, done)

    file = scratch / "Mend.h"
    file.write_text(TO_MEND)
    assert run(source, "--fix", file).returncode == 1, "drawing and table are beyond mending"
    assert file.read_text() == MENDED, file.read_text()


if __name__ == "__main__":
    main(pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2]) / "tests/build/check_comments")
