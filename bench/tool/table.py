"""The table: what was measured, what was wanted, and whether the one meets the other."""

import dataclasses

MET, MISSED = "met", "**missed**"
BEGIN, END = "<!-- table: begin -->", "<!-- table: end -->"


@dataclasses.dataclass
class Result:
    """One line of the table."""

    row: int
    work: str
    ours: str
    peer: str
    value: float  # what is judged: a ratio, or a figure with `unit`
    goal: float
    unit: str = "x"
    stretch: bool = False

    @property
    def is_met(self):
        return self.value <= self.goal

    @property
    def verdict(self):
        verdict = MET if self.is_met else MISSED.strip("*") if self.stretch else MISSED
        return f"stretch, {verdict}" if self.stretch else verdict

    def cells(self):
        return [str(self.row), self.work, self.ours, self.peer, _figure(self.value, self.unit),
                f"<= {_figure(self.goal, self.unit)}", self.verdict]


def _figure(value, unit):
    digits = 2 if value < 10 else 1 if value < 100 else 0
    return f"{value:.{digits}f} {unit}"


def unmeasured(row):
    """A line for what ended in an error: it misses whatever the goal is."""
    return Result(row, "could not be measured", "", "", float("inf"), 0)


def duration(seconds):
    """A time with a unit that suits it."""
    for factor, unit in ((1, "s"), (1e3, "ms"), (1e6, "us"), (1e9, "ns")):
        if seconds * factor >= 1:
            break
    return _figure(seconds * factor, unit)


def ratio(row, work, pairs, peer, goal, stretch=False):
    """A line that compares times."""
    return Result(row, work, duration(pairs.our_median),
                  f"{peer}: {duration(pairs.peer_median)}", pairs.ratio, goal, stretch=stretch)


def render(results):
    """The table as Markdown, its columns aligned."""
    lines = [["row", "work", "ours", "peer", "measured", "goal", ""]]
    lines += [result.cells() for result in results]
    widths = [max(len(line[at]) for line in lines) for at in range(len(lines[0]))]
    lines.insert(1, ["-" * width for width in widths])
    return "\n".join("| " + " | ".join(cell.ljust(width) for cell, width in zip(line, widths)) + " |"
                     for line in lines)


def all_met(results):
    """True when every goal is met that is not a stretch."""
    return all(result.is_met or result.stretch for result in results)


def replace_in(text, block):
    """The document with `block` in place of what stands between its markers."""
    if text.count(BEGIN) != 1 or text.count(END) != 1:
        raise ValueError(f"the document has no place for the table: {BEGIN} ... {END}")
    head, rest = text.split(BEGIN)
    return f"{head}{BEGIN}\n{block}\n{END}{rest.split(END)[1]}"
