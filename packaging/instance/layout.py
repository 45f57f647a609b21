"""Lays out a folder with a private Dovecot and a configuration of brisq for it.

    FOLDER/brisq.toml              configuration of brisq
    FOLDER/instance.json           the folder's own path and the five loopback ports
    FOLDER/bin/doveadm             doveadm of this server; dovecot-control starts and stops it
    FOLDER/dovecot/dovecot.conf    the server; includes 90-brisq.conf and local.conf
    FOLDER/dovecot/users           the passwd-file, 0640 root:dovecot
    FOLDER/dovecot/conf.d-certs/   one snippet per domain with its own certificate
    FOLDER/dovecot/certs/          links to those certificates and keys
    FOLDER/run/                    sockets and process id of the server
    FOLDER/log/                    dovecot.log and the logs of brisq
    FOLDER/state/                  the panel's database, keys and locks
    FOLDER/mail/                   home folders of mailbox owners

The folder's path holds no blanks, every user may pass through it, no other user may replace a
part of it, and it is at most PATH_LIMIT bytes long: commands are split at blanks, mail processes
run as the owner of a mailbox, brisq starts no program that others could replace, and the names of
sockets are limited to 107 bytes.
"""

import grp
import json
import os
import random
import re
import shutil
import socket
import subprocess
import time

PATH_LIMIT = 70
PREFERRED_PORTS = {"imap": 10143, "imaps": 10993, "pop3": 10110, "pop3s": 10995, "lmtp": 10024}
# Below the range from which the system takes ports for outgoing connections.
RANDOM_PORTS = range(20000, 32000)
START_LIMIT = 20  # seconds

TEMPLATES = os.path.dirname(os.path.abspath(__file__))


class LayoutError(Exception):
    """Says in one line what stands in the way."""


def unsuitable(folder):
    """Why no instance can live in `folder`, in a few words; None when one can."""
    if not re.fullmatch(r"[A-Za-z0-9/._-]+", folder):
        return "holds a character that a command line would split or change"
    if len(folder) > PATH_LIMIT:
        return f"is longer than {PATH_LIMIT} bytes, too long for names of sockets"
    parent = folder
    while parent != "/":
        parent = os.path.dirname(parent)
        if os.path.isdir(parent):
            reason = _unsuitable_parent(os.stat(parent))
            if reason:
                return f"lies below {parent}, {reason}"
    return None


def _unsuitable_parent(state):
    if not state.st_mode & 0o001:
        return "which other users may not enter"
    # brisq starts no program that others could replace.
    if state.st_uid not in (0, os.geteuid()):
        return "which belongs to another user"
    if state.st_mode & 0o1002 == 0o002:
        return "which other users may write"
    return None


def is_free(port):
    """True when a server can listen on this port of the loopback address now."""
    with socket.socket() as probe:
        probe.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        try:
            probe.bind(("127.0.0.1", port))
        except OSError:
            return False
    return True


def free_ports(wanted):
    """The wanted port of each service, or a random one where that is None or taken."""
    chosen = {}
    for name, port in wanted.items():
        while port is None or port in chosen.values() or not is_free(port):
            port = random.choice(RANDOM_PORTS)
        chosen[name] = port
    return chosen


def strong_scheme():
    """The password scheme to configure: the strongest that the installed Dovecot lists."""
    listed = subprocess.run(
        [_program("doveadm"), "-O", "pw", "-l"], check=True, capture_output=True, text=True
    ).stdout.split()
    return next(name for name in ("ARGON2ID", "SHA512-CRYPT", "BLF-CRYPT") if name in listed)


def _program(name):
    found = shutil.which(name, path=os.environ.get("PATH", os.defpath) + ":/usr/sbin:/sbin")
    if not found:
        raise LayoutError(f"{name} is not installed")
    return found


