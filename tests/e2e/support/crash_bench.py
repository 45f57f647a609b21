"""A panel without a server, on which single runs of the program are killed or made to fail."""

import crypt
import grp
import hashlib
import os
import shutil
import signal
import sqlite3
import stat
import subprocess
import tempfile

from support.instance import OWNER_ID, brisq_program

OLD_PASSWORD = "Old-Canary-4711"
NEW_PASSWORD = "New-Canary-4712"
SALT = "$6$abcdefgh$"
STRANGER = "hand@example.net"
STOP_AT_CALL = os.path.join(os.environ["BRISQ_BUILD"], "tests", "bin", "stop_at_call")

CONFIG = """[panel]
database = "state/panel.db"
state = "state"
[log]
directory = "log"
[param]
POP3 = "dovecot"
EmailAuth = "{auth}"
DovecotPwScheme = "SHA512-CRYPT"
EmailReloadDelay = "0"
[path]
dovecot-passwd = "{live}/dovecot/users"
dovecot-doveadm = "{live}/doveadm"
dovecot-restart = "echo restart >> {live}/reloads"
dovecot-configtest = ""
dovecot-certconf = "{live}/dovecot/snippets"
dovecot-ssl-certs = "{live}/dovecot/certs"
"""

DOVEADM = """#!/bin/sh
case "$1 $2" in
'pw -l') echo 'SHA512-CRYPT CRAM-MD5'; exit 0 ;;
'reload ') echo reload >> {live}/reloads; exit 0 ;;
esac
read -r password
case "$password" in
{old}) echo '{{SHA512-CRYPT}}{old_hash}' ;;
{new}) echo '{{SHA512-CRYPT}}{new_hash}' ;;
*) exit 1 ;;
esac
"""

# Columns that say the same in every run; the others are numbers, times and sealed texts.
TABLES = {
    "owners": "name, uid, gid, home",
    "domains": "name, active, cert, key",
    "mailboxes": "name, pwupdate, home, quota, used, active, password = ''",
    "mailbox_archive": "name, domain, home, quota, active, reason, hash = ''",
}
# What is there for good, and what says nothing about the mail server's state.
IGNORED = (".users.brisq-lock", "log", "state", "reloads")


def new_folder(prefix):
    """In memory where that can be: thousands of syncs are quick there."""
    base = "/dev/shm" if os.path.isdir("/dev/shm") else None
    return tempfile.mkdtemp(prefix=prefix, dir=base)


def run_at_calls(command, stdin, orders):
    """Runs a command; with orders, in small letters, under stop_at_call."""
    environment = {name.upper(): str(value) for name, value in orders.items()}
    return subprocess.run([STOP_AT_CALL, *command] if orders else command, input=stdin,
                          capture_output=True, text=True, timeout=120,
                          env={"PATH": os.environ["PATH"], **environment} if orders else None)


