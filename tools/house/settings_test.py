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

    def test_a_named_module_is_fine(self):
        source = 'mgr_log::Module a("due", "brisq");\nmgr_log::Module b(\n    "conf", "brisq");\n'
        self.assertEqual([], self.differences(source, "| `brisq.log` | `conf`, `due` |\n"))

    def test_a_module_that_no_row_names_is_found(self):
        found = self.differences('mgr_log::Module log_channel("due", "brisq");', "")
        self.assertEqual([f"due: a module that writes brisq.log, not named in {settings.PAGE}"],
                         found)

    def test_a_module_in_the_row_of_another_log_is_found(self):
        found = self.differences('mgr_log::Module log_channel("due", "brisq");',
                                 "| `dormel.log` | `due` |\n")
        self.assertEqual([f"due: a module that writes brisq.log, not named in {settings.PAGE}",
                          f"due: named in {settings.PAGE}, writes no dormel.log"], found)


if __name__ == "__main__":
    unittest.main()
