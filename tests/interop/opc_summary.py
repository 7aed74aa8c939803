#!/usr/bin/python3
"""Reads an OPC package with independent readers and prints what each sees, normalised.

    opc_summary.py [--reader poi|docx|both] [--zip-test] [--java-classes DIR] PACKAGE

poi: Apache POI's openxml4j through OpcCheck.java (compiled into --java-classes or a folder under /tmp);
docx: python-docx's OPC layer (Debian's python3-docx); both: one summary when they agree, else both
and exit status 1. --zip-test also runs `unzip -t` and `7z t`. The summary is one JSON object:
parts [[name, content type]] (no relationships parts), relationships [[source, id, type, target
(part name, or the URI when external), mode]], core {title, description, creator, version, created,
modified} (present ones, dates "YYYY-MM-DDThh:mm:ssZ"), thumbnail [targets]; lists sorted, part
names percent-decoded so that both readers' spellings agree.
"""

import argparse
import json
import os
import subprocess
import sys
import tempfile
from datetime import timezone
from urllib.parse import unquote, unquote_plus

HERE = os.path.dirname(os.path.abspath(__file__))
JAVA_SOURCE = os.path.join(HERE, "OpcCheck.java")
# POI's OPC layer and what it needs at run time; missing ones are left out of the class path.
POI_JARS = ["poi.jar", "poi-ooxml.jar", "poi-ooxml-schemas.jar", "xmlbeans.jar", "commons-compress.jar",
            "commons-collections4.jar", "commons-codec.jar", "commons-math3.jar"]
THUMBNAIL = "http://schemas.openxmlformats.org/package/2006/relationships/metadata/thumbnail"
CORE_PROPERTIES = "http://schemas.openxmlformats.org/package/2006/relationships/metadata/core-properties"


class ReaderError(Exception):
    """A reader or ZIP tester refused the package, or could not run."""


def poi_classpath():
    present = [j for j in (os.path.join("/usr/share/java", j) for j in POI_JARS) if os.path.exists(j)]
    if not any(j.endswith("/poi-ooxml.jar") for j in present):
        raise ReaderError("Apache POI is not installed (libapache-poi-java); run scripts/setup")
    return present


def compiled_checker(classes):
    classes = classes or os.path.join(tempfile.gettempdir(), "opc-summary-java-%d" % os.getuid())
    target = os.path.join(classes, "OpcCheck.class")
    if not os.path.exists(target) or os.path.getmtime(target) < os.path.getmtime(JAVA_SOURCE):
        os.makedirs(classes, exist_ok=True)
        # Compiled aside and renamed into place, so that concurrent runs never see half a class file.
        with tempfile.TemporaryDirectory(dir=classes) as scratch:
            result = subprocess.run(["javac", "-cp", ":".join(poi_classpath()), "-d", scratch, JAVA_SOURCE],
                                    capture_output=True, text=True)
            if result.returncode != 0:
                raise ReaderError("javac failed:\n" + result.stderr)
            os.replace(os.path.join(scratch, "OpcCheck.class"), target)
    return classes


def summary(parts=(), relationships=(), core=None, thumbnail=()):
    return {"parts": sorted(parts), "relationships": sorted(relationships), "core": core or {},
            "thumbnail": sorted(thumbnail)}


def read_with_poi(path, classes):
    classpath = ":".join(poi_classpath() + [compiled_checker(classes)])
    result = subprocess.run(["java", "-cp", classpath, "OpcCheck", path], capture_output=True, text=True)
    if result.returncode != 0:
        raise ReaderError("poi: " + (result.stderr.strip() or "exit status %d" % result.returncode))
    parts, relationships, core, thumbnail = [], [], {}, []
    for line in result.stdout.splitlines():
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
    except ImportError as e:
        raise ReaderError("python-docx is not installed (python3-docx): %s" % e)
    try:
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


def zip_test(path):
    for command in (["unzip", "-t", "-q", path], ["7z", "t", path]):
        result = subprocess.run(command, capture_output=True, text=True)
        if result.returncode != 0:
            raise ReaderError("%s failed (%d):\n%s%s" % (" ".join(command[:2]), result.returncode, result.stdout, result.stderr))


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--reader", choices=["poi", "docx", "both"], default="both")
    parser.add_argument("--zip-test", action="store_true")
    parser.add_argument("--java-classes")
    parser.add_argument("package")
    args = parser.parse_args()
    try:
        if args.zip_test:
            zip_test(args.package)
        summaries = {}
        if args.reader in ("poi", "both"):
            summaries["poi"] = read_with_poi(args.package, args.java_classes)
        if args.reader in ("docx", "both"):
            summaries["docx"] = read_with_docx(args.package)
    except ReaderError as e:
        print(e, file=sys.stderr)
        return 1
    first = next(iter(summaries.values()))
    if all(s == first for s in summaries.values()):
        print(json.dumps(first, ensure_ascii=False, sort_keys=True))
        return 0
    print(json.dumps(summaries, ensure_ascii=False, sort_keys=True, indent=1))
    print("the readers disagree", file=sys.stderr)
    return 1


if __name__ == "__main__":
    sys.exit(main())
