#!/usr/bin/env python3
"""exports.py on libraries built here.

usage: exports_test.py CXX
"""
import contextlib
import io
import pathlib
import subprocess
import sys
import tempfile
import unittest

import exports

SOURCE = """
#include <string>
#include <vector>
#define API __attribute__((visibility("default")))
namespace x {
API int Offered(const std::string& text) {
  std::vector<std::string> copies(3, text);
  copies.push_back(text);
  return static_cast<int>(copies.size());
}
struct API Base { virtual ~Base(); };
Base::~Base() {}
int Private() { return 1; }
}  // namespace x
"""
OFFERED = ["typeinfo for x::Base", "typeinfo name for x::Base", "vtable for x::Base",
           "x::Base::~Base()", "x::Offered(std::string const&)"]


class Exports(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.root = pathlib.Path(folder.name)
        self.library = self.root / "libx.so"
        self.lists = self.root / "lists"
        self.build(SOURCE)

    def build(self, source):
        subprocess.run([self.compiler, "-std=c++20", "-shared", "-fPIC", "-fvisibility=hidden",
                        "-x", "c++", "-", "-o", self.library], input=source, text=True, check=True)

    def judge(self, *options):
        output = io.StringIO()
        with contextlib.redirect_stdout(output):
            status = exports.main([*options, str(self.lists), str(self.library)])
        return status, output.getvalue()

    def test_only_what_is_offered_and_our_own_counts(self):
        self.assertEqual(OFFERED, exports.exports(self.library))

    def test_a_fresh_list_is_obeyed(self):
        self.assertEqual((0, ""), self.judge("--update"))
        self.assertEqual(OFFERED, (self.lists / "libx.txt").read_text().splitlines())
        self.assertEqual((0, ""), self.judge())

    def test_a_new_export_fails(self):
        self.judge("--update")
        self.build(SOURCE.replace("int Private", "API int Private"))
        status, output = self.judge()
        self.assertEqual(1, status)
        self.assertIn("not listed, but exported: x::Private()", output)

    def test_a_lost_export_fails(self):
        self.judge("--update")
        self.build(SOURCE.replace("API int Offered", "int Offered"))
        status, output = self.judge()
        self.assertEqual(1, status)
        self.assertIn("listed, but not exported: x::Offered", output)

    def test_a_library_without_a_list_fails(self):
        self.assertEqual(1, self.judge()[0])


if __name__ == "__main__":
    Exports.compiler = sys.argv.pop(1)
    unittest.main()
