#!/usr/bin/env python3
"""Regenerates the corpus of malformed packages, one small file per defect, named for it.

Run from anywhere: python3 tests/data/opc/make_corpus.py. Deterministic: entries carry a fixed
date, so the files only change when this script does.
"""
import os
import struct
import zipfile

HERE = os.path.dirname(os.path.abspath(__file__))
CT_NS = "http://schemas.openxmlformats.org/package/2006/content-types"
REL_NS = "http://schemas.openxmlformats.org/package/2006/relationships"
REL_TYPE = "application/vnd.openxmlformats-package.relationships+xml"
DATE = (2020, 1, 1, 0, 0, 0)


def content_types(defaults=(("rels", REL_TYPE), ("xml", "application/xml")), overrides=()):
    body = "".join(f'<Default Extension="{e}" ContentType="{t}"/>' for e, t in defaults)
    body += "".join(f'<Override PartName="{p}" ContentType="{t}"/>' for p, t in overrides)
    return f'<?xml version="1.0" encoding="UTF-8"?><Types xmlns="{CT_NS}">{body}</Types>'


def rels(*items):
    body = "".join(items)
    return f'<?xml version="1.0" encoding="UTF-8"?><Relationships xmlns="{REL_NS}">{body}</Relationships>'


def rel(rid="rId1", target="/a.xml", extra=""):
    return f'<Relationship Id="{rid}" Type="http://example.com/t" Target="{target}"{extra}/>'


def write(name, entries, method=zipfile.ZIP_DEFLATED):
    path = os.path.join(HERE, name)
    with zipfile.ZipFile(path, "w") as z:
        for entry in entries:
            item, data = entry[0], entry[1]
            info = zipfile.ZipInfo(item, DATE)
            info.compress_type = entry[2] if len(entry) > 2 else method
            z.writestr(info, data)
    return path


def valid_entries():
    return [("[Content_Types].xml", content_types()), ("_rels/.rels", rels(rel())), ("a.xml", "<a/>")]


def patch_flags(path, item, bit):
    """Sets a general-purpose flag bit of one item in its local and central headers."""
    data = bytearray(open(path, "rb").read())
    name = item.encode()
    for signature, flags_at, name_len_at, header_size in ((b"PK\x03\x04", 6, 26, 30), (b"PK\x01\x02", 8, 28, 46)):
        pos = data.find(signature)
        while pos >= 0:
            length = struct.unpack_from("<H", data, pos + name_len_at)[0]
            if data[pos + header_size:pos + header_size + length] == name:
                flags = struct.unpack_from("<H", data, pos + flags_at)[0]
                struct.pack_into("<H", data, pos + flags_at, flags | bit)
            pos = data.find(signature, pos + 4)
    open(path, "wb").write(bytes(data))


def local_data_offset(data, item):
    """Where the stored bytes of an item begin."""
    pos = data.find(b"PK\x03\x04")
    while pos >= 0:
        name_len, extra_len = struct.unpack_from("<HH", data, pos + 26)
        if data[pos + 30:pos + 30 + name_len] == item.encode():
            return pos + 30 + name_len + extra_len
        pos = data.find(b"PK\x03\x04", pos + 4)
    raise KeyError(item)


