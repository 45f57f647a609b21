"""The cost of one creation against the number of mailboxes, as SVG with logarithmic axes."""

import math

from tool.table import duration

WIDTH, HEIGHT = 640, 400
LEFT, RIGHT, TOP, BOTTOM = 80, 40, 40, 50
SERIES = (("as a command", "#1f5fa8"), ("in a running process", "#b3541e"))


class Axis:
    """Whole decades between two ends of the drawing."""

    def __init__(self, values, begin, end):
        self.low = math.floor(math.log10(min(values)))
        self.high = max(math.ceil(math.log10(max(values))), self.low + 1)
        self.begin, self.end = begin, end

    def at(self, value):
        share = (math.log10(value) - self.low) / (self.high - self.low)
        return self.begin + share * (self.end - self.begin)

    def decades(self):
        return [10.0**power for power in range(self.low, self.high + 1)]


def _text(x, y, words, anchor="middle"):
    return f'<text x="{x:.0f}" y="{y:.0f}" text-anchor="{anchor}">{words}</text>'


def _line(points, style):
    path = " ".join(f"{x:.1f},{y:.1f}" for x, y in points)
    return f'<polyline points="{path}" fill="none" {style}/>'


def _grid(x, y):
    style = 'stroke="#ccc"'
    for value in x.decades():
        yield _line([(x.at(value), y.begin), (x.at(value), y.end)], style)
        yield _text(x.at(value), y.begin + 18, f"{value:,.0f}")
    for value in y.decades():
        yield _line([(x.begin, y.at(value)), (x.end, y.at(value))], style)
        yield _text(x.begin - 6, y.at(value) + 4, duration(value), "end")


def _series(x, y, growth):
    for at, (words, colour) in enumerate(SERIES):
        points = [(x.at(lines), y.at(costs[at])) for lines, costs in growth]
        yield _line(points, f'stroke="{colour}" stroke-width="2"')
        for px, py in points:
            yield f'<circle cx="{px:.1f}" cy="{py:.1f}" r="3" fill="{colour}"/>'
        yield f'<g fill="{colour}">{_text(x.begin + 10, TOP + 16 + 16 * at, words, "start")}</g>'


def _proportional(x, y, growth):
    """As steep as a cost that grows with the file."""
    (first, costs), (last, _) = growth[0], growth[-1]
    end = min(costs[0] * last / first, 10.0**y.high)
    points = [(x.at(first), y.at(costs[0])), (x.at(first * end / costs[0]), y.at(end))]
    return _line(points, 'stroke="#888" stroke-dasharray="4 4"')


def draw(growth):
    """SVG of [(mailboxes, (seconds as a command, seconds in a process)), ...]."""
    x = Axis([lines for lines, _ in growth], LEFT, WIDTH - RIGHT)
    y = Axis([cost for _, costs in growth for cost in costs], HEIGHT - BOTTOM, TOP)
    parts = [f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {HEIGHT}"'
             ' font-family="sans-serif" font-size="12">',
             f'<rect width="{WIDTH}" height="{HEIGHT}" fill="white"/>',
             *_grid(x, y), _proportional(x, y, growth), *_series(x, y, growth),
             _text(WIDTH / 2, 20, "Time of one creation (dashed: in proportion to the file)"),
             _text(WIDTH / 2, HEIGHT - 10, "mailboxes"), "</svg>"]
    return "\n".join(parts) + "\n"
