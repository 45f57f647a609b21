"""Rows 10 to 15: the panel with its plug-in."""

import contextlib
import os
import signal
import statistics
import subprocess

from tool.data import Instance, name, write_password, write_quota
from tool.measure import Failed, Pairs, numbers, pair, pairs_of, run, seconds
from tool.rows_process import DOVEADM, PW
from tool.table import Result, duration, ratio

# Above every mailbox of the files.
FIRST_NEW = 5_000_000


@contextlib.contextmanager
def server_of(instance):
    """`brisq serve` beside the commands, as in an installation: reloads are its work."""
    server = subprocess.Popen(instance.command("serve"), stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, stdin=subprocess.DEVNULL, text=True)
    try:
        if not any("serving" in line for line in server.stdout):
            raise Failed("brisq serve does not start")
        yield
    finally:
        server.send_signal(signal.SIGTERM)
        server.communicate()


def row_10(bench):
    instance = Instance(bench.folder("parallel"), bench.build, min(bench.lines, 10_000))
    count = min(1000, max(bench.lines // 1000, 10))
    password = write_password(f"{instance.folder}/password")

    def ours(number):
        return numbers(run([bench.driver("panel"), "create", instance.config, "8", str(count),
                            str(FIRST_NEW + number * count)]))[0][0]

    pairs = pair(bench.pairs, ours, lambda _: seconds([DOVEADM, *PW], password, repeat=count))
    return [ratio(10, f"{count:,} mailboxes created by parallel requests", pairs,
                  "doveadm pw, one after another", 0.25)]


class Adding:
    """`mailbox add` as a command beside a server, with a next address each time."""

    def __init__(self, instance):
        self.instance = instance
        self.password = write_password(f"{instance.folder}/password")
        self.next = FIRST_NEW

    def __call__(self, _):
        self.next += 1
        return seconds(self.instance.command("mailbox", "add", name(self.next),
                                             "--password-stdin"), self.one_line)

    @property
    def one_line(self):
        path = f"{self.instance.folder}/password-line"
        if not os.path.exists(path):
            with open(path, "w", encoding="ascii") as file:
                file.write("a pass phrase\n")
        return path


def row_11(bench):
    instance = Instance(bench.folder("command"), bench.build, min(bench.lines, 10_000))
    with server_of(instance):
        adding = Adding(instance)
        pairs = bench.pair(adding, lambda _: seconds([DOVEADM, *PW], adding.password),
                           bench.small_pairs)
    return [ratio(11, "mailbox add as a command, 10,000 mailboxes", pairs, "doveadm pw", 2.0)]


BULK = """
CREATE TEMP TABLE line (name TEXT, home TEXT);
.separator :
.import "|cut -d: -f1,6 {file}" line
BEGIN IMMEDIATE;
UPDATE mailboxes SET tag = {tag}, home = CASE home WHEN '' THEN
 (SELECT line.home FROM line WHERE line.name = mailboxes.name || '@' || (SELECT name FROM domains
  WHERE id = mailboxes.domain)) ELSE home END
WHERE id IN (SELECT mailboxes.id FROM line JOIN domains ON domains.name =
 substr(line.name, instr(line.name, '@') + 1) JOIN mailboxes ON mailboxes.domain = domains.id
 AND mailboxes.name = substr(line.name, 1, instr(line.name, '@') - 1));
DELETE FROM mailboxes WHERE tag != {tag} AND active = 'on';
COMMIT;
"""


def row_12(bench):
    instance = Instance(bench.folder("refresh"), bench.build, bench.lines)
    script = f"{instance.folder}/bulk.sql"
    prepared, bulk = Pairs([], []), Pairs([], [])
    for number in range(bench.pairs):
        one = pairs_of(run([bench.driver("panel"), "refresh", instance.config, instance.users, "1"]),
                       1e-9)
        with open(script, "w", encoding="ascii") as file:
            file.write(BULK.format(file=instance.users, tag=-number - 1))
        shell = seconds(["sqlite3", "-bail", instance.database], script)
        for pairs, peer in ((prepared, one.peer[0]), (bulk, shell)):
            pairs.ours.append(one.ours[0])
            pairs.peer.append(peer)
    work = f"refresh (Cache) of {bench.lines:,} mailboxes, only the stamp is new"
    statements = "the same by SQLite's C API"
    return [ratio(12, work, prepared, statements, 1.5),
            ratio(12, work, prepared, statements, 0.5, stretch=True),
            ratio(12, work, bulk, "bulk SQL by the sqlite3 shell", 0.8)]


def row_13(bench):
    folder = bench.folder("quota")
    listing = write_quota(f"{folder}/listing", bench.lines)
    rows = f"{folder}/rows"
    awk = ["awk", "/STORAGE/ {print($1, $5)}", listing]
    with open(rows, "wb") as file:
        subprocess.run(awk, stdout=file, check=True)
    ours = lambda _: numbers(run([bench.driver("quota"), rows, "1"]))[0][0] * 1e-9
    pairs = bench.pair(ours, lambda _: seconds(awk))
    return [ratio(13, f"taking in the figures of {bench.lines:,} mailboxes", pairs,
                  "the awk that made them", 1.0)]


def row_14(bench):
    instance = Instance(bench.folder("snippets"), bench.build, 10)
    count = min(10_000, bench.lines)
    instance.write_snippets(count)
    pairs = pairs_of(run([bench.driver("panel"), "certs", instance.config, instance.certificates,
                          str(bench.small_pairs)]), 1e-9)
    return [ratio(14, f"certificate check of {count:,} good snippets", pairs,
                  "bare opendir, open, read, stat", 1.5)]


def _cost_of_creation(bench, lines):
    """Seconds of one creation: as a command, and within a process that has the file open."""
    instance = Instance(bench.folder(f"growth-{lines}"), bench.build, lines)
    with server_of(instance):
        adding = Adding(instance)
        command = statistics.median(adding(at) for at in range(bench.pairs))
    within = [bench.driver("panel"), "create", instance.config, "1", str(bench.pairs + 1)]
    total = numbers(run([*within, str(FIRST_NEW + 1000)]))[0][0]
    bench.remove(instance.folder)
    return command, total / (bench.pairs + 1)


def row_15(bench):
    sizes = [bench.lines // 100, bench.lines // 10, bench.lines]
    costs = [_cost_of_creation(bench, lines) for lines in sizes]
    bench.growth = list(zip(sizes, costs))
    results = []
    for at in (1, 2):
        growth = costs[at][0] / costs[at - 1][0]
        results.append(Result(15, f"one creation with {sizes[at]:,} mailboxes",
                              duration(costs[at][0]),
                              f"with {sizes[at - 1]:,}: {duration(costs[at - 1][0])}", growth, 10))
    return results


