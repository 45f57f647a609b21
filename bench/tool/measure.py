"""Timing of whole processes, and what pairs of measurements say."""

import dataclasses
import os
import shutil
import statistics
import subprocess
import time


class Failed(Exception):
    """Says in one line what could not be measured."""


@dataclasses.dataclass
class Pairs:
    """Measurements taken by turns: ours, the peer's, ours, the peer's, ..."""

    ours: list
    peer: list

    @property
    def our_median(self):
        return statistics.median(self.ours)

    @property
    def peer_median(self):
        return statistics.median(self.peer)

    @property
    def ratio(self):
        """Median of the pairs' ratios: what disturbs one pair does not count."""
        return statistics.median(ours / peer for ours, peer in zip(self.ours, self.peer))


def seconds(command, stdin="/dev/null", repeat=1):
    """Time that a command takes from its start to its end, in seconds; `repeat` times in a row."""
    program = shutil.which(command[0])
    if program is None:
        raise Failed(f"{command[0]} is not installed")
    actions = [(os.POSIX_SPAWN_OPEN, 0, stdin, os.O_RDONLY, 0),
               (os.POSIX_SPAWN_OPEN, 1, "/dev/null", os.O_WRONLY, 0),
               (os.POSIX_SPAWN_OPEN, 2, "/dev/null", os.O_WRONLY, 0)]
    begin = time.perf_counter()
    for _ in range(repeat):
        pid = os.posix_spawn(program, command, os.environ, file_actions=actions)
        status = os.waitpid(pid, 0)[1]
        if status != 0:
            raise Failed(f"{' '.join(command)}: exit {os.waitstatus_to_exitcode(status)}")
    return time.perf_counter() - begin


def pair(count, ours, peer, settle=False):
    """Pairs of what the two functions return, each called with the number of the pair.

    settle  writes everything back before each, so that none pays for what another left
    """
    pairs = Pairs([], [])
    for number in range(count):
        for call, into in ((ours, pairs.ours), (peer, pairs.peer)):
            if settle:
                os.sync()
            into.append(call(number))
    return pairs


def run(command):
    """Standard output of a program of ours."""
    done = subprocess.run(command, capture_output=True, text=True, stdin=subprocess.DEVNULL)
    if done.returncode != 0:
        raise Failed(f"{' '.join(command)}: {done.stderr.strip() or done.returncode}")
    return done.stdout


def numbers(text):
    """The numbers of each line of an output."""
    return [[float(word) for word in line.split()] for line in text.splitlines()]


def pairs_of(text, scale=1.0):
    """The pairs that a driver has printed."""
    lines = numbers(text)
    return Pairs([line[0] * scale for line in lines], [line[1] * scale for line in lines])
