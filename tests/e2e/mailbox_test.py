"""Mailboxes made by the program, served by a real Dovecot to clients of other hands."""

import os
import unittest

from support import clients
from support.instance import OWNER_ID
from support.mailbox_case import PASSWORD, MailboxTestCase


class ServedMailbox:
    """What holds in both modes of EmailAuth."""

    def test_the_right_password_logs_in_and_a_wrong_one_does_not(self):
        address = self.add("login")
        self.require_login(address, PASSWORD)
        for wrong in (PASSWORD[:-1], PASSWORD + " ", PASSWORD.lower(), "", "\\" + PASSWORD):
            with self.subTest(wrong=wrong):
                self.require_refusal(address, wrong)

    def test_a_message_delivered_by_lmtp_is_read_over_imap_and_pop3(self):
        address = self.add("reader")
        self.require_login(address, PASSWORD)
        clients.deliver(self.instance.ports, address, "first light")
        for subjects in (clients.imap_subjects, clients.pop3_subjects):
            with self.subTest(subjects.__name__):
                self.assertEqual(["first light"],
                                 subjects(self.instance.ports, address, PASSWORD))

    def test_a_generated_password_is_printed_alone_and_logs_in(self):
        address = "generated@example.org"
        printed = self.instance.brisq("mailbox", "add", address, "--generate")
        self.assertEqual(1, printed.count("\n"))
        self.require_login(address, printed.rstrip("\n"))

    def test_the_quota_limit_is_what_the_client_sees(self):
        for local, options, limit in (("small", ("--quota", "5"), 5 * 1024),
                                      ("large", ("--quota", "2G"), 2 * 1024 * 1024),
                                      ("none", (), None), ("zero", ("--quota", "0"), None)):
            with self.subTest(local):
                address = self.add(local, *options)
                self.require_login(address, PASSWORD)
                clients.deliver(self.instance.ports, address, "some bytes", "x" * 70 + "\r\n")
                shown = clients.imap_quota(self.instance.ports, address, PASSWORD)
                self.assertEqual(limit, shown and shown[1])

    def test_the_line_and_the_maildir_are_as_dovecot_needs_them(self):
        address = self.add("layout", "--quota", "3M")
        home = os.path.join(self.instance.owner_home(), "mail", "example.org", "layout")
        fields = self.instance.passwd_line(address)
        self.assertTrue(fields[1].startswith("{SHA512-CRYPT}$6$"), "the hash's scheme")
        self.assertEqual([address, str(OWNER_ID), str(OWNER_ID), "", home, "", "",
                          "maildir:~/.maildir userdb_quota_rule=*:bytes=3M"],
                         fields[:1] + fields[2:])
        for name in ("", "new", "cur", "tmp"):
            made = os.stat(os.path.join(home, ".maildir", name))
            self.assertEqual((0o40700, OWNER_ID, OWNER_ID),
                             (made.st_mode, made.st_uid, made.st_gid), name)

    def test_the_program_shows_what_it_made(self):
        address = self.add("shown", "--quota", "1G")
        mailbox = {"address": address, "owner": "owner", "quota_mb": 1024, "used_mb": 0,
                   "active": True, "home": os.path.join(self.instance.owner_home(),
                                                        "mail/example.org/shown")}
        self.assertEqual([mailbox], self.instance.brisq_json("mailbox", "show", address))
        self.assertIn(mailbox, self.instance.brisq_json("mailbox", "list"))

    def test_the_password_is_on_no_disk_in_plain(self):
        secret = "Nightingale-4711-of-Samarkand"
        address = self.add("secret", password=secret)
        self.require_login(address, secret)
        holders = [path for path, content in self.everything_on_disk().items()
                   if secret.encode() in content]
        self.assertEqual([], holders)

    def test_when_hashing_fails_nothing_of_the_mailbox_remains(self):
        with self.instance.doveadm_stand_in('[ "$2" = -l ] || { echo "no luck"; exit 75; }'):
            message = self.instance.brisq("mailbox", "add", "failed@example.org",
                                          "--password-stdin", stdin="x\n", expect=9)
        self.assertIn("no luck", message)
        self.instance.brisq("mailbox", "show", "failed@example.org", expect=4)
        with open(self.instance.layout.users, encoding="utf-8") as file:
            self.assertNotIn("failed@", file.read())
        home = os.path.join(self.instance.owner_home(), "mail", "example.org", "failed")
        self.assertFalse(os.path.exists(home))

    def test_errors_have_their_exit_codes(self):
        address = self.add("taken")
        for name, words, code in (
                ("name taken", ("mailbox", "add", address, "--password-stdin"), 6),
                ("no such domain", ("mailbox", "add", "a@example.net", "--password-stdin"), 4),
                ("bad local part", ("mailbox", "add", "a..b@example.org", "--password-stdin"), 10),
                ("no such mailbox", ("mailbox", "show", "nobody@example.org"), 4),
                ("no password source", ("mailbox", "add", "b@example.org"), 2)):
            with self.subTest(name):
                message = self.instance.brisq(*words, stdin="x\n", expect=code)
                self.assertTrue(message.startswith("brisq: "), message)


class DovecotHoldsThePasswords(ServedMailbox, MailboxTestCase):
    settings = {"auth": "dovecot"}


class PanelHoldsThePasswords(ServedMailbox, MailboxTestCase):
    settings = {"auth": "panel"}


class SchemeTestCase(MailboxTestCase):
    """One mailbox in the scheme of the class."""

    def check_scheme(self):
        scheme = self.settings["scheme"]
        address = self.add("scheme")
        self.assertTrue(self.instance.passwd_line(address)[1].startswith(f"{{{scheme}}}"))
        self.require_login(address, PASSWORD)
        self.require_refusal(address, PASSWORD[:-1])


class CramMd5(SchemeTestCase):
    settings = {"scheme": "CRAM-MD5"}
    test_the_scheme_logs_in = SchemeTestCase.check_scheme


class BlfCrypt(SchemeTestCase):
    settings = {"scheme": "BLF-CRYPT"}
    test_the_scheme_logs_in = SchemeTestCase.check_scheme


class Argon2id(SchemeTestCase):
    settings = {"scheme": "ARGON2ID"}
    test_the_scheme_logs_in = SchemeTestCase.check_scheme


if __name__ == "__main__":
    unittest.main()
