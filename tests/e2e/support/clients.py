"""Mail clients on the loopback address: Python's own for most, curl as one by another hand."""

import imaplib
import poplib
import re
import ssl
import subprocess

from support.instance import lmtp

HOST = "127.0.0.1"
TIMEOUT = 30  # seconds


def _any_certificate():
    context = ssl.create_default_context()
    context.check_hostname = False
    context.verify_mode = ssl.CERT_NONE
    return context


def deliver(ports, address, subject, body="Hello.\r\n"):
    """Delivers one message by LMTP.

    Raises smtplib.SMTPException when the server refuses it.
    """
    message = f"From: sender@example.com\r\nTo: {address}\r\nSubject: {subject}\r\n\r\n{body}"
    lmtp.deliver(ports["lmtp"], "sender@example.com", address, message)


def imap(ports, address, password, tls=False):
    """A logged-in imaplib client; raises imaplib.IMAP4.error when the login is refused."""
    if tls:
        client = imaplib.IMAP4_SSL(HOST, ports["imaps"], ssl_context=_any_certificate(),
                                   timeout=TIMEOUT)
    else:
        client = imaplib.IMAP4(HOST, ports["imap"], timeout=TIMEOUT)
    return _logged_in(client, client.login, client.shutdown, address, password)


def pop3(ports, address, password, tls=False):
    """A logged-in poplib client; raises poplib.error_proto when the login is refused."""
    if tls:
        client = poplib.POP3_SSL(HOST, ports["pop3s"], context=_any_certificate(),
                                 timeout=TIMEOUT)
    else:
        client = poplib.POP3(HOST, ports["pop3"], timeout=TIMEOUT)
    client.user(address)
    return _logged_in(client, lambda _, word: client.pass_(word), client.close, address, password)


def _logged_in(client, login, close, address, password):
    try:
        login(address, password)
    except BaseException:
        close()
        raise
    return client


def imap_accepts(ports, address, password, tls=False):
    """True when the login succeeds, False when the server refuses name or password."""
    try:
        imap(ports, address, password, tls).logout()
    except imaplib.IMAP4.error as refusal:
        return _is_no(refusal, b"[AUTHENTICATIONFAILED]")
    return True


def pop3_accepts(ports, address, password, tls=False):
    """True when the login succeeds, False when the server refuses name or password."""
    try:
        pop3(ports, address, password, tls).quit()
    except poplib.error_proto as refusal:
        return _is_no(refusal, b"[AUTH]")
    return True


def _is_no(refusal, code):
    """False, for a refused login; any other trouble, such as a lost server, stays an error."""
    if code in str(refusal).encode():
        return False
    raise refusal


def imap_subjects(ports, address, password):
    """The subjects in INBOX, oldest first."""
    client = imap(ports, address, password)
    client.select("INBOX", readonly=True)
    _, parts = client.fetch("1:*", "(BODY[HEADER.FIELDS (SUBJECT)])")
    client.logout()
    return [_subject(part[1]) for part in parts if isinstance(part, tuple)]


def pop3_subjects(ports, address, password):
    """The subjects that POP3 offers, oldest first."""
    client = pop3(ports, address, password)
    count, _ = client.stat()
    headers = [b"\r\n".join(client.top(number, 0)[1]) for number in range(1, count + 1)]
    client.quit()
    return [_subject(header) for header in headers]


def _subject(header):
    return re.search(rb"^Subject: (.*?)\r?$", header, re.MULTILINE)[1].decode()


def imap_quota(ports, address, password):
    """(used, limit) of storage in kilobytes, as GETQUOTAROOT shows it; None without a limit."""
    client = imap(ports, address, password)
    _, (_, quotas) = client.getquotaroot("INBOX")
    client.logout()
    found = re.search(rb"STORAGE (\d+) (\d+)", b" ".join(filter(None, quotas)))
    return (int(found[1]), int(found[2])) if found else None


def curl(url, address, password):
    """What curl fetches; the password goes in by standard input, not as an argument."""
    config = f'url = "{url}"\nuser = "{address}:{password}"\n'
    done = subprocess.run(["curl", "--silent", "--show-error", "--insecure", "--noproxy", "*",
                           "--max-time", str(TIMEOUT), "--config", "-"],
                          input=config, capture_output=True, text=True)
    if done.returncode != 0:
        raise AssertionError(f"curl {url}: exit code {done.returncode}: {done.stderr}")
    return done.stdout
