#!/usr/bin/env bash
# zvaddon build and extract of a generated tree of COUNT files, on a pseudo-terminal: the progress bar
# shows (files and bytes, rate, time left), both finish, and the package holds every file. (Without a
# terminal no progress shows: the golden cases, which run without one; its speed is the benchmarks'.)
# Usage: many_files.sh ZVADDON [COUNT] [SCRATCH]
set -euo pipefail
tool=$1
count=${2:-20000}
scratch=${3:-${TMPDIR:-/tmp}}
work=$(mktemp -d "$scratch/many-files.XXXXXX")
trap 'rm -rf "$work"' EXIT

python3 - "$work/tree" "$count" <<'PY'
import os, sys
root, count = sys.argv[1], int(sys.argv[2])
per_folder = 200
for i in range(count):
    folder = os.path.join(root, "pkg%03d" % (i // per_folder), "sub%d" % (i % 3))
    os.makedirs(folder, exist_ok=True)
    with open(os.path.join(folder, "f%05d.m" % i), "w") as f:
        f.write(("function y = f%d(x)\n  y = x + %d;\nend\n" % (i, i)) * (1 + i % 40))
PY
printf '{"properties": {"name": "Many", "version": "1.0.0", "GUID": "m"}}' > "$work/zvaddon.json"

fail() { echo "many_files: $*" >&2; exit 1; }
script -qefc "'$tool' build -m '$work/zvaddon.json' '$work/tree' -o '$work/many.zvaddon'" /dev/null > "$work/build.log" \
  || fail "build failed: $(tr '\r' '\n' < "$work/build.log" | tail -3)"
tr '\r' '\n' < "$work/build.log" > "$work/build.lines"
grep -q "^build \[" "$work/build.lines" || fail "no progress bar during the build"
grep -q " $count/$count files " "$work/build.lines" || fail "the progress bar never reached $count files"
# Several updates on the way, not just the first and the last.
[ "$(grep -c '^build \[' "$work/build.lines")" -ge 4 ] || fail "the progress bar moved fewer than 4 times"
grep -q "built .*many.zvaddon: $count files" "$work/build.lines" || fail "no summary"

listed=$("$tool" ls "$work/many.zvaddon" | wc -l)
[ "$listed" -eq "$count" ] || fail "the package lists $listed files, not $count"

script -qefc "'$tool' extract '$work/many.zvaddon' '$work/out'" /dev/null > "$work/extract.log" \
  || fail "extract failed: $(tr '\r' '\n' < "$work/extract.log" | tail -3)"
tr '\r' '\n' < "$work/extract.log" | grep -q "^extract \[" || fail "no progress bar during extract"
diff -r "$work/tree" "$work/out" > /dev/null || fail "the extracted tree differs from the source"
echo "many_files: $count files built and extracted with progress"
