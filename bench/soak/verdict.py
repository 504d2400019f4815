"""What counts as growth and as loss, and the tables."""

import statistics

from measure import KEPT_KIB, print_table

IDLE_PERCENT = 1
COST_FACTOR, COST_US = 2, 50
TIME_FACTOR, TIME_MS = 3, 10
WARM_SECONDS = 60
LIMITS = f"""
It ends with status 1 if anything is lost or grows:

  lost     a poller's picture at rest differs from the memory; the counter goes back; a poller whose request waits for a
           second or longer does not get a document that another one gets; a follower misses or repeats a line of the log;
           the page does not show the last value; a request fails although no fault is in progress that excuses it (the
           service has to survive stops, signals, short reads and clock steps without a failed request); the process ends
           without a fault that ends it, or does not become ready
  grows    descriptors: more at rest than at the first rest
           memory: resident memory without the log's text, which the service keeps, {KEPT_KIB} KiB above that of the first
           rest; or a line through the samples of a process, {WARM_SECONDS} s after its start, that rises by as much
           processor time: more than {IDLE_PERCENT} % at rest without clients; cost of a tree or a set more than
           {COST_FACTOR} x the first rest's and {COST_US} microseconds
           answer time: at rest, the quickest more than {TIME_FACTOR} x the first rest's and {TIME_MS} ms
           the page: heap 8 MiB above its first size
"""


def growth(rests):
    """Complaints about rests, compared with the first."""
    first = rests[0]
    allowed = first.resident_kib - first.log_kib + KEPT_KIB
    for number, rest in enumerate(rests, 1):
        if rest.descriptors > first.descriptors:
            yield f"rest {number}: {rest.descriptors} descriptors, {first.descriptors} at the first rest"
        if rest.resident_kib - rest.log_kib > allowed:
            yield f"rest {number}: {rest.resident_kib - rest.log_kib} KiB beyond the log, at most {allowed} allowed"
        if rest.idle_percent > IDLE_PERCENT:
            yield f"rest {number}: {rest.idle_percent:.1f} % of a processor without clients"
        for name, factor, slack in (("tree_us", COST_FACTOR, COST_US), ("set_us", COST_FACTOR, COST_US),
                                    ("tree_ms", TIME_FACTOR, TIME_MS), ("set_ms", TIME_FACTOR, TIME_MS)):
            if getattr(rest, name) > factor * getattr(first, name) + slack:
                yield f"rest {number}: {name} {getattr(rest, name):.0f}, {getattr(first, name):.0f} at the first rest"


def slopes(samples, lives):
    """(life, seconds, KiB by which a line through its samples without the log rises) of each long life."""
    for life in range(1, lives + 1):
        own = [sample for sample in samples if sample.life == life]
        late = [sample for sample in own if sample.when > own[0].when + WARM_SECONDS]
        if len(late) >= WARM_SECONDS:
            times = [sample.when - late[0].when for sample in late]
            line = statistics.linear_regression(times, [sample.resident_kib - sample.log_kib for sample in late])
            yield life, times[-1], line.slope * times[-1]


def judge(soak):
    """All complaints."""
    complaints = soak.tally.complaints + list(growth(soak.resting.rests))
    complaints += [f"{failure.kind} failed without a fault at {failure.begin - soak.begin:.1f} s: {failure.text}"
                   for failure in soak.tally.unexcused()]
    for life, seconds, rise in slopes(soak.watch.samples, len(soak.unit.lives)):
        if rise > KEPT_KIB:
            complaints.append(f"process {life}: memory rises by {rise:.0f} KiB in {seconds:.0f} s")
    for life in soak.unit.lives[:-1]:
        if not any("*" in w.excuses and w.begin <= life.end <= w.end + 1 for w in soak.tally.windows):
            complaints.append(f"the service ended by itself with {life.code} at {life.end - soak.begin:.1f} s")
    return complaints


def print_report(soak, seconds):
    tally, samples = soak.tally, soak.watch.samples
    requests = [(kind, count) for kind, count in sorted(tally.counts.items()) if not kind.startswith("documents")]
    print_table(("requests answered as expected", "count"), [*requests, ("**all**", sum(count for _, count in requests))])
    names = sorted({window.fault for window in tally.windows})
    failed = len(tally.failures) - len(tally.unexcused())
    print_table(("fault", "times"), [(name, sum(w.fault == name for w in tally.windows)) for name in names])
    print_table(("figure", "value"), (
        ("duration", f"{seconds / 60:.1f} min"),
        ("device time at its speed", f"{soak.device_seconds / 3600:.1f} h"),
        ("events", f"{soak.observer.events:.0f}"),
        ("processes of the service", len(soak.unit.lives)),
        ("failures excused by a fault", failed),
        ("documents missed by a late poller", tally.counts["documents missed by a late poller"]),
        ("documents lost", tally.counts["documents lost"]),
        ("length of the log at the end", f"{soak.log_size() / 1024:.0f} KiB"),
        ("processor of the service, median", f"{statistics.median(s.processor_percent for s in samples):.0f} %"),
        ("answer time under load, median", f"{statistics.median(t for _, t in tally.times) * 1000:.1f} ms"),
        *((f"memory without the log, process {life} over {length:.0f} s", f"{rise:+.0f} KiB")
          for life, length, rise in slopes(samples, len(soak.unit.lives)))))
    print_table(("rest at s", "process", "descriptors", "resident KiB", "log KiB", "idle CPU %", "tree CPU µs", "set CPU µs",
                 "tree ms", "set ms", "page's heap KiB"),
                [(f"{r.when - soak.begin:.0f}", r.life, r.descriptors, r.resident_kib, r.log_kib, f"{r.idle_percent:.2f}",
                  f"{r.tree_us:.0f}", f"{r.set_us:.0f}", f"{r.tree_ms:.1f}", f"{r.set_ms:.1f}", r.page_kib)
                 for r in soak.resting.rests])
