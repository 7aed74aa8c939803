#!/usr/bin/env python3
"""Golden cases of the zvaddon tool: each case file is a transcript. Lines indented by two spaces are
the transcript, the rest commentary: "  $ command" (bash, in the scratch folder $WORK; all steps in one
shell), "  > more" (continues it), "  text" (a line it prints, stdout and stderr together), "  text (re)"
(a line matching the regular expression whole), "  [N]" (its exit status when not 0). $WORK and the
source tree print as $WORK and $SRC. zvaddon is on the PATH, TZ=UTC, SOURCE_DATE_EPOCH unset unless a
case sets it, $EXAMPLES names the example add-on.

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
    for number, text in enumerate(open(path, encoding="utf-8").read().splitlines(), 1):
        body = text[2:]
        if not text.startswith("  "):
            continue
        if body.startswith("$ "):
            steps.append([number, body[2:], []])
        elif not steps:
            sys.exit(f"{path}:{number}: output before the first command")
        elif body.startswith("> ") and not steps[-1][2]:
            steps[-1][1] += "\n" + body[2:]
        else:
            steps[-1][2].append(body)
    return steps


# Each step's output lines, its status line appended when not 0.
def run(steps, tool_dir, source, work):
    script = 'cd "$WORK" || exit 99\n' + "".join(f"{c}\nprintf '\\n{SALT} %d\\n' $?\n" for _, c, _ in steps)
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
        if results[-1] and results[-1][-1] == "":  # the marker's own leading newline
            results[-1].pop()
        status = line[len(SALT) + 1:]
        results[-1] += [f"[{status}]"] if status != "0" else []
        results.append([])
    return results[:-1]


def main(tool_dir, source, case):
    steps = parse(case) or sys.exit(f"{case} holds no command")
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
        actual = [e if e.endswith(" (re)") and re.fullmatch(e[:-5], a) else a for e, a in zip(expected, results[i])]
        actual += results[i][len(expected):]
        if actual != expected:
            failed = True
            print(f"{case}:{line}: $ {command}\nexpected:\n" + "".join(f"  {x}\n" for x in expected) +
                  "actual:\n" + "".join(f"  {x}\n" for x in actual))
    sys.exit(1 if failed else 0)


main(os.path.abspath(sys.argv[1]), os.path.abspath(sys.argv[2]), sys.argv[3])
