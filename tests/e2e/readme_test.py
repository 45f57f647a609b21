"""README.md: its terminal session, run as it stands after ./quickstart, and its links."""

import os
import re
import time
import unittest

from support.checkout import Checkout
from support.instance import EFFECT_LIMIT, SOURCE, layout

# The checkout that the README's output was taken in.
README_ROOT = "/srv/brisq"


def text():
    with open(os.path.join(SOURCE, "README.md"), encoding="utf-8") as file:
        return file.read()


def session():
    """The terminal session as (command, output) pairs, without the prompt."""
    block = re.search(r"^```console\n(.*?)^```", text(), re.MULTILINE | re.DOTALL)[1]
    return [tuple(part.split("\n", 1)) for part in re.split(r"^\$ ", block, flags=re.MULTILINE)[1:]]


class TerminalSession(unittest.TestCase):

    def setUp(self):
        self.checkout = Checkout()
        self.addCleanup(self.checkout.close)
        done = self.checkout.quickstart()
        self.assertEqual((0, ""), (done.returncode, done.stderr))
        self.ports = self.checkout.ports()
        self.settings = ""

    def here(self, command):
        """The README's command with the ports of this instance."""
        for name, port in layout.PREFERRED_PORTS.items():
            command = command.replace(f":{port}/", f":{self.ports[name]}/")
        return command

    def output(self, command):
        done = self.checkout.shell(self.settings + self.here(command))
        self.assertEqual(0, done.returncode, f"{command}\n{done.stdout}")
        return done.stdout.replace("\r\n", "\n").replace(self.checkout.folder, README_ROOT)

    def test_each_command_prints_what_the_readme_shows(self):
        for command, shown in session():
            with self.subTest(command):
                if command.startswith(("export ", "umask ")):
                    self.settings += command + "\n"
                if command.startswith("curl "):
                    self.wait_for_dovecot(command)
                self.assertEqual(shown, self.output(command))

    def wait_for_dovecot(self, command):
        """A reader types slower than Dovecot looks at its passwd-file, this test does not."""
        limit = time.monotonic() + EFFECT_LIMIT
        while self.checkout.shell(self.here(command)).returncode and time.monotonic() < limit:
            pass

    def test_the_session_is_short(self):
        lines = sum(1 + output.count("\n") for _, output in session())
        self.assertLessEqual(lines, 12)


class Links(unittest.TestCase):

    def test_every_file_that_the_documents_name_is_there(self):
        for document in ("README.md", "ARCHITECTURE.md"):
            with open(os.path.join(SOURCE, document), encoding="utf-8") as file:
                content = file.read()
            named = re.findall(r"\]\(([^)#:]+)\)", content)
            named += re.findall(r"\b(?:tests|tools|framework|panel|email|brisq|include)/[\w/]+"
                                r"\.(?:h|cpp|py)\b", content)
            self.assertGreater(len(named), 5, document)
            for name in named:
                with self.subTest(document, name=name):
                    self.assertTrue(os.path.exists(os.path.join(SOURCE, name)), name)


if __name__ == "__main__":
    unittest.main()