class Layout:
    """One instance folder: where its things are, laying it out, starting and stopping it."""

    def __init__(self, folder):
        self.folder = os.path.abspath(folder)
        self.config = self._path("brisq.toml")
        self.dovecot_conf = self._path("dovecot/dovecot.conf")
        self.local_conf = self._path("dovecot/local.conf")
        self.users = self._path("dovecot/users")
        self.snippets = self._path("dovecot/conf.d-certs")
        self.links = self._path("dovecot/certs")
        self.certificate = self._path("dovecot/default.crt")
        self.doveadm = self._path("bin/doveadm")
        self.control = self._path("bin/dovecot-control")
        self.dovecot_log = self._path("log/dovecot.log")
        self.mail = self._path("mail")
        self.ports = {}

    def _path(self, name):
        return os.path.join(self.folder, name)

    def create(self, ports, scheme="", auth="dovecot", reload_delay="2"):
        """Lays out what is missing and renders every template anew; mail, passwords and the
        database of an earlier run stay.

        ports         service name -> port, None for a random one; an earlier run's ports win
                      unless another program has taken them meanwhile
        scheme        DovecotPwScheme; auth: EmailAuth; reload_delay: EmailReloadDelay
        """
        reason = unsuitable(self.folder)
        if reason:
            raise LayoutError(f"{self.folder} {reason}")
        os.makedirs(self.folder, mode=0o755, exist_ok=True)
        self._choose_ports(ports)
        self._make_folders()
        self._render_all(scheme, auth, reload_delay)
        self._make_users()
        self._make_certificate()

    def is_running(self):
        return os.path.exists(self.control) and self._control("status").returncode == 0

    def start(self):
        """Starts Dovecot unless it runs; returns when every port accepts connections."""
        self._control_or_raise("start")
        limit = time.monotonic() + START_LIMIT
        for name, port in self.ports.items():
            while not _accepts(port):
                if time.monotonic() > limit:
                    raise LayoutError(f"Dovecot does not accept {name} on port {port}, "
                                      f"see {self.dovecot_log}")
                time.sleep(0.02)

    def stop(self):
        """Ends Dovecot; returns when it is gone. A folder without a server is fine."""
        if os.path.exists(self.control):
            self._control_or_raise("stop")

    def restart(self):
        self.stop()
        self.start()

    def _control(self, verb):
        return subprocess.run([self.control, verb], stdin=subprocess.DEVNULL,
                              capture_output=True, text=True)

    def _control_or_raise(self, verb):
        done = self._control(verb)
        if done.returncode != 0:
            raise LayoutError(f"Dovecot did not {verb}: {done.stderr.strip()}")

    def _make_folders(self):
        for name in ("bin", "dovecot/conf.d-certs", "dovecot/certs", "dovecot/state", "run",
                     "log", "mail"):
            os.makedirs(self._path(name), mode=0o755, exist_ok=True)
        os.makedirs(self._path("state"), mode=0o700, exist_ok=True)
        # The umask must not lock out Dovecot's users.
        for name in ("", "dovecot", "run", "mail"):
            os.chmod(self._path(name), 0o755)

    def _choose_ports(self, wanted):
        record = self._path("instance.json")
        if os.path.exists(record):
            wanted = self._recorded(record)["ports"]
        self.ports = wanted if self.is_running() else free_ports(wanted)
        with open(record, "w", encoding="utf-8") as file:
            json.dump({"folder": self.folder, "ports": self.ports}, file)

    def _recorded(self, record):
        with open(record, encoding="utf-8") as file:
            recorded = json.load(file)
        if recorded["folder"] != self.folder:
            raise LayoutError(f"{self.folder} was laid out as {recorded['folder']}, where its "
                              "mailboxes keep their mail; put it back or remove it")
        return recorded

    def _render_all(self, scheme, auth, reload_delay):
        values = self._values()
        values.update(SCHEME=scheme, EMAILAUTH=auth, RELOADDELAY=reload_delay)
        self._render("../brisq.toml", self.config, 0o644, values)
        self._render("../dovecot/90-brisq.conf", self._path("dovecot/90-brisq.conf"), 0o644, values)
        self._render("dovecot.conf", self.dovecot_conf, 0o644, values)
        self._render("doveadm", self.doveadm, 0o755, values)
        self._render("dovecot-control", self.control, 0o755, values)

    def _values(self):
        values = {
            "INSTANCE": self.folder,
            "RUN": self._path("run"),
            "NAME": re.sub(r"[^a-z0-9]+", "-", self.folder.lower()).strip("-"),
            "DATABASE": "state/panel.db", "STATE": "state", "LOG": "log",
            "USERS": self.users, "CERTCONF": self.snippets, "SSLCERTS": self.links,
            "WRAPPER": self.doveadm, "RESTART": self.control + " restart",
            "CONFIGTEST": f"{_program('doveconf')} -c {self.dovecot_conf} -nx",
            "DOVECOT": _program("dovecot"), "DOVEADM": _program("doveadm"),
        }
        values.update((name.upper(), str(port)) for name, port in self.ports.items())
        return values

    @staticmethod
    def _render(template, target, mode, values):
        with open(os.path.join(TEMPLATES, template + ".in"), encoding="utf-8") as file:
            text = re.sub(r"@([A-Z0-9]+)@", lambda found: values[found[1]], file.read())
        with open(target, "w", encoding="utf-8") as file:
            os.fchmod(file.fileno(), mode)
            file.write(text)

    def _make_users(self):
        if os.path.exists(self.users):
            return
        with open(self.users, "x", encoding="utf-8") as file:
            os.fchown(file.fileno(), 0, grp.getgrnam("dovecot").gr_gid)
            os.fchmod(file.fileno(), 0o640)

    def _make_certificate(self):
        key = self._path("dovecot/default.key")
        if os.path.exists(key) and os.path.exists(self.certificate):
            return
        make_certificate(self.certificate, key, ["localhost"], ["127.0.0.1"])


def make_certificate(certificate, key, names, addresses=(), days=3650):
    """Makes a self-signed certificate for the names and addresses; the key file is 0600."""
    alternatives = [f"DNS:{name}" for name in names] + [f"IP:{addr}" for addr in addresses]
    subprocess.run(
        [_program("openssl"), "req", "-x509", "-newkey", "ec", "-pkeyopt",
         "ec_paramgen_curve:P-256", "-nodes", "-days", str(days), "-subj", f"/CN={names[0]}",
         "-addext", "subjectAltName=" + ",".join(alternatives), "-keyout", key,
         "-out", certificate],
        check=True, stdin=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    os.chmod(key, 0o600)


def _accepts(port):
    try:
        socket.create_connection(("127.0.0.1", port), timeout=1).close()
    except OSError:
        return False
    return True
