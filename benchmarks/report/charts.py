"""Charts as SVG: one bar a subject, the library's coloured, on a logarithmic scale."""

import html
import math

from report.verdicts import number

BAR, GAP, LEFT, WIDTH, RIGHT = 13, 14, 250, 420, 90
COLOURS = {"osx": "#d9480f", "floor": "#868e96", "peer": "#74a9cf", "other": "#bcd6e8"}
ORDER = tuple(COLOURS)


def text(x, y, content, anchor="start", weight="normal", size=11):
    return (f'<text x="{x:.0f}" y="{y:.0f}" text-anchor="{anchor}" font-weight="{weight}" '
            f'font-size="{size}">{html.escape(content)}</text>')


def bars(row, top, low, high):
    """@return the elements of one row, and the height they take."""
    parts = [text(4, top + 10, row.name, weight="bold")]
    y = top + 16
    for result in sorted(row.results, key=lambda r: ORDER.index(r["role"])):
        share = (math.log10(max(result["value"], low)) - math.log10(low)) / (
            math.log10(high) - math.log10(low))
        length = max(2, share * WIDTH)
        parts.append(text(LEFT - 6, y + 10, result["subject"], "end"))
        parts.append(f'<rect x="{LEFT}" y="{y}" width="{length:.0f}" height="{BAR - 2}" '
                     f'fill="{COLOURS[result["role"]]}"/>')
        parts.append(text(LEFT + length + 4, y + 10, number(result["value"], result["unit"])))
        y += BAR
    return parts, y + GAP - top


def chart(title, rows):
    """@return an SVG picture of some rows of one unit."""
    values = [r["value"] for row in rows for r in row.results if r["value"] > 0]
    low = 10 ** math.floor(math.log10(min(values)) - 0.3)
    high = max(max(values), low * 10)
    parts, y = [text(4, 18, title, weight="bold", size=14),
                text(LEFT + WIDTH, 18, "shorter is better, logarithmic", "end")], 30
    for row in rows:
        elements, height = bars(row, y, low, high)
        parts += elements
        y += height
    return (f'<svg xmlns="http://www.w3.org/2000/svg" width="{LEFT + WIDTH + RIGHT}" height="{y}" '
            f'font-family="sans-serif" fill="#212529">\n'
            f'<rect width="100%" height="100%" fill="white"/>\n' + "\n".join(parts) + "\n</svg>\n")
