"""What tests of domains' certificates have in common."""

import contextlib
import os

from support import certificates
from support.mailbox_case import MailboxTestCase


class CertificateTestCase(MailboxTestCase):
    """An instance with a folder for certificates; every test takes domain names of its own."""

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.pem = os.path.join(cls.instance.layout.folder, "pem")
        os.mkdir(cls.pem)

    def make(self, name, *alternatives, **dates):
        return certificates.make(self.pem, name, *alternatives, **dates)

    def add_domain(self, name):
        self.instance.brisq("domain", "add", name, "--owner", "owner")
        return name

    def tls_set(self, domain, pair, *options, expect=0):
        """Standard error, where warnings and errors stand."""
        done = self.instance.brisq_run("tls", "set", domain, "--cert", pair.cert, "--key",
                                       pair.key, *options)
        self.assertEqual((expect, ""), (done.returncode, done.stdout), done.stderr)
        return done.stderr

    def domain_with_certificate(self, name, **dates):
        """A domain for which the server presents a certificate once it is reloaded."""
        self.add_domain(name)
        pair = self.make(name, **dates)
        with self.restarts_off():
            self.tls_set(name, pair)
        return pair

    @contextlib.contextmanager
    def restarts_off(self):
        """While it lasts, a restart does nothing: a real one takes more than a second."""
        with open(self.instance.layout.config, encoding="utf-8") as file:
            before = file.read()
        self.instance.configure("path", "dovecot-restart", "true")
        try:
            yield
        finally:
            with open(self.instance.layout.config, "w", encoding="utf-8") as file:
                file.write(before)

    def default_certificate(self):
        return certificates.Pair(self.instance.layout.certificate, None)

    def require_presented(self, name, pair, service="imaps"):
        port = self.instance.ports[service]
        self.instance.eventually(lambda: certificates.presented(port, name) == pair.der(),
                                 f"{name} gets {pair.cert} by {service}")

    def snippet(self, domain):
        return os.path.join(self.instance.layout.snippets, domain + ".conf")

    def put_snippet(self, name, text):
        """Puts a snippet into the folder by hand; it goes when the test ends."""
        path = self.snippet(name)
        with open(path, "w", encoding="utf-8") as file:
            file.write(text)
        self.addCleanup(lambda: os.path.exists(path) and os.remove(path))
        return path

    def places(self):
        """Names of all that lies in the folders of snippets and links, hidden ones included."""
        folders = self.instance.layout.snippets, self.instance.layout.links
        return sorted(name for folder in folders for name in os.listdir(folder))

    def places_of(self, domain):
        return [name for name in self.places() if name.startswith(domain + ".")]

    def server_process(self):
        with open(os.path.join(self.instance.layout.folder, "run", "master.pid"),
                  encoding="utf-8") as file:
            return file.read()

    def reload_status(self):
        return self.instance.brisq_json("reload", "status")[0]
