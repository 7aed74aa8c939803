#!/usr/bin/env python3
"""Runs zvaddon and other archivers side by side on one tree and prints a Markdown table.

For each task (build a package from the tree, list it, extract it, set one metadata record, hash a
1 GiB file) every tool runs REPS times, interleaved round by round so that drift on a busy machine
hits all of them alike. The table gives the median wall time, the ratio to the best peer (below 1
is faster than every peer), the median CPU use (user + system time over wall time) and system time,
the archive size and the largest peak RSS (GNU time's %M, %U, %S).

Usage: run_peers.py TREE BUILD_DIR WORK_DIR [--reps N] [--hash-mib N] [--only TASK,...]
  TREE       a tree from make_tree.py
  BUILD_DIR  a zvaddon build folder (tools/zvaddon/zvaddon, bench/zvbench_call)
  WORK_DIR   scratch space for archives and extracted trees (about three times the tree)
"""
import argparse
import json
import os
import shutil
import statistics
import subprocess
import sys
import tempfile
import time
import zipfile

PROPS = {"type": "ZORVAN Toolbox", "name": "Bench", "version": "1.0", "ZORVANRelease": "", "summary": "",
         "authorName": "", "authorContact": "", "authorOrganization": "", "GUID": "bench-guid", "description": ""}
RECORD = {"date": "2024-06-01", "version": "1.0", "description": "one revision"}


def q(s):
    return "'" + s.replace("'", "'\\''") + "'"


