"""Prints tables of the comparison and draws it."""

import html
import math
import statistics


def spread(values):
    """First and third quartile."""
    if len(values) < 2:
        return values[0], values[0]
    quartiles = statistics.quantiles(values, n=4, method="inclusive")
    return quartiles[0], quartiles[2]


def number(value):
    if value is None:
        return "-"
    if value >= 100:
        return f"{value:.0f}"
    return f"{value:.1f}" if value >= 10 else f"{value:.2f}"


def cell(values):
    if not values:
        return "-"
    low, high = spread(values)
    return f"{number(statistics.median(values))} [{number(low)}..{number(high)}]"


def table(title, header, rows):
    print(f"\n{title}")
    widths = [max(len(str(row[i])) for row in [header, *rows]) for i in range(len(header))]
    for row in [header, *rows]:
        line = [str(row[0]).ljust(widths[0])]
        line += [str(value).rjust(width) for value, width in zip(row[1:], widths[1:])]
        print("  " + "  ".join(line).rstrip())


COLOURS = {"nima": "#0b6e4f", "floor": "#bbbbbb", "minimum": "#888888"}
PEER_COLOURS = ["#4477aa", "#cc6677", "#ddaa33", "#aa4499", "#66ccee"]


def _bars(measurements):
    """(competitor, threads, ns), grouped by competitor."""
    return [(name, int(threads), statistics.median(values))
            for name, by_threads in measurements.items() for threads, values in by_threads.items() if values]


def draw(path, jobs, titles):
    """One panel of horizontal bars for each job, on a logarithmic scale."""
    left, width, height, gap = 170, 520, 13, 46
    parts, y = [], 30
    for job, measurements in jobs.items():
        bars = _bars(measurements)
        if not bars:
            continue
        low = 10 ** math.floor(math.log10(max(min(ns for _, _, ns in bars), 0.1)))
        high = 10 ** math.ceil(math.log10(max(ns for _, _, ns in bars)))
        scale = width / math.log10(high / low)
        parts.append(f'<text x="8" y="{y}" font-weight="bold">{html.escape(titles[job])}, ns per call</text>')
        y += 8
        top = y
        names = list(measurements)
        peers = [name for name in names if name not in COLOURS]
        for name, threads, ns in bars:
            colour = COLOURS.get(name) or PEER_COLOURS[peers.index(name) % len(PEER_COLOURS)]
            length = max(math.log10(max(ns, low) / low) * scale, 1)
            parts.append(f'<text x="{left - 6}" y="{y + 10}" text-anchor="end">{html.escape(name)}, '
                         f'{threads} thread{"s" if threads > 1 else ""}</text>'
                         f'<rect x="{left}" y="{y + 1}" width="{length:.1f}" height="{height - 2}" fill="{colour}"/>'
                         f'<text x="{left + length + 4:.1f}" y="{y + 10}">{number(ns)}</text>')
            y += height
        tick = low
        while tick <= high:
            x = left + math.log10(tick / low) * scale
            parts.append(f'<line x1="{x:.1f}" y1="{top}" x2="{x:.1f}" y2="{y}" stroke="#dddddd"/>'
                         f'<text x="{x:.1f}" y="{y + 12}" text-anchor="middle" fill="#666666">{tick:g}</text>')
            tick *= 10
        y += gap
    with open(path, "w", encoding="utf-8") as out:
        out.write(f'<svg xmlns="http://www.w3.org/2000/svg" width="{left + width + 90}" height="{y}" '
                  'font-family="sans-serif" font-size="11"><rect width="100%" height="100%" fill="white"/>\n')
        out.write("\n".join(parts) + "\n</svg>\n")
