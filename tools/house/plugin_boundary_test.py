#!/usr/bin/env python3
"""The build refuses a plug-in source that includes what lies outside include/.

usage: plugin_boundary_test.py CXX

Builds a probe with the project's own build files in a copy of what the plug-in may see, with a
header of the host planted beside it.
"""
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
ALLOWED = (
    ("a header of include/", '#include "brisq_export.h"\nBRISQ_API int probe;\n'),
    ("the standard library", "#include <string>\nstd::string probe;\n"),
    ("a header beside it", '#include "beside.h"\nint probe = kBeside;\n'),
)
REFUSED = (
    ("a header of the host", '#include "framework/secret.h"\n'),
    ("the same by a relative path", '#include "../framework/secret.h"\n'),
    ("the same by its bare name", '#include "secret.h"\n'),
    ("the same in angle brackets", "#include <framework/secret.h>\n"),
    ("an absolute path", '#include "{root}/framework/secret.h"\n'),
    ("a library of the system", "#include <fmt/format.h>\n"),
    ("the C library of the system", "#include <unistd.h>\n"),
    ("a name made by a macro", '#define SECRET "../framework/secret.h"\n#include SECRET\n'),
    ("blanks in the directive", '  #  include "../framework/secret.h"\n'),
)


class PluginBoundary(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(folder.cleanup)
        cls.root = pathlib.Path(folder.name)
        cls.plant_tree()
        subprocess.run(
            ["cmake", "-G", "Ninja", "-S", cls.root, "-B", cls.root / "build",
             f"-DCMAKE_CXX_COMPILER={cls.compiler}", "-DBRISQ_TESTS=OFF"],
            check=True, stdout=subprocess.DEVNULL)

    @classmethod
    def plant_tree(cls):
        for name in ("CMakeLists.txt", "cmake", "include", "packaging"):
            copy = shutil.copytree if (ROOT / name).is_dir() else shutil.copy
            copy(ROOT / name, cls.root / name)
        for folder in ("framework", "sqlite", "panel", "email", "brisq"):
            (cls.root / folder).mkdir()
            shutil.copy(ROOT / folder / "CMakeLists.txt", cls.root / folder)
        (cls.root / "framework/secret.h").write_text("#pragma once\n")
        (cls.root / "email/beside.h").write_text("#pragma once\ninline int kBeside = 1;\n")
        (cls.root / "email/probe.cpp").write_text("")

    def build(self, source):
        probe = self.root / "email/probe.cpp"
        before = probe.stat().st_mtime_ns
        probe.write_text(source.format(root=self.root))
        # Ninja compares times, and a coarse clock may not have moved since the last case.
        os.utime(probe, ns=(before + 10**9, before + 10**9))
        return subprocess.run(
            ["cmake", "--build", self.root / "build", "--target", "email_objects"],
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)

    def test_what_the_plug_in_may_include_compiles(self):
        for name, source in ALLOWED:
            with self.subTest(name):
                result = self.build(source)
                self.assertEqual(0, result.returncode, result.stdout)

    def test_anything_else_fails_the_build(self):
        for name, source in REFUSED:
            with self.subTest(name):
                result = self.build(source)
                self.assertNotEqual(0, result.returncode, result.stdout)
                self.assertIn("names neither a header of", " ".join(result.stdout.split()))


if __name__ == "__main__":
    PluginBoundary.compiler = sys.argv.pop(1)
    unittest.main()
