#!/usr/bin/env bash
# zvaddon build and extract of a generated tree of COUNT files on a pseudo-terminal: the progress bar
# shows and moves at least 4 times up to COUNT files, both finish, the package holds every file and
# extracts to the same tree. (Without a terminal no bar shows: the golden cases.)
# Usage: many_files.sh ZVADDON [COUNT] [SCRATCH]
set -euo pipefail
tool=$1 count=${2:-20000}
work=$(mktemp -d "${3:-${TMPDIR:-/tmp}}/many-files.XXXXXX")
trap 'rm -rf "$work"' EXIT
fail() { echo "many_files: $*" >&2; exit 1; }
for ((i = 0; i < count; i++)); do
  d=$work/tree/pkg$((i / 200))/sub$((i % 3))
  [ -d "$d" ] || mkdir -p "$d"
  printf 'y = x + %d;\n%*s\n' $i $((i % 40 * 30)) "" > "$d/f$i.m"
done
printf '{"properties": {"name": "Many", "version": "1.0.0", "GUID": "m"}}' > "$work/zvaddon.json"
# On a pseudo-terminal, the command's output with carriage returns as line ends.
onTerminal() { script -qefc "$1" /dev/null | tr '\r' '\n' || fail "$1 failed"; }
onTerminal "'$tool' build -m '$work/zvaddon.json' '$work/tree' -o '$work/many.zvaddon'" > "$work/build.log"
[ "$(grep -c '^build \[' "$work/build.log")" -ge 4 ] || fail "the progress bar moved fewer than 4 times"
grep -q " $count/$count files " "$work/build.log" || fail "the progress bar never reached $count files"
grep -q "built .*many.zvaddon: $count files" "$work/build.log" || fail "no summary"
[ "$("$tool" ls "$work/many.zvaddon" | wc -l)" -eq "$count" ] || fail "the package does not list $count files"
onTerminal "'$tool' extract '$work/many.zvaddon' '$work/out'" > "$work/extract.log"
grep -q "^extract \[" "$work/extract.log" || fail "no progress bar during extract"
diff -r "$work/tree" "$work/out" > /dev/null || fail "the extracted tree differs from the source"
echo "many_files: $count files built and extracted with progress"
