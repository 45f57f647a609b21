"""Dovecot and the engine agree on the mailboxes of a passwd-file, whatever bytes came in."""

import os
import subprocess
import unittest

from support.instance import InstanceTestCase

FIELD_BYTES = os.path.join(os.environ["BRISQ_BUILD"], "tests", "bin", "field_bytes")
VALUES = 9 * 256 * 3  # fields, bytes, places in the field


class FieldBytes(InstanceTestCase):

    def fill(self, writer):
        """Empties the passwd-file and has it filled; (values tried, refused, names it must have)."""
        with open(self.instance.layout.users, "w", encoding="utf-8"):
            pass
        done = subprocess.run([FIELD_BYTES, writer, self.instance.layout.users], check=True,
                              capture_output=True, text=True, timeout=120)
        head, *names = done.stdout.splitlines()
        _, tried, _, refused = head.split()
        self.instance.doveadm("reload")
        return int(tried), int(refused), {bytes.fromhex(name) for name in names}

    def dovecots_names(self):
        done = subprocess.run([self.instance.layout.doveadm, "user", "*"], capture_output=True,
                              timeout=120)
        self.assertEqual(0, done.returncode, done.stderr)
        return set(done.stdout.split(b"\n")) - {b""}

    def test_no_byte_in_any_field_makes_a_mailbox_or_loses_one(self):
        tried, refused, ours = self.fill("engine")
        dovecots = self.dovecots_names()
        print(f"values tried: {tried}, refused: {refused}, mailboxes: {len(ours)}, "
              f"known to Dovecot alone: {len(dovecots - ours)}, "
              f"unknown to Dovecot: {len(ours - dovecots)}")
        self.assertEqual(VALUES, tried)
        self.assertEqual(tried - refused, len(ours))
        self.assertEqual(set(), dovecots - ours)
        self.assertEqual(set(), ours - dovecots)

    def test_a_writer_without_checks_is_caught(self):
        _, _, wanted = self.fill("naive")
        dovecots = self.dovecots_names()
        print(f"control: injected: {len(dovecots - wanted)}, lost: {len(wanted - dovecots)}")
        self.expect_log("Error: ")  # it has much to say about such a file
        self.assertTrue(dovecots - wanted, "no line was injected")


if __name__ == "__main__":
    unittest.main()
