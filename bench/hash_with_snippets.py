"""What one password hash costs when Dovecot's configuration includes many certificate snippets:
`doveadm pw` as the distribution has it, and through the installed wrapper.

usage: hash_with_snippets.py BUILD [RUNS]   BUILD holds bin/brisq-doveadm; RUNS is 9 without it
Prints one Markdown table of medians; leaves nothing behind.
"""

import os
import sys

import many_certificates as many

COUNTS = (0, 100, 1000, 5000)
RUNS = 9


def hash_once(program, conf):
    run = many.Child([program, "pw", "-s", "SHA512-CRYPT", "-u", "a@example.org"],
                     {"CONFIG_FILE": conf}, "a word\na word\n")
    if run.code != 0:
        sys.exit(f"{program}: exit code {run.code}: {run.errors}")
    return run


def measure(programs, conf, runs):
    """The programs' runs, taken in turn so that a busy moment hits each alike."""
    taken = {name: [] for name in programs}
    for _ in range(runs):
        for name, program in programs.items():
            taken[name].append(hash_once(program, conf))
    return taken


def row(count, taken):
    plain, wrapped = taken["doveadm"], taken["wrapper"]
    cells = [f"{count:,}"]
    for runs in (plain, wrapped):
        cells.append(f"{many.median_of(runs, 'seconds') * 1000:.1f} ms")
        cells.append(f"{many.median_of(runs, 'processor') * 1000:.0f} ms")
        cells.append(f"{many.median_of(runs, 'megabytes'):.0f} MB")
    for name in ("seconds", "megabytes"):
        cells.append(f"{many.median_of(plain, name) / many.median_of(wrapped, name):.1f}")
    return cells


def main():
    build, runs = sys.argv[1], int(sys.argv[2]) if len(sys.argv) > 2 else RUNS
    programs = {"doveadm": "/usr/bin/doveadm",
                "wrapper": os.path.join(build, "bin", "brisq-doveadm")}
    rows = []
    with many.instance_with_certificates() as (instance, certificates):
        installed = 0
        for count in COUNTS:
            for number in range(installed, count):
                certificates.install(instance.snippets, number)
            installed = count
            rows.append(row(count, measure(programs, instance.dovecot_conf, runs)))
        each = certificates.bytes_each()
    print(f"{many.machine()}; {each} bytes of certificates and key each; medians of {runs}\n")
    many.print_table(["snippets", "doveadm: time", "processor", "memory", "wrapper: time",
                      "processor", "memory", "time ratio", "memory ratio"], rows)


if __name__ == "__main__":
    main()
