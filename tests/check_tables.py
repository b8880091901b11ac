#!/usr/bin/env python3
# Renders manual pages with man and mandoc at several widths and finds every row of their tables whole: no
# cell runs into the next, and only the last one is broken. Usage: check_tables.py <page>...
import os
import re
import subprocess
import sys

MACROS = {"Em", "Fa", "Dv", "Li", "Pa", "Ar", "Va", "Fn", "Xr"}


def plain(cell):
    text = " ".join(word for word in cell.split() if word not in MACROS)
    return text.replace(" Ns ", "").replace("\\-", "-").replace("\\e", "\\").replace("\\ ", " ").replace('"', "")


def rows(page):
    inside = False
    for line in open(page, encoding="utf-8"):
        if line.startswith((".Bl", ".El")):
            inside = "-column" in line
        elif inside and line.startswith(".It "):
            yield [plain(cell) for cell in re.split(r"\bTa\b", line[4:].strip())]


status = 0
for page in sys.argv[1:]:
    table = list(rows(page))
    for width in (80, 100, 120) if table else ():
        environment = os.environ | {"MANWIDTH": str(width), "MANPAGER": "cat", "LC_ALL": "C.UTF-8"}
        for command in (["man", "-l", page], ["mandoc", "-T", "utf8", "-O", f"width={width}", page]):
            shown = subprocess.run(command, env=environment, check=True, text=True, encoding="utf-8",
                                   stdout=subprocess.PIPE, stderr=subprocess.DEVNULL).stdout
            shown = re.sub(".\b", "", shown).replace("\u2212", "-").replace("\u2010", "-")
            for row in table:
                full = [cell for cell in row if cell]
                words = " ".join(full[:-1]).split() + full[-1].split()[:1]  # with more blanks where lines are justified
                if not re.search(r"(?m)^ +" + " +".join(map(re.escape, words)), shown):
                    print(f"{page}: {command[0]} at {width} columns: {' | '.join(row)}")
                    status = 1
sys.exit(status)
