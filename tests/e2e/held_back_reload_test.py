"""A configuration with which Dovecot could not go on never reaches the running server."""

import os
import re
import unittest

from support import certificates, clients
from support.certificate_case import CertificateTestCase
from support.mailbox_case import PASSWORD
from support.server import serving

RETRY_LIMIT = 60  # seconds; a failed run is tried again after 5


class HeldBack(CertificateTestCase):

    def broken_snippets(self):
        good = self.make("by-hand.org")
        return (
            ("unclosed brace", f"local_name a.org {{\n\tssl_cert = <{good.cert}\n", "1", ""),
            ("missing certificate",
             f"local_name a.org {{\n\tssl_cert = </no/such.crt\n\tssl_key = <{good.key}\n}}\n",
             "2", ":.*/no/such.crt"),
            ("unknown setting", "local_name a.org {\n\tssl_certt = x\n}\n", "2", ":.*ssl_certt"))

    def test_a_broken_snippet_put_there_by_hand_leaves_the_running_server_alone(self):
        address = self.add("served")
        pair = self.domain_with_certificate("served.org")
        self.instance.brisq("reload", "now")
        self.require_login(address, PASSWORD)
        server = self.server_process()
        for name, text, line, reason in self.broken_snippets():
            for words in (("reload", "now"), ("reload", "now", "--restart")):
                with self.subTest(name, words=words):
                    path = self.put_snippet("broken", text)
                    where = re.escape(path) + "( line |:)" + line
                    message = self.instance.brisq(*words, expect=9)
                    self.assertRegex(message, "configuration refused: .*" + where + reason)
                    status = self.reload_status()
                    self.assertEqual("failed", status["state"])
                    self.assertRegex(status["error"], where + reason)
                    self.assertEqual(server, self.server_process())
                    self.assertTrue(clients.imap_accepts(self.instance.ports, address, PASSWORD))
                    self.require_presented("served.org", pair)
                    os.remove(path)
        self.instance.brisq("reload", "now")
        self.assertEqual(("idle", ""), (self.reload_status()["state"],
                                        self.reload_status()["error"]))

    def test_a_change_is_kept_and_its_reload_tried_again_until_the_snippet_is_mended(self):
        self.add_domain("later.org")
        pair = self.make("later.org")
        path = self.put_snippet("broken", "local_name a.org {\n")
        warning = self.tls_set("later.org", pair)
        self.assertRegex(warning, f"restart failed: configuration refused: .*{re.escape(path)}:1")
        server = self.server_process()
        self.require_presented("later.org", self.default_certificate())
        with serving(self.instance):
            self.instance.eventually(lambda: self.reload_status()["next_try"] != "",
                                     "another try is due")
            os.remove(path)
            self.instance.eventually(lambda: self.reload_status()["state"] == "idle",
                                     "the run is tried again", RETRY_LIMIT)
        self.assertEqual("restart", self.reload_status()["kind"])
        self.assertNotEqual(server, self.server_process())
        self.require_presented("later.org", pair)

    def test_a_reload_of_a_stopped_server_says_so_and_is_served_by_its_next_start(self):
        pair = self.domain_with_certificate("stopped.org")
        self.instance.layout.stop()
        try:
            self.assertIn("Dovecot is not running", self.instance.brisq("reload", "now", expect=9))
            self.assertEqual("failed", self.reload_status()["state"])
        finally:
            self.instance.layout.start()
        self.require_presented("stopped.org", pair)
        self.instance.brisq("reload", "now")
        self.assertEqual("idle", self.reload_status()["state"])

    def test_the_tests_standard_output_goes_nowhere(self):
        test = "echo secret-of-the-configuration; echo line 7 is bad >&2; exit 1"
        self.configure_test(test)
        message = self.instance.brisq("reload", "now", expect=9)
        self.assertIn("line 7 is bad", message)
        self.instance.brisq("reload", "status")
        holders = [path for path, content in self.everything_on_disk().items()
                   if b"secret-of-the-configuration" in content
                   and path != self.instance.layout.config]
        self.assertEqual([], holders)
        self.assertNotIn("secret", message)

    def test_an_empty_command_turns_the_test_off(self):
        mark = os.path.join(self.instance.layout.folder, "tested")
        self.configure_test(f"touch {mark}; exit 1")
        self.instance.brisq("reload", "now", expect=9)
        self.assertTrue(os.path.exists(mark))
        os.remove(mark)
        self.instance.configure("path", "dovecot-configtest", "")
        self.instance.brisq("reload", "now")
        self.assertFalse(os.path.exists(mark))

    def configure_test(self, command):
        with open(self.instance.layout.config, encoding="utf-8") as file:
            before = file.read()
        self.instance.configure("path", "dovecot-configtest", command)
        self.addCleanup(self.restore, before)

    def restore(self, config):
        with open(self.instance.layout.config, "w", encoding="utf-8") as file:
            file.write(config)
        self.instance.brisq("reload", "now")


class Scheduled(CertificateTestCase):
    """What `brisq serve` does about certificates by the clock."""

    def test_a_snippet_whose_certificate_vanishes_is_removed(self):
        pair = self.domain_with_certificate("by-the-clock.org")
        self.instance.configure("param", "DovecotCheckPeriod", "0.01")
        with serving(self.instance):
            self.assertTrue(os.path.exists(self.snippet("by-the-clock.org")))
            os.remove(pair.cert)
            self.instance.eventually(lambda: not os.path.exists(self.snippet("by-the-clock.org")),
                                     "the snippet is removed", RETRY_LIMIT)
        self.assertIn("Remove config " + self.snippet("by-the-clock.org"), self.server_log())
        self.instance.layout.restart()
        self.require_presented("by-the-clock.org", self.default_certificate())

    def test_each_expiry_that_comes_near_is_warned_of_once(self):
        day = certificates.DAY
        ends = {"days22.org": 22 * day, "days21.org": 21 * day - 60, "days7.org": 7 * day - 60,
                "days1.org": day - 60}
        for name, end in ends.items():
            self.domain_with_certificate(name, end=end)
        self.instance.configure("param", "EmailExpiryPeriod", "0.005")
        self.instance.configure("log", "periodic", 9)
        with serving(self.instance):
            rounds = "run action email.certs.expiry"
            self.instance.eventually(lambda: self.log("brisq").count(rounds) >= 4,
                                     "four looks", RETRY_LIMIT)
        warned = {name: self.server_log().count(f"The certificate of {name} expires on")
                  for name in ends}
        self.assertEqual({"days22.org": 0, "days21.org": 1, "days7.org": 1, "days1.org": 1}, warned)

    def server_log(self):
        return self.log("dormel")

    def log(self, name):
        path = os.path.join(self.instance.layout.folder, "log", name + ".log")
        if not os.path.exists(path):
            return ""
        with open(path, encoding="utf-8") as file:
            return file.read()


if __name__ == "__main__":
    unittest.main()
