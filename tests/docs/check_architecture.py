#!/usr/bin/env python3
# SPDX-License-Identifier: BSD-3-Clause
"""Checks that docs/architecture.svg shows every box and arrow of docs/architecture.dot.

The drawing itself depends on the version of Graphviz and is not compared.
"""
import pathlib
import re
import subprocess
import sys
import xml.etree.ElementTree as xml

documents = pathlib.Path(sys.argv[1]) / "docs"


def content(picture):
    """The texts, and the names of the boxes and arrows."""
    texts = [element.text for element in picture.iter()
             if element.tag.endswith(("}text", "}title")) and element.text]
    return sorted(" ".join(text.split()) for text in texts)


drawn = subprocess.run(["dot", "-Tsvg", documents / "architecture.dot"], check=True,
                       stdout=subprocess.PIPE).stdout
expected = content(xml.fromstring(drawn))
found = content(xml.parse(documents / "architecture.svg").getroot())
if found != expected:
    sys.exit("docs/architecture.svg is not drawn from docs/architecture.dot: run scripts/docs --picture")
missing = [name for name in re.findall(r"(src/\w+|include)/", " ".join(found))
           if not (documents.parent / name).is_dir()]
if missing:
    sys.exit(f"docs/architecture.dot names directories that do not exist: {missing}")
print(f"{len(found)} texts")
