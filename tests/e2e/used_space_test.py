"""Refreshes of a hundred mailboxes whose mail lies on disk, and of a file that lost its lines."""

import re
import unittest

from support import clients
from support.mailbox_case import PASSWORD, MailboxTestCase
from support.server import serving

MAILBOXES = 100
MEGABYTE = 1 << 20
# What a server adds to a message, its headers, is far less.
SLACK = 200 << 10
LINE = "x" * 78 + "\r\n"


def megabytes_of(number):
    """What mailbox number `number` is to hold."""
    return number % 3


class UsedSpace(MailboxTestCase):
    """The mailboxes m000@example.org and so on; m000, m003 and so on have no mail."""

    settings = {"auth": "dovecot", "reload_delay": "1"}

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.addresses = [f"m{number:03}@example.org" for number in range(MAILBOXES)]
        # A server takes all the reloads on itself and makes them few.
        with serving(cls.instance):
            for address in cls.addresses:
                cls.instance.brisq("mailbox", "add", address, "--password-stdin", "--quota", "50",
                                   stdin=PASSWORD + "\n")
        for number, address in enumerate(cls.addresses):
            cls.fill(address, megabytes_of(number))

    @classmethod
    def fill(cls, address, megabytes):
        if megabytes:
            body = LINE * ((megabytes * MEGABYTE + SLACK) // len(LINE))
            clients.deliver(cls.instance.ports, address, "large", body)

    def refresh(self, *options):
        return self.instance.brisq_json("refresh", *options)[0]

    def figures(self):
        """Used megabytes by address, as `usage` shows them."""
        return {row["address"]: row["used_mb"] for row in self.instance.brisq_json("usage")}

    def users_file(self):
        with open(self.instance.layout.users, encoding="utf-8") as file:
            return file.read()

    def write_users_file(self, text):
        with open(self.instance.layout.users, "w", encoding="utf-8") as file:
            file.write(text)

    def right_figures(self):
        return {address: megabytes_of(number) for number, address in enumerate(self.addresses)}

    def test_the_figures_of_all_mailboxes_are_right(self):
        self.write_users_file(self.users_file() + "# so that the whole file is read\n")
        walk = self.refresh()
        self.assertEqual((True, MAILBOXES, ""), (walk["walked"], walk["lines"], walk["swept"]))
        self.assertEqual(self.right_figures(), self.figures())

        self.fill("m000@example.org", 1)
        self.addCleanup(self.instance.doveadm, "expunge", "-u", "m000@example.org", "mailbox",
                        "INBOX", "all")
        figures_only = self.refresh()
        self.assertEqual((False, 1), (figures_only["walked"], figures_only["figures_changed"]))
        self.assertEqual({**self.right_figures(), "m000@example.org": 1}, self.figures())
        used, limit = clients.imap_quota(self.instance.ports, "m001@example.org", PASSWORD)
        self.assertEqual((1, 50 * 1024), (used // 1024, limit), "what a client is told")

    def test_without_the_quota_plugin_the_stored_figures_stay_and_that_is_said(self):
        self.refresh()
        before = self.figures()
        conf = self.instance.layout.dovecot_conf.replace("dovecot.conf", "90-brisq.conf")
        with open(conf, encoding="utf-8") as file:
            with_quota = file.read()
        without = re.sub(r"(?m)^.*mail_plugins = .*quota$", "", with_quota)
        self.assertNotEqual(with_quota, without)
        for name, text in (("unchanged file", self.users_file()),
                           ("changed file", self.users_file() + "# changed\n")):
            with self.subTest(name):
                self.write_users_file(text)
                with open(conf, "w", encoding="utf-8") as file:
                    file.write(without)
                try:
                    for words in (("refresh",), ("usage",)):
                        message = self.instance.brisq(*words, expect=9)
                        self.assertIn("Dovecot reports no used space", message)
                        self.assertIn("plugin", message)
                finally:
                    with open(conf, "w", encoding="utf-8") as file:
                        file.write(with_quota)
                self.assertEqual(before, {row["address"]: row["used_mb"]
                                          for row in self.instance.brisq_json("mailbox", "list")})
                self.refresh()
                self.assertEqual(before, self.figures())

    def test_a_file_that_was_cut_empties_no_panel_unless_told_to(self):
        whole = self.users_file()
        lost = self.addresses[-31:]  # of 100: one more than the 30 percent
        self.refresh()
        self.write_users_file(whole[:whole.index(lost[0])])
        for _ in range(2):
            message = self.instance.brisq("refresh", expect=8)
            self.assertIn("31 of 100", message)
            self.assertIn("--sweep", message)
            self.assertEqual(MAILBOXES, len(self.instance.brisq_json("mailbox", "list")))

        report = self.refresh("--sweep")
        self.assertEqual(lost, report["swept"].split(", "))
        self.assertEqual(MAILBOXES - 31, len(self.instance.brisq_json("mailbox", "list")))
        archived = self.instance.brisq_json("mailbox", "list", "--archived")
        self.assertEqual({(address, "swept") for address in lost},
                         {(row["address"], row["reason"]) for row in archived})

        # A row whose line is gone comes back without a password, which is said.
        self.instance.brisq("mailbox", "restore", lost[0])
        self.assertEqual("", self.instance.passwd_line(lost[0])[1])
        self.require_refusal(lost[0], PASSWORD)
        # One whose line is back takes that over.
        self.instance.brisq("mailbox", "delete", lost[0], "--yes")
        self.write_users_file(whole)
        for address in lost:
            self.instance.brisq("mailbox", "restore", address)
        self.assertEqual(whole, self.users_file())
        self.require_login(lost[0], PASSWORD)
        self.refresh()
        self.assertEqual(self.right_figures(), self.figures())


if __name__ == "__main__":
    unittest.main()
