"""The private Dovecot by itself: a passwd-file line written by hand serves a mailbox."""

import os
import smtplib
import unittest

from support import clients
from support.instance import OWNER_ID, InstanceTestCase

SCHEMES = ("CRAM-MD5", "SHA512-CRYPT", "BLF-CRYPT", "ARGON2ID")
PASSWORD = "Sesame 2"


class DovecotInstance(InstanceTestCase):

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        for scheme in SCHEMES:
            cls.add_line(f"{scheme.lower()}@example.org", scheme=scheme)
        cls.add_line("limited@example.org", quota_mb=7)
        cls.add_line("full@example.org", quota_mb=1)
        for name in ("boundless", "restart"):
            cls.add_line(f"{name}@example.org")
        # A running server looks at the file once a second only.
        cls.instance.layout.restart()

    @classmethod
    def add_line(cls, address, scheme="SHA512-CRYPT", quota_mb=0):
        hashed = cls.instance.doveadm("pw", "-s", scheme, "-u", address,
                                      stdin=f"{PASSWORD}\n{PASSWORD}\n").strip()
        home = os.path.join(cls.instance.owner_home(), address)
        with open(cls.instance.layout.users, "a", encoding="utf-8") as file:
            file.write(f"{address}:{hashed}:{OWNER_ID}:{OWNER_ID}::{home}:::maildir:~/.maildir "
                       f"userdb_quota_rule=*:bytes={quota_mb}M\n")

    def test_a_message_delivered_by_lmtp_is_read_by_imap_and_pop3(self):
        ports = self.instance.ports
        for scheme in SCHEMES:
            with self.subTest(scheme):
                address = scheme.lower() + "@example.org"
                self.assertTrue(self.instance.passwd_line(address)[1].startswith(f"{{{scheme}}}"))
                clients.deliver(ports, address, "first light")
                self.assertEqual(["first light"], clients.imap_subjects(ports, address, PASSWORD))
                self.assertEqual(["first light"], clients.pop3_subjects(ports, address, PASSWORD))

    def test_a_wrong_password_is_refused_over_every_protocol(self):
        address = "limited@example.org"
        for accepts in (clients.imap_accepts, clients.pop3_accepts):
            for tls in (False, True):
                with self.subTest(client=accepts.__name__, tls=tls):
                    self.assertTrue(accepts(self.instance.ports, address, PASSWORD, tls))
                    self.assertFalse(accepts(self.instance.ports, address, "Sesame 1", tls))
                    self.assertFalse(accepts(self.instance.ports, address, "", tls))

    def test_curl_reads_the_message_too(self):
        address, ports = "limited@example.org", self.instance.ports
        clients.deliver(ports, address, "by curl")
        for url in (f"imaps://127.0.0.1:{ports['imaps']}/INBOX;MAILINDEX=1",
                    f"pop3s://127.0.0.1:{ports['pop3s']}/1"):
            with self.subTest(url):
                self.assertIn("Subject: by curl", clients.curl(url, address, PASSWORD))

    def test_the_quota_limit_is_visible_to_the_client_and_to_doveadm(self):
        address, ports = "limited@example.org", self.instance.ports
        clients.deliver(ports, address, "by curl")
        used, limit = clients.imap_quota(ports, address, PASSWORD)
        self.assertEqual(7 * 1024, limit)
        self.assertGreater(used, 0)
        storage = [line.split() for line in self.instance.doveadm("quota", "get", "-A").splitlines()
                   if line.startswith(address) and "STORAGE" in line]
        self.assertEqual([str(used)], [words[4] for words in storage])

    def test_a_rule_of_0_megabytes_is_no_limit(self):
        address, ports = "boundless@example.org", self.instance.ports
        clients.deliver(ports, address, "first light", "x" * 70 + "\r\n")
        self.assertIsNone(clients.imap_quota(ports, address, PASSWORD))

    def test_a_message_over_the_quota_is_not_delivered(self):
        with self.assertRaises(smtplib.SMTPResponseException) as refused:
            clients.deliver(self.instance.ports, "full@example.org", "too big",
                            ("x" * 70 + "\r\n") * 20000)
        self.assertEqual(552, refused.exception.smtp_code)

    def test_mail_for_an_unknown_address_is_refused(self):
        with self.assertRaises(smtplib.SMTPRecipientsRefused):
            clients.deliver(self.instance.ports, "nobody@example.org", "lost")

    def test_a_restart_keeps_ports_and_mail(self):
        address, ports = "restart@example.org", dict(self.instance.ports)
        clients.deliver(ports, address, "kept")
        self.instance.layout.restart()
        self.assertEqual(["kept"], clients.imap_subjects(ports, address, PASSWORD))

    def test_starting_twice_and_stopping_twice_is_harmless(self):
        layout = self.instance.layout
        layout.start()
        self.assertTrue(layout.is_running())
        layout.stop()
        layout.stop()
        self.assertFalse(layout.is_running())
        layout.start()
        self.assertTrue(layout.is_running())

    def test_a_foreign_process_under_the_recorded_id_is_left_alone(self):
        layout = self.instance.layout
        layout.stop()
        with open(os.path.join(layout.folder, "run", "master.pid"), "w", encoding="utf-8") as file:
            file.write(f"{os.getpid()}\n")
        layout.stop()  # would end this very test
        layout.start()
        self.assertTrue(layout.is_running())


if __name__ == "__main__":
    unittest.main()
