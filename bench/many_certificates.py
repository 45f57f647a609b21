"""Shared by the measurements with many certificates: an instance whose Dovecot includes N snippets,
children with their time and memory, and tables."""

import contextlib
import os
import platform
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.dirname(os.path.abspath(__file__))),
                                "packaging", "instance"))

import layout  # pylint: disable=wrong-import-position

LIMIT = 600  # seconds for one child


class Certificates:
    """A folder of certificates as an authority gives them out: RSA 2048, one intermediate.

    All domains share one content in files of their own: Dovecot reads and keeps each.
    """

    def __init__(self, folder):
        self.folder = folder
        os.makedirs(folder)
        chain = []
        for name in ("leaf", "intermediate"):
            subprocess.run(
                ["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "90", "-subj",
                 f"/CN={name}", "-keyout", self._path(name + ".key"), "-out",
                 self._path(name + ".crt")], check=True, stderr=subprocess.DEVNULL)
            with open(self._path(name + ".crt"), encoding="ascii") as file:
                chain.append(file.read())
        with open(self._path("leaf.key"), encoding="ascii") as file:
            self.contents = {".crt": "".join(chain), ".key": file.read()}

    def _path(self, name):
        return os.path.join(self.folder, name)

    def bytes_each(self):
        return sum(len(content) for content in self.contents.values())

    def install(self, snippets, number):
        """Makes one domain's files and its snippet; the domain's name."""
        domain = f"d{number}.example.org"
        for suffix, content in self.contents.items():
            with open(self._path(domain + suffix), "w", encoding="ascii") as file:
                file.write(content)
        with open(os.path.join(snippets, domain + ".conf"), "w", encoding="ascii") as file:
            file.write(f"local_name {domain} {{\n\tssl_cert = <{self._path(domain)}.crt\n"
                       f"\tssl_key = <{self._path(domain)}.key\n}}\n")
        return domain


@contextlib.contextmanager
def instance_with_certificates():
    """A laid-out instance, not started, and the certificates that can be installed in it."""
    folder = tempfile.mkdtemp(prefix="brisq-bench-")
    os.chmod(folder, 0o755)
    instance = layout.Layout(os.path.join(folder, "i"))
    try:
        instance.create(dict.fromkeys(layout.PREFERRED_PORTS), scheme="SHA512-CRYPT")
        yield instance, Certificates(os.path.join(folder, "pem"))
    finally:
        instance.stop()
        shutil.rmtree(folder)


class Child:
    """One run of a program: seconds by the clock and of processor, peak memory, exit code."""

    def __init__(self, words, environment=None, text=""):
        with tempfile.NamedTemporaryFile("r") as record:
            before = time.perf_counter()
            # /usr/bin/time, as a child of this program would count this program's own memory.
            done = subprocess.run(["/usr/bin/time", "-q", "-f", "%M %U %S", "-o", record.name, *words],
                                  input=text, text=True, capture_output=True, timeout=LIMIT,
                                  env={**os.environ, **(environment or {})})
            self.seconds = time.perf_counter() - before
            kilobytes, user, system = record.read().split()
        self.code = done.returncode
        self.errors = done.stderr
        self.processor = float(user) + float(system)
        self.megabytes = int(kilobytes) / 1024


def median_of(runs, name):
    return statistics.median(getattr(run, name) for run in runs)


def machine():
    """One line: processor, cores, memory, kernel, Dovecot."""
    with open("/proc/cpuinfo", encoding="utf-8") as file:
        model = next((line.split(":")[1].strip() for line in file if line.startswith("model name")),
                     platform.machine())
    memory = os.sysconf("SC_PAGE_SIZE") * os.sysconf("SC_PHYS_PAGES") / 2**30
    version = subprocess.run(["dovecot", "--version"], capture_output=True, text=True, check=True)
    return (f"{model}, {os.cpu_count()} cores, {memory:.0f} GiB, Linux {platform.release()}, "
            f"Dovecot {version.stdout.split()[0]}, load {os.getloadavg()[0]:.1f}")


def print_table(titles, rows):
    """A Markdown table."""
    print("| " + " | ".join(titles) + " |")
    print("|" + "---|" * len(titles))
    for row in rows:
        print("| " + " | ".join(row) + " |")
