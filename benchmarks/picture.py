"""The times of some clients as bars, in SVG: for each work a group, with the unit's time as its length of one."""
from results import COMPONENT, UNIT

SHOWN = {UNIT: "#8a8f98", COMPONENT: "#1f6feb", "XMLHTTP": "#d29922", "ServerXMLHTTP": "#bc8cff",
         "WinHttpRequest": "#3fb950"}
LEFT, RIGHT, BAR, GAP, SCALE = 190, 100, 12, 14, 130
LONGEST = 4.0


def draw(results):
    works = [work for work in results.works if results.has(work, UNIT)]
    parts, y = [], 50
    for work in works:
        bars = [(client, results.time_ratio(work, client)) for client in SHOWN]
        bars = [(client, ratio.value) for client, ratio in bars if ratio and ratio.value]
        height = BAR * len(bars)
        parts.append(text(LEFT - 8, y + height / 2 + 4, work, "end"))
        for client, value in bars:
            width = min(value, LONGEST) * SCALE
            parts.append(f'<rect x="{LEFT}" y="{y}" width="{width:.0f}" height="{BAR - 2}" fill="{SHOWN[client]}"/>')
            label = f"{value:.2f}" + (" (cut off)" if value > LONGEST else "")
            parts.append(text(LEFT + width + 5, y + BAR - 3, label))
            y += BAR
        y += GAP
    width = LEFT + LONGEST * SCALE + RIGHT
    line = LEFT + SCALE
    parts.append(f'<line x1="{line}" y1="42" x2="{line}" y2="{y - GAP}" stroke="#8a8f98" stroke-dasharray="3 3"/>')
    return "\n".join([
        f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width:.0f} {y}" font-family="sans-serif" font-size="11">',
        f'<rect width="{width:.0f}" height="{y}" fill="#ffffff"/>',
        text(10, 16, "Time as a ratio to WinINet called by hand on a thread of its own (less is better)"),
        *legend(), *parts, "</svg>", ""])


def legend():
    x = 10
    for client, color in SHOWN.items():
        yield f'<rect x="{x}" y="26" width="10" height="10" fill="{color}"/>'
        yield text(x + 14, 35, client)
        x += 30 + 7 * len(client)


def text(x, y, words, anchor="start"):
    return f'<text x="{x:.0f}" y="{y:.0f}" text-anchor="{anchor}">{words}</text>'
