"""The speed on the board: the service beside nginx's static files, the reference FastCGI library, libpng and cp there.

All figures of a table are from one run in the same machine. The board's clock counts instructions (QEMU), so that other
programs on this machine do not change the figures: every instruction takes 2 ns.
"""

import datetime
import json
import re
import statistics
import time
from concurrent.futures import ThreadPoolExecutor

from measure import print_table

from units import copy_of_unit

QEMU = ("-icount", "shift=1")
PROGRAMS = ("closedloop", "readyresponder", "capturecost")
BODY = '{"MemPersistent": {"DisplayBrightness": 3}}'
PORTS = {"service": 81, "responder": 82, "static": 83}
RESPONDER_PORT = 9100
STATIC = "/opt/board/static"
SECONDS = 3
UPLOAD_MB = 20
STARTS = 5
DELAYS = 10
CALLS = "SystemCall|Restrict|MemoryDeny|LockPersonality|ProtectKernelModules|ProtectClock|ProtectHostname"
MOUNTS = "Protect(System|Home|Proc|KernelTunables|ControlGroups)|Private|Read|NoExec|Inaccessible|ProcSubset"
FILTERS = "IPAddress|Device"
OPTIONS = {
    "as shipped": "$^",
    "without system-call filter": CALLS,
    "without mounts": MOUNTS,
    "without packet and device filter": FILTERS,
    "without any": f"{CALLS}|{MOUNTS}|{FILTERS}|Capability|Ambient|NoNew|Keyring",
}


def bench(board, repository):
    binaries = repository / "build" / "armhf" / "bin"
    board.run("systemctl stop webservice-live.socket webservice-live")  # the tables are about version 1
    board.put({f"/opt/board/bin/{name}": (binaries / name).read_bytes() for name in PROGRAMS}, mode=0o755)
    print(f"{datetime.date.today()}, `script/board -- bench`, {board.run('uname -r').strip()}\n")
    start_sites(board, repository)
    rates(board)
    delays(board)
    captures(board)
    upload(board)
    memory(board)
    starts(board)
    return 0


def start_sites(board, repository):
    """Three sites without limits: the service, the responder and static files, with the same bytes."""
    text = (repository / "packaging" / "nginx" / "server.conf").read_text().replace("!= POST", "= PUT")
    answers = {"service": "fastcgi_pass webservice;", "responder": "fastcgi_pass responder;",
               "static": f"root {STATIC}; default_type application/json; sendfile on;"}
    sites = ["keepalive_requests 1000000;", f"upstream responder {{ server 127.0.0.1:{RESPONDER_PORT}; }}"]
    for name, port in PORTS.items():
        site = text.replace("include webservice/listen.conf", f"listen 127.0.0.1:{port}")
        site = site.replace("fastcgi_pass webservice;", answers[name])
        if name == "responder":
            site = site.replace("fastcgi_keep_conn on", "fastcgi_keep_conn off")
        sites.append(f"server {{\n{site}\n}}")
    board.put({"/etc/nginx/sites-enabled/zz-bench": "\n".join(sites).encode()})
    ready = " ".join(f"/api/v1/{script}.cgi=/opt/board/{script}.txt" for script in ("all", "set"))
    board.run(f"""set -e
        mkdir -p {STATIC}/api/v1
        curl -s -d '{BODY}' http://127.0.0.1/api/v1/set.cgi >{STATIC}/api/v1/set.cgi
        curl -s http://127.0.0.1/api/v1/all.cgi >{STATIC}/api/v1/all.cgi
        for script in all set; do
            {{
                printf 'Content-type: application/json\\r\\n\\r\\n'
                cat {STATIC}/api/v1/$script.cgi
            }} >/opt/board/$script.txt
        done
        systemd-run --quiet --unit=responder /opt/board/bin/readyresponder {RESPONDER_PORT} {ready}
        nginx -t -q
        nginx -s reload""")
    for port in PORTS.values():
        board.wait("a site", lambda port=port: board.run(f"closedloop {port} /api/v1/all.cgi 1 1"))


def processor_ms(board, pids):
    """Processor time of a program's processes so far."""
    times = board.run(f"for pid in $({pids}); do cat /proc/$pid/schedstat; done").splitlines()
    return sum(int(line.split()[0]) for line in times) / 1e6


