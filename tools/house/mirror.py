#!/usr/bin/env python3
"""Fails when a source, its header and its test do not stand together.

usage: mirror.py ROOT

 - F/x.cpp in framework, sqlite, panel, email or brisq needs "header": F/x.h or include/x.h,
   and "test": tests/unit/F/x_test.cpp;
 - include/x.h needs "source": framework/x.cpp or panel/x.cpp;
 - tests/unit/F/x_test.cpp needs "subject": F/x.cpp, F/x.h or include/x.h.

tools/house/mirror_exceptions.txt lists what may be without, one a line: PATH NEED REASON. PATH may
have wildcards. A line that excuses nothing fails too.
"""
import fnmatch
import pathlib
import sys

FOLDERS = ("framework", "sqlite", "panel", "email", "brisq")
EXCEPTIONS = "tools/house/mirror_exceptions.txt"


def needs_of_source(folder, name):
    yield "header", (f"{folder}/{name}.h", f"include/{name}.h")
    yield "test", (f"tests/unit/{folder}/{name}_test.cpp",)


def needs(root):
    """Yields (file, need, the files of which one meets it)."""
    for folder in FOLDERS:
        for path in sorted((root / folder).glob("*.cpp")):
            for need, answers in needs_of_source(folder, path.stem):
                yield f"{folder}/{path.name}", need, answers
        for path in sorted((root / "tests/unit" / folder).glob("*_test.cpp")):
            name = path.stem.removesuffix("_test")
            yield (f"tests/unit/{folder}/{path.name}", "subject",
                   (f"{folder}/{name}.cpp", f"{folder}/{name}.h", f"include/{name}.h"))
    for path in sorted((root / "include").glob("*.h")):
        yield (f"include/{path.name}", "source",
               (f"framework/{path.stem}.cpp", f"panel/{path.stem}.cpp"))


def exceptions(root):
    """The excused (file, need) pairs; the faults of the list itself."""
    excused, faults = set(), []
    lines = (root / EXCEPTIONS).read_text(encoding="utf-8").splitlines()
    for number, line in enumerate(lines, 1):
        words = line.split(maxsplit=2)
        if not words or line.startswith("#"):
            continue
        if len(words) < 3:
            faults.append(f"{EXCEPTIONS}:{number}: PATH NEED REASON is wanted")
        else:
            excused.add((words[0], words[1]))
    return excused, faults


def excuses(exception, file, need):
    return exception[1] == need and fnmatch.fnmatchcase(file, exception[0])


def main(root):
    root = pathlib.Path(root)
    excused, faults = exceptions(root)
    unmet = {(file, need): answers for file, need, answers in needs(root)
             if not any((root / answer).exists() for answer in answers)}
    faults += [f"{file}: no {need}: {' or '.join(answers)} is missing"
               for (file, need), answers in unmet.items()
               if not any(excuses(exception, file, need) for exception in excused)]
    faults += [f"{EXCEPTIONS}: {' '.join(exception)} excuses nothing any more"
               for exception in sorted(excused)
               if not any(excuses(exception, file, need) for file, need in unmet)]
    print("\n".join(faults) or "every source has its header and its test")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]))
