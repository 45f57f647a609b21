"""What tests of mailboxes that the program makes have in common."""

import os
import stat

from support import clients
from support.instance import OWNER_ID, InstanceTestCase

PASSWORD = "Canary 7 sings:\"$(true)\" 100%"


class MailboxTestCase(InstanceTestCase):
    """An instance with an owner and the domain example.org."""

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.instance.brisq("owner", "add", "owner", "--uid", str(OWNER_ID), "--gid", str(OWNER_ID),
                           "--home", cls.instance.owner_home())
        cls.instance.brisq("domain", "add", "example.org", "--owner", "owner")

    def add(self, local, *options, password=PASSWORD):
        address = f"{local}@example.org"
        self.instance.brisq("mailbox", "add", address, "--password-stdin", *options,
                            stdin=password + "\n")
        return address

    def require_login(self, address, password):
        for accepts in (clients.imap_accepts, clients.pop3_accepts):
            self.instance.eventually(lambda a=accepts: a(self.instance.ports, address, password),
                                     f"{accepts.__name__} {address}")

    def require_refusal(self, address, password):
        for accepts in (clients.imap_accepts, clients.pop3_accepts):
            self.assertFalse(accepts(self.instance.ports, address, password), accepts.__name__)

    def everything_on_disk(self):
        """The bytes of every file below the instance, by path."""
        found = {}
        for folder, _, names in os.walk(self.instance.layout.folder):
            for name in names:
                path = os.path.join(folder, name)
                if stat.S_ISREG(os.lstat(path).st_mode):
                    with open(path, "rb") as file:
                        found[path] = file.read()
        return found
