"""Draws the figures of a soak into one picture."""

import matplotlib

matplotlib.use("Agg")

from matplotlib import pyplot

ENDING = "#d62728"
SURVIVED = "#ff7f0e"
REST = "#2ca02c"


def draw(soak, file):
    """Writes a PNG: descriptors, memory, processor time, answer times and requests over minutes, with all faults."""
    samples, answers = soak.watch.samples, soak.tally.times

    def minutes(whens):
        return [(when - soak.begin) / 60 for when in whens]

    at = minutes(sample.when for sample in samples)
    panels = (
        ("descriptors", at, [("open", [s.descriptors for s in samples])]),
        ("memory, MiB", at, [("resident", [s.resident_kib / 1024 for s in samples]),
                             ("without the log", [(s.resident_kib - s.log_kib) / 1024 for s in samples])]),
        ("processor, %", at, [("service", [s.processor_percent for s in samples])]),
        ("answer, ms", minutes(when for when, _ in answers), [("small set", [1000 * took for _, took in answers])]),
        ("requests, million", at, [("answered", [s.requests / 1e6 for s in samples])]),
    )
    figure, axes = pyplot.subplots(len(panels), sharex=True, figsize=(11, 12), constrained_layout=True)
    for axis, (title, times, lines) in zip(axes, panels):
        mark_faults(axis, soak)
        for label, values in lines:
            axis.plot(times, values, ".", markersize=2, label=label)
        axis.set_ylabel(title)
        axis.legend(loc="upper left", markerscale=5)
        axis.grid(alpha=0.3)
    axes[3].set_yscale("log")
    axes[-1].set_xlabel("minutes; red: the service ends, orange: a fault that it survives, green: rest")
    figure.savefig(file, dpi=80)


def mark_faults(axis, soak):
    ends = [life.end for life in soak.unit.lives[:-1]]
    for window in soak.tally.windows:
        is_ending = any(window.begin <= end <= window.end + 1 for end in ends)
        colour = REST if window.fault == "web server restart" else ENDING if is_ending else SURVIVED
        axis.axvspan((window.begin - soak.begin) / 60, (window.end - soak.begin) / 60, color=colour, alpha=0.2, lw=0)
