"""The whole life of a mailbox under a running Dovecot: changed, edited by hand, deleted, restored."""

import os
import unittest

from support import clients
from support.mailbox_case import PASSWORD, MailboxTestCase


class Life:
    """What holds in both modes of EmailAuth."""

    def test_after_delete_the_login_is_refused_and_restore_brings_it_back(self):
        address = self.add("gone", "--quota", "7")
        self.require_login(address, PASSWORD)
        clients.deliver(self.instance.ports, address, "kept")
        line = self.instance.passwd_line(address)

        self.instance.brisq("mailbox", "delete", address, expect=2)
        self.assertTrue(clients.imap_accepts(self.instance.ports, address, PASSWORD))
        self.instance.brisq("mailbox", "delete", address, "--yes")
        self.instance.eventually(
            lambda: not clients.imap_accepts(self.instance.ports, address, PASSWORD),
            "a deleted mailbox is refused")
        self.require_refusal(address, PASSWORD)

        home = os.path.join(self.instance.owner_home(), "mail", "example.org", "gone")
        self.assertEqual(1, len(os.listdir(os.path.join(home, ".maildir", "new"))))
        archived = self.instance.brisq_json("mailbox", "list", "--archived")
        self.assertEqual([(address, "deleted", True)],
                         [(row["address"], row["reason"], row["password_known"])
                          for row in archived])

        self.instance.brisq("mailbox", "restore", address)
        if self.settings["auth"] == "dovecot":  # else the kept password is hashed anew
            self.assertEqual(line, self.instance.passwd_line(address))
        self.require_login(address, PASSWORD)
        self.assertEqual(["kept"], clients.imap_subjects(self.instance.ports, address, PASSWORD))

    def test_after_set_quota_the_client_sees_the_new_limit(self):
        address = self.add("quota", "--quota", "5")
        self.require_login(address, PASSWORD)
        hashed = self.instance.passwd_line(address)[1]
        for given, kilobytes in (("9", 9 * 1024), ("2G", 2 << 20), ("0", None)):
            with self.subTest(given):
                self.instance.brisq("mailbox", "set", address, "--quota", given)
                self.instance.eventually(lambda k=kilobytes: self.limit(address) == k,
                                         f"a limit of {given}")
                self.assertEqual(hashed, self.instance.passwd_line(address)[1])

    def limit(self, address):
        shown = clients.imap_quota(self.instance.ports, address, PASSWORD)
        return shown and shown[1]

    def test_a_swept_mailbox_comes_back(self):
        address = self.add("swept")
        self.require_login(address, PASSWORD)
        self.edit_line(address, lambda line: "")
        self.assertEqual(address, self.instance.brisq_json("refresh")[0]["swept"])
        self.instance.brisq("mailbox", "show", address, expect=4)
        self.instance.brisq("mailbox", "restore", address)
        if self.settings["auth"] == "dovecot":
            self.assertEqual("", self.instance.passwd_line(address)[1])
            self.instance.brisq("mailbox", "passwd", address, "--password-stdin",
                                stdin=PASSWORD + "\n")
        self.require_login(address, PASSWORD)

    def test_a_mailbox_that_is_switched_off_is_refused_until_it_is_on(self):
        address = self.add("switched")
        self.require_login(address, PASSWORD)
        self.instance.brisq("mailbox", "set", address, "--active", "off")
        self.instance.eventually(
            lambda: not clients.imap_accepts(self.instance.ports, address, PASSWORD),
            "a mailbox that is off is refused")
        self.instance.brisq("mailbox", "set", address, "--active", "on")
        self.require_login(address, PASSWORD)

    def edit_line(self, address, edit):
        """Changes the address's line by hand, in place as an editor may do it."""
        with open(self.instance.layout.users, encoding="utf-8") as file:
            lines = file.readlines()
        with open(self.instance.layout.users, "w", encoding="utf-8") as file:
            file.writelines(edit(line) if line.startswith(address + ":") else line
                            for line in lines)

    def set_by_hand(self, address, password):
        hashed = self.instance.doveadm("pw", "-s", "SHA512-CRYPT", "-u", address,
                                       stdin=f"{password}\n" * 2).strip()
        self.edit_line(address,
                       lambda line: ":".join([address, hashed, *line.split(":", 2)[2:]]))


class DovecotHoldsThePasswords(Life, MailboxTestCase):
    settings = {"auth": "dovecot"}

    def test_a_password_set_by_hand_is_left_alone_by_a_refresh(self):
        address = self.add("byhand")
        self.instance.brisq_json("refresh")
        self.set_by_hand(address, "by hand")
        by_hand = self.instance.passwd_line(address)
        self.assertTrue(self.instance.brisq_json("refresh")[0]["walked"])
        self.assertEqual(by_hand, self.instance.passwd_line(address))
        self.require_login(address, "by hand")


class PanelHoldsThePasswords(Life, MailboxTestCase):
    settings = {"auth": "panel"}

    def test_a_password_set_by_hand_is_put_back_by_a_refresh(self):
        address = self.add("byhand")
        self.instance.brisq_json("refresh")
        self.set_by_hand(address, "by hand")
        by_hand = self.instance.passwd_line(address)
        self.assertTrue(self.instance.brisq_json("refresh")[0]["walked"])
        self.assertNotEqual(by_hand[1], self.instance.passwd_line(address)[1])
        self.require_login(address, PASSWORD)
        self.require_refusal(address, "by hand")

    def test_password_runs_of_several_commands_keep_their_distance(self):
        address = self.add("distance")
        self.instance.configure("param", "EmailPasswordDelay", "3600")
        self.addCleanup(self.instance.configure, "param", "EmailPasswordDelay", "0")
        self.instance.brisq_json("refresh")  # the first run, or one of another test
        self.set_by_hand(address, "by hand")
        by_hand = self.instance.passwd_line(address)
        for _ in range(2):
            self.instance.brisq_json("refresh")
            self.assertEqual(by_hand, self.instance.passwd_line(address), "too early")
        self.instance.configure("param", "EmailPasswordDelay", "0")
        self.instance.brisq_json("refresh")
        self.require_login(address, PASSWORD)


if __name__ == "__main__":
    unittest.main()
