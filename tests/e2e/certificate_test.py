"""Certificates of domains: what clients of a real Dovecot see, and what the commands say."""

import json
import os
import pty
import stat
import subprocess
import unittest

from support import certificates
from support.certificate_case import CertificateTestCase
from support.certificates import DAY
from support.instance import brisq_program
from support.mailbox_case import PASSWORD


class Presented(CertificateTestCase):

    def test_each_name_gets_its_own_certificate_and_any_other_the_default(self):
        pairs = {"one.org": self.domain_with_certificate("one.org"),
                 self.add_domain("two.org"): self.make("two.org")}
        self.tls_set("two.org", pairs["two.org"])
        self.assertNotEqual(pairs["one.org"].der(), pairs["two.org"].der())
        for service in ("imaps", "pop3s"):
            for name, pair in pairs.items():
                self.require_presented(name, pair, service)
            for other in ("three.org", "sub.one.org", None):
                self.require_presented(other, self.default_certificate(), service)

    def test_an_address_selects_by_the_address_that_the_client_connected_to(self):
        self.add_domain("127.0.0.1")
        pair = self.make("127.0.0.1", "IP:127.0.0.1")
        self.tls_set("127.0.0.1", pair)
        self.require_presented(None, pair)
        self.instance.brisq("tls", "unset", "127.0.0.1")
        self.require_presented(None, self.default_certificate())

    def test_another_certificate_for_a_domain_takes_effect(self):
        self.domain_with_certificate("again.org")
        other = self.make("other", "DNS:again.org")
        self.tls_set("again.org", other)
        self.require_presented("again.org", other)

    def test_a_renewal_in_the_same_files_takes_effect_with_a_reload(self):
        pair = self.domain_with_certificate("renewed.org")
        before = pair.der()
        self.instance.brisq("reload", "now")
        self.require_presented("renewed.org", pair)
        pair.replace_by(self.make("fresh", "DNS:renewed.org"))
        self.assertNotEqual(before, pair.der())
        self.instance.brisq("reload", "now")
        self.require_presented("renewed.org", pair)

    def test_without_its_certificate_a_domain_gets_the_default(self):
        self.domain_with_certificate("unset.org")
        self.instance.brisq("tls", "unset", "unset.org")
        self.assertEqual([], self.places_of("unset.org"))
        self.require_presented("unset.org", self.default_certificate())

    def test_files_and_links_are_as_dovecot_needs_them(self):
        pair = self.domain_with_certificate("layout.org")
        links = os.path.join(self.instance.layout.links, "layout.org")
        with open(self.snippet("layout.org"), encoding="utf-8") as file:
            self.assertEqual(f"local_name layout.org {{\n\tssl_cert = <{links}.crt\n"
                             f"\tssl_key = <{links}.key\n}}\n", file.read())
        made = os.stat(self.snippet("layout.org"))
        self.assertEqual((0o600, 0, 0), (stat.S_IMODE(made.st_mode), made.st_uid, made.st_gid))
        self.assertEqual([pair.cert, pair.key],
                         [os.readlink(links + suffix) for suffix in (".crt", ".key")])

    def test_a_missing_snippet_folder_is_made_for_root_alone(self):
        folder = os.path.join(self.instance.layout.folder, "dovecot", "fresh")
        before = self.instance.layout.snippets
        self.instance.configure("path", "dovecot-certconf", folder)
        self.addCleanup(self.instance.configure, "path", "dovecot-certconf", before)
        self.domain_with_certificate("folder.org")
        made = os.stat(folder)
        self.assertEqual((0o600, 0, 0), (stat.S_IMODE(made.st_mode), made.st_uid, made.st_gid))
        self.assertEqual(["folder.org.conf"], os.listdir(folder))


class Vanished(CertificateTestCase):

    def test_a_domain_whose_files_vanish_is_pruned_and_the_server_restarts_cleanly(self):
        for suffix, gone in ((".crt", "cert"), (".key", "key")):
            with self.subTest(gone):
                domain = gone + "gone.org"
                kept = self.domain_with_certificate(gone + "kept.org")
                pair = self.domain_with_certificate(domain)
                os.remove(getattr(pair, gone))
                line = self.instance.brisq_json("tls", "prune")
                self.assertEqual([{"removed": self.snippet(domain), "reason": os.path.join(
                    self.instance.layout.links, domain + suffix) + " is missing"}], line)
                self.assertEqual([domain + ".crt", domain + ".key"], self.places_of(domain))
                self.instance.layout.restart()
                self.require_presented(domain, self.default_certificate())
                self.require_presented(gone + "kept.org", kept)
                self.assertEqual([], self.instance.brisq_json("tls", "prune"))
                with self.restarts_off():
                    self.instance.brisq("tls", "unset", domain)

    def test_a_deleted_domain_takes_mailboxes_snippet_and_links_along(self):
        self.domain_with_certificate("deleted.org")
        address, server = "info@deleted.org", self.server_process()
        self.instance.brisq("mailbox", "add", address, "--password-stdin", stdin=PASSWORD + "\n")
        self.require_login(address, PASSWORD)
        refusal = self.instance.brisq("domain", "delete", "deleted.org", expect=2)
        self.assertIn("--yes", refusal)
        for answer, code in (("n\n", 8), ("y\n", 0)):
            with self.subTest(answer=answer):
                self.assertEqual(3, len(self.places_of("deleted.org")))
                asked, ended = self.answer(answer, "domain", "delete", "deleted.org")
                self.assertIn("Delete deleted.org and its 1 mailboxes?", asked)
                self.assertEqual(code, ended, asked)
        self.assertEqual([], self.places_of("deleted.org"))
        self.instance.brisq("mailbox", "show", address, expect=4)
        self.require_refusal(address, PASSWORD)
        self.assertNotEqual(server, self.server_process())
        self.require_presented("deleted.org", self.default_certificate())

    def answer(self, text, *words):
        """Runs the program at a terminal on which `text` is typed: what it asked, and its code."""
        ours, terminal = pty.openpty()
        try:
            os.write(ours, text.encode())
            done = subprocess.run(
                [brisq_program(), "--config", self.instance.layout.config, *words],
                stdin=terminal, capture_output=True, text=True, timeout=120)
        finally:
            os.close(ours)
            os.close(terminal)
        return done.stderr, done.returncode


