#!/usr/bin/env python3
"""Prints the benchmark figures with their ratios to the same-run baselines and the targets.

usage: report.py REPLIES.json REQUESTS.json E2E.txt STRIPPED_TEXT_BYTES
"""
import json
import re
import sys

REPLY_TARGET, REPLY_STRETCH = 0.6, 0.5
REQUEST_TARGET = 1.5
E2E_TARGET, E2E_STRETCH = 0.6, 0.5
FLAT = 0.15
TEXT_TARGET = 2 * 1024 * 1024


def medians(path):
    """run name -> CPU time in ns (median of the repetitions, or the single run)."""
    with open(path) as f:
        data = json.load(f)
    scale = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}
    times = {}
    for b in data["benchmarks"]:
        kind = b.get("run_type", "iteration")
        if kind == "aggregate" and b.get("aggregate_name") != "median":
            continue
        name = b.get("run_name", b["name"])
        if kind == "iteration" and name in times:
            continue
        times[name] = b["cpu_time"] * scale[b.get("time_unit", "ns")]
    return times


def short(name, width=66):
    return name if len(name) <= width else name[:28] + ".." + name[-(width - 30):]


def verdict(ratio, target, stretch=None):
    if ratio <= (stretch or 0):
        return "MET (stretch)"
    return "met" if ratio <= target else "NOT MET"


def replies(path):
    t = medians(path)
    print("\nReply handling: OnvifResponse + getNodeByTag + deserialize vs QDomDocument::setContent(QByteArray, true)")
    print(f"  target <= {REPLY_TARGET}x (stretch {REPLY_STRETCH}x); domxsr = setContent(QXmlStreamReader*, true), reference")
    print(f"  {'reply':66} {'lib us':>9} {'dom us':>9} {'ratio':>6} {'domxsr':>7}  verdict")
    met = total = 0
    worst = 0.0
    for name in sorted(n for n in t if n.startswith("lib/")):
        rest = name[4:]
        lib, dom, xsr = t[name], t.get("dom/" + rest), t.get("domxsr/" + rest)
        if not dom:
            continue
        ratio = lib / dom
        worst = max(worst, ratio)
        total += 1
        met += ratio <= REPLY_TARGET
        xsr_ratio = f"{xsr / dom:7.2f}" if xsr else "      -"
        print(f"  {short(rest):66} {lib / 1e3:9.1f} {dom / 1e3:9.1f} {ratio:6.2f} {xsr_ratio}  {verdict(ratio, REPLY_TARGET, REPLY_STRETCH)}")
    print(f"  => {met}/{total} replies within {REPLY_TARGET}x; worst ratio {worst:.2f}")


def requests(path):
    t = medians(path)
    print("\nRequest building: OnvifRequest + OnvifSecurity vs one bare template fill + SHA-1 + Base64")
    print(f"  {'operation':20} {'lib us':>9} {'bare us':>9} {'ratio':>6}  verdict (target <= {REQUEST_TARGET}x)")
    for name in sorted(n for n in t if n.startswith("lib/")):
        op = name[4:]
        bare = t.get("bare/" + op)
        if bare:
            ratio = t[name] / bare
            print(f"  {op:20} {t[name] / 1e3:9.2f} {bare / 1e3:9.2f} {ratio:6.2f}  {verdict(ratio, REQUEST_TARGET)}")


def e2e(path):
    fleet = {}
    baseline = "bare_QNAM+QDom,_Close_(baseline)"
    ptz_baseline = "bare_QNAM+QDom_PTZ_ops_(PTZ_baseline)"
    with open(path) as f:
        for line in f:
            m = re.match(r"E2E fleet=(\d+) path=(.*) ms_cpu_per_op=([\d.]+) ops=(\d+) failures=(\d+)", line)
            if m:
                fleet.setdefault(int(m.group(1)), {})[m.group(2).replace(" ", "_")] = (
                    float(m.group(3)), int(m.group(5)))
    if not fleet:
        print("\nEnd to end: no figures (see the tool's output above)")
        return
    print(f"\nEnd to end: client CPU per operation vs the bare QNAM + QDom client (target <= {E2E_TARGET}x, "
          f"stretch {E2E_STRETCH}x; flat within +-{int(FLAT * 100)}% from the smallest to the largest fleet)")
    sizes = sorted(fleet)
    paths = [p for p in fleet[sizes[0]] if p != baseline]
    header = "".join(f" {f'{n} cams ms':>12} {'ratio':>6}" for n in sizes)
    print(f"  {'path':45}{header}  {'flatness':>9}  verdict")
    for p in paths:
        cols, ratios = "", []
        # The PTZ layer makes other calls; it is compared with a bare client making those.
        own_baseline = ptz_baseline if "PTZ_ops" in p else baseline
        for n in sizes:
            cpu = fleet[n].get(p, (0, 0))[0]
            base = fleet[n].get(own_baseline, (0, 0))[0]
            ratio = cpu / base if base else 0
            ratios.append(ratio)
            cols += f" {cpu:12.3f} {ratio:6.2f}"
        first, last = fleet[sizes[0]].get(p, (0, 0))[0], fleet[sizes[-1]].get(p, (0, 0))[0]
        flat = last / first - 1 if first else 0
        flat_ok = abs(flat) <= FLAT
        fails = sum(fleet[n].get(p, (0, 0))[1] for n in sizes)
        note = "" if fails == 0 else f" ({fails} failed ops)"
        if p.startswith("bare"):
            v = "reference"
        elif p.endswith(",_QNAM"):
            # The host's own QNetworkAccessManager carries these; its cost is Qt's.
            v = "Qt's manager lent"
        else:
            v = verdict(max(ratios), E2E_TARGET, E2E_STRETCH)
        print(f"  {p.replace('_', ' ')[:45]:45}{cols}  {flat:+8.0%} {'flat' if flat_ok else 'NOT FLAT'}  {v}{note}")
    base_first, base_last = fleet[sizes[0]][baseline][0], fleet[sizes[-1]][baseline][0]
    print(f"  baseline: {base_first:.3f} -> {base_last:.3f} ms CPU/op ({base_last / base_first - 1:+.0%})")


def size(text_bytes):
    text = int(text_bytes)
    print(f"\nSize: stripped libOnvifTypes.so text {text / 1024 / 1024:.2f} MiB ({text} bytes); "
          f"target <= 2 MiB: {'met' if text <= TEXT_TARGET else 'NOT MET'}")


def main():
    replies(sys.argv[1])
    requests(sys.argv[2])
    e2e(sys.argv[3])
    size(sys.argv[4])


if __name__ == "__main__":
    main()
