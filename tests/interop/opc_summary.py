#!/usr/bin/python3
"""Reads an OPC package with independent readers and prints what each sees, normalised.

    opc_summary.py [--reader poi|docx|both] [--zip-test] [--java-classes DIR] PACKAGE

poi:  Apache POI's openxml4j, through the Java checker OpcCheck.java next to this script (compiled
      into --java-classes, or a folder under /tmp, when missing or older than its source).
docx: python-docx's OPC layer (docx.opc.package.OpcPackage). Run with /usr/bin/python3, which has
      Debian's python3-docx.
both: runs the two, prints one summary when they agree; otherwise prints both and exits 1.
--zip-test: also runs `unzip -t` and `7z t` on the package; a failure exits 1.

The summary is one JSON object:
  parts          [[part name, content type], ...]  sorted; relationships parts left out
  relationships  [[source, id, type, target, mode], ...]  sorted; target is the part name for an
                 internal target, the URI as written for an external one
  core           {title, description, creator, version, created, modified}: present ones only;
                 dates as "YYYY-MM-DDThh:mm:ssZ"
  thumbnail      [part name, ...]: targets of the package's thumbnail relationships
Part names are percent-decoded, so both readers' spellings compare equal.
Exit status: 0 when every reader opened the package and (for both) they agree; 1 otherwise.
"""

import argparse
import json
import os
import subprocess
import sys
import tempfile
import urllib.parse
from datetime import timezone

HERE = os.path.dirname(os.path.abspath(__file__))
JAVA_SOURCE = os.path.join(HERE, "OpcCheck.java")
# POI's OPC layer and what it needs at run time; missing ones are left out of the class path.
POI_JARS = ["poi.jar", "poi-ooxml.jar", "poi-ooxml-schemas.jar", "xmlbeans.jar", "commons-compress.jar",
            "commons-collections4.jar", "commons-codec.jar", "commons-math3.jar"]
THUMBNAIL = "http://schemas.openxmlformats.org/package/2006/relationships/metadata/thumbnail"
CORE_PROPERTIES = "http://schemas.openxmlformats.org/package/2006/relationships/metadata/core-properties"


class ReaderError(Exception):
    pass


def poi_classpath():
    jars = [os.path.join("/usr/share/java", j) for j in POI_JARS]
    present = [j for j in jars if os.path.exists(j)]
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


def empty_summary():
    return {"parts": [], "relationships": [], "core": {}, "thumbnail": []}


def finish(summary):
    summary["parts"].sort()
    summary["relationships"].sort()
    summary["thumbnail"].sort()
    return summary


def read_with_poi(path, classes):
    classpath = ":".join(poi_classpath() + [compiled_checker(classes)])
    result = subprocess.run(["java", "-cp", classpath, "OpcCheck", path], capture_output=True, text=True)
    if result.returncode != 0:
        raise ReaderError("poi: " + (result.stderr.strip() or "exit status %d" % result.returncode))
    summary = empty_summary()
    for line in result.stdout.splitlines():
        kind, *fields = line.split("\t")
        fields = [urllib.parse.unquote_plus(f) for f in fields]
        if kind == "part":
            summary["parts"].append([decoded(fields[0]), fields[1]])
        elif kind == "rel":
            source, rid, rtype, target, mode = fields
            internal = mode == "Internal"
            summary["relationships"].append(
                [decoded(source), rid, rtype, decoded(target) if internal else target, mode])
        elif kind == "core":
            summary["core"][fields[0]] = fields[1].replace(".000Z", "Z")
        elif kind == "thumbnail":
            summary["thumbnail"].append(decoded(fields[0]))
        else:
            raise ReaderError("poi: unexpected output line %r" % line)
    return finish(summary)


def decoded(name):
    return urllib.parse.unquote(name)


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

    summary = empty_summary()

    def relationships(source_name, source):
        for rel in source.rels.values():
            if rel.is_external:
                target, mode = rel.target_ref, "External"
            else:
                target, mode = decoded(str(rel.target_part.partname)), "Internal"
            summary["relationships"].append([source_name, rel.rId, rel.reltype, target, mode])

    relationships("/", package)
    for part in package.iter_parts():
        summary["parts"].append([decoded(str(part.partname)), part.content_type])
        relationships(decoded(str(part.partname)), part)

    core_parts = [r.target_part for r in package.rels.values()
                  if r.reltype == CORE_PROPERTIES and not r.is_external]
    if core_parts:
        part = core_parts[0]
        properties = part.core_properties
        element = part.element
        present = {
            "title": ("dc:title", lambda: properties.title),
            "description": ("dc:description", lambda: properties.comments),
            "creator": ("dc:creator", lambda: properties.author),
            "version": ("cp:version", lambda: properties.version),
            "created": ("dcterms:created", lambda: utc(properties.created)),
            "modified": ("dcterms:modified", lambda: utc(properties.modified)),
        }
        for key, (tag, value) in present.items():
            if element.find(qn(tag)) is not None:
                summary["core"][key] = value()

    summary["thumbnail"] = [decoded(str(r.target_part.partname)) for r in package.rels.values()
                            if r.reltype == THUMBNAIL and not r.is_external]
    return finish(summary)


def utc(value):
    if value is None:
        return None
    if value.tzinfo is not None:
        value = value.astimezone(timezone.utc).replace(tzinfo=None)
    return value.strftime("%Y-%m-%dT%H:%M:%SZ")


def zip_test(path):
    failures = []
    for command in (["unzip", "-t", "-q", path], ["7z", "t", path]):
        result = subprocess.run(command, capture_output=True, text=True)
        if result.returncode != 0:
            failures.append("%s failed (%d):\n%s%s" % (" ".join(command[:2]), result.returncode, result.stdout,
                                                       result.stderr))
    if failures:
        raise ReaderError("\n".join(failures))


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
