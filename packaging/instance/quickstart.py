"""The demonstration of ./quickstart, in a checkout that is built: an instance, a mailbox in it,
a message delivered and read back. Every step finds what an earlier run has left.

usage: quickstart.py [stop]
"""

import grp
import hashlib
import os
import poplib
import pwd
import re
import secrets
import smtplib
import ssl
import subprocess
import sys

import layout
import lmtp

ROOT = os.path.dirname(os.path.dirname(layout.TEMPLATES))
BRISQ = "build/release/bin/brisq"
INSTANCE = "instance"
HOST = "127.0.0.1"
OWNER, DOMAIN, ADDRESS = "demo", "example.org", "alice@example.org"
FIRST_ID = 5000
NOT_FOUND = 4  # exit code of brisq
# Where the instance goes when the checkout's path can't hold one; the checkout gets a link.
ELSEWHERE = "/var/lib/brisq-quickstart"


class StepFailed(Exception):
    """One line for the user."""


def place():
    """The instance's folder: below the checkout, or elsewhere with a link to it there."""
    wanted = os.path.join(ROOT, INSTANCE)
    reason = layout.unsuitable(wanted)
    if os.path.islink(wanted) or not reason:
        return os.path.realpath(wanted)
    if os.path.exists(wanted):
        raise StepFailed(f"{wanted} {reason}; remove it to have it laid out elsewhere")
    folder = os.path.join(ELSEWHERE, hashlib.sha256(ROOT.encode()).hexdigest()[:12])
    os.makedirs(folder, mode=0o755, exist_ok=True)
    os.symlink(folder, wanted)
    print(f"   {wanted} {reason}: it becomes a link to {folder}")
    return folder


def brisq(*words, stdin=""):
    return subprocess.run([BRISQ, "--config", f"{INSTANCE}/brisq.toml", *words],
                          input=stdin, capture_output=True, text=True)


def exists(noun, name):
    done = brisq(noun, "show", name)
    if done.returncode not in (0, NOT_FOUND):
        raise StepFailed(done.stderr.strip())
    return done.returncode == 0


def add(noun, name, *words, stdin=""):
    """Adds it unless it is there, and says which."""
    if exists(noun, name):
        print(f"   {noun} {name} is there")
        return
    done = brisq(noun, "add", name, *words, stdin=stdin)
    if done.returncode != 0:
        raise StepFailed(done.stderr.strip())
    print(f"   $ brisq {noun} add {name} {' '.join(words)}".rstrip())


def free_id():
    """A number that is neither a user nor a group here: mail needs no login account."""
    taken = {user.pw_uid for user in pwd.getpwall()} | {group.gr_gid for group in grp.getgrall()}
    return str(next(number for number in range(FIRST_ID, 60000) if number not in taken))


class Credentials:
    """The demonstration's password, kept in a netrc file that only root may read."""

    def __init__(self, folder):
        self.path = os.path.join(folder, "alice.netrc")

    def password(self):
        """The stored password; a fresh one, stored first, when there is none."""
        if not os.path.exists(self.path):
            descriptor = os.open(self.path, os.O_WRONLY | os.O_CREAT | os.O_EXCL, 0o600)
            with os.fdopen(descriptor, "w", encoding="utf-8") as file:
                file.write(f"machine {HOST} login {ADDRESS} password {secrets.token_urlsafe(12)}\n")
        with open(self.path, encoding="utf-8") as file:
            return file.read().split()[-1]


def make_mailbox(instance, credentials):
    number = free_id()
    add("owner", OWNER, "--uid", number, "--gid", number,
        "--home", os.path.join(instance.mail, OWNER))
    add("domain", DOMAIN, "--owner", OWNER)
    if exists("mailbox", ADDRESS) and not os.path.exists(credentials.path):
        raise StepFailed(f"{ADDRESS} is there, but its password in {credentials.path} is not; "
                         f"\"./quickstart stop\" and remove {INSTANCE} to start anew")
    add("mailbox", ADDRESS, "--password-stdin", "--quota", "500M", stdin=credentials.password())


