"""What the measurements were made on, in words."""

import datetime
import os
import platform
import subprocess


def _first(path, label):
    with open(path, encoding="utf-8", errors="replace") as file:
        for line in file:
            if line.startswith(label):
                return line.split(":", 1)[1].strip()
    return "unknown"


def file_system(folder):
    done = subprocess.run(["stat", "-f", "-c", "%T", folder], capture_output=True, text=True)
    return done.stdout.strip() or "unknown file system"


def version(command):
    done = subprocess.run(command, capture_output=True, text=True)
    return (done.stdout or done.stderr).splitlines()[0].strip() if done.returncode == 0 else ""


def describe(folder):
    """One paragraph: processor, memory, kernel, file system, programs and date."""
    memory = int(_first("/proc/meminfo", "MemTotal").split()[0]) / 2**20
    dovecot = version(["/usr/sbin/dovecot", "--version"])
    return (f"{_first('/proc/cpuinfo', 'model name')}, {os.cpu_count()} processors,"
            f" {memory:.0f} GiB; Linux {platform.release()}, {file_system(folder)};"
            f" Dovecot {dovecot}; {datetime.date.today().isoformat()}.")
