"""The part of Dovecot's configuration that is ours, on top of the distribution's own."""

import os
import re
import shutil
import subprocess
import tempfile
import unittest

from support.instance import SOURCE


class DistributionConfiguration(unittest.TestCase):

    def setUp(self):
        holder = tempfile.TemporaryDirectory(prefix="brisq-doveconf-")
        self.addCleanup(holder.cleanup)
        self.folder = os.path.join(holder.name, "dovecot")
        shutil.copytree("/usr/share/dovecot", self.folder)  # as a fresh installation has it
        with open(os.path.join(SOURCE, "packaging/dovecot/90-brisq.conf.in"),
                  encoding="utf-8") as template:
            text = template.read().replace("@USERS@", os.path.join(self.folder, "users"))
        with open(os.path.join(self.folder, "conf.d/90-brisq.conf"), "w", encoding="utf-8") as file:
            file.write(text.replace("@CERTCONF@", os.path.join(self.folder, "certs")))

    def setting(self, *words):
        done = subprocess.run(["doveconf", "-c", os.path.join(self.folder, "dovecot.conf"), "-h",
                               *words], capture_output=True, text=True, timeout=60)
        self.assertEqual((0, ""), (done.returncode, done.stderr))
        return done.stdout.strip()

    def test_the_settings_take_effect(self):
        for words, value in ((("mail_plugins",), "quota"), (("first_valid_uid",), "1"),
                             (("plugin/quota",), "maildir:User quota"),
                             (("-f", "service=imap", "mail_plugins"), "quota imap_quota"),
                             (("-f", "service=pop3", "mail_plugins"), "quota")):
            with self.subTest(words):
                self.assertEqual(value, self.setting(*words))

    def test_users_come_from_the_passwd_file(self):
        for kind in ("passdb", "userdb"):
            with self.subTest(kind):
                self.assertRegex(self.setting(kind), r"driver = passwd-file")
                self.assertIn(f"args = {self.folder}/users", self.setting(kind))

    def test_certificate_snippets_are_included(self):
        os.mkdir(os.path.join(self.folder, "certs"), 0o600)
        with open(os.path.join(self.folder, "certs/example.org.conf"), "w",
                  encoding="utf-8") as file:
            file.write("local_name example.org {\n\tssl_min_protocol = TLSv1.3\n}\n")
        self.assertEqual("TLSv1.3", self.setting("-f", "lname=example.org", "ssl_min_protocol"))
        self.assertTrue(re.fullmatch(r"TLSv1\.2|", self.setting("ssl_min_protocol")))


if __name__ == "__main__":
    unittest.main()
