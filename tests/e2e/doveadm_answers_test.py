"""A doveadm that answers wrongly never makes a mailbox, nor changes a password."""

import os
import unittest

from support import clients
from support.mailbox_case import MailboxTestCase

SECRET = "Nightingale 4711 of Samarkand"

# What stands for `doveadm pw`, and what the error must say. Listing the schemes stays real unless
# the case is about that.
HASHING = '[ "$2" = -l ] || { %s; }'
CASES = {
    "schemes can't be listed": ('[ "$2" != -l ] || exit 75', "kept in the clear"),
    "schemes are not listed": ('[ "$2" != -l ] || exit 0', "kept in the clear"),
    "no hash": (HASHING % "exit 0", "no hash"),
    "blanks": (HASHING % "echo ' '; exit 0", "no hash"),
    "a failed crypt": (HASHING % "echo '{SHA512-CRYPT}*0'; exit 0", "no hash"),
    "a failed crypt alone": (HASHING % "echo '*0'; exit 0", "no hash"),
    "words": (HASHING % "echo 'Debug: reading'; exit 0", "doveadm: its answer"),
    "two lines": (HASHING % "echo warning; /usr/bin/doveadm -O \"$@\"; exit 0",
                  "doveadm: its answer"),
    "a colon": (HASHING % "echo '{SHA512-CRYPT}$6$a:b'; exit 0", "doveadm: its answer"),
    "a NUL": (HASHING % "printf '{SHA512-CRYPT}$6$a\\0b'; exit 0", "doveadm: its answer"),
    "half a hash": (HASHING % "/usr/bin/doveadm -O \"$@\" | head -c 60; exit 0",
                    "hash of another password"),
    "the hash of nothing": (HASHING % "exec /usr/bin/doveadm -O \"$@\" </dev/null",
                            "hash of another password"),
    "its input, and fails": (HASHING % "cat; exit 1", "***"),
    "its input as an error": (HASHING % "cat >&2; exit 1", "***"),
    "nothing, and fails": (HASHING % "exit 3", "exit status 3"),
    "nothing, and is killed": (HASHING % "kill -KILL $$", "signal 9"),
}


class WrongAnswers:
    """What holds in both modes of EmailAuth."""

    def run_with(self, answer, *words):
        """The error of a command that must end with the code for the Dovecot side."""
        with self.instance.doveadm_stand_in(answer):
            message = self.instance.brisq(*words, "--password-stdin", stdin=SECRET + "\n", expect=9)
        self.assertNotIn(SECRET, message)
        return message

    def test_no_mailbox_is_made(self):
        home = os.path.join(self.instance.owner_home(), "mail", "example.org", "new")
        with open(self.instance.layout.users, encoding="utf-8") as file:
            before = file.read()
        for name, (answer, text) in CASES.items():
            with self.subTest(name):
                self.assertIn(text, self.run_with(answer, "mailbox", "add", "new@example.org"))
                self.instance.brisq("mailbox", "show", "new@example.org", expect=4)
                with open(self.instance.layout.users, encoding="utf-8") as file:
                    self.assertEqual(before, file.read())
                self.assertFalse(os.path.exists(home))

    def test_no_password_is_changed(self):
        address = self.add("old", password="the old one")
        before = self.instance.passwd_line(address)
        for name, (answer, text) in CASES.items():
            with self.subTest(name):
                self.assertIn(text, self.run_with(answer, "mailbox", "passwd", address))
                self.assertEqual(before, self.instance.passwd_line(address))
        self.require_login(address, "the old one")
        self.require_refusal(address, SECRET)
        self.assertNotIn(SECRET.encode(), b"".join(self.everything_on_disk().values()))


class DovecotHoldsThePasswords(WrongAnswers, MailboxTestCase):
    settings = {"auth": "dovecot"}


class PanelHoldsThePasswords(WrongAnswers, MailboxTestCase):
    settings = {"auth": "panel"}


class ClearTextThatIsWished(MailboxTestCase):
    settings = {"scheme": "PLAIN"}

    def test_the_password_is_stored_and_logs_in(self):
        address = self.add("clear", password=SECRET)
        self.assertEqual("{PLAIN}" + SECRET, self.instance.passwd_line(address)[1])
        self.require_login(address, SECRET)
        self.instance.brisq("mailbox", "passwd", address, "--password-stdin", stdin="other\n")
        self.require_login(address, "other")
        self.assertFalse(clients.imap_accepts(self.instance.ports, address, SECRET))

    def test_another_tool_than_asked_for_is_refused(self):
        with self.instance.doveadm_stand_in(HASHING % "echo '{PLAIN}another'; exit 0"):
            self.instance.brisq("mailbox", "add", "b@example.org", "--password-stdin",
                                stdin="word\n", expect=9)


if __name__ == "__main__":
    unittest.main()
