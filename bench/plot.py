"""A plot as an SVG file: curves over two logarithmic axes, in the reader's colours."""

import math

WIDTH, HEIGHT, LEFT, TOP, RIGHT, BOTTOM = 760, 440, 76, 16, 20, 56
STYLE = """
svg { font: 13px sans-serif; background: #fff; color: #222; }
.c0 { stroke: #0b62a4; } .c1 { stroke: #b3400f; } .c2 { stroke: #2b7a2b; } .any { stroke: currentColor; }
@media (prefers-color-scheme: dark) { svg { background: #16181c; color: #ddd; }
  .c0 { stroke: #6db3f2; } .c1 { stroke: #f2945c; } .c2 { stroke: #7fcf7f; } }
text { fill: currentColor; } .grid { stroke: currentColor; opacity: .15; } .axis { stroke: currentColor; fill: none; }
.curve { fill: none; stroke-width: 2; } .legacy { stroke-dasharray: 6 4; }
"""
UNITS = ((1e-9, "ns"), (1e-6, "µs"), (1e-3, "ms"), (1.0, "s"))


def seconds(value):
    """A time with its unit: 2.5 µs."""
    factor, unit = next(((f, u) for f, u in reversed(UNITS) if value >= f), UNITS[0])
    return f"{value / factor:.3g} {unit}"


def decades(low, high):
    return range(math.floor(math.log10(low) + 1e-9), math.ceil(math.log10(high) - 1e-9) + 1)


def plot(path, x_label, curves):
    """curves: (name, dashed, [(x, seconds)...]); curves of one name share a colour."""
    xs = [x for _, _, points in curves for x, _ in points]
    ys = [y for _, _, points in curves for _, y in points]
    rows = decades(min(ys), max(ys))
    x_low, x_high = math.log10(min(xs)), math.log10(max(xs))

    def at_x(x):
        return LEFT + (math.log10(x) - x_low) / (x_high - x_low) * (WIDTH - LEFT - RIGHT)

    def at_y(y):
        return HEIGHT - BOTTOM - (math.log10(y) - rows[0]) / (rows[-1] - rows[0]) * (HEIGHT - TOP - BOTTOM)

    out = [f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {HEIGHT}" width="{WIDTH}" height="{HEIGHT}">',
           f"<style>{STYLE}</style>"]
    for exponent in rows:
        y = at_y(10.0 ** exponent)
        out.append(f'<path class="grid" d="M{LEFT} {y:.1f}H{WIDTH - RIGHT}"/>'
                   f'<text x="{LEFT - 8}" y="{y + 4:.1f}" text-anchor="end">{seconds(10.0 ** exponent)}</text>')
    for x in sorted(set(xs)):
        out.append(f'<path class="grid" d="M{at_x(x):.1f} {TOP}V{HEIGHT - BOTTOM}"/>'
                   f'<text x="{at_x(x):.1f}" y="{HEIGHT - BOTTOM + 18}" text-anchor="middle">{x:,}</text>')
    out.append(f'<path class="axis" d="M{LEFT} {TOP}V{HEIGHT - BOTTOM}H{WIDTH - RIGHT}"/>'
               f'<text x="{(LEFT + WIDTH - RIGHT) / 2}" y="{HEIGHT - 12}" text-anchor="middle">{x_label}</text>'
               f'<text transform="translate(16 {(TOP + HEIGHT - BOTTOM) / 2}) rotate(-90)" text-anchor="middle">'
               "time</text>")
    names = list(dict.fromkeys(name for name, _, _ in curves))
    for name, dashed, points in curves:
        line = " ".join(f"{at_x(x):.1f},{at_y(y):.1f}" for x, y in points)
        out.append(f'<polyline class="curve c{names.index(name)}{" legacy" if dashed else ""}" points="{line}"/>')
    legend = [(name, f"c{i}") for i, name in enumerate(names)]
    legend += [("native driver", "any"), ("legacy driver", "any legacy")]
    for i, (name, form) in enumerate(legend):
        y = TOP + 16 + 18 * i
        out.append(f'<path class="curve {form}" d="M{LEFT + 14} {y}h28"/>'
                   f'<text x="{LEFT + 50}" y="{y + 4}">{name}</text>')
    path.write_text("\n".join(out) + "\n</svg>\n")
