#!/usr/bin/python3
"""Usage: opc_summary.py PACKAGE. Tests it with `unzip -t` and `7z t` (exit status 1 when one refuses
it), then prints {"poi": SUMMARY, "docx": SUMMARY} as Apache POI (OpcCheck.java) and python-docx read
it, {"error": TEXT} for a reader that refuses it. A summary: parts [[name, type]], relationships
[[source, id, type, target (part name, or URI when external), mode]], core {title, description,
creator, version, created, modified} (present ones, "YYYY-MM-DDThh:mm:ssZ"), thumbnail [targets];
lists sorted, part names percent-decoded so that both readers' spellings agree."""

import json
import os
import subprocess
import sys
from datetime import timezone
from urllib.parse import unquote, unquote_plus

# POI's OPC layer and what it needs at run time; missing ones are left out of the class path.
POI_JARS = ["poi.jar", "poi-ooxml.jar", "poi-ooxml-schemas.jar", "xmlbeans.jar", "commons-compress.jar",
            "commons-collections4.jar", "commons-codec.jar", "commons-math3.jar"]
THUMBNAIL = "http://schemas.openxmlformats.org/package/2006/relationships/metadata/thumbnail"
CORE_PROPERTIES = "http://schemas.openxmlformats.org/package/2006/relationships/metadata/core-properties"


class ReaderError(Exception):
    pass  # a reader or ZIP tester refused the package, or could not run


def run(what, command):
    result = subprocess.run(command, capture_output=True, text=True)
    if result.returncode != 0:
        raise ReaderError("%s failed (%d):\n%s%s" % (what, result.returncode, result.stdout, result.stderr))
    return result.stdout


def summary(parts=(), relationships=(), core=None, thumbnail=()):
    return {"parts": sorted(parts), "relationships": sorted(relationships), "core": core or {},
            "thumbnail": sorted(thumbnail)}


def read_with_poi(path):
    jars = [j for j in (os.path.join("/usr/share/java", j) for j in POI_JARS) if os.path.exists(j)]
    if not any(j.endswith("/poi-ooxml.jar") for j in jars):
        raise ReaderError("Apache POI is not installed (libapache-poi-java); run scripts/setup")
    source = os.path.join(os.path.dirname(os.path.abspath(__file__)), "OpcCheck.java")
    parts, relationships, core, thumbnail = [], [], {}, []
    for line in run("poi", ["java", "-cp", ":".join(jars), source, path]).splitlines():
        kind, *fields = line.split("\t")
        fields = [unquote_plus(f) for f in fields]
        if kind == "part":
            parts.append([unquote(fields[0]), fields[1]])
        elif kind == "rel":
            source, rid, rtype, target, mode = fields
            relationships.append([unquote(source), rid, rtype, unquote(target) if mode == "Internal" else target, mode])
        elif kind == "core":
            core[fields[0]] = fields[1].replace(".000Z", "Z")
        elif kind == "thumbnail":
            thumbnail.append(unquote(fields[0]))
        else:
            raise ReaderError("poi: unexpected output line %r" % line)
    return summary(parts, relationships, core, thumbnail)


def read_with_docx(path):
    try:
        from docx.opc.package import OpcPackage
        from docx.oxml.ns import qn
        package = OpcPackage.open(path)
    except Exception as e:  # python-docx raises assorted types for a package it cannot read
        raise ReaderError("docx: %s: %s" % (type(e).__name__, e))

    def relationships(source_name, source):
        return [[source_name, r.rId, r.reltype, r.target_ref if r.is_external else unquote(str(r.target_part.partname)),
                 "External" if r.is_external else "Internal"] for r in source.rels.values()]

    parts, rels, core = [], relationships("/", package), {}
    for part in package.iter_parts():
        parts.append([unquote(str(part.partname)), part.content_type])
        rels += relationships(unquote(str(part.partname)), part)
    internal = [r for r in package.rels.values() if not r.is_external]
    for part in [r.target_part for r in internal if r.reltype == CORE_PROPERTIES][:1]:
        p = part.core_properties
        present = {"title": ("dc:title", lambda: p.title), "description": ("dc:description", lambda: p.comments),
                   "creator": ("dc:creator", lambda: p.author), "version": ("cp:version", lambda: p.version),
                   "created": ("dcterms:created", lambda: utc(p.created)),
                   "modified": ("dcterms:modified", lambda: utc(p.modified))}
        core = {key: value() for key, (tag, value) in present.items() if part.element.find(qn(tag)) is not None}
    thumbnail = [unquote(str(r.target_part.partname)) for r in internal if r.reltype == THUMBNAIL]
    return summary(parts, rels, core, thumbnail)


def utc(value):
    if value is not None and value.tzinfo is not None:
        value = value.astimezone(timezone.utc).replace(tzinfo=None)
    return None if value is None else value.strftime("%Y-%m-%dT%H:%M:%SZ")


if __name__ == "__main__":
    try:
        run("unzip -t", ["unzip", "-t", "-q", sys.argv[1]])
        run("7z t", ["7z", "t", sys.argv[1]])
    except ReaderError as e:
        sys.exit(str(e))
    seen = {}
    for name, reader in (("poi", read_with_poi), ("docx", read_with_docx)):
        try:
            seen[name] = reader(sys.argv[1])
        except ReaderError as e:
            seen[name] = {"error": str(e)}
    print(json.dumps(seen, ensure_ascii=False))