def main():
    for old in os.listdir(HERE):
        if old.endswith(".zip"):
            os.remove(os.path.join(HERE, old))

    open(os.path.join(HERE, "not-a-zip.zip"), "w").write("This is plain text, not a ZIP archive.\n" * 4)
    open(os.path.join(HERE, "empty-file.zip"), "wb").close()
    good = write("valid.zip", valid_entries())
    data = open(good, "rb").read()
    open(os.path.join(HERE, "truncated.zip"), "wb").write(data[: len(data) // 2])
    bad_offset = bytearray(data)
    eocd = bad_offset.rfind(b"PK\x05\x06")
    struct.pack_into("<I", bad_offset, eocd + 16, len(data) + 1000)
    open(os.path.join(HERE, "central-directory-offset-wrong.zip"), "wb").write(bytes(bad_offset))
    path = write("corrupt-data.zip", valid_entries()[:2] + [("a.xml", "<a>" + "x" * 200 + "</a>", zipfile.ZIP_STORED)])
    corrupt = bytearray(open(path, "rb").read())
    corrupt[local_data_offset(corrupt, "a.xml") + 100] ^= 0x01
    open(path, "wb").write(bytes(corrupt))

    write("content-types-missing.zip", valid_entries()[1:])
    write("content-types-malformed.zip", [("[Content_Types].xml", "<Types xmlns='" + CT_NS + "'><Default")] + valid_entries()[1:])
    laughs = ('<?xml version="1.0"?><!DOCTYPE Types [<!ENTITY a "aaaaaaaaaa">'
              '<!ENTITY b "&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;"><!ENTITY c "&b;&b;&b;&b;&b;&b;&b;&b;&b;&b;">]>'
              f'<Types xmlns="{CT_NS}"><Default Extension="&c;" ContentType="application/xml"/></Types>')
    write("content-types-doctype.zip", [("[Content_Types].xml", laughs)] + valid_entries()[1:])
    write("content-types-wrong-namespace.zip",
          [("[Content_Types].xml", content_types().replace(CT_NS, "http://example.com/other"))] + valid_entries()[1:])
    write("content-types-duplicate-default.zip",
          [("[Content_Types].xml", content_types((("rels", REL_TYPE), ("xml", "application/xml"), ("XML", "text/xml"))))]
          + valid_entries()[1:])
    write("content-types-duplicate-override.zip",
          [("[Content_Types].xml", content_types(overrides=(("/a.xml", "text/xml"), ("/A.XML", "text/xml"))))]
          + valid_entries()[1:])
    write("content-types-unknown-element.zip",
          [("[Content_Types].xml", content_types().replace("</Types>", "<Extra/></Types>"))] + valid_entries()[1:])
    write("content-types-invalid-content-type.zip",
          [("[Content_Types].xml", content_types((("rels", REL_TYPE), ("xml", "application / xml"))))]
          + valid_entries()[1:])

    write("part-without-content-type.zip", valid_entries() + [("b.bin", "x")])
    write("part-name-dot-segment.zip", valid_entries() + [("x/../b.xml", "x")])
    write("part-name-percent-encoded-slash.zip", valid_entries() + [("x%2Fb.xml", "x")])
    write("part-name-percent-encoded-unreserved.zip", valid_entries() + [("%41.xml", "x")])
    write("part-name-space.zip", valid_entries() + [("a b.xml", "x")])
    write("part-name-trailing-dot.zip", valid_entries() + [("b.", "x")])
    write("part-name-empty-segment.zip", valid_entries() + [("x//b.xml", "x")])
    write("part-name-equivalent.zip", valid_entries() + [("A.XML", "x")])
    write("part-name-prefix-segment.zip", valid_entries() + [("a.xml/b.xml", "x")])
    write("entry-duplicate.zip", valid_entries() + [("a.xml", "<again/>")])
    write("entry-bzip2.zip", valid_entries()[:2] + [("a.xml", "<a/>", zipfile.ZIP_BZIP2)])
    path = write("entry-encrypted.zip", valid_entries())
    patch_flags(path, "a.xml", 0x0001)

    write("rels-malformed.zip", [valid_entries()[0], ("_rels/.rels", "<Relationships xmlns='" + REL_NS + "'>"), valid_entries()[2]])
    write("rels-duplicate-id.zip", [valid_entries()[0], ("_rels/.rels", rels(rel(), rel())), valid_entries()[2]])
    write("rels-missing-target.zip",
          [valid_entries()[0], ("_rels/.rels", rels('<Relationship Id="rId1" Type="http://example.com/t"/>')), valid_entries()[2]])
    write("rels-bad-target-mode.zip",
          [valid_entries()[0], ("_rels/.rels", rels(rel(extra=' TargetMode="Elsewhere"'))), valid_entries()[2]])
    write("rels-internal-absolute-target.zip",
          [valid_entries()[0], ("_rels/.rels", rels(rel(target="http://example.com/a.xml"))), valid_entries()[2]])
    write("rels-invalid-id.zip", [valid_entries()[0], ("_rels/.rels", rels(rel(rid="1 2"))), valid_entries()[2]])
    write("rels-unknown-attribute.zip",
          [valid_entries()[0], ("_rels/.rels", rels(rel(extra=' Color="red"'))), valid_entries()[2]])
    write("rels-source-missing.zip", valid_entries() + [("x/_rels/y.xml.rels", rels())])
    write("rels-of-rels.zip", valid_entries() + [("_rels/_rels/.rels.rels", rels())])
    write("rels-wrong-content-type.zip",
          [("[Content_Types].xml", content_types(overrides=(("/_rels/.rels", "application/xml"),)))] + valid_entries()[1:])


if __name__ == "__main__":
    main()
