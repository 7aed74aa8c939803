#!/usr/bin/env python3
"""Checks the memory budget: building, listing and extracting the 70,000-file tree each stay below
100 MB of peak RSS (GNU time's %M, the largest process of the step).

Builds the package with zvAddonCreate + zvAddonAddFiles (every file in one call) + zvAddonAddFolders
through bench/zvbench_call, as run_peers.py does, lists it and extracts it with `zvaddon call`, and
checks that the extraction holds every file of the tree at its size. Prints one line a step with its
wall time and peak RSS, OK or FAIL, and exits 1 when any step fails or breaks the budget.

Usage: memory_budget.py TREE BUILD_DIR WORK_DIR [--limit-mb N]
  TREE       `bench/make_tree.py huge TREE` (70,000 files)
  BUILD_DIR  a zvaddon build folder (tools/zvaddon/zvaddon, bench/zvbench_call)
  WORK_DIR   scratch space: the package and the extracted tree (about twice the tree)
"""
import argparse
import json
import os
import shutil
import sys

from run_peers import PROPS, q, timed


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("tree")
    ap.add_argument("build")
    ap.add_argument("work")
    ap.add_argument("--limit-mb", type=float, default=100.0)
    a = ap.parse_args()
    tree, work = os.path.abspath(a.tree), os.path.abspath(a.work)
    zvaddon = os.path.join(os.path.abspath(a.build), "tools/zvaddon/zvaddon")
    zvcall = os.path.join(os.path.abspath(a.build), "bench/zvbench_call")
    limit_kib = a.limit_mb * 1e6 / 1024
    os.makedirs(work, exist_ok=True)

    files, empty, sizes = [], [], {}
    for dirpath, dirs, names in os.walk(tree):
        rel = os.path.relpath(dirpath, tree)
        for n in sorted(names):
            path = n if rel == "." else rel + "/" + n
            files.append(path)
            sizes[path] = os.path.getsize(os.path.join(dirpath, n))
        if not names and not dirs and rel != ".":
            empty.append(rel)
    for name, value in (("sources", [tree + "/" + p for p in files]), ("targets", files), ("folders", empty),
                        ("props", PROPS)):
        with open(os.path.join(work, name + ".json"), "w") as f:
            json.dump(value, f)

    pkg, out = os.path.join(work, "budget.zvaddon"), os.path.join(work, "extracted")
    w = q(work)
    steps = [
        ("build", f"rm -f {q(pkg)} && {q(zvcall)} zvAddonCreate {q(json.dumps(pkg))} @{w}/props.json && "
                  f"{q(zvcall)} zvAddonAddFiles {q(json.dumps(pkg))} @{w}/sources.json @{w}/targets.json && "
                  f"{q(zvcall)} zvAddonAddFolders {q(json.dumps(pkg))} @{w}/folders.json"),
        ("list", f"{q(zvaddon)} call zvAddonGetFileList {q(json.dumps(pkg))} > /dev/null"),
        ("extract", f"rm -rf {q(out)} && {q(zvaddon)} call zvAddonExtractAllFiles {q(json.dumps(pkg))} "
                    f"{q(json.dumps(out))} > /dev/null"),
    ]
    print(f"{len(files)} files, {len(empty)} empty folders; limit {a.limit_mb:g} MB ({limit_kib:,.0f} KiB)")
    failed = False
    for name, command in steps:
        try:
            secs, kib, *_ = timed(command)
        except RuntimeError as e:
            print(f"FAIL {name}: {e}")
            failed = True
            break
        verdict = "OK" if kib < limit_kib else "FAIL"
        failed = failed or verdict == "FAIL"
        print(f"{verdict} {name}: {secs:.2f} s, peak RSS {kib:,} KiB ({kib / 1024:.1f} MiB)")
    if not failed:
        wrong = [p for p, size in sizes.items()
                 if not os.path.isfile(os.path.join(out, p)) or os.path.getsize(os.path.join(out, p)) != size]
        if wrong:
            print(f"FAIL extract: {len(wrong)} files missing or of another size, first '{wrong[0]}'")
            failed = True
    shutil.rmtree(out, ignore_errors=True)
    print("FAIL: the memory budget is broken" if failed else "OK: every step within the budget")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
