"""The demonstration of ./quickstart in a checkout of its own, built already."""

import os
import subprocess
import tempfile
import unittest
from unittest import mock

from support.checkout import Checkout
from support.instance import SOURCE

import quickstart  # found beside layout


class Demonstration(unittest.TestCase):

    def setUp(self):
        self.checkout = Checkout()
        self.addCleanup(self.checkout.close)

    def require_success(self, *words):
        done = self.checkout.quickstart(*words)
        self.assertEqual((0, ""), (done.returncode, done.stderr), done.stdout)
        return done.stdout

    def test_two_runs_and_a_stop(self):
        first = self.require_success()
        self.assertIn("$ brisq mailbox add alice@example.org", first)
        second = self.require_success()
        self.assertIn("mailbox alice@example.org is there", second)
        for said in (first, second):
            self.assertRegex(said, r'curl by IMAP reads "Hello \w+"')
            self.assertRegex(said, r'Python by POP3 reads "Hello \w+"')
        self.assertEqual("The server is stopped.\n", self.require_success("stop"))
        self.assertEqual("No server is running.\n", self.require_success("stop"))
        self.assertIn("is there", self.require_success())

    def test_the_commands_to_go_on_with_work(self):
        said = self.require_success()
        commands = said[said.index("Go on with:\n"):].split("\n", 1)[1]
        done = self.checkout.shell(commands)
        self.assertEqual(0, done.returncode, done.stdout)
        self.assertIn("alice@example.org", done.stdout)
        self.assertIn("Subject: Hello ", done.stdout)

    def test_the_password_is_for_root_alone_and_never_said(self):
        said = self.require_success()
        netrc = self.checkout.path("instance/alice.netrc")
        self.assertEqual(0o100600, os.stat(netrc).st_mode)
        with open(netrc, encoding="utf-8") as file:
            self.assertNotIn(file.read().split()[-1], said)

    def test_a_lost_password_is_one_clear_line(self):
        self.require_success()
        os.remove(self.checkout.path("instance/alice.netrc"))
        done = self.checkout.quickstart()
        self.assertEqual(1, done.returncode)
        self.assertRegex(done.stderr, r"^quickstart: alice@example.org is there, .*start anew\n$")


class Place(unittest.TestCase):
    """A checkout whose path can't hold an instance gets a link to one elsewhere."""

    def setUp(self):
        holder = tempfile.TemporaryDirectory(prefix="brisq place ")
        self.addCleanup(holder.cleanup)
        self.root, self.elsewhere = (os.path.join(holder.name, name) for name in ("root", "else"))
        os.mkdir(self.root)
        for name, value in (("ROOT", self.root), ("ELSEWHERE", self.elsewhere)):
            patch = mock.patch.object(quickstart, name, value)
            patch.start()
            self.addCleanup(patch.stop)

    def test_the_link_is_made_once_and_found_again(self):
        with mock.patch("builtins.print") as said:
            folder = quickstart.place()
            self.assertEqual(folder, quickstart.place())
        self.assertEqual(1, said.call_count)
        self.assertEqual(self.elsewhere, os.path.dirname(folder))
        self.assertEqual(folder, os.path.realpath(os.path.join(self.root, "instance")))

    def test_a_folder_in_the_way_is_named(self):
        os.mkdir(os.path.join(self.root, "instance"))
        with self.assertRaisesRegex(quickstart.StepFailed, "instance .*remove it"):
            quickstart.place()


class Front(unittest.TestCase):
    """The shell script, where it does not build."""

    SCRIPT = os.path.join(SOURCE, "quickstart")

    def run_front(self, *words):
        return subprocess.run([self.SCRIPT, *words], capture_output=True, text=True, timeout=60)

    def test_without_root_one_line_says_so(self):
        # A checkout below a closed folder is out of reach for that user: hand it the text.
        with open(self.SCRIPT, encoding="utf-8") as file:
            text = file.read()
        with tempfile.TemporaryDirectory() as folder:
            os.chmod(folder, 0o755)
            os.mkdir(os.path.join(folder, "tools"))
            open(os.path.join(folder, "tools", "progress.sh"), "w", encoding="utf-8").close()
            done = subprocess.run(["bash", "-s"], input=text, cwd=folder, user=65534, timeout=60,
                                  capture_output=True, text=True)
        self.assertEqual(1, done.returncode)
        self.assertEqual("", done.stdout)
        self.assertRegex(done.stderr, r"\Aquickstart: run as root: .*\n\Z")

    def test_an_unknown_word_is_answered_with_the_usage(self):
        done = self.run_front("frobnicate")
        self.assertEqual(2, done.returncode)
        self.assertIn("usage: ./quickstart", done.stderr)

    def test_help_is_help(self):
        done = self.run_front("--help")
        self.assertEqual(0, done.returncode)
        self.assertIn("usage: ./quickstart", done.stdout)


if __name__ == "__main__":
    unittest.main()