def load(board, port, script, connections, body):
    """Answers per second, median and 99th percentile in ms, errors; the processor time of service and nginx per answer."""
    pids = ("pidof webservice", "pidof nginx")
    before = [processor_ms(board, program) for program in pids]
    output = board.run(f"closedloop {port} /api/v1/{script}.cgi {SECONDS} {connections} {body}")
    rate, median, slow, errors = map(float, output.split())
    used = [(processor_ms(board, program) - start) / (rate * SECONDS) for program, start in zip(pids, before)]
    return rate, median / 1000, slow / 1000, int(errors), *used


def rates(board):
    rows = []
    for script, connections in (("all", 1), ("all", 4), ("set", 1), ("set", 4)):
        runs = {}
        for site, port in PORTS.items():
            body = f"'{BODY}'" if script == "set" and site != "static" else ""
            runs[site] = load(board, port, script, connections, body)
        for site, (rate, median, slow, errors, *used) in runs.items():
            multiples = (f"{rate / runs[other][0]:.2f}" for other in ("static", "responder"))
            rows.append((f"{script}.cgi", connections, site, f"{rate:.1f}", *multiples, f"{median:.1f}", f"{slow:.1f}",
                         *(f"{each:.2f}" for each in used), errors))
    print_table(("script", "connections", "answered by", "answers/s", "of the static file", "of the responder", "median ms",
                 "99 % ms", "service's ms", "nginx's ms", "errors"), rows)


def update_after(board, number):
    """Waits for the update that follows a number; returns its number and the time."""
    return json.loads(board.ask(f"/api/v1/update.cgi?id={number}"))["id"], time.monotonic()


def delays(board):
    """From the answer of a set request to the answer of a waiting update request, seen from this machine."""
    number = json.loads(board.ask("/api/v1/all.cgi"))["id"]
    seen = []
    for value in range(DELAYS):
        with ThreadPoolExecutor() as pool:
            update = pool.submit(update_after, board, number)
            time.sleep(1)
            board.ask("/api/v1/set.cgi", json.dumps({"MemPersistent": {"DisplayBrightness": 1 + value % 5}}).encode())
            done = time.monotonic()
            number, answered = update.result()
        seen.append((answered - done) * 1000)
    print_table(("updates", "median ms", "longest ms"), [(DELAYS, f"{statistics.median(seen):.0f}", f"{max(seen):.0f}")])


def captures(board):
    print(board.run("capturecost"))


def upload(board):
    """The times have the start of a program in common."""
    output = board.run(f"""head -c {UPLOAD_MB}000000 /dev/urandom >/root/firmware; sync; TIMEFORMAT=%R
        time cp /root/firmware /update/copy; time sync -f /update; rm /update/copy; sync
        time curl -s -o /dev/null -F deviceid=x -F file=@/root/firmware http://127.0.0.1/qorapp/v1/device/update
        rm /root/firmware""")
    copy, sync, sent = map(float, output.split())
    print_table(("MB", "cp s", "sync s", "upload s"), [(UPLOAD_MB, f"{copy:.1f}", f"{sync:.1f}", f"{sent:.1f}")])


def memory(board):
    status = dict(re.findall(r"(Vm\w+):\s+(\d+) kB", board.run("cat /proc/$(pidof webservice)/status")))
    print_table(("after all this, KiB", "resident", "peak"), [("", status["VmRSS"], status["VmHWM"])])


def timed(board, command):
    """Median and all times of a command on the board, in seconds."""
    output = board.run(f"TIMEFORMAT=%R; for i in $(seq {STARTS}); do time {command}; done")
    times = [float(word) for word in output.split()]
    return statistics.median(times), " ".join(f"{value:.2f}" for value in sorted(times))


KILL = """bash -c 'kill -9 $(systemctl show -P MainPID webservice)
    until curl -s -m 60 -o /dev/null http://127.0.0.1/qorapp/v1/device/status; do :; done'"""


def starts(board):
    rows = [("systemctl restart webservice", *timed(board, "systemctl restart webservice")),
            ("from a kill to an answer", *timed(board, KILL))]
    for name, options in OPTIONS.items():
        board.put({"/run/systemd/system/probe.service": copy_of_unit("/bin/true", without=options).encode()})
        board.run("systemctl daemon-reload")
        rows.append((f"/bin/true, the unit {name}", *timed(board, "systemctl start probe")))
    print_table(("start", "median s", "all s"), rows)
