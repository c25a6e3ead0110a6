"""A chart of a run: how many lines were sent and stored, and how many were on their way."""

import collections
import itertools

import matplotlib

matplotlib.use("agg")

from matplotlib import pyplot  # noqa: E402

SHADE = "0.9"


def draw_chart(path, fleet, phases, faults):
    begin = phases[0].begin
    sent = per_second(one.at - begin for one in fleet.sent)
    stored = per_second(row.committed - begin for row in fleet.stored)
    seconds = range(max(*sent, *stored) + 1)
    figure, (rates, waiting) = pyplot.subplots(2, sharex=True, figsize=(10, 5),
                                               layout="constrained")
    for counts, label in ((sent, "sent"), (stored, "stored")):
        rates.step(seconds, [counts[second] for second in seconds], label=label, where="post",
                   linewidth=0.8)
    rates.set_yscale("symlog")
    rates.set_ylabel("lines a second")
    rates.legend(loc="upper right")
    waiting.step(seconds, list(itertools.accumulate(
        sent[second] - stored[second] for second in seconds)), where="post", linewidth=0.8)
    waiting.set_ylabel("lines sent, not stored")
    waiting.set_xlabel("seconds")
    for fault in faults:
        for axes in rates, waiting:
            axes.axvspan(fault.began - begin, fault.ended - begin, color=SHADE)
        waiting.text(fault.ended - begin, 0.97, fault.name, fontsize="small", rotation=90,
                     transform=waiting.get_xaxis_transform(), ha="left", va="top")
    figure.savefig(path)


def per_second(times):
    return collections.Counter(int(time) for time in times)
