"""The settings checker finds what is planted."""

import pathlib
import tempfile
import unittest

import settings


class SettingsTest(unittest.TestCase):
    def differences(self, source, page):
        with tempfile.TemporaryDirectory() as folder:
            root = pathlib.Path(folder)
            (root / "panel").mkdir()
            (root / "docs/operate").mkdir(parents=True)
            (root / "panel/a.cpp").write_text(source, encoding="utf-8")
            (root / settings.PAGE).write_text(page, encoding="utf-8")
            return settings.differences(root)

    def test_an_explained_setting_is_fine(self):
        self.assertEqual([], self.differences('GetParam("Known")', "| `Known` | 5 | why |\n"))

    def test_a_setting_that_nobody_explains_is_found(self):
        found = self.differences('AddParam(\n    "Secret", "5")', "| `Known` | 5 | why |\n" * 0)
        self.assertEqual(["Secret: read by the sources, not explained in " + settings.PAGE], found)

    def test_a_setting_that_no_source_has_is_found(self):
        found = self.differences("", "| `Stale` | 5 | why |\n")
        self.assertEqual([f"Stale: explained in {settings.PAGE}, in no source"], found)

    def test_a_setting_handed_on_by_name_counts_as_used(self):
        self.assertEqual([], self.differences('Reloader("Delay")', "| `Delay` | 2 | why |\n"))


if __name__ == "__main__":
    unittest.main()
