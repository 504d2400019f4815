"""Bytes that the board writes to its card while it is used and nothing is uploaded."""

import json
import time

from measure import print_table

ADVICE = "packaging/examples/journald.conf"
DROP_IN = "/etc/systemd/journald.conf.d/webservice.conf"


def written(board):
    """Bytes written to the card so far, by all programs."""
    return int(board.run("sync; cat /sys/block/mmcblk1/stat").split()[6]) * 512


def use(board, seconds):
    """What a phone and the console do: the status every second, the whole tree every minute, a set request every ten."""
    end, number = time.monotonic() + seconds, 0
    while time.monotonic() < end:
        board.ask("/qorapp/v1/device/status")
        if number % 10 == 0:
            board.ask("/api/v1/set.cgi", json.dumps({"MemPersistent": {"DisplayBrightness": 1 + number // 10 % 5}}).encode())
        if number % 60 == 0:
            board.ask("/api/v1/all.cgi")
        number += 1
        time.sleep(1)
    return number


def flash(board, repository, minutes):
    rows = []
    for journal in ("as Debian configures it", "in memory"):
        if journal == "in memory":
            board.put({DROP_IN: (repository / ADVICE).read_bytes()})
            board.reboot()
            board.wait("the service", lambda: board.ask("/qorapp/v1/device/status"))
        time.sleep(30)  # what a start writes
        process = "cat /proc/$(pidof webservice)/io | sed -n 's/^write_bytes: //p'"
        before, own = written(board), int(board.run(process))
        requests = use(board, minutes * 60)
        rows.append((journal, minutes, requests, written(board) - before, int(board.run(process)) - own))
    print_table(("journal", "minutes", "status polls", "bytes written to the card", "by the service"), rows)
    return 0
