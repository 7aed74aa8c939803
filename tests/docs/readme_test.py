#!/usr/bin/env python3
"""Usage: readme_test.py README BUILD_DIR SCRATCH. Runs the README as a reader would, so that it cannot
drift from the code: the build is installed into SCRATCH/prefix and put first on PATH, CMAKE_PREFIX_PATH,
PKG_CONFIG_PATH and LD_LIBRARY_PATH; every fenced block is taken by the word test=NAME in its info
string, in README order, in one folder SCRATCH/work (a block without one fails the test):
  test=readme   a sh block runs with bash -e; one with file=PATH is written to PATH; one with the word
                "output" lists lines the preceding run must print, in order, "..." standing for any text
  test=make     each `make TARGET` must name a target of the Makefile (make -n)
  test=octave   run in Octave by the octave_package test
"""
import os
import pathlib
import re
import shutil
import subprocess
import sys

FENCE = re.compile(r"^```(\S*)([^\n]*)\n(.*?)^```[ \t]*$", re.S | re.M)


def fail(message):
    sys.exit(f"readme_test: {message}")


def matches(expected, actual):
    """The first expected line that no later actual line matches, or None."""
    lines = iter(line.rstrip() for line in actual.splitlines())
    for want in filter(None, (line.rstrip() for line in expected.splitlines())):
        pattern = re.compile(".*".join(map(re.escape, want.split("..."))))
        if not any(pattern.fullmatch(line) for line in lines):
            return want
    return None


def main(readme, build, scratch):
    readme, scratch = pathlib.Path(readme).resolve(), pathlib.Path(scratch).resolve()
    shutil.rmtree(scratch, ignore_errors=True)
    prefix, work = scratch / "prefix", scratch / "work"
    work.mkdir(parents=True)
    subprocess.run(["cmake", "--install", build, "--prefix", prefix], check=True, stdout=subprocess.DEVNULL)
    libdir = next(prefix.glob("**/pkgconfig/zvaddon.pc")).parent.parent
    env = dict(os.environ, CMAKE_PREFIX_PATH=str(prefix), PKG_CONFIG_PATH=str(libdir / "pkgconfig"),
               LD_LIBRARY_PATH=str(libdir), PATH=f"{prefix / 'bin'}{os.pathsep}{os.environ['PATH']}")

    output, counts = None, {}
    for match in FENCE.finditer(readme.read_text()):
        language, words, body = match.group(1), match.group(2).split(), match.group(3)
        options = dict(word.split("=", 1) for word in words if "=" in word)
        where = f"README line {readme.read_text()[:match.start()].count(chr(10)) + 1}"
        test = options.get("test") or fail(f"{where}: a ```{language} block without test=NAME")
        counts[test] = counts.get(test, 0) + 1
        if test == "make":
            for target in re.findall(r"^\s*make ([\w-]+)", body, re.M):
                if subprocess.run(["make", "-n", "-C", readme.parent, target], capture_output=True).returncode:
                    fail(f"{where}: the Makefile has no target {target}")
        elif test != "readme":
            continue
        elif "file" in options:
            (work / options["file"]).parent.mkdir(parents=True, exist_ok=True)
            (work / options["file"]).write_text(body)
        elif "output" in words:
            missing = matches(body, output or "")
            if missing is not None:
                fail(f"{where}: the output lacks\n  {missing}\nIt was:\n{output}")
        else:
            run = subprocess.run(["bash", "-e", "-o", "pipefail", "-c", body], cwd=work, env=env,
                                 stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
            output = run.stdout
            if run.returncode:
                fail(f"{where}: exit status {run.returncode}:\n{body}\n{output}")
    if not counts.get("readme"):
        fail("no test=readme block")
    print("readme_test: " + ", ".join(f"{n} test={t} blocks" for t, n in sorted(counts.items())))


if __name__ == "__main__":
    main(*sys.argv[1:]) if len(sys.argv) == 4 else fail(__doc__)
