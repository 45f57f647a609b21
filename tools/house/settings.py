"""Compares the settings that the sources read with those that the documents explain.

usage: settings.py FOLDER; exits with 1 after a line for each difference.
"""

import pathlib
import re
import sys

PAGE = "docs/operate/settings.md"
FOLDERS = ("framework", "panel", "email", "brisq")
READ = re.compile(r'\b(?:GetParam|AddParam|GetPath|SetPathDefault)\(\s*"([^"]+)"')
ROW = re.compile(r"^\| `([^`]+)` \|(?=[^|]*\|[^|]*\|)", re.MULTILINE)


def sources(folder):
    return "\n".join(path.read_text(encoding="utf-8") for name in FOLDERS
                     for path in sorted((folder / name).glob("*.cpp")))


def differences(folder):
    """One line for each setting that is read and not explained, or explained and not there."""
    text = sources(folder)
    page = (folder / PAGE).read_text(encoding="utf-8")
    explained = set(ROW.findall(page))
    missing = set(READ.findall(text)) - explained
    unused = {name for name in explained if f'"{name}"' not in text}
    return ([f"{name}: read by the sources, not explained in {PAGE}" for name in sorted(missing)] +
            [f"{name}: explained in {PAGE}, in no source" for name in sorted(unused)])


if __name__ == "__main__":
    found = differences(pathlib.Path(sys.argv[1]))
    print("\n".join(found) if found else "settings: sources and documents agree")
    sys.exit(1 if found else 0)
