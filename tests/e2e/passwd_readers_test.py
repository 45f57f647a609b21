"""While the passwd-file changes all the time, who knows the password gets in."""

import imaplib
import os
import threading
import time
import unittest

from support import clients
from support.mailbox_case import MailboxTestCase

CHANGES = 1000 if os.environ.get("BRISQ_SOAK") == "1" else 200
PASSWORD = "steady"
NAIVE_WRITES = 10  # at most; the first that Dovecot meets half done ends the control
HALF_DONE = 3  # seconds: Dovecot looks at the file once a second at most


def gets_in(ports, address, password):
    """False also when the server knows the password, but by then no longer the mailbox, which it
    tells by a refusal or by closing the connection."""
    try:
        return clients.imap_accepts(ports, address, password)
    except imaplib.IMAP4.error:
        return False


class Logins(threading.Thread):
    """Logs in again and again until `end`; use as a context manager."""

    def __init__(self, accepts, ports, address):
        super().__init__()
        self.accepts = lambda: accepts(ports, address, PASSWORD)
        self.ending = threading.Event()
        self.done = self.refused = 0
        self.error = None

    def __enter__(self):
        self.start()
        return self

    def __exit__(self, *_):
        self.ending.set()
        self.join()
        if self.error:
            raise self.error

    def wait_for_refusal(self, seconds):
        end = time.monotonic() + seconds
        while not self.refused and time.monotonic() < end:
            self.ending.wait(0.02)

    def run(self):
        try:
            while not self.ending.is_set():
                self.refused += not self.accepts()
                self.done += 1
        except Exception as error:  # pylint: disable=broad-except
            self.error = error  # told by the thread that waits for this one


class PasswdReaders(MailboxTestCase):

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        # Dovecot shall find out by itself.
        cls.enterClassContext(cls.instance.doveadm_stand_in("exec /usr/bin/doveadm -O \"$@\""))

    def logins(self, address, accepts=clients.imap_accepts):
        return Logins(accepts, self.instance.ports, address)

    @staticmethod
    def are_slow(*threads):
        """True while there have been fewer logins than there must be, and more are coming."""
        return (sum(thread.done for thread in threads) < CHANGES and
                all(thread.is_alive() for thread in threads))

    def comes_back(self, address):
        """Whether the login succeeds once Dovecot looks at the file anew."""
        end = time.monotonic() + 10 * HALF_DONE
        while not gets_in(self.instance.ports, address, PASSWORD):
            if time.monotonic() > end:
                return False
        return True

    def test_no_good_login_is_refused_beside_changes(self):
        steady = self.add("steady", password=PASSWORD)
        other = self.add("other")
        self.require_login(steady, PASSWORD)
        with self.logins(steady) as imap, self.logins(steady, clients.pop3_accepts) as pop3:
            changes = 0
            while changes < CHANGES or self.are_slow(imap, pop3):
                changes += 1
                self.instance.brisq("mailbox", "set", other, "--quota", str(changes))
        logins, refused = imap.done + pop3.done, imap.refused + pop3.refused
        print(f"changes: {changes}, logins beside them: {logins}, refused: {refused}")
        self.assertEqual(0, refused)
        self.assertGreaterEqual(logins, CHANGES)

    def test_a_writer_in_place_is_caught(self):
        address = self.add("torn", password=PASSWORD)
        self.require_login(address, PASSWORD)
        with open(self.instance.layout.users, "rb") as file:
            content = file.read()
        with self.logins(address, gets_in) as imap:
            for _ in range(NAIVE_WRITES):
                with open(self.instance.layout.users, "wb", buffering=0) as file:
                    imap.wait_for_refusal(HALF_DONE)
                    file.write(content)
                if imap.refused:
                    break
        print(f"control: refused: {imap.refused} of {imap.done}")
        self.assertGreater(imap.refused, 0)
        self.assertTrue(self.comes_back(address), "the server itself was lost")
        self.instance.new_bad_lines()  # such a file may also make it log errors


if __name__ == "__main__":
    unittest.main()
