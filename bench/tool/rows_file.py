"""Rows 1 to 7: the passwd-file."""

import os
import shutil
import statistics

from tool.data import name, password_hash, write_passwd
from tool.measure import numbers, pair, pairs_of, run, seconds
from tool.table import Result, duration, ratio

NANOSECOND = 1e-9


class Changes:
    """One changed line of a file, by our driver and by a peer with a copy of its own."""

    def __init__(self, bench, lines):
        self.bench = bench
        self.lines = lines
        self.name = name(lines // 2)
        self.file = bench.passwd(lines)
        self.round = 0

    def fresh_hash(self):
        self.round += 1
        return password_hash(-self.round)

    def ours(self, _):
        return seconds([self.bench.driver("change_line"), self.file, self.name, self.fresh_hash()])

    def against(self, peer):
        # Many, as a host that gives memory slowly makes every third pair several times longer.
        return pair(self.bench.small_pairs, self.ours, peer, settle=True)

    def copy(self, suffix):
        return shutil.copyfile(self.file, f"{self.file}.{suffix}")

    def sed(self):
        file = self.copy("sed")
        script = "s/^\\({}:\\)[^:]*/\\1{}/"
        return self.against(
            lambda _: seconds(["sed", "-i", script.format(self.name, self.fresh_hash()), file]))

    def htpasswd(self):
        file = self.copy("htpasswd")
        return self.against(lambda number: seconds(
            ["htpasswd", "-bs", file, self.name, f"password {number}"]))

    def dd(self):
        copy = self.copy("dd")
        return self.against(lambda _: seconds(
            ["dd", f"if={self.file}", f"of={copy}", "bs=4M", "conv=fsync", "status=none"]))


def row_1(bench):
    changes = Changes(bench, bench.lines)
    work = f"one changed line of {bench.lines:,}, stored safely, whole process"
    return [ratio(1, work, changes.sed(), "sed -i", 0.40),
            ratio(1, "the same", changes.htpasswd(), "htpasswd -b", 0.20),
            ratio(1, "the same", changes.dd(), "dd conv=fsync", 0.85)]


def row_2(bench):
    return [ratio(2, f"the same of {lines:,}", Changes(bench, lines).sed(), "sed -i", goal)
            for lines, goal in ((bench.lines // 10, 0.50), (bench.lines // 100, 0.90))]


def row_3(bench):
    file = bench.passwd(bench.lines)
    pairs = pairs_of(run([bench.driver("store"), "replace", file, name(bench.lines // 2),
                          str(bench.pairs)]), NANOSECOND)
    os.remove(f"{file}.bare")
    peer = "bare write, fsync, rename, directory sync"
    return [ratio(3, "the same in process", pairs, peer, 1.20),
            ratio(3, "the same in process", pairs, peer, 0.75, stretch=True)]


def row_4(bench):
    file = bench.passwd(bench.lines)
    load = [bench.driver("lines"), "load", file]
    count = bench.pair(lambda _: seconds(load), lambda _: seconds(["wc", "-l", file]))
    array = bench.pair(lambda _: seconds(load),
                       lambda _: seconds(["gawk", "-F:", "{line[$1] = $0}", file]))
    find = statistics.median(
        numbers(run([bench.driver("lines"), "find", file, str(bench.lines)]))[0][0]
        for _ in range(bench.pairs))
    return [ratio(4, f"load and index {bench.lines:,} lines, whole process", count, "wc -l", 3.5),
            ratio(4, "the same", array, "gawk building an array", 0.15),
            Result(4, f"one of {bench.lines:,} random finds", duration(find * NANOSECOND), "",
                   find, 100, "ns")]


def row_5(bench):
    # Of a small file the parts that do not grow with it would be measured.
    lines = bench.lines if bench.pairs < 7 else max(bench.lines, 1_000_000)
    figure = numbers(run([bench.driver("lines"), "memory", bench.passwd(lines)]))[0][0]
    return [Result(5, f"memory of {lines:,} lines beside the bytes of the file",
                   f"{figure:.1f} bytes", "", figure, 24, "bytes a line")]


def row_6(bench):
    file = bench.passwd(bench.lines)
    pairs = bench.pair(lambda _: seconds([bench.driver("lines"), "walk", file]),
                       lambda _: seconds(["wc", "-l", file]))
    return [ratio(6, f"walk of {bench.lines:,} lines, all nine fields read by a cursor", pairs,
                  "wc -l", 3)]


def row_7(bench):
    creates = min(10_000, bench.lines)
    folder = bench.folder("deferred")
    pairs = pairs_of(run([bench.driver("store"), "defer", folder, str(creates),
                          str(bench.small_pairs)]), NANOSECOND)
    posts, saves = numbers(run([bench.driver("store"), "threads",
                                write_passwd(f"{folder}/threads", bench.lines // 100),
                                "32", "50"]))[0]
    return [ratio(7, f"{creates:,} creates in one deferring scope", pairs,
                  "one save of the result", 5),
            Result(7, "32 threads posting at once", f"{saves:.0f} saves", f"{posts:.0f} posts",
                   saves / posts, 1 / 8, "saves a post")]
