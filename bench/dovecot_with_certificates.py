"""How many certificates Dovecot itself bears: testing the configuration, starting, reloading and
answering with N certificate snippets.

usage: dovecot_with_certificates.py [COUNT ...]
Prints two Markdown tables, for the memory that Dovecot itself allows its process "config", which
holds all certificates, and for what the settings of brisq allow; leaves nothing behind. Servers
listen on the loopback address.
"""

import os
import signal
import socket
import ssl
import statistics
import subprocess
import sys
import tempfile
import time

import many_certificates as many

COUNTS = (0, 100, 500, 1000, 2000, 5000)
START_LIMIT = 60  # seconds
HANDSHAKES = 7
CONFIG_MEMORY = ("256 M", "2 G")  # Dovecot's own limit, and the one in 90-brisq.conf


def presented(port, name):
    """The certificate that a client gets who asks for `name`; None when it gets none."""
    context = ssl.create_default_context()
    context.check_hostname = False
    context.verify_mode = ssl.CERT_NONE
    try:
        with socket.create_connection(("127.0.0.1", port), timeout=START_LIMIT) as plain, \
                context.wrap_socket(plain, server_hostname=name) as client:
            return client.getpeercert(binary_form=True)
    except (OSError, ssl.SSLError):
        return None


def seconds_until(holds, limit=START_LIMIT):
    """Seconds until the condition holds; None when it does not in time."""
    begin = time.perf_counter()
    while not holds():
        if time.perf_counter() - begin > limit:
            return None
        time.sleep(0.01)
    return time.perf_counter() - begin


class Server:
    """The instance's Dovecot, started by hand so that a slow start is measured, not refused."""

    def __init__(self, instance, certificates):
        self.instance = instance
        self.certificates = certificates
        self.errors = ""

    def start(self, name):
        """Seconds until a client that asks for `name` is answered; None when none is."""
        begin = time.perf_counter()
        # A file, since the server keeps what it inherits and never ends a pipe.
        with tempfile.TemporaryFile("w+") as messages:
            done = subprocess.run(["dovecot", "-c", self.instance.dovecot_conf], text=True,
                                  stdin=subprocess.DEVNULL, stdout=messages, stderr=messages,
                                  timeout=START_LIMIT)
            messages.seek(0)
            self.errors = messages.read().strip()
        if done.returncode != 0:
            return None
        waited = seconds_until(lambda: presented(self.instance.ports["imaps"], name))
        return None if waited is None else time.perf_counter() - begin

    def reload(self, number):
        """Seconds until a certificate that was just added is presented; None when it never is."""
        name = self.certificates.install(self.instance.snippets, number)
        default = presented(self.instance.ports["imaps"], None)
        begin = time.perf_counter()
        many.Child(["doveadm", "-c", self.instance.dovecot_conf, "reload"])
        waited = seconds_until(
            lambda: presented(self.instance.ports["imaps"], name) not in (None, default))
        return None if waited is None else time.perf_counter() - begin

    def handshake(self, name):
        """Seconds of a TLS handshake, median."""
        times = []
        for _ in range(HANDSHAKES):
            begin = time.perf_counter()
            if presented(self.instance.ports["imaps"], name) is None:
                return None
            times.append(time.perf_counter() - begin)
        return statistics.median(times)

    def processes(self):
        """Megabytes of memory by kind of process: shared pages count in parts."""
        megabytes = {}
        for pid, parent, name in _all_processes():
            if parent == self.master():
                megabytes[name] = megabytes.get(name, 0) + _megabytes(pid)
        megabytes["master"] = _megabytes(self.master())
        return megabytes

    def last_error(self):
        """The last line in the server's log that tells why it can't go on."""
        with open(self.instance.dovecot_log, encoding="utf-8") as file:
            lines = [line.strip() for line in file if "Fatal:" in line or "Error:" in line]
        return lines[-1] if lines else ""

    def master(self):
        with open(os.path.join(self.instance.folder, "run", "master.pid"), encoding="ascii") as file:
            return int(file.read())

    def stop(self):
        """Ends it, whatever state it is in."""
        try:
            pid = self.master()
            os.kill(pid, signal.SIGTERM)
        except (OSError, ValueError):
            return
        if seconds_until(lambda: not _lives(pid), 30) is None:
            os.kill(pid, signal.SIGKILL)


def _lives(pid):
    try:
        with open(f"/proc/{pid}/stat", encoding="utf-8") as file:
            return file.read().rpartition(")")[2].split()[0] != "Z"
    except OSError:
        return False


def _all_processes():
    for entry in filter(str.isdigit, os.listdir("/proc")):
        try:
            with open(f"/proc/{entry}/stat", encoding="utf-8") as file:
                text = file.read()
        except OSError:
            continue
        yield int(entry), int(text.rpartition(")")[2].split()[1]), text.split("(")[1].split(")")[0]


def _megabytes(pid):
    try:
        with open(f"/proc/{pid}/smaps_rollup", encoding="utf-8") as file:
            return next(int(line.split()[1]) for line in file if line.startswith("Pss:")) / 1024
    except OSError:
        return 0


def seconds(value):
    return "no" if value is None else f"{value:.2f} s"


def measure(server, count):
    instance = server.instance
    name = f"d{count - 1}.example.org" if count else None
    test = many.Child(["doveconf", "-c", instance.dovecot_conf, "-nx"])
    started = server.start(name)
    cells = [f"{count:,}", seconds(test.seconds), f"{test.megabytes:.0f} MB", seconds(started)]
    if started is None:
        server.stop()
        print(f"{count}: {server.errors} {server.last_error()}", file=sys.stderr)
        return cells + ["-"] * 4
    handshake = server.handshake(name)
    memory = server.processes()
    reloaded = server.reload(count)
    server.stop()
    return cells + [seconds(handshake), f"{memory.get('config', 0):.0f} MB",
                    f"{sum(memory.values()):.0f} MB", seconds(reloaded)]


def measure_all(counts, memory):
    """The rows for all counts, and the bytes of one domain's files."""
    rows = []
    with many.instance_with_certificates() as (instance, certificates):
        with open(instance.dovecot_conf, "a", encoding="ascii") as file:
            file.write(f"service config {{\n  vsz_limit = {memory}\n}}\n")
        server = Server(instance, certificates)
        installed = 0
        try:
            for count in counts:
                for number in range(installed, count):
                    certificates.install(instance.snippets, number)
                installed = count
                rows.append(measure(server, count))
        finally:
            server.stop()
        return rows, certificates.bytes_each()


def main():
    counts = [int(word) for word in sys.argv[1:]] or COUNTS
    for memory in CONFIG_MEMORY:
        rows, each = measure_all(counts, memory)
        print(f"vsz_limit of config {memory}; {many.machine()}; {each} bytes of certificates and key each\n")
        many.print_table(["certificates", "doveconf -nx", "its memory", "start", "TLS handshake",
                          "process config", "all processes", "reload"], rows)
        print()


if __name__ == "__main__":
    main()
