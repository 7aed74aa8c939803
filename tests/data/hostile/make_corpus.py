#!/usr/bin/env python3
"""Builds the corpus of hostile add-on packages, one small file per defect, named for it.

Each package is otherwise valid (content types, a content file under /fsroot/), so that what makes it
hostile is the one defect in its name. Run from anywhere: the files are written next to this script.
Regenerate with `python3 tests/data/hostile/make_corpus.py`; the output is deterministic.
"""
import io
import os
import struct
import zipfile
import zlib

HERE = os.path.dirname(os.path.abspath(__file__))
FIXED_TIME = (2020, 1, 2, 3, 4, 6)

CONTENT_TYPES = (
    '<?xml version="1.0" encoding="UTF-8" standalone="yes"?>'
    '<Types xmlns="http://schemas.openxmlformats.org/package/2006/content-types">'
    '<Default Extension="txt" ContentType="text/plain"/>'
    '<Default Extension="bin" ContentType="application/octet-stream"/>'
    '</Types>'
)


def build(entries):
    """entries: list of (item name, bytes); returns the ZIP bytes, deflated, fixed times."""
    out = io.BytesIO()
    with zipfile.ZipFile(out, "w", zipfile.ZIP_DEFLATED) as z:
        for name, data in [("[Content_Types].xml", CONTENT_TYPES.encode())] + entries:
            info = zipfile.ZipInfo(name, FIXED_TIME)
            info.compress_type = zipfile.ZIP_DEFLATED
            info.create_system = 3
            info.external_attr = 0o100644 << 16
            z.writestr(info, data)
    return bytearray(out.getvalue())


def patch_sizes(data, item, compressed=None, uncompressed=None):
    """Rewrites the sizes an item declares, in its local and its central header alike."""
    eocd = data.rfind(b"PK\x05\x06")
    count, = struct.unpack_from("<H", data, eocd + 10)
    pos, = struct.unpack_from("<I", data, eocd + 16)
    for _ in range(count):
        assert data[pos:pos + 4] == b"PK\x01\x02"
        name_len, extra_len, comment_len = struct.unpack_from("<HHH", data, pos + 28)
        local, = struct.unpack_from("<I", data, pos + 42)
        if data[pos + 46:pos + 46 + name_len].decode() == item:
            for header, offset in ((pos, 20), (local, 18)):
                if compressed is not None:
                    struct.pack_into("<I", data, header + offset, compressed)
                if uncompressed is not None:
                    struct.pack_into("<I", data, header + offset + 4, uncompressed)
            return data
        pos += 46 + name_len + extra_len + comment_len
    raise KeyError(item)


def write(name, data):
    with open(os.path.join(HERE, name), "wb") as f:
        f.write(bytes(data))


GOOD = ("fsroot/readme.txt", b"harmless\n")
EVIL = b"written outside the destination\n"

# Path traversal, absolute paths, backslashes and drive letters, raw and after percent-decoding.
write("traversal-raw-dotdot.zip", build([GOOD, ("fsroot/../../evil.txt", EVIL)]))
write("traversal-percent-dotdot.zip", build([GOOD, ("fsroot/%2E%2E/%2E%2E/evil.txt", EVIL)]))
write("traversal-escaped-dotdot.zip", build([GOOD, ("fsroot/..:/..:/evil.txt", EVIL)]))
write("absolute-path.zip", build([GOOD, ("/tmp/evil.txt", EVIL)]))
write("backslash-raw.zip", build([GOOD, ("fsroot/..\\..\\evil.txt", EVIL)]))
write("backslash-percent.zip", build([GOOD, ("fsroot/..%5C..%5Cevil.txt", EVIL)]))
write("traversal-colon-slash.zip", build([GOOD, ("fsroot/..:2F..:2Fevil.txt", EVIL)]))
write("backslash-colon.zip", build([GOOD, ("fsroot/..:5C..:5Cevil.txt", EVIL)]))
write("drive-letter-percent.zip", build([GOOD, ("fsroot/C%3A/evil.txt", EVIL)]))
write("nul-percent.zip", build([GOOD, ("fsroot/evil%00.txt", EVIL)]))
# Two parts that decode to one file name.
write("decoded-collision.zip", build([GOOD, ("fsroot/a%21.txt", EVIL), ("fsroot/a!.txt", EVIL)]))
# Sizes: more bytes than declared, fewer than declared, and a declared size no deflate data can reach.
lying = build([GOOD, ("fsroot/big.bin", b"A" * 100000)])
write("size-inflates-beyond-declared.zip", patch_sizes(lying, "fsroot/big.bin", uncompressed=10))
short = build([GOOD, ("fsroot/short.bin", b"0123456789")])
write("size-shorter-than-declared.zip", patch_sizes(short, "fsroot/short.bin", uncompressed=1000))
bomb = build([GOOD, ("fsroot/bomb.bin", bytes(1000))])
write("ratio-beyond-deflate.zip", patch_sizes(bomb, "fsroot/bomb.bin", uncompressed=4000000000))
