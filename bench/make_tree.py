#!/usr/bin/env python3
"""Writes a deterministic add-on tree for the packaging benchmarks.

Shapes (the same seed always gives the same bytes):
  full   20,000 files, about 600 MiB, 1,344 folders: by count 90% source text, 10% images, plus
         16 data files of 1-60 MiB holding a quarter of the bytes
  small  the same mix at a tenth of the files and bytes
  huge   70,000 files over 4 GiB (the data files grow to 256-600 MiB), for the ZIP64 limits
  mixed  20,000 files, about 600 MiB: by bytes 27% large incompressible data files (.mat, 2-48
         MiB), 42% images, 31% small text
  bulk   2,000 files, about 600 MiB: by bytes over 90% large incompressible data files (1-64 MiB)

Names carry spaces, "#", "%" and non-ASCII letters. Text compresses about as source code does;
images and ".mat" data are incompressible (as already-compressed formats are); ".csv" and ".dat"
data compress moderately. SHAPE-ascii (say mixed-ascii) writes SHAPE's files and bytes under names
spelled in ASCII, to tell what OPC's percent-encoded item names cost in package size from what the
writer costs.

Usage: make_tree.py SHAPE DIR     (DIR must not exist)
"""
import os
import random
import struct
import sys

MIXED_DATA = ["csv", "dat", "mat"]
SHAPES = {
    # files, folders, mean text bytes, mean image bytes, data file sizes in MiB, data kinds in turn
    "full": (20000, 1344, 13 * 1024, 100 * 1024,
             [60, 24, 16, 12, 8, 6, 5, 4, 3, 3, 2, 2, 1, 1, 1, 1], MIXED_DATA),
    "small": (2000, 134, 13 * 1024, 100 * 1024, [6, 4, 2, 1, 1, 1], MIXED_DATA),
    "huge": (70000, 4000, 13 * 1024, 100 * 1024,
             [600, 512, 480, 400, 360, 320, 300, 256, 128, 64, 32, 16, 8, 4, 2, 1], MIXED_DATA),
    "mixed": (20000, 1344, 10850, 132000, [48, 32, 24, 16, 12, 10, 8, 6, 4, 2], ["mat"]),
    "bulk": (2000, 134, 13 * 1024, 100 * 1024,
             [64, 60, 56, 48, 48, 40, 32, 32, 28, 24, 24, 20, 16, 16, 12, 8, 8, 8, 4, 4, 2, 2, 1, 1], ["mat"]),
}

STEMS = ["filter", "signal", "Spectrum", "plot data", "helper#2", "100% done", "résumé", "naïve fit",
         "Ærø", "日本語", "données", "test_case", "util", "core", "io", "private", "+pkg", "@Model",
         "matrix ops", "straße", "Ω-meter", "demo #1", "x%20y", "mesh", "solver", "draft (old)"]
# ASCII spellings of the non-ASCII stems: swapped in place, so a tree's random draws stay the same.
ASCII_SPELLING = {"résumé": "resume", "naïve fit": "naive fit", "Ærø": "Aero", "日本語": "nihongo",
                  "données": "donnees", "straße": "strasse", "Ω-meter": "Omega-meter"}
TEXT_EXT = [".m", ".m", ".m", ".txt", ".html", ".xml", ".c", ".h", ".json", ".md"]
IMAGE_EXT = [".png", ".jpg", ".gif"]
WORDS = ("function end if else elseif for while return switch case otherwise try catch error warning "
         "zeros ones size numel length fprintf disp struct cell isempty isfield strcmp regexprep "
         "varargin varargout nargin nargout persistent global true false x y z n k idx value result "
         "options data signal filter order cutoff sample rate window length spectrum plot figure axis "
         "hold on off label title legend grid the of and to in is a for with this that returns "
         "input output matrix vector array scalar double single int32 uint8 logical char string").split()


def name(rng, ext=""):
    return rng.choice(STEMS) + "_" + format(rng.randrange(1 << 20), "x") + ext


