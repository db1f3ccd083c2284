#!/usr/bin/env python3
"""bench_pairs.py BENCH DSD MKCONFIG [PAIRS] [PARENT]: the bench's figures with
the live statistics and change events on and off, in pairs.

Each pair is one whole bench run with them on and one with DSD_STATS=0
DSD_EVENTS=0 (dsd inherits the bench's environment), in turns, the order
inside a pair alternating, so that a drift of the host's load falls on both
sides alike. Prints, per timed row, the median over the pairs of on / off
(the first number of each row's result) and the range of those ratios.
With BENCH_PAIRS_OUT set, each run's table is also written there.
"""
import os
import re
import statistics
import subprocess
import sys

# Rows whose first number is a time (lower is better) or a rate (higher).
RATE_ROWS = ("requests/s",)
SKIP_ROWS = ("VmRSS", "Measure")


def run_bench(args, on, name):
    env = dict(os.environ)
    for key in ("DSD_STATS", "DSD_EVENTS"):
        env.pop(key, None)
        if not on:
            env[key] = "0"
    out = subprocess.run(args, env=env, capture_output=True, text=True, check=False)
    if out.returncode != 0:
        sys.stderr.write(out.stderr)
        raise SystemExit("bench failed")
    if os.environ.get("BENCH_PAIRS_OUT"):
        with open(os.path.join(os.environ["BENCH_PAIRS_OUT"], name), "w") as f:
            f.write(out.stdout)
    rows = {}
    for line in out.stdout.splitlines():
        if line.startswith("Statistics and change events"):
            break  # the bench's own on / off table: both sides in every run
        cells = [c.strip() for c in line.strip().strip("|").split("|")]
        if len(cells) < 2 or cells[0].startswith(SKIP_ROWS) or cells[0].startswith("-"):
            continue
        nums = re.findall(r"[0-9]+(?:\.[0-9]+)?", cells[1])
        if nums:
            rows[cells[0]] = [float(n) for n in nums]
    return rows


def main():
    if len(sys.argv) < 4:
        raise SystemExit(__doc__)
    pairs = int(sys.argv[4]) if len(sys.argv) > 4 else 5
    args = sys.argv[1:4] + sys.argv[5:6]
    ratios = {}
    for p in range(pairs):
        order = (True, False) if p % 2 == 0 else (False, True)
        got = {on: run_bench(args, on, "pair%d-%s.txt" % (p + 1, "on" if on else "off")) for on in order}
        for row, on_vals in got[True].items():
            off_vals = got[False].get(row)
            if not off_vals:
                continue
            # The throughput row: 1, 2 and 6 clients, each a ratio of its own.
            cols = 3 if row.startswith(RATE_ROWS) else 1
            for i in range(cols):
                name = row if cols == 1 else "%s (%s)" % (row, ("1", "2", "6")[i])
                r = on_vals[i] / off_vals[i] if off_vals[i] else float("nan")
                if row.startswith(RATE_ROWS):
                    r = 1 / r  # as a cost: above 1 is slower with them on
                ratios.setdefault(name, []).append(r)
        print("pair %d done" % (p + 1), file=sys.stderr, flush=True)
    print("| Row | on / off, median of %d pairs | range |" % pairs)
    print("|---|---|---|")
    for name, rs in ratios.items():
        print("| %s | %+.1f%% | %+.1f%% to %+.1f%% |" % (
            name, 100 * (statistics.median(rs) - 1), 100 * (min(rs) - 1), 100 * (max(rs) - 1)))


if __name__ == "__main__":
    main()