def deliver(ports):
    """Delivers a message and returns its subject, which no other message has."""
    subject = "Hello " + secrets.token_hex(4)
    lmtp.deliver(ports["lmtp"], "quickstart@example.com", ADDRESS,
                 f"From: quickstart@example.com\r\nTo: {ADDRESS}\r\n"
                 f"Subject: {subject}\r\n\r\nIt works.\r\n")
    return subject


def curl(url):
    done = subprocess.run(
        ["curl", "--silent", "--show-error", "--noproxy", "*", "--max-time", "30",
         "--cacert", f"{INSTANCE}/dovecot/default.crt", "--netrc-file", f"{INSTANCE}/alice.netrc",
         url], capture_output=True, text=True)
    if done.returncode != 0:
        raise StepFailed(f"curl {url}: {done.stderr.strip()}")
    return done.stdout


def imap_message(ports, subject):
    """The message with this subject as curl reads it by IMAP over TLS."""
    inbox = f"imaps://{HOST}:{ports['imaps']}/INBOX"
    found = re.search(r"SEARCH (\d+)", curl(inbox + f"?SUBJECT%20{subject.split()[1]}"))
    if not found:
        raise StepFailed(f"IMAP does not find the message \"{subject}\"")
    return curl(f"{inbox};MAILINDEX={found[1]}")


def pop3_message(ports, password, certificate):
    """The newest message as Python's poplib reads it by POP3 over TLS."""
    trust = ssl.create_default_context(cafile=certificate)
    client = poplib.POP3_SSL(HOST, ports["pop3s"], context=trust, timeout=30)
    client.user(ADDRESS)
    client.pass_(password)
    count, _ = client.stat()
    message = b"\n".join(client.retr(count)[1]).decode() if count else ""
    client.quit()
    return message


def require_subject(message, subject, client):
    if f"Subject: {subject}" not in message:
        raise StepFailed(f"{client} did not read the message \"{subject}\"")
    print(f"   {client} reads \"{subject}\"")


def explain(ports):
    print(f"""
It works, and the server keeps running. Go on with:
  export BRISQ_CONFIG=$PWD/{INSTANCE}/brisq.toml PATH=$PWD/build/release/bin:$PATH
  brisq mailbox list
  brisq mailbox add bob@{DOMAIN} --generate --quota 2G
  curl --cacert {INSTANCE}/dovecot/default.crt --netrc-file {INSTANCE}/alice.netrc \\
    "imaps://{HOST}:{ports['imaps']}/INBOX;MAILINDEX=1"
  ./quickstart stop""")


def run():
    print(f"1. An instance in ./{INSTANCE}/")
    instance = layout.Layout(place())
    instance.create(layout.PREFERRED_PORTS, scheme=layout.strong_scheme())
    ports = instance.ports
    print("2. A Dovecot of its own on " + HOST + ": "
          + ", ".join(f"{name.upper()} {port}" for name, port in ports.items()))
    instance.start()
    print("3. A mailbox")
    credentials = Credentials(instance.folder)
    make_mailbox(instance, credentials)
    print("4. A message, delivered by LMTP and read back")
    subject = deliver(ports)
    require_subject(imap_message(ports, subject), subject, "curl by IMAP")
    require_subject(pop3_message(ports, credentials.password(), instance.certificate), subject,
                    "Python by POP3")
    explain(ports)


def stop():
    instance = layout.Layout(os.path.realpath(os.path.join(ROOT, INSTANCE)))
    was_running = instance.is_running()
    instance.stop()
    print("The server is stopped." if was_running else "No server is running.")


def main():
    os.chdir(ROOT)
    try:
        stop() if sys.argv[1:] == ["stop"] else run()
    except (layout.LayoutError, StepFailed, smtplib.SMTPException, poplib.error_proto,
            OSError) as error:
        sys.exit(f"quickstart: {error}")


if __name__ == "__main__":
    main()
