#!/usr/bin/env python3
"""Regenerates the fixtures under tests/data: malformed archives (zip/), malformed packages (opc/) and
hostile add-on packages (hostile/), one small file per defect, named for it.

Run from anywhere: python3 tests/opc/make_corpus.py. Deterministic: entries carry fixed dates, so the
files change only when this script does.
"""
import io
import os
import struct
import zipfile

DATA = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "data")
CT_NS = "http://schemas.openxmlformats.org/package/2006/content-types"
REL_NS = "http://schemas.openxmlformats.org/package/2006/relationships"
REL_TYPE = "application/vnd.openxmlformats-package.relationships+xml"


def zipped(entries, date, unix_mode=None, method=zipfile.ZIP_DEFLATED):
    """entries: (item name, data[, method]); the archive's bytes."""
    out = io.BytesIO()
    with zipfile.ZipFile(out, "w") as z:
        for entry in entries:
            info = zipfile.ZipInfo(entry[0], date)
            info.compress_type = entry[2] if len(entry) > 2 else method
            if unix_mode is not None:
                info.create_system, info.external_attr = 3, unix_mode << 16
            z.writestr(info, entry[1])
    return bytearray(out.getvalue())


def write(folder, name, data):
    open(os.path.join(DATA, folder, name), "wb").write(bytes(data))


def layout(data):
    """The end record's offset and, per entry, its central record's and local header's offsets."""
    end = data.rfind(b"PK\x05\x06")
    count, = struct.unpack_from("<H", data, end + 10)
    pos, = struct.unpack_from("<I", data, end + 16)
    entries = []
    for _ in range(count):
        name_len, extra_len, comment_len = struct.unpack_from("<HHH", data, pos + 28)
        entries.append((pos, struct.unpack_from("<I", data, pos + 42)[0]))
        pos += 46 + name_len + extra_len + comment_len
    return end, entries


def patched(data, changes):
    """A copy of data with changes (offset, value, width) applied."""
    out = bytearray(data)
    for at, value, width in changes:
        out[at:at + width] = value.to_bytes(width, "little")
    return out


def zip_corpus():
    """Archives whose directory or a record lies; the reader must refuse each naming its defect."""
    text = b"".join(b"line %d of a text that deflates\n" % i for i in range(300))
    good = zipped([("text.txt", text), ("stored.bin", bytes(range(256)) * 12, zipfile.ZIP_STORED), ("last entry, named at length.txt", b"end")],
                  (2020, 1, 1, 0, 0, 0))
    end, entries = layout(good)
    (text_record, text_local), (stored_record, _), (last_record, _) = entries
    directory = entries[0][0]
    compressed, = struct.unpack_from("<I", good, text_record + 20)
    locator = struct.pack("<IIQI", 0x07064b50, 0, 0xFF << 32, 1)  # points far past the file
    cases = {
        "too-short": b"PK\x05\x06",
        "no-end-record": bytes(len(good)),
        "end-record-cut": good[:-2],
        "directory-outside-file": patched(good, [(end + 16, 0x7FFFFFF0, 4)]),
        "directory-into-end-record": patched(good, [(end + 12, len(good), 4)]),
        "count-beyond-records": patched(good, [(end + 10, 4, 2)]),
        "count-beyond-directory": patched(good, [(end + 10, 1000, 2)]),
        "record-cut-short": patched(good, [(last_record + 28, 0xFFFF, 2)]),
        "entry-after-directory": patched(good, [(text_record + 42, directory + 100, 4)]),
        "zip64-locator-outside": good[:end] + locator + good[end:],
        "several-disks": patched(good, [(end + 4, 1, 2)]),
        "zip64-field-missing": patched(good, [(text_record + 24, 0xFFFFFFFF, 4)]),
        "size-larger-than-data": patched(good, [(text_record + 24, len(text) + 1, 4)]),
        "size-smaller-than-data": patched(good, [(text_record + 24, 1000, 4)]),
        "stored-sizes-differ": patched(good, [(stored_record + 24, 1000, 4)]),
        "encrypted": patched(good, [(text_record + 8, 1, 2)]),
        "unknown-method": patched(good, [(text_record + 10, 12, 2)]),
        "size-beyond-deflate": patched(good, [(text_record + 24, 0x7FFFFFFF, 4)]),
        "bytes-after-deflate-stream": patched(good, [(text_record + 20, compressed + 1, 4)]),
        "no-local-header": patched(good, [(text_local, ord("X"), 1)]),
        "data-into-directory": patched(good, [(last_record + 20, 0x7FFFFFFF, 4)]),
        "corrupt-deflate-data": patched(good, [(text_local + 60, good[text_local + 60] ^ 0x55, 1)]),
    }
    for name, data in cases.items():
        write("zip", name + ".zip", data)


