"""The tables in Markdown, the plot as an SVG, and their places in a document."""

import math

COLOURS = {"kelsh": "#d1495b", "kelsh, next command": "#e8a13a", "bare TLS": "#7a7f87",
           "pdsh": "#2e86ab", "pdsh, curve25519": "#3fa34d", "pdsh, kept connections": "#9b5de5"}


def number(value):
    if value >= 100:
        return f"{value:,.0f}"
    return f"{value:.1f}" if value >= 10 else f"{value:.2f}"


def spread(figure, unit):
    text = f"{number(figure.median)} {unit}"
    if len(figure.values) > 1:
        text += f" ({number(figure.least)}–{number(figure.most)})"
    return text


class Row:
    """One line of the main table: our figure beside another's, and what was aimed at. "times less"
    wants other/ours to be at least the target, "at most" wants ours/other below it."""

    def __init__(self, what, unit, ours, other_name, other, target, least_gain=True):
        self.what, self.unit, self.ours = what, unit, ours
        self.other_name, self.other = other_name, other
        self.target, self.least_gain = target, least_gain
        above, below = (other, ours) if least_gain else (ours, other)
        self.ratio = above.median / max(below.median, 1e-6)

    def is_met(self):
        return self.ratio >= self.target if self.least_gain else self.ratio <= self.target

    def cells(self):
        ratio = f"{number(self.ratio)}×"
        if self.target is None:
            return [self.what, spread(self.ours, self.unit), self.other_name,
                    spread(self.other, self.unit), ratio, "–", "–"]
        target = f"{'≥' if self.least_gain else '≤'} {self.target:g}×"
        return [self.what, spread(self.ours, self.unit), self.other_name,
                spread(self.other, self.unit), ratio, target,
                "met" if self.is_met() else "**missed**"]


def markdown_table(head, rows):
    lines = ["| " + " | ".join(head) + " |", "|" + "---|" * len(head)]
    return "\n".join(lines + ["| " + " | ".join(row) + " |" for row in rows])


def main_table(rows):
    return markdown_table(["What", "kelsh", "Against", "It takes", "Ratio", "Target", ""],
                          [row.cells() for row in rows])


def short_table(rows):
    """One line for everything that was measured, medians only, and what was wanted where a target was
    missed."""
    found = {}
    for row in rows:
        other = f"{row.other_name} {number(row.other.median)} {row.unit}"
        if row.target is not None and not row.is_met():
            ratio, target = row.cells()[4:6]
            other += f" (ratio {ratio}, wanted {target})"
        ours = f"{number(row.ours.median)} {row.unit}"
        found.setdefault(row.what, (ours, []))[1].append(other)
    return markdown_table(["What", "kelsh", "The others"],
                          [[what, ours, "; ".join(others)] for what, (ours, others) in
                           found.items()])


def sweep_table(sweep, counts, value, digits=number):
    """sweep: {series: {count: Spread pair}}; value picks the figure of one."""
    rows = []
    for name, by_count in sweep.items():
        cells = [digits(value(by_count[count], count)) if count in by_count else ""
                 for count in counts]
        rows.append([name] + cells)
    return markdown_table(["Nodes"] + [str(count) for count in counts], rows)


def fill(path, mark, text):
    """Replaces what stands between the two marks of that name in a document."""
    begin, end = f"<!-- {mark}:begin -->", f"<!-- {mark}:end -->"
    with open(path, encoding="utf-8") as file:
        before, found, rest = file.read().partition(begin)
    _, ended, after = rest.partition(end)
    if not found or not ended:
        raise ValueError(f"{path} has no marks {begin} and {end}")
    with open(path, "w", encoding="utf-8") as file:
        file.write(f"{before}{begin}\n{text}\n{end}{after}")


# ---- plot ---------------------------------------------------------------------------------------

WIDTH, HEIGHT = 400, 300
LEFT, TOP, RIGHT, BOTTOM = 56, 30, 10, 40