def make_folders(rng, count):
    folders = [""]
    for _ in range(count):
        parent = rng.choice(folders[: max(1, len(folders))])
        while parent.count("/") >= 6:
            parent = rng.choice(folders)
        folders.append((parent + "/" if parent else "") + name(rng))
    return folders[1:]


def text_pool(rng):
    """Lines of code-like text; files take runs of them so that they compress like source."""
    lines = []
    for _ in range(40000):
        indent = "    " * rng.randrange(4)
        words = rng.choices(WORDS, k=rng.randrange(2, 12))
        tail = rng.choice(["", ";", " % " + " ".join(rng.choices(WORDS, k=4)), "(" + str(rng.randrange(1000)) + ");"])
        lines.append(indent + " ".join(words) + tail + "\n")
    return "".join(lines).encode()


def text_bytes(rng, pool, size):
    out = bytearray()
    while len(out) < size:
        start = rng.randrange(len(pool) - 4096)
        out += pool[start:start + rng.randrange(256, 4096)]
        out += ("%% id %08x\n" % rng.randrange(1 << 32)).encode()
    return bytes(out[:size])


def image_bytes(rng, size):
    return b"\x89PNG\r\n\x1a\n" + rng.randbytes(max(0, size - 8))


def write_data(path, rng, size, kind):
    """Writes `size` bytes in 1 MiB pieces so that the generator's memory stays small."""
    step = 1 << 20
    phase = rng.random()
    with open(path, "wb") as f:
        written = 0
        row = 0
        while written < size:
            n = min(step, size - written)
            if kind == "mat":
                piece = rng.randbytes(n)
            elif kind == "dat":
                # Samples of a slow signal as float32 with 12 noisy low bits: moderately compressible.
                vals = []
                for i in range(n // 4):
                    t = (written // 4 + i) * 1e-4 + phase
                    vals.append(int(0x40000000 + (int(t * 3000) % 4096) * 4096) + rng.getrandbits(12))
                piece = struct.pack("<%dI" % len(vals), *vals) + bytes(n % 4)
            else:  # csv
                buf = []
                total = 0
                while total < n:
                    line = "%d,%.4f,%.4f,%d\n" % (row, rng.random() * 100, rng.gauss(0, 1), rng.randrange(10))
                    row += 1
                    buf.append(line)
                    total += len(line)
                piece = "".join(buf).encode()[:n]
            f.write(piece)
            written += n


def main():
    shape = sys.argv[1].removesuffix("-ascii") if len(sys.argv) == 3 else ""
    if shape not in SHAPES:
        sys.exit(__doc__)
    root = sys.argv[2]
    if shape != sys.argv[1]:
        STEMS[:] = [ASCII_SPELLING.get(stem, stem) for stem in STEMS]
    files, folder_count, text_mean, image_mean, data_mib, kinds = SHAPES[shape]
    rng = random.Random(20240601 + len(shape))
    os.makedirs(root)
    folders = make_folders(rng, folder_count)
    for f in folders:
        os.makedirs(os.path.join(root, f), exist_ok=True)
    pool = text_pool(rng)
    small_files = files - len(data_mib)
    seen = set()
    for i in range(small_files):
        folder = rng.choice(folders)
        image = i % 10 == 9
        ext = rng.choice(IMAGE_EXT if image else TEXT_EXT)
        path = os.path.join(root, folder, name(rng, ext))
        while path in seen:
            path = os.path.join(root, folder, name(rng, ext))
        seen.add(path)
        # Sizes spread over two orders of magnitude, as real files are.
        mean = image_mean if image else text_mean
        size = int(rng.lognormvariate(0, 1.0) * mean / 1.65)
        with open(path, "wb") as f:
            f.write(image_bytes(rng, size) if image else text_bytes(rng, pool, size))
    for i, mib in enumerate(data_mib):
        kind = kinds[i % len(kinds)]
        write_data(os.path.join(root, rng.choice(folders), name(rng, "." + kind)), rng, mib << 20, kind)
    # A fixed time for every file, so that archives of the same tree are comparable byte for byte.
    for dirpath, _, names in os.walk(root):
        for n in names:
            os.utime(os.path.join(dirpath, n), (1700000000, 1700000000))


if __name__ == "__main__":
    main()