def content_types(defaults=(("rels", REL_TYPE), ("xml", "application/xml")), overrides=()):
    body = "".join(f'<Default Extension="{e}" ContentType="{t}"/>' for e, t in defaults)
    body += "".join(f'<Override PartName="{p}" ContentType="{t}"/>' for p, t in overrides)
    return f'<?xml version="1.0" encoding="UTF-8"?><Types xmlns="{CT_NS}">{body}</Types>'


def rels(*items):
    return f'<?xml version="1.0" encoding="UTF-8"?><Relationships xmlns="{REL_NS}">{"".join(items)}</Relationships>'


def rel(rid="rId1", target="/a.xml", extra=""):
    return f'<Relationship Id="{rid}" Type="http://example.com/t" Target="{target}"{extra}/>'


def opc_corpus():
    """Packages breaking one OPC rule each, and the valid control."""
    def package(name, entries):
        write("opc", name, zipped(entries, (2020, 1, 1, 0, 0, 0)))

    valid = [("[Content_Types].xml", content_types()), ("_rels/.rels", rels(rel())), ("a.xml", "<a/>")]
    types, rest = valid[0], valid[1:]

    def with_types(name, xml):
        package(name, [("[Content_Types].xml", xml)] + rest)

    def with_rels(name, xml):
        package(name, [types, ("_rels/.rels", xml), valid[2]])

    open(os.path.join(DATA, "opc", "not-a-zip.zip"), "w").write("This is plain text, not a ZIP archive.\n" * 4)
    package("valid.zip", valid)
    corrupt = zipped(valid[:2] + [("a.xml", "<a>" + "x" * 200 + "</a>", zipfile.ZIP_STORED)], (2020, 1, 1, 0, 0, 0))
    _, entries = layout(corrupt)
    data_at = entries[2][1] + 30 + len("a.xml")
    write("opc", "corrupt-data.zip", patched(corrupt, [(data_at + 100, corrupt[data_at + 100] ^ 0x01, 1)]))

    package("content-types-missing.zip", rest)
    with_types("content-types-malformed.zip", "<Types xmlns='" + CT_NS + "'><Default")
    with_types("content-types-doctype.zip",
               '<?xml version="1.0"?><!DOCTYPE Types [<!ENTITY a "aaaaaaaaaa">'
               '<!ENTITY b "&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;"><!ENTITY c "&b;&b;&b;&b;&b;&b;&b;&b;&b;&b;">]>'
               f'<Types xmlns="{CT_NS}"><Default Extension="&c;" ContentType="application/xml"/></Types>')
    with_types("content-types-wrong-namespace.zip", content_types().replace(CT_NS, "http://example.com/other"))
    with_types("content-types-duplicate-default.zip",
               content_types((("rels", REL_TYPE), ("xml", "application/xml"), ("XML", "text/xml"))))
    with_types("content-types-duplicate-override.zip", content_types(overrides=(("/a.xml", "text/xml"), ("/A.XML", "text/xml"))))
    with_types("content-types-unknown-element.zip", content_types().replace("</Types>", "<Extra/></Types>"))
    with_types("content-types-invalid-content-type.zip", content_types((("rels", REL_TYPE), ("xml", "application / xml"))))

    # Only one of the part-name grammar's rules: the grammar itself has its table in model_test.cpp.
    for name, item in (("part-without-content-type", "b.bin"), ("part-name-space", "a b.xml"),
                       ("part-name-equivalent", "A.XML"), ("part-name-prefix-segment", "a.xml/b.xml")):
        package(name + ".zip", valid + [(item, "x")])
    package("entry-duplicate.zip", valid + [("a.xml", "<again/>")])
    package("entry-bzip2.zip", valid[:2] + [("a.xml", "<a/>", zipfile.ZIP_BZIP2)])
    encrypted = zipped(valid, (2020, 1, 1, 0, 0, 0))
    _, entries = layout(encrypted)
    write("opc", "entry-encrypted.zip", patched(encrypted, [(entries[2][0] + 8, 1, 2), (entries[2][1] + 6, 1, 2)]))

    with_rels("rels-malformed.zip", "<Relationships xmlns='" + REL_NS + "'>")
    with_rels("rels-duplicate-id.zip", rels(rel(), rel()))
    with_rels("rels-missing-target.zip", rels('<Relationship Id="rId1" Type="http://example.com/t"/>'))
    with_rels("rels-bad-target-mode.zip", rels(rel(extra=' TargetMode="Elsewhere"')))
    with_rels("rels-internal-absolute-target.zip", rels(rel(target="http://example.com/a.xml")))
    with_rels("rels-invalid-id.zip", rels(rel(rid="1 2")))
    with_rels("rels-unknown-attribute.zip", rels(rel(extra=' Color="red"')))
    package("rels-source-missing.zip", valid + [("x/_rels/y.xml.rels", rels())])
    package("rels-of-rels.zip", valid + [("_rels/_rels/.rels.rels", rels())])
    with_types("rels-wrong-content-type.zip", content_types(overrides=(("/_rels/.rels", "application/xml"),)))


