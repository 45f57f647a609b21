#!/usr/bin/env python3
"""Fails on a source file over 600 lines and on a function over 60.

usage: sizes.py ROOT

A function's lines are counted from its opening brace's line to its closing one's; what lies inside
it (lambdas, local classes) belongs to it. Prints the medians, so that a drift shows.
"""
import ast
import pathlib
import re
import statistics
import sys

FILE_LIMIT = 600
FUNCTION_LIMIT = 60
FOLDERS = ("include", "framework", "sqlite", "panel", "email", "brisq", "tests", "bench", "fuzz", "tools")
SUFFIXES = {".h", ".cpp", ".py", ".sh", ".cmake", ""}

# Text in which a brace means nothing, longest first: raw strings, comments, strings, characters.
# A quote between digits (1'000) opens nothing.
QUIET = re.compile(
    r'R"(?P<tag>[^()\s]*)\(.*?\)(?P=tag)"'
    r"|//[^\n]*|/\*.*?\*/"
    r'|"(?:\\.|[^"\\\n])*"'
    r"|(?<![0-9a-fA-F])'(?:\\.|[^'\\\n])+'",
    re.DOTALL)
PREPROCESSOR = re.compile(r"^[ \t]*#(?:[^\n]*\\\n)*[^\n]*", re.MULTILINE)
SCOPE = re.compile(r"\s*(?:template\s*<.*>\s*)?(?:namespace|class|union|enum|struct\s+alignas)\b",
                   re.DOTALL)
LAMBDA = re.compile(r"\]\s*\(")


def blank(match):
    """The match with everything but its line ends as blanks: positions and lines stay."""
    return re.sub(r"[^\n]", " ", match.group())


def kind_of_brace(head):
    """What a brace after `head`, the text since the last ';' or block, opens."""
    # Formatted code has a blank before the brace of a block and none before that of a value.
    if head.count("(") > head.count(")") or head[-1:].isidentifier() or head[-1:] in ">])":
        return "value"
    before_arguments, parenthesis, _ = head.partition("(")
    if LAMBDA.search(head):
        return "function"
    if not parenthesis or SCOPE.match(head):
        return "scope"
    is_data = "=" in before_arguments and "operator" not in before_arguments
    return "scope" if is_data else "function"


def cpp_functions(text):
    """Yields (first line, lines) of each outermost function."""
    text = PREPROCESSOR.sub(blank, QUIET.sub(blank, text))
    stack, head_start = [], 0
    for match in re.finditer(r"[{};]", text):
        mark, at = match.group(), match.start()
        if mark == "{":
            stack.append((kind_of_brace(text[head_start:at]), at))
        elif mark == "}" and stack:
            kind, opened = stack.pop()
            if kind == "function" and all(outer != "function" for outer, _ in stack):
                yield text.count("\n", 0, opened) + 1, text.count("\n", opened, at) + 1
            if kind == "value":
                continue
        if not stack or stack[-1][0] != "value":
            head_start = at + 1


def python_functions(text):
    for node in ast.walk(ast.parse(text)):
        if isinstance(node, (ast.FunctionDef, ast.AsyncFunctionDef)):
            yield node.lineno, node.end_lineno - node.lineno + 1


def functions(path, text):
    if path.suffix in (".h", ".cpp"):
        return list(cpp_functions(text))
    return list(python_functions(text)) if path.suffix == ".py" else []


def sources(root):
    for folder in FOLDERS:
        for path in sorted((root / folder).rglob("*")):
            if path.is_file() and path.suffix in SUFFIXES and "__pycache__" not in path.parts:
                yield path


def faults_and_lengths(root):
    faults, file_lengths, function_lengths = [], [], []
    for path in sources(root):
        text = path.read_text(encoding="utf-8")
        lines = text.count("\n")
        name = path.relative_to(root)
        if lines > FILE_LIMIT:
            faults.append(f"{name}: {lines} lines, at most {FILE_LIMIT} are allowed")
        found = functions(path, text)
        faults += [f"{name}:{first}: function of {count} lines, at most {FUNCTION_LIMIT} are allowed"
                   for first, count in found if count > FUNCTION_LIMIT]
        file_lengths.append(lines)
        function_lengths += [count for _, count in found]
    return faults, file_lengths, function_lengths


def main(root):
    faults, files, lengths = faults_and_lengths(pathlib.Path(root))
    print("\n".join(faults), end="\n" if faults else "")
    print(f"{len(files)} files, median {statistics.median(files or [0]):g} lines;",
          f"{len(lengths)} functions, median {statistics.median(lengths or [0]):g} lines")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]))
