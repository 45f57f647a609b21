"""One run of the benchmark: its size, its folder, and the programs that it measures."""

import os
import shutil

from tool import rows_file, rows_panel, rows_process
from tool.data import write_passwd
from tool.measure import pair

ROWS = {**{number: getattr(rows_file, f"row_{number}") for number in range(1, 8)},
        **{number: getattr(rows_process, f"row_{number}") for number in (8, 9)},
        **{number: getattr(rows_panel, f"row_{number}") for number in range(10, 16)}}


class Bench:
    """What the rows share.

    build        folder of the built programs
    lines        mailboxes of the large files
    pairs        measurements of each side; small_pairs for what takes milliseconds
    growth       what row 15 has measured: [(mailboxes, (seconds, seconds)), ...]
    """

    def __init__(self, build, place, lines, pairs):
        self.build = build
        self.place = place
        self.lines = lines
        self.pairs = pairs
        self.small_pairs = 3 * pairs
        self.growth = []

    def driver(self, name):
        return os.path.join(self.build, "bench", f"{name}_bench")

    def folder(self, name):
        path = os.path.join(self.place, name)
        os.makedirs(path, exist_ok=True)
        return path

    def remove(self, path):
        shutil.rmtree(path)

    def passwd(self, lines):
        """A passwd-file of this many lines, written once."""
        path = os.path.join(self.folder("files"), str(lines))
        return path if os.path.exists(path) else write_passwd(path, lines)

    def pair(self, ours, peer, count=None):
        return pair(count or self.pairs, ours, peer)
