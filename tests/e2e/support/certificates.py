"""Certificates with chosen names and lifetimes, and what a server presents to a client."""

import os
import socket
import ssl
import subprocess
import time

HOST = "127.0.0.1"
TIMEOUT = 30  # seconds
DAY = 86400

# The request tool makes no certificate that has expired; the tool of an authority does.
AUTHORITY = """[ca]
default_ca = own
[own]
database = index
new_certs_dir = .
rand_serial = yes
default_md = sha256
policy = any
copy_extensions = copy
unique_subject = no
[any]
commonName = supplied
"""


class Pair:
    """Paths of a certificate and of its key."""

    def __init__(self, cert, key):
        self.cert = cert
        self.key = key

    def der(self):
        with open(self.cert, encoding="ascii") as file:
            return ssl.PEM_cert_to_DER_cert(file.read())

    def replace_by(self, other):
        """Puts the other pair's content under these paths, as a client that renews does."""
        for mine, theirs in ((self.cert, other.cert), (self.key, other.key)):
            with open(theirs, "rb") as source, open(mine + ".new", "wb") as target:
                os.fchmod(target.fileno(), 0o600)
                target.write(source.read())
            os.replace(mine + ".new", mine)


def make(folder, name, *alternatives, begin=-60, end=90 * DAY):
    """NAME.crt and NAME.key (0600) in a folder, signed with its own key.

    alternatives  subjectAltName entries such as "DNS:example.org"; the name itself without any
    begin, end    seconds from now between which it is valid
    """
    pair = Pair(os.path.join(folder, name + ".crt"), os.path.join(folder, name + ".key"))
    work = os.path.join(folder, "openssl-" + name)
    os.mkdir(work)
    for file_name, content in (("authority.cnf", AUTHORITY), ("index", "")):
        with open(os.path.join(work, file_name), "w", encoding="ascii") as file:
            file.write(content)
    _openssl(work, "req", "-new", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes",
             "-keyout", pair.key, "-subj", "/CN=" + name, "-out", "request", "-addext",
             "subjectAltName=" + ",".join(alternatives or ("DNS:" + name,)))
    _openssl(work, "ca", "-selfsign", "-batch", "-notext", "-config", "authority.cnf", "-keyfile",
             pair.key, "-in", "request", "-out", pair.cert, "-startdate", _stamp(begin),
             "-enddate", _stamp(end))
    os.chmod(pair.key, 0o600)
    return pair


def _stamp(offset):
    return time.strftime("%Y%m%d%H%M%SZ", time.gmtime(time.time() + offset))


def _openssl(folder, *words):
    done = subprocess.run(["openssl", *words], cwd=folder, stdin=subprocess.DEVNULL,
                          capture_output=True, text=True, timeout=TIMEOUT)
    if done.returncode != 0:
        raise AssertionError(f"openssl {words[0]}: {done.stderr}")


def presented(port, name):
    """The certificate, as DER, that the server presents to a client that asks for `name`, or for
    none when that is None; nothing while no server accepts connections."""
    context = ssl.create_default_context()
    context.check_hostname = False
    context.verify_mode = ssl.CERT_NONE
    try:
        with socket.create_connection((HOST, port), timeout=TIMEOUT) as plain, \
                context.wrap_socket(plain, server_hostname=name) as client:
            return client.getpeercert(binary_form=True)
    except ConnectionError:
        return None
