"""Many domains with certificates of their own: the server still answers, and what a new password
costs does not grow with them (counted, not timed)."""

import os
import re
import subprocess
import unittest

from support import certificates
from support.certificate_case import CertificateTestCase
from support.instance import brisq_program
from support.mailbox_case import PASSWORD

SNIPPETS = 20
MANY_SNIPPETS = 2100  # more than Dovecot bears with its own limit of memory
CALL = re.compile(r'execve\("([^"]+)", \[(.*?)\]')
OPENED = re.compile(r'open(?:at)?\([^"\n]*"([^"]+)"')


class Traced:
    """The calls that a traced command has made."""

    def __init__(self, text):
        self.doveadm = [re.findall(r'"([^"]*)"', words)[1:] for path, words in CALL.findall(text)
                        if path == "/usr/bin/doveadm"]
        self.opened = OPENED.findall(text)

    def read_in(self, folder):
        return [path for path in self.opened if path.startswith(folder + "/")]


class ManyDomainsTestCase(CertificateTestCase):
    """Snippets for n0.org, n1.org and so on, all with one certificate."""

    snippets = 0

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.pair = certificates.make(cls.pem, "all.org")
        for number in range(cls.snippets):
            path = os.path.join(cls.instance.layout.snippets, f"n{number}.org.conf")
            with open(path, "w", encoding="utf-8") as file:
                file.write(f"local_name n{number}.org {{\n\tssl_cert = <{cls.pair.cert}\n"
                           f"\tssl_key = <{cls.pair.key}\n}}\n")


class ManyDomains(ManyDomainsTestCase):
    snippets = MANY_SNIPPETS

    def test_the_server_takes_them_up_and_answers_for_the_first_and_the_last(self):
        self.instance.brisq("reload", "now", "--restart")
        for number in (0, MANY_SNIPPETS - 1):
            self.require_presented(f"n{number}.org", self.pair)


class HashingCost(ManyDomainsTestCase):
    snippets = SNIPPETS

    def trace(self, *words, stdin=""):
        record = os.path.join(self.instance.layout.folder, "trace")
        done = subprocess.run(
            ["strace", "-f", "-qq", "-s", "4096", "-e", "trace=execve,open,openat", "-o", record,
             *words], input=stdin, capture_output=True, text=True, timeout=120)
        self.assertEqual(0, done.returncode, done.stderr)
        with open(record, encoding="utf-8", errors="replace") as file:
            return Traced(file.read())

    def test_the_tool_itself_reads_every_snippet_for_a_hash(self):
        traced = self.trace("/usr/bin/doveadm", "-c", self.instance.layout.dovecot_conf, "pw", "-s",
                            "SHA512-CRYPT", stdin="word\nword\n")
        self.assertEqual(SNIPPETS, len(set(traced.read_in(self.instance.layout.snippets))))

    def test_a_new_mailbox_goes_through_the_wrapper_and_reads_none(self):
        wrapper = os.path.join(os.environ["BRISQ_BUILD"], "bin", "brisq-doveadm")
        self.instance.configure("path", "dovecot-configtest", "")
        with self.instance.doveadm_stand_in(f'exec {wrapper} "$@"'):
            traced = self.trace(brisq_program(), "--config", self.instance.layout.config, "mailbox",
                                "add", "cheap@example.org", "--password-stdin", stdin=PASSWORD)
        # Both runs begin at about the same time.
        self.assertCountEqual([["-O", "pw", "-l"],
                               ["-O", "pw", "-s", "SHA512-CRYPT", "-u", "cheap@example.org"]],
                              traced.doveadm)
        self.assertEqual([], traced.read_in(self.instance.layout.snippets))
        self.require_login("cheap@example.org", PASSWORD)


if __name__ == "__main__":
    unittest.main()
