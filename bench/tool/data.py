"""Passwd-files, databases and configurations to measure with."""

import hashlib
import os
import shutil
import sqlite3

from tool.measure import Failed, run

UID = 5000
DOMAINS = 1000


def name(number):
    """Address of the mailbox on a line, counted from 0; as NameOfLine of the drivers."""
    return f"u{number:07d}@d{number % DOMAINS:03d}.test"


def password_hash(number):
    """What doveadm pw would print for CRAM-MD5, in form."""
    return "{CRAM-MD5}" + hashlib.sha256(str(number).encode()).hexdigest()


def line(number):
    """A line of 175 bytes."""
    return (f"{name(number)}:{password_hash(number)}:{UID}:{UID}::/home/ml/u{number:07d}"
            ":::maildir:~/.maildir userdb_quota_rule=*:bytes=500M\n")


def write_passwd(path, lines):
    with open(path, "w", encoding="ascii") as file:
        file.writelines(line(number) for number in range(lines))
    return path


def write_quota(path, lines):
    """What doveadm quota get -A prints, in an order that is not that of the names."""
    with open(path, "w", encoding="ascii") as file:
        for at in range(lines):
            user = name(at * 7919 % lines)
            file.write(f"{user} User quota STORAGE {at * 37 % 512000} 512000 {at % 100}\n"
                       f"{user} User quota MESSAGE {at % 5000} - 0\n")
    return path


class Instance:
    """A folder with a configuration, a database and a passwd-file of `lines` mailboxes."""

    def __init__(self, folder, build, lines, scheme="CRAM-MD5"):
        self.folder = folder
        self.brisq = f"{build}/bin/brisq"
        self.config = f"{folder}/brisq.toml"
        self.users = f"{folder}/users"
        self.certificates = f"{folder}/conf.d-certs"
        self._make_folders()
        self._write_config(f"{build}/bin/brisq-doveadm", scheme)
        write_passwd(self.users, lines)
        self._make_owner()
        self._insert(lines)

    def command(self, *words):
        return [self.brisq, "--config", self.config, *words]

    @property
    def database(self):
        return f"{self.folder}/state/panel.db"

    def _make_folders(self):
        shutil.rmtree(self.folder, ignore_errors=True)
        for path in (self.certificates, f"{self.folder}/certs", f"{self.folder}/mail"):
            os.makedirs(path)
        os.chmod(self.folder, 0o755)

    def _write_config(self, doveadm, scheme):
        with open(self.config, "w", encoding="ascii") as file:
            file.write(f"""[param]
POP3 = "dovecot"
EmailAuth = "dovecot"
DovecotPwScheme = "{scheme}"
EmailReloadDelay = "3600"
[path]
dovecot-passwd = "{self.users}"
dovecot-doveadm = "{doveadm}"
dovecot-restart = "true"
dovecot-certconf = "{self.certificates}"
dovecot-ssl-certs = "{self.folder}/certs"
""")

    def _make_owner(self):
        run(self.command("owner", "add", "o", "--uid", str(UID), "--gid", str(UID),
                         "--home", f"{self.folder}/mail"))

    def _insert(self, lines):
        database = sqlite3.connect(self.database)
        with database:
            database.executemany(
                "INSERT INTO domains (id, name, owner, active, cert, key) VALUES (?, ?, 1, 'on', '', '')",
                ((at + 1, f"d{at:03d}.test") for at in range(DOMAINS)))
            database.executemany(
                "INSERT INTO mailboxes (name, domain, owner, password, pwupdate, home, quota, used,"
                " active, tag) VALUES (?, ?, 1, '', 'off', ?, '500', 0, 'on', 0)",
                ((f"u{at:07d}", at % DOMAINS + 1, f"{self.folder}/mail/u{at:07d}")
                 for at in range(lines)))
        database.close()

    def write_snippets(self, count):
        """Snippets of certificates that are all there, as links as the panel makes them."""
        target = f"{self.folder}/certificate"
        with open(target, "w", encoding="ascii") as file:
            file.write("x")
        for at in range(count):
            domain = f"c{at:05d}.test"
            links = [f"{self.folder}/certs/{domain}{suffix}" for suffix in (".crt", ".key")]
            for link in links:
                os.symlink(target, link)
            with open(f"{self.certificates}/{domain}.conf", "w", encoding="ascii") as file:
                file.write(f"local_name {domain} {{\n\tssl_cert = <{links[0]}\n"
                           f"\tssl_key = <{links[1]}\n}}\n")


def write_password(path):
    with open(path, "w", encoding="ascii") as file:
        file.write("a pass phrase\na pass phrase\n")
    return path


def require_root():
    if os.geteuid() != 0:
        raise Failed("runs as root: mailboxes get the files of their owner")
