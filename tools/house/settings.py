"""Compares the settings that the sources read, and the modules whose log levels can be set, with
those that the documents explain.

usage: settings.py FOLDER; exits with 1 after a line for each difference.
"""

import pathlib
import re
import sys

PAGE = "docs/operate/settings.md"
FOLDERS = ("framework", "sqlite", "panel", "email", "brisq")
READ = re.compile(r'\b(?:GetParam|AddParam|GetPath|SetPathDefault)\(\s*"([^"]+)"')
ROW = re.compile(r"^\| `([^`]+)` \|(?=[^|\n]*\|[^|\n]*\|)", re.MULTILINE)

MODULE = re.compile(r'\bmgr_log::Module \w+\(\s*"([^"]+)",\s*"([^"]+)"')
LOG_ROW = re.compile(r"^\| `(\w+)\.log` \|([^|]*)\|$", re.MULTILINE)


def sources(folder):
    return "\n".join(path.read_text(encoding="utf-8") for name in FOLDERS
                     for path in sorted((folder / name).glob("*.cpp")))


def module_differences(text, page):
    """One line for each module of a log that the page does not name, or names and is not there."""
    there = set(MODULE.findall(text))
    named = {(module, log) for log, modules in LOG_ROW.findall(page)
             for module in re.findall(r"`([^`]+)`", modules)}
    return ([f"{module}: a module that writes {log}.log, not named in {PAGE}"
             for module, log in sorted(there - named)] +
            [f"{module}: named in {PAGE}, writes no {log}.log"
             for module, log in sorted(named - there)])


def setting_differences(text, page):
    """One line for each setting that is read and not explained, or explained and not there."""
    explained = set(ROW.findall(page))
    missing = set(READ.findall(text)) - explained
    unused = {name for name in explained if f'"{name}"' not in text}
    return ([f"{name}: read by the sources, not explained in {PAGE}" for name in sorted(missing)] +
            [f"{name}: explained in {PAGE}, in no source" for name in sorted(unused)])


def differences(folder):
    """One line for each setting or module of which sources and page do not say the same."""
    text = sources(folder)
    page = (folder / PAGE).read_text(encoding="utf-8")
    return setting_differences(text, page) + module_differences(text, page)


if __name__ == "__main__":
    found = differences(pathlib.Path(sys.argv[1]))
    print("\n".join(found) if found else "settings: sources and documents agree")
    sys.exit(1 if found else 0)
