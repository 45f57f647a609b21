"""What `cmake --install` puts into a system: it works from there, and its examples are complete."""

import glob
import os
import subprocess
import tempfile
import unittest

from support.instance import Instance


def run(*words, **more):
    return subprocess.run(words, capture_output=True, text=True, timeout=120, **more)


def outcome(*words):
    done = run(*words)
    return done.returncode, done.stdout, done.stderr


class Installation(unittest.TestCase):

    @classmethod
    def setUpClass(cls):
        holder = tempfile.TemporaryDirectory(prefix="brisq-install-")
        cls.addClassCleanup(holder.cleanup)
        cls.root = holder.name
        done = run("cmake", "--install", os.environ["BRISQ_BUILD"], "--prefix", holder.name)
        if done.returncode != 0:
            raise AssertionError(done.stderr)

    def path(self, name):
        return os.path.join(self.root, name)

    def test_the_program_finds_its_libraries_and_its_plugin(self):
        instance = Instance().open()
        self.addCleanup(instance.close)
        done = run(self.path("bin/brisq"), "--config", instance.layout.config, "--json", "action",
                   "list")
        self.assertEqual((0, ""), (done.returncode, done.stderr))
        self.assertIn("dovecot.reload", done.stdout)
        opened = run("ldd", self.path("bin/brisq")).stdout
        for library in ("libbrisqapi.so", "libbrisqpanel.so"):
            self.assertIn(f"{library} => {self.root}/", opened)

    def test_a_library_that_is_missing_is_named_before_anything_is_made(self):
        instance = Instance().open()
        self.addCleanup(instance.close)
        [library] = glob.glob(self.path("lib*/**/libbrisqsqlite.so"), recursive=True)
        os.rename(library, f"{library}.away")
        self.addCleanup(os.rename, f"{library}.away", library)
        done = run(self.path("bin/brisq"), "--config", instance.layout.config, "mailbox", "list")
        self.assertEqual((1, ""), (done.returncode, done.stdout))
        self.assertIn("libbrisqsqlite.so", done.stderr)
        self.assertEqual([], glob.glob(f"{instance.layout.folder}/state/panel.db*"))

    def test_the_example_configuration_is_one_that_the_program_reads(self):
        with open(self.path("share/brisq/brisq.toml"), encoding="utf-8") as file:
            text = file.read()
        here = os.path.join(self.root, "etc")
        os.makedirs(here)
        with open(os.path.join(here, "brisq.toml"), "w", encoding="utf-8") as file:
            file.write(text.replace('"/var/', f'"{self.root}/var/'))
        done = run(self.path("bin/brisq"), "--config", os.path.join(here, "brisq.toml"), "owner",
                   "list")
        self.assertEqual((0, ""), (done.returncode, done.stderr))

    def test_nothing_is_left_to_fill_in(self):
        for name in ("share/brisq/brisq.toml", "share/brisq/90-brisq.conf",
                     "lib/systemd/system/brisq.service"):
            with self.subTest(name), open(self.path(name), encoding="utf-8") as file:
                self.assertNotRegex(file.read(), r"@\w*@|= *$|\"\"")

    def test_the_doveadm_wrapper_hashes_without_a_configuration(self):
        wrapper = self.path("libexec/brisq/brisq-doveadm")
        hashed = run(wrapper, "pw", "-s", "SHA512-CRYPT", input="word\nword\n")
        self.assertTrue(hashed.stdout.startswith("{SHA512-CRYPT}$6$"), hashed.stderr)
        broken = self.path("broken.conf")
        with open(broken, "w", encoding="utf-8") as file:
            file.write("local_name x {\n")
        environment = {**os.environ, "CONFIG_FILE": broken}
        for program, code in (("doveadm", 89), (wrapper, 0)):
            self.assertEqual(code, run(program, "pw", "-l", env=environment).returncode, program)

    def test_the_doveadm_wrapper_hands_on_what_is_not_for_pw_as_it_is(self):
        wrapper = self.path("libexec/brisq/brisq-doveadm")
        for words in ((), ("p",), ("pwd",), ("-x",), ("help", "pw"), ("pw", "-x"), ("", "pw"),
                      ("exec", "nothing", "pw", "x" * 3000)):
            with self.subTest(words[:3]):
                self.assertEqual(outcome("doveadm", *words), outcome(wrapper, *words))


if __name__ == "__main__":
    unittest.main()
