#!/usr/bin/env python3
"""Compares what a built library offers to others with the reviewed list of it.

usage: exports.py [--update] FOLDER_OF_LISTS LIBRARY...

The list of lib/x.so is FOLDER_OF_LISTS/x.txt, one demangled name a line. --update writes the lists
anew: look at what git shows before it is committed.

Left out are weak functions and variables, which are inline functions and instances of templates:
who needs one has it from the header, and which of them a library holds is up to the compiler.
"""
import pathlib
import re
import subprocess
import sys

# Type information of what is in std.
FOREIGN = re.compile(r"_ZT[ISTV]N?K?(?:S[tabsiod]|9__gnu_cxx)")
LONG_STRING = "std::__cxx11::basic_string<char, std::char_traits<char>, std::allocator<char> >"
LINKER_MADE = {"_init", "_fini", "_edata", "_end", "__bss_start"}


def run(*command, text=None):
    return subprocess.run(command, input=text, check=True, stdout=subprocess.PIPE, text=True).stdout


def own(kind, mangled):
    return kind not in "Wu" and mangled not in LINKER_MADE and not FOREIGN.match(mangled)


def exports(library):
    """The sorted demangled names that `library` defines for others."""
    entries = (line.split()[-2:] for line in run("nm", "-D", "--defined-only", library).splitlines())
    mangled = "".join(name + "\n" for kind, name in entries if own(kind, name))
    names = run("c++filt", text=mangled).replace(LONG_STRING, "std::string").replace("[abi:cxx11]", "")
    return sorted(set(names.splitlines()))


def list_of(folder, library):
    return folder / (pathlib.Path(library).stem + ".txt")


def update(folder, library):
    folder.mkdir(parents=True, exist_ok=True)
    text = "".join(name + "\n" for name in exports(library))
    list_of(folder, library).write_text(text, encoding="utf-8")
    return []


def compare(folder, library):
    reviewed = list_of(folder, library)
    expected = set(reviewed.read_text(encoding="utf-8").splitlines()) if reviewed.exists() else set()
    found = set(exports(library))
    return ([f"{reviewed}: not listed, but exported: {name}" for name in sorted(found - expected)] +
            [f"{reviewed}: listed, but not exported: {name}" for name in sorted(expected - found)])


def main(arguments):
    act = compare
    if arguments[:1] == ["--update"]:
        act, arguments = update, arguments[1:]
    folder = pathlib.Path(arguments[0])
    faults = [fault for library in arguments[1:] for fault in act(folder, library)]
    if faults:
        print("\n".join(faults))
        print("Once reviewed: tools/house/exports.py --update", *arguments)
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