def timed(command, cwd=None):
    """(seconds, peak RSS in KiB, user seconds, system seconds) of one shell command; raises when it fails. The wall time is taken
    here (GNU time's %e has 10 ms steps, too coarse for listing), less the cost of the wrapper."""
    # Each sample starts with no dirty pages: otherwise a command pays for the writeback of the one
    # before it (extraction leaves 600 MB; cp returns before its copy reaches the disk).
    subprocess.run(["sync"], check=True)
    with tempfile.NamedTemporaryFile("r", suffix=".time") as t:
        full = "/usr/bin/time -f '%M %U %S' -o " + t.name + " /bin/bash -c " + q(command)
        start = time.perf_counter()
        r = subprocess.run(full, shell=True, cwd=cwd, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
        secs = time.perf_counter() - start
        if r.returncode != 0:
            raise RuntimeError("failed: " + command + "\n" + r.stderr[-2000:])
        # bash -c may run several programs; GNU time reports the largest child's peak.
        rss, user, system = t.read().split()[-3:]
        return max(0.0, secs - WRAPPER_SECONDS), int(rss), float(user), float(system)


# What the shell, GNU time and bash cost around every command, measured once and taken off each sample.
WRAPPER_SECONDS = 0.0


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("tree")
    ap.add_argument("build")
    ap.add_argument("work")
    ap.add_argument("--reps", type=int, default=3)
    ap.add_argument("--hash-mib", type=int, default=1024)
    ap.add_argument("--only", default="build,list,extract,set,hash")
    a = ap.parse_args()
    tree = os.path.abspath(a.tree)
    work = os.path.abspath(a.work)
    zvaddon = os.path.join(os.path.abspath(a.build), "tools/zvaddon/zvaddon")
    zvcall = os.path.join(os.path.abspath(a.build), "bench/zvbench_call")
    os.makedirs(work, exist_ok=True)
    tasks = a.only.split(",")

    # Every regular file of the tree, and the folders that hold none (they are added as folders).
    files, empty = [], []
    for dirpath, dirs, names in os.walk(tree):
        rel = os.path.relpath(dirpath, tree)
        for n in sorted(names):
            files.append(n if rel == "." else rel + "/" + n)
        if not names and not dirs and rel != ".":
            empty.append(rel)
    with open(os.path.join(work, "sources.json"), "w") as f:
        json.dump([tree + "/" + p for p in files], f)
    with open(os.path.join(work, "targets.json"), "w") as f:
        json.dump(files, f)
    with open(os.path.join(work, "folders.json"), "w") as f:
        json.dump(empty, f)
    with open(os.path.join(work, "props.json"), "w") as f:
        json.dump(PROPS, f)
    tree_bytes = sum(os.path.getsize(os.path.join(tree, p)) for p in files)

    pkg = os.path.join(work, "zv.zvaddon")
    zv_build = (f"rm -f {q(pkg)} && {q(zvcall)} zvAddonCreate {q(json.dumps(pkg))} @{q(work)}/props.json && "
                f"{q(zvcall)} zvAddonAddFiles {q(json.dumps(pkg))} @{q(work)}/sources.json @{q(work)}/targets.json && "
                f"{q(zvcall)} zvAddonAddFolders {q(json.dumps(pkg))} @{q(work)}/folders.json")
    w = q(work)
    rows = {}  # task -> [(tool, command, cwd, archive or None, is_ours)]
    rows["build"] = [
        ("zvaddon (Create+AddFiles+AddFolders)", zv_build, None, pkg, True),
        ("zip -r -6", f"rm -f {w}/z6.zip && zip -r -q -6 {w}/z6.zip .", tree, f"{work}/z6.zip", False),
        ("zip -r -1", f"rm -f {w}/z1.zip && zip -r -q -1 {w}/z1.zip .", tree, f"{work}/z1.zip", False),
        ("7z a -tzip -mmt2", f"rm -f {w}/7z.zip && 7z a -bd -bso0 -tzip -mmt2 {w}/7z.zip .", tree, f"{work}/7z.zip", False),
        ("python3 zipfile (level 6)",
         f"rm -f {w}/py.zip && python3 -c \"import zipfile,os\nwith zipfile.ZipFile('{work}/py.zip','w',zipfile.ZIP_DEFLATED,compresslevel=6) as z:\n"
         f" [z.write(os.path.join(d,n), os.path.relpath(os.path.join(d,n))) for d,_,ns in os.walk('.') for n in ns]\"",
         tree, f"{work}/py.zip", False),
    ]
    rows["list"] = [
        ("zvaddon call zvAddonGetFileList", f"{q(zvaddon)} call zvAddonGetFileList {q(json.dumps(pkg))} > /dev/null", None, None, True),
        ("zipinfo -1", f"zipinfo -1 {w}/z6.zip > /dev/null", None, None, False),
        ("unzip -l", f"unzip -l {w}/z6.zip > /dev/null", None, None, False),
        ("7z l", f"7z l {w}/z6.zip > /dev/null", None, None, False),
    ]
    rows["extract"] = [
        ("zvaddon call zvAddonExtractAllFiles",
         f"rm -rf {w}/x && {q(zvaddon)} call zvAddonExtractAllFiles {q(json.dumps(pkg))} {q(json.dumps(work + '/x'))} > /dev/null",
         None, None, True),
        ("unzip -q", f"rm -rf {w}/x && unzip -q {w}/z6.zip -d {w}/x", None, None, False),
        ("7z x -mmt2", f"rm -rf {w}/x && 7z x -bd -bso0 -mmt2 -o{w}/x {w}/z6.zip", None, None, False),
        ("python3 zipfile extractall",
         f"rm -rf {w}/x && python3 -c \"import zipfile; zipfile.ZipFile('{work}/z6.zip').extractall('{work}/x')\"", None, None, False),
        ("cp -r (the tree, no archive)", f"rm -rf {w}/x && cp -r {q(tree)} {w}/x", None, None, False),
    ]
    rows["set"] = [
        ("zvaddon call zvAddonSetRevisionHistory",
         f"{q(zvaddon)} call zvAddonSetRevisionHistory {q(json.dumps(pkg))} {q(json.dumps(RECORD))} > /dev/null", None, None, True),
        ("cp of the package file", f"cp {q(pkg)} {w}/copy.zvaddon", None, None, False),
        # What the durable replace adds: zvaddon syncs the new file before renaming it over the old.
        ("cp + sync of the package file", f"cp {q(pkg)} {w}/copy.zvaddon && sync {w}/copy.zvaddon", None, None, False),
        ("zip -u (one changed file)", f"cp {w}/z6.zip {w}/zu.zip && cd {w} && echo x > note.txt && zip -q zu.zip note.txt", None, None, False),
    ]
    big = os.path.join(work, "hash.bin")
    rows["hash"] = [
        ("zvaddon call zvAddonComputeHash", f"{q(zvaddon)} call zvAddonComputeHash {q(json.dumps(big))} > /dev/null", None, None, True),
        ("openssl dgst -sha512", f"openssl dgst -sha512 {q(big)} > /dev/null", None, None, False),
        ("sha512sum", f"sha512sum {q(big)} > /dev/null", None, None, False),
    ]
    if "hash" in tasks and (not os.path.exists(big) or os.path.getsize(big) != a.hash_mib << 20):
        subprocess.run(f"head -c {a.hash_mib << 20} /dev/urandom > {q(big)}", shell=True, check=True)

    global WRAPPER_SECONDS
    WRAPPER_SECONDS = statistics.median(timed("true")[0] for _ in range(9))
    print(f"Wrapper (shell, GNU time, bash): {WRAPPER_SECONDS * 1000:.1f} ms, taken off every sample.\n")
    results = {}
    for task in ["build", "list", "extract", "set", "hash"]:
        if task not in tasks:
            continue
        samples = {tool: [] for tool, *_ in rows[task]}
        # Listing takes milliseconds: ten times the runs so that its medians hold still.
        for _ in range(a.reps * (10 if task == "list" else 1)):
            for tool, command, cwd, _archive, _ours in rows[task]:
                samples[tool].append(timed(command, cwd))
        results[task] = samples
        print(f"done {task}", file=sys.stderr)

    print(f"Tree: {tree} ({len(files)} files, {tree_bytes / 2**20:.0f} MiB); {a.reps} runs each, medians.\n")
    print("| task | tool | median s | ratio to best peer | CPU % | system s | archive bytes | peak RSS MiB |")
    print("|---|---|---:|---:|---:|---:|---:|---:|")
    for task, samples in results.items():
        med = {tool: statistics.median(s for s, *_ in v) for tool, v in samples.items()}
        peers = [tool for tool, *_r, ours in rows[task] if not ours and not tool.startswith("cp -r")]
        best = min(med[t] for t in peers)
        for tool, _c, _cwd, archive, _ours in rows[task]:
            size = f"{os.path.getsize(archive):,}" if archive and os.path.exists(archive) else ""
            rss = max(r for _, r, *_ in samples[tool]) / 1024
            cpu = statistics.median(100 * (u + k) / max(s, 1e-6) for s, _, u, k in samples[tool])
            system = statistics.median(k for *_, k in samples[tool])
            print(f"| {task} | {tool} | {med[tool]:.3f} | {med[tool] / best:.2f} | {cpu:.0f} | {system:.2f} | {size} | {rss:.0f} |")
    if "build" in results:
        # Which archives mark their names as UTF-8 (general-purpose flag bit 11), entry by entry.
        print("\n| archive | entries | with the UTF-8 name flag |")
        print("|---|---:|---:|")
        for tool, _c, _cwd, archive, _ours in rows["build"]:
            if archive and os.path.exists(archive):
                with zipfile.ZipFile(archive) as z:
                    infos = z.infolist()
                print(f"| {tool} | {len(infos)} | {sum(1 for i in infos if i.flag_bits & 0x800)} |")
    shutil.rmtree(os.path.join(work, "x"), ignore_errors=True)


if __name__ == "__main__":
    main()
