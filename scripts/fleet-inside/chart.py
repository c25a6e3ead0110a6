"""A chart of a run: how many lines were sent and stored, and how many were on their way."""

import collections

import matplotlib

matplotlib.use("agg")

from matplotlib import pyplot  # noqa: E402

SHADE = "0.9"


def draw_chart(path, fleet, phases, faults):
    begin = phases[0].begin
    sent = [one.at - begin for one in fleet.sent]
    stored = [row.committed - begin for row in fleet.stored]
    figure, (rates, waiting) = pyplot.subplots(2, sharex=True, figsize=(10, 5),
                                               layout="constrained")
    for times, label in ((sent, "sent"), (stored, "stored")):
        rates.step(*per_second(times), label=label, where="post", linewidth=0.8)
    rates.set_yscale("symlog")
    rates.set_ylabel("lines a second")
    rates.legend(loc="upper right")
    waiting.step(*on_their_way(sent, stored), where="post", linewidth=0.8)
    waiting.set_ylabel("lines sent, not stored")
    waiting.set_xlabel("seconds")
    for fault in faults:
        for axes in rates, waiting:
            axes.axvspan(fault.began - begin, fault.ended - begin, color=SHADE)
        waiting.text(fault.began - begin, 1, fault.name, fontsize="small", rotation=90,
                     transform=waiting.get_xaxis_transform(), ha="right", va="top")
    figure.savefig(path)


def per_second(times):
    counts = collections.Counter(int(time) for time in times)
    seconds = range(max(counts, default=0) + 1)
    return seconds, [counts[second] for second in seconds]


def on_their_way(sent, stored):
    times, numbers, number = [], [], 0
    for time, change in sorted([*((time, 1) for time in sent), *((time, -1) for time in stored)]):
        number += change
        times.append(time)
        numbers.append(number)
    return times, numbers
