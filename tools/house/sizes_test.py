#!/usr/bin/env python3
"""sizes.py on planted sources: what it counts, and that a fault fails."""
import contextlib
import io
import pathlib
import tempfile
import unittest

import sizes

FILL = "  Do();\n"


def body(lines):
    """A block of so many lines, the two of its braces included."""
    return "{\n" + FILL * (lines - 2) + "}\n"


COUNTED = (
    ("a function", "int F(int a) " + body(9), [9]),
    ("on one line", "int F() { return 1; }\n", [1]),
    ("a method within its class", "class A : public B {\n  int F() const " + body(5) + "};\n", [5]),
    ("a class whose base has parentheses", "class A : B<(1)> {\n int a;\n};\n", []),
    ("an aligned struct", "struct alignas(64) A {\n int a;\n};\n", []),
    ("a template", "template <class T>\nT F(T a) " + body(7), [7]),
    ("a struct returned", "struct stat F(int a) " + body(3), [3]),
    ("operator=", "A& operator=(const A& a) " + body(4), [4]),
    ("a table", "const X kAll[] = {\n{F(1)},\n{F(2)},\n};\n", []),
    ("a default argument", "void F(X x = {}) " + body(6), [6]),
    ("initialisers with braces", "A::A(int a) : a_{a}, b_{F(a)} " + body(8), [8]),
    ("a lambda within a function", "int F() {\n  auto g = [](int a) " + body(5) + "}\n", [7]),
    ("a lambda of its own", "const auto kG = [](int a) " + body(5) + ";\n", [5]),
    ("a test", "TEST(A, B) " + body(12), [12]),
    ("namespaces", "namespace {\nint F() " + body(3) + "}  // namespace\n", [3]),
    ("a brace in a string", 'int F() {\n  G("{");\n}\nint H() ' + body(3), [3, 3]),
    ("a brace in a raw string", 'int F() {\n  G(R"x({"{)x");\n}\nint H() ' + body(3), [3, 3]),
    ("a brace as a character", "int F() {\n  G('{', '\\'');\n}\nint H() " + body(3), [3, 3]),
    ("a separated number", "int F() {\n  G(1'000'000);\n}\nint H() " + body(3), [3, 3]),
    ("a brace in a comment", "int F() {  // {\n  /* { */\n}\nint H() " + body(3), [3, 3]),
    ("a brace in a macro", "#define X \\\n  {\nint H() " + body(3), [3]),
    ("an initialised local", "int F() {\n  X a{1};\n  X b = {2};\n}\nint H() " + body(3), [4, 3]),
)


class Sizes(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.root = pathlib.Path(folder.name)

    def run_on(self, name, text):
        path = self.root / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text, encoding="utf-8")
        output = io.StringIO()
        with contextlib.redirect_stdout(output):
            status = sizes.main(self.root)
        return status, output.getvalue()

    def test_functions_are_found_and_counted(self):
        for name, text, expected in COUNTED:
            with self.subTest(name):
                self.assertEqual(expected, [n for _, n in sizes.cpp_functions(text)])

    def test_the_longest_allowed_pass(self):
        text = "int F() " + body(60) + "int G();\n" * 540
        self.assertEqual((0, "1 files, median 600 lines; 1 functions, median 60 lines\n"),
                         self.run_on("framework/a.cpp", text))

    def test_a_long_file_fails(self):
        status, output = self.run_on("tests/unit/panel/a_test.cpp", "\n" * 601)
        self.assertEqual(1, status)
        self.assertIn("tests/unit/panel/a_test.cpp: 601 lines, at most 600", output)

    def test_a_long_function_fails_and_is_named(self):
        status, output = self.run_on("email/a.cpp", "\n\nint F() " + body(61))
        self.assertEqual(1, status)
        self.assertIn("email/a.cpp:3: function of 61 lines, at most 60", output)

    def test_a_long_python_function_fails(self):
        status, output = self.run_on("tools/a.py", "def f():\n" + "    g()\n" * 60)
        self.assertEqual(1, status)
        self.assertIn("tools/a.py:1: function of 61 lines", output)


if __name__ == "__main__":
    unittest.main()
