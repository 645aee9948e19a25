# SPDX-License-Identifier: Apache-2.0
"""Draws the rows of bench_peers as a bar chart and a table.

Usage: chart.py ROWS OUT: writes OUT.svg and OUT.md, prints the table. Bars are ratios to the bare round
trip of the same run, since the speed of a machine drifts from run to run."""
import datetime
import html
import json
import os
import platform
import sys

LABELS = {
    "raw": "bare socket pair, blocking",
    "peer_veltra": "this library",
    "peer_veltra_sleeping": "this library, TAVO_SPIN=off",
    "peer_dbus": "D-Bus, peer to peer (sd-bus)",
    "peer_dbus_daemon": "D-Bus, through its daemon (sd-bus)",
    "peer_zeromq": "ZeroMQ, request and reply",
}
LEFT, RIGHT, BAR, GAP, TOP = 250, 110, 22, 14, 56
WIDTH = 760


def machine():
    with open("/proc/cpuinfo", encoding="utf-8") as file:
        model = next((line.split(":", 1)[1].strip() for line in file if line.startswith("model name")), platform.machine())
    return f"{os.cpu_count()} processors, {model}, Linux {platform.release().split('-')[0]}, {datetime.date.today()}"


def svg(bars):
    most = max(ratio for _, _, ratio in bars)
    height = TOP + len(bars) * (BAR + GAP) + GAP
    lines = [f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {height}" font-family="sans-serif" font-size="13">',
             f'<rect width="{WIDTH}" height="{height}" fill="#ffffff"/>',
             '<text x="12" y="22" font-size="15">One call of 64 bytes beside the bare round trip over a socket pair; less is better</text>',
             f'<text x="12" y="41" fill="#666666" font-size="11">{html.escape(machine())}</text>']
    for index, (name, value, ratio) in enumerate(bars):
        y = TOP + index * (BAR + GAP)
        width = max(2, ratio / most * (WIDTH - LEFT - RIGHT))
        colour = "#1f6fb2" if name.startswith("peer_veltra") else "#9aa5b1"
        lines += [f'<text x="{LEFT - 8}" y="{y + 15}" text-anchor="end">{html.escape(LABELS[name])}</text>',
                  f'<rect x="{LEFT}" y="{y}" width="{width:.0f}" height="{BAR}" rx="2" fill="{colour}"/>',
                  f'<text x="{LEFT + width + 6:.0f}" y="{y + 15}">{ratio:.2f}  ({value:.1f} us)</text>']
    return "\n".join(lines + ["</svg>", ""])


def main():
    rows = [json.loads(line) for line in open(sys.argv[1], encoding="utf-8")]
    raw = sorted(row["raw"] for row in rows)[len(rows) // 2]
    bars = sorted([("raw", raw, 1.0)] + [(row["name"], row["value"], row["ratio"]) for row in rows], key=lambda bar: bar[2])
    table = "| way | beside the bare round trip of the same run | us |\n|---|---|---|\n"
    table += "".join(f"| {LABELS[name]} | {ratio:.2f} | {value:.1f} |\n" for name, value, ratio in bars)
    with open(sys.argv[2] + ".svg", "w", encoding="utf-8") as file:
        file.write(svg(bars))
    with open(sys.argv[2] + ".md", "w", encoding="utf-8") as file:
        file.write(f"{machine()}\n\n{table}")
    print(table, end="")


if __name__ == "__main__":
    main()