class Refused(CertificateTestCase):

    def test_nothing_broken_is_set(self):
        domain = self.add_domain("refused.org")
        good = self.make(domain)
        other = self.make("other", "DNS:" + domain)
        garbage = os.path.join(self.pem, "garbage")
        with open(garbage, "w", encoding="utf-8") as file:
            file.write("no PEM at all\n")
        expired = self.make("expired", "DNS:" + domain, begin=-9 * DAY, end=-DAY)
        foreign = self.make("foreign.org")
        missing = os.path.join(self.pem, "missing")
        before = self.places()
        for name, cert, key, text in (
                ("no such certificate", missing, good.key, "No such file"),
                ("no such key", good.cert, missing, "No such file"),
                ("a folder", self.pem, good.key, "certificate"),
                ("certificate that is none", garbage, good.key, "holds no PEM certificate"),
                ("key that is none", good.cert, garbage, "holds no PEM private key"),
                ("key of another", good.cert, other.key, "does not belong to the certificate"),
                ("expired", expired.cert, expired.key, "has expired on"),
                ("for another name", foreign.cert, foreign.key, "does not cover refused.org")):
            with self.subTest(name):
                message = self.tls_set(domain, certificates.Pair(cert, key), expect=10)
                self.assertTrue(message.startswith("brisq: invalid-input: "), message)
                self.assertIn(text, message)
                self.assertEqual(before, self.places())
                self.assertEqual("", self.instance.brisq_json("domain", "show", domain)[0]["cert"])

    def test_what_is_only_doubtful_is_warned_of(self):
        domain = self.add_domain("doubtful.org")
        foreign = self.make("elsewhere.org")
        os.chmod(foreign.key, 0o644)
        with self.restarts_off():
            warnings = self.tls_set(domain, foreign, "--force")
        self.assertIn("warning: the certificate does not cover doubtful.org", warnings)
        self.assertIn(f"warning: the key file {foreign.key} is open to other users", warnings)
        self.instance.brisq("reload", "now")
        self.require_presented(domain, foreign)
        self.unset(domain)

    def test_a_request_that_fails_at_its_last_job_leaves_nothing(self):
        domain = self.add_domain("undone.org")
        in_the_way = self.snippet(domain)
        os.mkdir(in_the_way)
        self.addCleanup(os.rmdir, in_the_way)
        before = self.places()
        message = self.tls_set(domain, self.make(domain), expect=1)
        self.assertIn(in_the_way, message)
        self.assertEqual(before, self.places())
        self.assertEqual("", self.instance.brisq_json("domain", "show", domain)[0]["cert"])

    def test_a_check_finds_what_has_gone_wrong_and_ends_with_5(self):
        good = self.domain_with_certificate("good.org")
        pair = self.domain_with_certificate("checked.org", end=89 * DAY + DAY // 2)
        row = self.check("checked.org", code=0)
        self.addCleanup(self.unset, "checked.org")
        self.assertEqual((89, "checked.org", True, ""), (row["days_left"], row["names"],
                                                        row["key_matches"], row["findings"]))
        pair.replace_by(self.make("ended", "DNS:checked.org", begin=-9 * DAY, end=-DAY))
        os.chmod(pair.key, 0o640)
        with open(self.snippet("checked.org"), "a", encoding="utf-8") as file:
            file.write("# mine\n")
        findings = self.check("checked.org", code=5)["findings"]
        for finding in ("has expired", "the key file is open to other users",
                        "checked.org.conf was changed by hand"):
            self.assertIn(finding, findings)
        self.assertEqual("", self.check("good.org", code=5)["findings"])
        listed = {row["domain"]: row["cert"] for row in self.instance.brisq_json("tls", "list")}
        self.assertEqual((good.cert, pair.cert), (listed["good.org"], listed["checked.org"]))

    def unset(self, domain):
        with self.restarts_off():
            self.instance.brisq("tls", "unset", domain)

    def check(self, domain, code):
        done = self.instance.brisq_run("tls", "check", "--json")
        self.assertEqual(code, done.returncode, done.stdout + done.stderr)
        return next(row for row in json.loads(done.stdout)["data"] if row["domain"] == domain)


if __name__ == "__main__":
    unittest.main()
