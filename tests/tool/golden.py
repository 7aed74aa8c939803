#!/usr/bin/env python3
"""Golden cases of the zvaddon tool: each case file is a transcript of shell commands with the
output and exit status each must give. Lines indented by two spaces are the transcript, the rest
commentary: "  $ command" (bash, in the case's scratch folder $WORK), "  > more" (continues it),
"  text" (a line it prints, stdout and stderr together), "  text (re)" (a line matching the regular
expression whole), "  [N]" (its exit status when not 0). $WORK and the source tree print as $WORK
and $SRC. The commands run with zvaddon on the PATH, TZ=UTC, no SOURCE_DATE_EPOCH unless a case
sets one, and $EXAMPLES naming the example add-on.

Usage: golden.py TOOL_DIR SOURCE_DIR CASE_FILE; exits 1 naming each step whose output differs."""
import os
import re
import shutil
import subprocess
import sys
import tempfile

SALT = "ZVTOOL-GOLDEN-7f3a9c"


def parse(path):
    steps = []  # [line number, command, expected lines]
    with open(path, encoding="utf-8") as f:
        for number, text in enumerate(f.read().splitlines(), 1):
            if not text.startswith("  "):
                continue
            body = text[2:]
            if body.startswith("$ "):
                steps.append([number, body[2:], []])
            elif not steps:
                sys.exit(f"{path}:{number}: output before the first command")
            elif body.startswith("> ") and not steps[-1][2]:
                steps[-1][1] += "\n" + body[2:]
            else:
                steps[-1][2].append(body)
    return steps


# Runs every step in one shell, so that steps share variables and files; returns each step's output
# lines with its status line appended.
def run(steps, tool_dir, source, work):
    script = 'cd "$WORK" || exit 99\n'
    script += "".join(f"{command}\nprintf '\\n{SALT} %d\\n' $?\n" for _, command, _ in steps)
    env = {k: v for k, v in os.environ.items()
           if k not in ("SOURCE_DATE_EPOCH", "ZVADDON_MESSAGE_DIR", "ZVADDON_HOST_RELEASE")}
    env.update(WORK=work, EXAMPLES=source + "/examples", SRC=source, TZ="UTC", LC_ALL="C.UTF-8",
               PATH=tool_dir + ":" + env["PATH"])
    output = subprocess.run(["bash", "-c", script], env=env, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                            stderr=subprocess.STDOUT).stdout.decode("utf-8", "surrogateescape")
    for path, name in ((os.path.realpath(work), "$WORK"), (work, "$WORK"), (source, "$SRC")):
        output = output.replace(path, name)
    results = [[]]
    for line in output.split("\n"):
        if not line.startswith(SALT + " "):
            results[-1].append(line)
            continue
        # The marker starts with a newline of its own: drop the empty line it leaves.
        if results[-1] and results[-1][-1] == "":
            results[-1].pop()
        status = line[len(SALT) + 1:]
        if status != "0":
            results[-1].append(f"[{status}]")
        results.append([])
    return results[:-1]


def matches(expected, actual):
    if expected.endswith(" (re)"):
        return re.fullmatch(expected[:-5], actual) is not None
    return expected == actual


def main(tool_dir, source, case):
    steps = parse(case)
    if not steps:
        sys.exit(f"{case} holds no command")
    work = tempfile.mkdtemp(prefix="zvtool-golden-")
    try:
        results = run(steps, tool_dir, source, work)
    finally:
        shutil.rmtree(work, ignore_errors=True)
    failed = False
    for i, (line, command, expected) in enumerate(steps):
        if i >= len(results):
            sys.exit(f"{case}:{line}: the shell stopped before this step")
        # Lines that match a pattern are shown as the pattern, so the report shows real differences.
        actual = list(results[i])
        for k in range(min(len(actual), len(expected))):
            if matches(expected[k], actual[k]):
                actual[k] = expected[k]
        if actual != expected:
            failed = True
            print(f"{case}:{line}: $ {command}\nexpected:\n" + "".join(f"  {x}\n" for x in expected) +
                  "actual:\n" + "".join(f"  {x}\n" for x in actual))
    sys.exit(1 if failed else 0)


main(os.path.abspath(sys.argv[1]), os.path.abspath(sys.argv[2]), sys.argv[3])
