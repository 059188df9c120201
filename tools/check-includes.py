#!/usr/bin/env python3
"""Checks that every folder includes only the folders it may.

The allowed graph is the table under "## Folder dependencies" in
docs/architecture.md, read from there so that it is written once. Each row
names a folder and what it may include: folders (`core/`), single headers
(`core/status_text.h`), an entry limited to one file ("`core/status_text.h`
in `main.cpp` only"), "nothing", or "every folder". A folder always includes
itself. Exits 1 naming each file and include that breaks the graph, and each
folder with sources that the table does not name.
"""

import argparse
import os
import re
import sys

HEADING = "## Folder dependencies"
SOURCE_SUFFIXES = (".h", ".cpp")
INCLUDE = re.compile(r'^\s*#\s*include\s+"([^"]+)"')
TICKED = re.compile(r"`([^`]+)`")


class Rule:
    def __init__(self, folder):
        self.folder = folder
        self.everything = False
        self.targets = []  # (folder or header, file it is limited to or None)

    def allows(self, source, include):
        if self.everything or include.startswith(self.folder + "/"):
            return True
        for target, only_in in self.targets:
            if only_in is not None and source != f"{self.folder}/{only_in}":
                continue
            if target.endswith("/") and include.startswith(target):
                return True
            if include == target:
                return True
        return False

    def describe(self):
        if self.everything:
            return "every folder"
        names = [t + (f" (in {self.folder}/{o} only)" if o else "") for t, o in self.targets]
        return ", ".join(names) if names else "nothing"


def read_rules(doc_path):
    with open(doc_path, encoding="utf-8") as doc:
        lines = doc.read().splitlines()
    try:
        start = lines.index(HEADING)
    except ValueError:
        sys.exit(f"{doc_path}: no '{HEADING}' section")
    rules = {}
    for line in lines[start + 1:]:
        if line.startswith("## "):
            break
        cells = [c.strip() for c in line.strip().strip("|").split("|")]
        if not line.startswith("|") or len(cells) < 2:
            continue
        folder = TICKED.search(cells[0])
        if folder is None:
            continue  # the header row and its rule
        rule = Rule(folder.group(1).rstrip("/"))
        allowed = cells[1]
        if allowed == "every folder":
            rule.everything = True
        elif allowed != "nothing":
            for part in allowed.split(";"):
                ticked = TICKED.findall(part)
                if not ticked:
                    sys.exit(f"{doc_path}: cannot read '{part.strip()}' in the row of {rule.folder}/")
                only_in = ticked[1] if " only" in part and len(ticked) > 1 else None
                for target in ticked[:1] if only_in else ticked:
                    rule.targets.append((target, only_in))
        rules[rule.folder] = rule
    if not rules:
        sys.exit(f"{doc_path}: the '{HEADING}' table is empty")
    return rules


def sources(root):
    for directory, subdirectories, files in os.walk(root):
        relative = os.path.relpath(directory, root)
        subdirectories.sort()
        if relative == ".":
            # Build trees and hidden folders hold no sources of the project.
            subdirectories[:] = [d for d in subdirectories if not d.startswith((".", "build"))]
            continue
        for name in sorted(files):
            if name.endswith(SOURCE_SUFFIXES):
                yield os.path.join(relative, name).replace(os.sep, "/")


def check(root, doc_path):
    rules = read_rules(doc_path)
    problems = []
    unknown = set()
    for source in sources(root):
        folder = source.split("/", 1)[0]
        rule = rules.get(folder)
        with open(os.path.join(root, source), encoding="utf-8", errors="replace") as text:
            for number, line in enumerate(text, 1):
                match = INCLUDE.match(line)
                if match is None:
                    continue
                include = match.group(1)
                if "/" not in include:
                    continue  # a file beside it
                if rule is None:
                    unknown.add(folder)
                elif not rule.allows(source, include):
                    problems.append(f'{source}:{number}: includes "{include}"; '
                                    f"{folder}/ may include {rule.describe()}")
    problems += [f"{folder}/: not in the table of {doc_path}" for folder in sorted(unknown)]
    return problems


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--root", default=os.path.join(os.path.dirname(__file__), ".."),
                        help="the source tree (default: this script's repository)")
    parser.add_argument("--doc", help="the architecture notes (default: ROOT/docs/architecture.md)")
    arguments = parser.parse_args()
    root = os.path.abspath(arguments.root)
    doc_path = arguments.doc or os.path.join(root, "docs", "architecture.md")
    problems = check(root, doc_path)
    for problem in problems:
        print(problem)
    if problems:
        print(f"{len(problems)} include(s) against the folder graph in {doc_path}")
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
