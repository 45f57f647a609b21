"""A running server: its schedule, changed settings, failures that pass, reloads for all commands."""

import os
import unittest

from support import clients
from support.mailbox_case import PASSWORD, MailboxTestCase
from support.server import serving

# A failed reload is tried again after 5 seconds; a changed setting is seen after as many.
PATIENCE = 60


def fnv1a(text):
    """The checksum in front of a record of the journal."""
    total = 0xcbf29ce484222325
    for byte in text.encode():
        total = (total ^ byte) * 0x100000001b3 % 2**64
    return total


class Serve(MailboxTestCase):

    def tearDown(self):
        self.set_period("15")
        super().tearDown()

    def set_period(self, minutes):
        self.instance.configure("param", "EmailRefreshPeriod", minutes)

    def remove_line(self, address):
        with open(self.instance.layout.users, encoding="utf-8") as file:
            lines = [line for line in file if not line.startswith(address + ":")]
        with open(self.instance.layout.users, "w", encoding="utf-8") as file:
            file.writelines(lines)

    def mailboxes(self):
        return {row["address"] for row in self.instance.brisq_json("mailbox", "list")}

    def log(self):
        path = os.path.join(self.instance.layout.folder, "log", "brisq.log")
        if not os.path.exists(path):
            return ""
        with open(path, encoding="utf-8") as file:
            return file.read()

    def soon(self, holds, what):
        self.instance.eventually(holds, what, PATIENCE)

    def test_it_says_what_it_runs_and_ends_on_term(self):
        with serving(self.instance) as said:
            message = self.instance.brisq("serve", expect=7)
            self.assertIn("another server", message)
        lines = said().splitlines()
        self.assertEqual({"dovecot.certs.check every 5 min", "email.refresh every 15 min",
                          "email.certs.expiry every 60 min"}, set(lines[:3]))
        self.assertEqual("ended", lines[-1])

    def test_a_changed_period_is_taken_up_and_an_action_that_fails_runs_again(self):
        kept = [self.add(f"kept{number}") for number in range(2)]
        address = self.add("lost")
        self.instance.brisq("refresh")
        with serving(self.instance):
            # The refresh can't take a folder for its lock.
            lock = os.path.join(self.instance.layout.folder, "state", "refresh.lock")
            os.remove(lock)
            os.mkdir(lock)
            self.set_period("0.005")
            self.soon(lambda: self.log().count("action email.refresh failed") >= 2,
                      "two failures of the refresh in the log")
            os.rmdir(lock)
            self.remove_line(address)
            self.soon(lambda: address not in self.mailboxes(), "a refresh that sweeps")
        self.assertTrue(set(kept) <= self.mailboxes())

    def test_settings_that_break_a_rule_are_logged_and_the_old_ones_stay(self):
        with serving(self.instance):
            self.set_period("often")
            self.soon(lambda: "changed settings not taken up" in self.log(), "a line in the log")

    def test_it_makes_what_a_command_could_not_within_seconds(self):
        with serving(self.instance):
            entry = self.leave_owed("dovecot.reload")
            self.soon(lambda: not os.path.exists(entry), "an entry that is dealt with")
        self.assertIn("finished job", self.log())

    def leave_owed(self, action):
        """The journal's entry of a command that was committed and made no call."""
        folder = os.path.join(self.instance.layout.folder, "state", "journal")
        os.makedirs(folder, 0o700, exist_ok=True)
        entry = os.path.join(folder, "0123456789abcdef")
        with open(entry + ".new", "w", encoding="utf-8") as file:
            os.fchmod(file.fileno(), 0o600)
            for text in ("request name=tls%20set started=2026-01-31T10:00:00Z who=root",
                         f"call action={action} params=", "committed"):
                file.write(f"{fnv1a(text):016x} {text}\n")
        os.rename(entry + ".new", entry)
        return entry

    def test_reloads_of_commands_are_left_to_it_and_a_failed_one_is_tried_again(self):
        real = self.instance.layout.doveadm
        with serving(self.instance):
            os.rename(real, real + ".real")
            with open(real, "w", encoding="utf-8") as file:
                os.fchmod(file.fileno(), 0o755)
                file.write(f'#!/bin/sh\n[ "$1" != reload ] || {{ echo no way; exit 75; }}\n'
                           f'exec {real}.real "$@"\n')
            address = self.add("reloaded")
            self.soon(lambda: self.status()["state"] == "failed", "a failed reload")
            self.assertIn("no way", self.status()["error"])
            self.assertNotEqual("", self.status()["next_try"])
            os.replace(real + ".real", real)
            self.soon(lambda: self.status()["state"] == "idle", "a reload that is tried again")
            self.assertEqual(0, self.status()["requests"])
        self.assertTrue(clients.imap_accepts(self.instance.ports, address, PASSWORD))

    def status(self):
        return self.instance.brisq_json("reload", "status")[0]


if __name__ == "__main__":
    unittest.main()