# Readable on a light page and on a dark one.
STYLE = """<style>
text { font: 12px sans-serif; fill: #57606a; }
.title { font-weight: bold; }
.grid { stroke: #8b949e; stroke-opacity: 0.3; }
polyline { fill: none; stroke-width: 2; }
@media (prefers-color-scheme: dark) { text { fill: #adbac7; } }
</style>"""


def label(value):
    return f"{value:g}" if value < 1000 else f"{value / 1000:g}k"


class Axis:
    """A logarithmic one, from a power of ten to another."""

    def __init__(self, values, start, length):
        self.low = math.floor(math.log10(min(values)))
        self.high = max(math.ceil(math.log10(max(values))), self.low + 1)
        self.start, self.length = start, length

    def at(self, value):
        share = (math.log10(value) - self.low) / (self.high - self.low)
        return self.start + share * self.length

    def decades(self):
        return [10.0 ** power for power in range(self.low, self.high + 1)]


def panel(title, series, offset):
    """series: {name: {count: value}}."""
    values = [value for points in series.values() for value in points.values()]
    counts = [count for points in series.values() for count in points]
    x = Axis(counts, offset + LEFT, WIDTH - LEFT - RIGHT)
    y = Axis(values, HEIGHT - BOTTOM, -(HEIGHT - TOP - BOTTOM))
    parts = [f'<text class="title" x="{offset + LEFT}" y="18">{title}</text>']
    for value in y.decades():
        parts.append(f'<line class="grid" x1="{x.start}" x2="{x.start + x.length}" '
                     f'y1="{y.at(value):.1f}" y2="{y.at(value):.1f}"/>'
                     f'<text x="{x.start - 6}" y="{y.at(value) + 4:.1f}" text-anchor="end">'
                     f'{label(value)}</text>')
    for value in x.decades():
        parts.append(f'<line class="grid" x1="{x.at(value):.1f}" x2="{x.at(value):.1f}" '
                     f'y1="{TOP}" y2="{HEIGHT - BOTTOM}"/>'
                     f'<text x="{x.at(value):.1f}" y="{HEIGHT - BOTTOM + 16}" '
                     f'text-anchor="middle">{label(value)}</text>')
    parts.append(f'<text x="{x.start + x.length / 2}" y="{HEIGHT - 8}" text-anchor="middle">'
                 'nodes</text>')
    for name, points in series.items():
        places = [(x.at(count), y.at(value)) for count, value in sorted(points.items())]
        parts.append(f'<polyline stroke="{COLOURS[name]}" points="'
                     + " ".join(f"{px:.1f},{py:.1f}" for px, py in places) + '"/>')
        parts += [f'<circle cx="{px:.1f}" cy="{py:.1f}" r="2.5" fill="{COLOURS[name]}"/>'
                  for px, py in places]
    return parts


def legend(names):
    parts = []
    for i, name in enumerate(names):
        left, top = LEFT + (i % 3) * 250, HEIGHT + 16 + (i // 3) * 20
        parts.append(f'<line x1="{left}" x2="{left + 22}" y1="{top - 4}" y2="{top - 4}" '
                     f'stroke="{COLOURS[name]}" stroke-width="3"/>'
                     f'<text x="{left + 28}" y="{top}">{name}</text>')
    return parts


def plot(wall, cpu):
    """Both {name: {count: milliseconds}}, names of COLOURS."""
    height = HEIGHT + 48
    parts = [f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {2 * WIDTH} {height}" '
             f'width="{2 * WIDTH}" height="{height}" role="img" '
             'aria-label="Wall time and processor time over the number of nodes">', STYLE]
    parts += panel("time until all have answered, ms", wall, 0)
    parts += panel("processor time of the client per node, ms", cpu, WIDTH)
    return "\n".join(parts + legend(list(wall)) + ["</svg>", ""])
