#!/usr/bin/python3
"""Prints the tables of a benchmark run, and draws where the time of a 10 ms block goes.

    report.py RESULTS.json [--plot STAGES.png]

Every time is the shortest of its repetitions. Shares are of the multiply-adds that the core was measured to do in the
same run, fused, on registers alone.
"""
import argparse
import json

LEVELS = ("generic", "avx", "avx2")


def read(path):
    """Times in microseconds and multiply-adds: {group: {name: {variant: (time, multiply_adds)}}}"""
    with open(path) as file:
        results = json.load(file)
    groups = {}
    for entry in results["benchmarks"]:
        if entry.get("aggregate_name") != "least":
            continue
        parts = [part for part in entry["run_name"].split("/") if ":" not in part]
        group, name, variant = parts[0], parts[1], parts[2] if len(parts) > 2 else ""
        groups.setdefault(group, {}).setdefault(name, {})[variant] = (entry["cpu_time"] / 1e3, entry.get("multiply_adds"))
    return results["context"], groups


def print_levels(title, rows, peak):
    if not rows:
        return
    print(f"\n{title:32}" + "".join(f"{level:>24}" for level in LEVELS))
    print(" " * 32 + "        us  G/s   of peak" * len(LEVELS))
    for name, variants in rows.items():
        line = f"{name:32}"
        for level in LEVELS:
            time, work = variants.get(level, (None, None))
            line += " " * 24 if time is None else f"{time:10.2f}"
            if time is not None:
                rate = work / time / 1e3 if work else 0
                share = f"{100e9 * rate / peak:6.1f} %" if work and peak else ""
                line += f"{rate:6.1f}{share:>8}" if work else " " * 14
        print(line.rstrip())


def print_engine(rows, peak):
    if not rows:
        return
    print("\nvq_ns_process, 10 ms: us (streams a core; times what the multiply-adds alone take at the peak)")
    print(" " * 12 + "".join(f"{level:>26}" for level in LEVELS))
    for rate, variants in rows.items():
        line = f"{rate:>8} Hz "
        for level in LEVELS:
            if level in variants:
                time, work = variants[level]
                bound = f", x {time * 1e-6 * peak / work:.2f}" if peak else ""
                line += f"{time:10.1f} ({10000 / time:.0f}{bound})".rjust(26)
        print(line)
    at_16k = {level: time for level, (time, _) in rows.get("16000", {}).items()}
    if "avx2" in at_16k:
        print("Against avx2 at 16000 Hz: " + ", ".join(
            f"{level} x {at_16k[level] / at_16k['avx2']:.2f}" for level in LEVELS if level in at_16k))


def print_rest(groups):
    for group, title in (("gain_control", "Gain control"), ("detector", "Detector")):
        for name, variants in groups.get(group, {}).items():
            print(f"{title}, {name} Hz, 10 ms: {variants[''][0]:.2f} us")
    routes = groups.get("converter", {})
    if routes:
        print("\nConverter, 10 ms, us: short filters / long filters; from (down) to (across)")
        rates = sorted({int(route.split("_to_")[0]) for route in routes})
        print(" " * 8 + "".join(f"{rate:>15}" for rate in rates))
        for source in rates:
            cells = (routes.get(f"{source}_to_{target}") for target in rates)
            print(f"{source:8}" + "".join(
                f"{c['short'][0]:7.2f} /{c['long'][0]:6.2f}" if c else " " * 15 for c in cells))


def plot(groups, path):
    import matplotlib

    matplotlib.use("Agg")
    from matplotlib import pyplot

    stages = groups["stage"]
    levels = [level for level in LEVELS if level in next(iter(stages.values()))]
    figure, axes = pyplot.subplots(len(levels), 1, figsize=(9, 1.2 + 1.1 * len(levels)), sharex=False)
    for axis, level in zip(axes, reversed(levels)):
        total, left = groups["process"]["16000"][level][0], 0.0
        parts = [(name, variants[level][0]) for name, variants in stages.items()]
        parts.append(("the rest", max(0.0, total - sum(time for _, time in parts))))
        for index, (name, time) in enumerate(parts):
            axis.barh([0], [time], left=left, color=f"C{index}", label=name.replace("_", " "))
            if time > 0.06 * total:
                axis.text(left + time / 2, 0, f"{time:.0f}", ha="center", va="center", color="white")
            left += time
        axis.set_yticks([0], [level])
        axis.set_xlim(0, max(left, total))
    axes[0].legend(ncols=4, fontsize=8, loc="lower center", bbox_to_anchor=(0.5, 1.05), frameon=False)
    axes[-1].set_xlabel("microseconds of a 10 ms block at 16 kHz, one core")
    figure.tight_layout()
    figure.savefig(path, dpi=120)


if __name__ == "__main__":
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("results")
    parser.add_argument("--plot", metavar="PNG")
    arguments = parser.parse_args()
    context, groups = read(arguments.results)
    peak = float(context.get("fma_peak", 0))
    print(f"{context['date']}, {context['num_cpus']} cores, compiler {context['compiler']}")
    print(f"Fused multiply-add peak of a core: {peak / 1e9:.1f} G/s" if peak else "No fused multiply-add: no shares")
    print(f"An instance: {context['instance_bytes']} bytes")
    print_levels("Kernel", groups.get("kernel", {}), peak)
    print_levels("Stage of a block", groups.get("stage", {}), peak)
    print_engine(groups.get("process", {}), peak)
    print()
    print_rest(groups)
    if arguments.plot:
        plot(groups, arguments.plot)
