"""A throw-away instance: brisq and a private Dovecot in a temporary folder."""

import contextlib
import json
import os
import re
import shutil
import subprocess
import sys
import tempfile
import time
import unittest

SOURCE = os.path.dirname(os.path.dirname(os.path.dirname(os.path.dirname(
    os.path.abspath(__file__)))))
sys.path.insert(0, os.path.join(SOURCE, "packaging", "instance"))

import layout  # pylint: disable=wrong-import-position
import lmtp  # pylint: disable=wrong-import-position,unused-import

# A uid and gid that no account has; mail processes take them, nobody logs in with them.
OWNER_ID = 5000

# Dovecot looks at a changed passwd-file once a second; a reload takes longer on a busy machine.
EFFECT_LIMIT = 5  # seconds

# Failed logins answer at once, where the shipped server makes an attacker wait.
QUICK_FAILURES = """auth_failure_delay = 0
service anvil {
  unix_listener anvil-auth-penalty {
    mode = 0
  }
}
"""

BAD_LINE = re.compile(r"(Error|Fatal|Panic): ")
# What Dovecot may say without harm to anybody who logs in:
HARMLESS = re.compile("|".join((
    # A server stopped right after its start ends its statistics process before that has answered.
    r"stats-writer.*: Timeout waiting for handshake response",
    # A reload ends the process that a login process, started just then in reserve, has asked.
    r"Error reading configuration: read\(.*/config\) failed: .*Connection reset by peer",
    r"service\([a-z0-9]+-login\): child \d+ returned error 89 \(Fatal failure\)",
    # One that is started while a reload makes the sockets anew; a login that it cost would fail.
    r"[a-z0-9]+-login: Error: auth-client: conn unix:login: connect\(login\) failed: No such file")))


def brisq_program():
    """The built program, from the build tree named by BRISQ_BUILD."""
    return os.path.join(os.environ["BRISQ_BUILD"], "bin", "brisq")