class CrashBench:
    """One folder, used by one thread at a time; open until `close`."""

    def __init__(self, auth="dovecot"):
        self.folder = new_folder("brisq-crash-")
        os.chmod(self.folder, 0o755)
        self.live = os.path.join(self.folder, "live")
        self.saved = os.path.join(self.folder, "saved")
        self.calls_file = os.path.join(self.folder, "calls")
        self._lay_out(auth)

    def close(self):
        shutil.rmtree(self.folder)

    def _write(self, name, text, mode=0o600):
        path = os.path.join(self.live, name)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "w", encoding="utf-8") as file:
            os.fchmod(file.fileno(), mode)
            file.write(text)
        return path

    def _lay_out(self, auth):
        os.mkdir(self.live, 0o755)
        self.config = self._write("brisq.toml", CONFIG.format(auth=auth, live=self.live))
        self._write("doveadm", DOVEADM.format(
            live=self.live, old=OLD_PASSWORD, new=NEW_PASSWORD,
            old_hash=crypt.crypt(OLD_PASSWORD, SALT),
            new_hash=crypt.crypt(NEW_PASSWORD, SALT)), 0o755)
        os.makedirs(os.path.join(self.live, "dovecot", "snippets"))
        os.mkdir(os.path.join(self.live, "dovecot", "certs"))
        users = self._write("dovecot/users",
                            f"# kept by hand\n{STRANGER}:{{PLAIN}}x:1:1::/::::\n", 0o640)
        if any(group.gr_name == "dovecot" for group in grp.getgrall()):
            shutil.chown(users, group="dovecot")
        self._certificate("first")
        self._certificate("second")
        home = os.path.join(self.live, "home")
        os.mkdir(home)
        os.chown(home, OWNER_ID, OWNER_ID)
        self.run("owner", "add", "owner", "--uid", str(OWNER_ID), "--gid", str(OWNER_ID),
                 "--home", home)
        self.run("domain", "add", "example.org", "--owner", "owner")

    def _certificate(self, name):
        subprocess.run(["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt",
                        "ec_paramgen_curve:prime256v1", "-nodes", "-days", "30", "-subj",
                        "/CN=example.org", "-addext", "subjectAltName=DNS:example.org",
                        "-keyout", self.key(name), "-out", self.certificate(name)],
                       check=True, capture_output=True)
        os.chmod(self.key(name), 0o600)

    def certificate(self, name):
        return os.path.join(self.live, name + ".pem")

    def key(self, name):
        return os.path.join(self.live, name + ".key")

    def save(self):
        """The state to which `reset` goes back. Not for one that a killed program has left: a
        copy has other inode numbers."""
        shutil.rmtree(self.saved, ignore_errors=True)
        subprocess.run(["cp", "-a", self.live, self.saved], check=True)

    def reset(self):
        shutil.rmtree(self.live)
        subprocess.run(["cp", "-a", self.saved, self.live], check=True)

    def run(self, *words, stdin="", **orders):
        """Runs the program; `orders` are those of stop_at_call, in small letters. Exit code, or the
        negative number of the signal, and what was said on standard error; a check says what it
        has found on standard output."""
        command = [brisq_program(), "--config", self.config, *words]
        done = run_at_calls(command, stdin, {"count_from": self.config, **orders} if orders else {})
        findings = done.stdout if words[0] == "check" else ""
        return done.returncode, done.stderr + findings

    def must(self, *words, stdin=""):
        code, said = self.run(*words, stdin=stdin)
        if code != 0:
            raise AssertionError(f"{' '.join(words)}: {code} {said}")
        return said

    def findings(self):
        """What `check` finds, but for the line that is kept by hand."""
        done = subprocess.run([brisq_program(), "--config", self.config, "check"],
                              capture_output=True, text=True, timeout=120)
        lines = done.stdout.splitlines() + done.stderr.splitlines()
        return [line for line in lines if STRANGER not in line or "PASSWD-STRANGER" not in line]

    def count(self, *words, stdin="", **orders):
        """How many calls change files in a run."""
        code, said = self.run(*words, stdin=stdin, calls_file=self.calls_file, **orders)
        if code != 0:
            raise AssertionError(f"{' '.join(words)}: {code} {said}")
        with open(self.calls_file, encoding="utf-8") as file:
            return int(file.read().split()[0])

    def killed(self, *words, stdin="", **orders):
        """Runs the program; True when it was killed, False when it ended well before that: a run
        may need a few calls less than the one that was counted."""
        code, said = self.run(*words, stdin=stdin, **orders)
        if code not in (0, -signal.SIGKILL):
            raise AssertionError(f"{' '.join(words)} {orders}: ended with {code} {said}")
        return code != 0

    def forget_journal(self):
        """What a program without a journal would have to recover with."""
        shutil.rmtree(os.path.join(self.live, "state", "journal"), ignore_errors=True)

    def sweep(self):
        """Removes what the passwd-file's next save would: the old file that could not be removed."""
        for name in (".users.brisq-new", ".users.brisq-next"):
            path = os.path.join(self.live, "dovecot", name)
            if os.path.exists(path):
                os.unlink(path)

    def journal(self):
        folder = os.path.join(self.live, "state", "journal")
        return sorted(os.listdir(folder)) if os.path.isdir(folder) else []

    def reloads(self):
        path = os.path.join(self.live, "reloads")
        if not os.path.exists(path):
            return []
        with open(path, encoding="utf-8") as file:
            return file.read().split()

    def restart_waits(self):
        """True when a restart is stored that no run has served yet."""
        with sqlite3.connect(os.path.join(self.live, "state", "panel.db")) as database:
            rows = database.execute("SELECT 1 FROM reload_request WHERE hard = 1").fetchall()
        database.close()
        return bool(rows)

    def state(self, exact=True):
        """Everything that the administrator or the mail server could see: rows and files.
        `exact`: with the order of the passwd-file's lines."""
        return {"rows": self._rows(), "files": self._files(exact)}

    def _rows(self):
        with sqlite3.connect(os.path.join(self.live, "state", "panel.db")) as database:
            check = database.execute("PRAGMA integrity_check").fetchall()
            rows = {table: sorted(database.execute(f"SELECT {columns} FROM {table}").fetchall())
                    for table, columns in TABLES.items()}
        database.close()
        rows["integrity"] = check
        return rows

    def _files(self, exact):
        found = {}
        folders = [self.live]
        while folders:
            folder = folders.pop()
            for entry in os.scandir(folder):
                if entry.name in IGNORED:
                    continue
                found[os.path.relpath(entry.path, self.live)] = self._print(entry.path, exact)
                if entry.is_dir(follow_symlinks=False):
                    folders.append(entry.path)
        return found

    @staticmethod
    def _print(path, exact):
        info = os.lstat(path)
        what = (stat.S_IFMT(info.st_mode), info.st_mode & 0o7777, info.st_uid, info.st_gid)
        if stat.S_ISLNK(info.st_mode):
            return what + (os.readlink(path),)
        if stat.S_ISREG(info.st_mode):
            with open(path, "rb") as file:
                content = file.read()
            if os.path.basename(path) == "users" and not exact:
                content = b"\n".join(sorted(content.split(b"\n")))
            return what + (hashlib.sha256(content).hexdigest(),)
        return what


def differences(left, right):
    """What two states do not have in common, in a few words."""
    found = []
    for part in left:
        for name in sorted(set(left[part]) | set(right[part])):
            if left[part].get(name) != right[part].get(name):
                found.append(f"{part} {name}: {left[part].get(name)} / {right[part].get(name)}")
    return "; ".join(found)