def hostile_corpus():
    """Add-on packages, otherwise valid, whose one defect would write outside the destination or
    more than they declare."""
    types = (f'<?xml version="1.0" encoding="UTF-8" standalone="yes"?><Types xmlns="{CT_NS}">'
             '<Default Extension="txt" ContentType="text/plain"/>'
             '<Default Extension="bin" ContentType="application/octet-stream"/></Types>')

    def build(*entries):
        return zipped([("[Content_Types].xml", types.encode()), ("fsroot/readme.txt", b"harmless\n")] + list(entries),
                      (2020, 1, 2, 3, 4, 6), unix_mode=0o100644)

    def sizes(data, index, size):
        """Declares another uncompressed size for an entry, in its local and its central header."""
        _, entries = layout(data)
        record, local = entries[index]
        return patched(data, [(record + 24, size, 4), (local + 22, size, 4)])

    evil = b"written outside the destination\n"
    for name, item in (("traversal-raw-dotdot", "fsroot/../../evil.txt"), ("traversal-percent-dotdot", "fsroot/%2E%2E/%2E%2E/evil.txt"),
                       ("traversal-escaped-dotdot", "fsroot/..:/..:/evil.txt"), ("absolute-path", "/tmp/evil.txt"),
                       ("backslash-raw", "fsroot/..\\..\\evil.txt"), ("backslash-percent", "fsroot/..%5C..%5Cevil.txt"),
                       ("traversal-colon-slash", "fsroot/..:2F..:2Fevil.txt"), ("backslash-colon", "fsroot/..:5C..:5Cevil.txt"),
                       ("drive-letter-percent", "fsroot/C%3A/evil.txt"), ("nul-percent", "fsroot/evil%00.txt")):
        write("hostile", name + ".zip", build((item, evil)))
    write("hostile", "decoded-collision.zip", build(("fsroot/a%21.txt", evil), ("fsroot/a!.txt", evil)))
    write("hostile", "size-inflates-beyond-declared.zip", sizes(build(("fsroot/big.bin", b"A" * 100000)), 2, 10))
    write("hostile", "size-shorter-than-declared.zip", sizes(build(("fsroot/short.bin", b"0123456789")), 2, 1000))
    write("hostile", "ratio-beyond-deflate.zip", sizes(build(("fsroot/bomb.bin", bytes(1000))), 2, 4000000000))


if __name__ == "__main__":
    for folder in ("zip", "opc", "hostile"):
        os.makedirs(os.path.join(DATA, folder), exist_ok=True)
        for old in os.listdir(os.path.join(DATA, folder)):
            if old.endswith(".zip"):
                os.remove(os.path.join(DATA, folder, old))
    zip_corpus()
    opc_corpus()
    hostile_corpus()