class Instance:
    """Laid out and running between `open` and `close`."""

    def __init__(self, **settings):
        """settings: of layout.Layout.create, for example scheme="ARGON2ID" or auth=""."""
        self.settings = {"scheme": "SHA512-CRYPT", "reload_delay": "0", **settings}
        self.layout = None
        self.log_seen = 0

    def open(self):
        folder = tempfile.mkdtemp(prefix="brisq-e2e-")
        os.chmod(folder, 0o755)
        self.layout = layout.Layout(os.path.join(folder, "instance"))
        try:
            self._start()
        except BaseException:
            self.close()
            raise
        return self

    def _start(self):
        # Another test may take a port between our look and Dovecot's start.
        for attempts_left in (2, 1, 0):
            self.layout.create(dict.fromkeys(layout.PREFERRED_PORTS), **self.settings)
            with open(self.layout.local_conf, "w", encoding="utf-8") as file:
                file.write(QUICK_FAILURES)
            try:
                self.layout.start()
                return
            except layout.LayoutError:
                if not attempts_left or "Address already in use" not in self.log_text():
                    raise
                shutil.rmtree(self.layout.folder)

    def close(self):
        self.layout.stop()
        shutil.rmtree(os.path.dirname(self.layout.folder))

    @property
    def ports(self):
        return self.layout.ports

    def brisq(self, *words, stdin="", expect=0):
        """Runs the program; its standard output. Any other exit code than `expect` fails."""
        done = self.brisq_run(*words, stdin=stdin)
        if done.returncode != expect:
            raise AssertionError(f"brisq {' '.join(words)}: exit code {done.returncode} instead "
                                 f"of {expect}\n{done.stdout}{done.stderr}")
        return done.stdout if expect == 0 else done.stderr

    def brisq_run(self, *words, stdin=""):
        """Runs the program, however it ends: exit code and both outputs."""
        return subprocess.run([brisq_program(), "--config", self.layout.config, *words],
                              input=stdin, capture_output=True, text=True, timeout=120)

    def brisq_json(self, *words):
        """The "data" of the program's answer."""
        return json.loads(self.brisq(*words, "--json"))["data"]

    def doveadm(self, *words, stdin=""):
        """Runs this instance's doveadm, which must succeed; its standard output."""
        done = subprocess.run([self.layout.doveadm, *words], input=stdin, capture_output=True,
                              text=True, timeout=60)
        if done.returncode != 0:
            raise AssertionError(f"doveadm {' '.join(words)}: exit code {done.returncode}\n"
                                 f"{done.stderr}")
        return done.stdout

    @contextlib.contextmanager
    def doveadm_stand_in(self, pw_body):
        """While it lasts, the shell commands `pw_body` stand for `doveadm pw` and `doveadm
        reload` does nothing; all else is the real tool."""
        real = self.layout.doveadm + ".real"
        os.rename(self.layout.doveadm, real)
        with open(self.layout.doveadm, "w", encoding="utf-8") as file:
            os.fchmod(file.fileno(), 0o755)
            file.write(f'#!/bin/sh\ncase "$1" in\n  reload) exit 0 ;;\n'
                       f"  pw) {pw_body} ;;\nesac\nexec {real} \"$@\"\n")
        try:
            yield
        finally:
            os.replace(real, self.layout.doveadm)

    def eventually(self, holds, what, seconds=EFFECT_LIMIT):
        """Returns when `holds` does; fails after so many seconds."""
        limit = time.monotonic() + seconds
        while not holds():
            if time.monotonic() > limit:
                raise AssertionError(f"not within {seconds} seconds: {what}")

    def configure(self, table, key, value):
        """Sets one value of the program's configuration, in place of an earlier one."""
        with open(self.layout.config, encoding="utf-8") as file:
            lines = [line for line in file if not re.match(rf"{key}\s*=", line)]
        lines.insert(lines.index(f"[{table}]\n") + 1, f"{key} = {json.dumps(value)}\n")
        with open(self.layout.config, "w", encoding="utf-8") as file:
            file.writelines(lines)

    def owner_home(self, name="owner"):
        """A home folder that belongs to OWNER_ID, made when it is missing."""
        home = os.path.join(self.layout.mail, name)
        if not os.path.isdir(home):
            os.mkdir(home, 0o755)
            os.chown(home, OWNER_ID, OWNER_ID)
        return home

    def passwd_line(self, address):
        """The nine fields of the address's line in the passwd-file."""
        with open(self.layout.users, encoding="utf-8") as file:
            for line in file:
                if line.startswith(address + ":"):
                    return line.rstrip("\n").split(":", 8)
        raise AssertionError(f"{address} has no line in the passwd-file")

    def log_text(self):
        if not os.path.exists(self.layout.dovecot_log):
            return ""
        with open(self.layout.dovecot_log, encoding="utf-8", errors="replace") as file:
            return file.read()

    def new_bad_lines(self):
        """Error, Fatal and Panic lines that Dovecot has logged since the last call."""
        text = self.log_text()
        fresh, self.log_seen = text[self.log_seen:], len(text)
        return [line for line in fresh.splitlines()
                if BAD_LINE.search(line) and not HARMLESS.search(line)]


class InstanceTestCase(unittest.TestCase):
    """One instance per class. A test fails when Dovecot logs an error that it did not expect."""

    settings = {}

    @classmethod
    def setUpClass(cls):
        cls.instance = Instance(**cls.settings).open()
        cls.addClassCleanup(cls.instance.close)

    def setUp(self):
        self.expected_log = []

    def expect_log(self, pattern):
        """Dovecot must log an error line that matches, and may log no other kind."""
        self.expected_log.append(pattern)

    def tearDown(self):
        lines = self.instance.new_bad_lines()
        for pattern in self.expected_log:
            matching = [line for line in lines if re.search(pattern, line)]
            self.assertTrue(matching, f"Dovecot logged no error like {pattern}")
            lines = [line for line in lines if line not in matching]
        self.assertEqual([], lines, "Dovecot logged errors")
