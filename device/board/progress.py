"""What the command says while it works."""

import contextlib
import sys
import threading
import time
from collections import deque

NOTE_SECONDS = 15
_steps = []


@contextlib.contextmanager
def step(title):
    """Prints the title, the time that the block took, and meanwhile a line now and then. The block gets a function that
    sets the text of that line."""
    print(f"{title} ...", flush=True)
    begin, end, text = time.monotonic(), threading.Event(), deque([""], 1)

    def notes():
        while not end.wait(NOTE_SECONDS):
            print(f"    {time.monotonic() - begin:.0f} s  {text[0]}"[:110], flush=True)

    thread = threading.Thread(target=notes, daemon=True)
    thread.start()
    try:
        yield text.append
    finally:
        end.set()
        thread.join()
    _steps.append((title, time.monotonic() - begin))
    print(f"    {_steps[-1][1]:.0f} s", flush=True)


def summary(status):
    for title, seconds in _steps:
        print(f"{seconds:6.0f} s  {title}")
    print("The board: passed" if status == 0 else f"The board: FAILED with status {status}", file=sys.stderr)
