"""A passwd-file that was lost or edited by hand: plan, sync and check under a running Dovecot."""

import os
import shutil
import unittest

from support import clients
from support.mailbox_case import PASSWORD, MailboxTestCase


class DriftCase(MailboxTestCase):
    """Each test begins with one mailbox that can be logged in to."""

    def setUp(self):
        super().setUp()
        self.address = self.add(self.id().rsplit("_", 1)[-1])
        self.require_login(self.address, PASSWORD)

    @property
    def users(self):
        return self.instance.layout.users

    def plan(self, expect):
        """The standard output of plan, which must end with this exit code."""
        done = self.instance.brisq_run("plan")
        self.assertEqual(expect, done.returncode, done.stdout + done.stderr)
        return done.stdout

    def accepted(self, address, password):
        return clients.imap_accepts(self.instance.ports, address, password)


class PanelKeepsThePasswords(DriftCase):
    settings = {"auth": "panel"}

    def test_a_lost_file_comes_back_with_its_passwords_lost(self):
        os.remove(self.users)
        plan = self.plan(5)
        self.assertIn(f"+{self.address}:", plan)
        self.assertFalse(os.path.exists(self.users))
        self.instance.brisq("sync")
        self.require_login(self.address, PASSWORD)
        self.assertEqual("", self.plan(0))


class DovecotKeepsThePasswords(DriftCase):
    settings = {"auth": "dovecot"}

    def test_a_lost_file_gets_new_passwords_on_request_new(self):
        os.remove(self.users)
        self.instance.brisq("sync")
        self.instance.eventually(lambda: not self.accepted(self.address, PASSWORD),
                                 "the lost password is refused")
        printed = dict(line.split() for line in
                       self.instance.brisq("sync", "--generate").splitlines())
        self.require_login(self.address, printed[self.address])
        self.assertEqual("", self.plan(0))

    def test_a_stale_buffer_that_is_saved_shows_in_check_stale(self):
        buffer = self.users + ".buffer"
        shutil.copy(self.users, buffer)
        later = self.add("later")
        self.instance.brisq("mailbox", "set", self.address, "--quota", "7M")
        self.instance.brisq("check")
        with open(buffer, encoding="utf-8") as stale, open(self.users, "w",
                                                           encoding="utf-8") as file:
            file.write(stale.read())
        found = self.instance.brisq_run("check")
        self.assertEqual(5, found.returncode, found.stdout + found.stderr)
        self.assertIn(f"LINE-DIFFERS warning {self.address}: ", found.stdout)
        self.assertIn("=0M in the file, ", found.stdout)
        self.assertIn(f"PASSWD-NO-LINE error {later}: ", found.stdout)
        self.assertEqual(2, len(found.stdout.splitlines()), found.stdout)
        self.instance.brisq("sync", "--generate")
        self.instance.brisq("check")
        self.require_login(self.address, PASSWORD)


if __name__ == "__main__":
    unittest.main()
