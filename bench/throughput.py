#!/usr/bin/python3
"""Requests per second of all.cgi and set.cgi, beside what can be had at all.

One nginx with one worker has the reference site several times, each on a port of its own:

    service     as it is
    responder   another process (readyresponder) that sends the same bytes from memory, on a connection for each request
    kept        the same on a kept connection, as the service has it. It can be asked on one connection only: the
                responder's library serves one connection as long as that is open, and nobody else
    static      the same bytes as a file that nginx sends by itself (for set.cgi too, though it is asked for by GET)

wrk asks them in turn. Nobody who speaks FastCGI can know the answer earlier than the responder does: it is the measure,
the faster one where there are two.
"""

import http.client
import re
import statistics
import subprocess
import sys
from typing import NamedTuple

from measure import REPOSITORY, Process, parser, print_conditions, print_table, progress
from desk import free_port, is_listening, render_nginx
from virtualdevice import VirtualDevice

SCRIPTS = ("all", "set")
RESPONDERS = ("responder", "kept")
BODY = b'{"MemPersistent": {"DisplayBrightness": 3}}'
HEADER = b"Content-type: application/json\r\n\r\n"


class Figures(NamedTuple):
    rate: float
    median_us: int
    p99_us: int
    errors: int
    timeouts: int
    processor_us: float


class ThreeSites(VirtualDevice):
    """A virtual device whose web server has the site of the responder and the static one beside its own."""

    def __init__(self, build, simulation):
        super().__init__(build, simulation=simulation, nginx=True)
        self.ports = {"service": self.http_port, **{site: free_port() for site in (*RESPONDERS, "static")}}
        self._responder_ports = {site: free_port() for site in RESPONDERS}

    def start_nginx(self):
        folder = self.root / "nginx"
        config = render_nginx(REPOSITORY / "packaging" / "nginx", folder, self.http_address, self.http_port,
                              self.fcgi_port)
        for name in (*RESPONDERS, "static"):
            (folder / "webservice" / f"{name}.conf").write_text(self._site(name))
        frame = config.read_text()
        include = "include webservice/webservice.conf;"
        assert include in frame
        others = " ".join(f"include webservice/{name}.conf;" for name in (*RESPONDERS, "static"))
        config.write_text(frame.replace(include, f"{include} {others}"))
        self._run("nginx", ["nginx", "-p", folder, "-c", config, "-e", folder / "error.log"],
                  lambda: is_listening(self.http_port))

    def start_responders(self):
        """Takes the answers that the service gives now as those of the other sites."""
        ready = []
        for script in reversed(SCRIPTS):  # the tree after the set, which changes it
            body = self.ask("service", script)
            file = self.path(f"/tmp/{script}")
            file.write_bytes(HEADER + body)
            ready.append(f"/api/v1/{script}.cgi={file}")
            static = self._static_folder / f"api/v1/{script}.cgi"
            static.parent.mkdir(parents=True, exist_ok=True)
            static.write_bytes(body)
        for site, port in self._responder_ports.items():
            self._run(site, [self.build / "bin" / "readyresponder", port, *ready], lambda port=port: is_listening(port))

    def ask(self, site, script):
        connection = http.client.HTTPConnection("127.0.0.1", self.ports[site], timeout=10)
        body = BODY if script == "set" and site != "static" else None
        connection.request("POST" if body else "GET", f"/api/v1/{script}.cgi", body)
        response = connection.getresponse()
        assert response.status == 200 and response.getheader("Content-Type") == "application/json"
        return response.read()

    @property
    def _static_folder(self):
        return self.root / "static"

    def _site(self, name):
        """The reference site under another name. Its maps are there already and hold for all."""
        reference = (REPOSITORY / "packaging" / "nginx" / "webservice.conf").read_text()
        text = re.sub(r"(?ms)^map .*?^}\n", "", reference)
        answer = f"fastcgi_pass {name};"
        if name == "static":
            answer = f"root {self._static_folder}; default_type application/json; sendfile on;"
        connection = "off" if name == "responder" else "on"
        for pattern, replacement in (("upstream webservice", f"upstream {name}"),
                                     ("fastcgi_keep_conn on", f"fastcgi_keep_conn {connection}"),
                                     ("fastcgi_pass webservice;", answer),
                                     (r"\bwaiting\b", f"waiting_{name}"),
                                     ("include webservice/listen.conf", f"listen 127.0.0.1:{self.ports[name]}"),
                                     ("include webservice/upstream.conf", f"server 127.0.0.1:{self._responder_ports.get(name, 9)}")):
            text, count = re.subn(pattern, replacement, text)
            assert count > 0, pattern
        return text


def measure(device, site, script, connections, seconds):
    """One run of wrk. The processor time is that of the process that answers behind nginx."""
    answering = Process(device.pids[site]) if site in device.pids else None
    before = answering.processor_seconds() if answering else 0
    posts = script == "set" and site != "static"
    command = ["wrk", "-t1", f"-c{connections}", f"-d{seconds}s", "-s", REPOSITORY / "bench" / "wrk.lua",
               f"http://127.0.0.1:{device.ports[site]}/api/v1/{script}.cgi", "--", *(["set"] if posts else [])]
    output = subprocess.run([str(word) for word in command], check=True, capture_output=True, text=True).stdout
    requests, duration, *rest = map(int, re.search(r"^figures ([\d ]+)$", output, re.M)[1].split())
    used = answering.processor_seconds() - before if answering else 0
    return Figures(requests / duration * 1e6, *rest, used / max(requests, 1) * 1e6)


def contest(device, label, script, sites, options):
    """Rows of all sites for one script. They run in turn, so that a noisy minute meets all of them."""
    rows = []
    for connections in (1, 4):
        runs = {site: [] for site in sites if connections == 1 or site != "kept"}
        for _ in range(options.rounds):
            for site in runs:
                progress(f"{label}, {connections} connections: {site}")
                runs[site].append(measure(device, site, script, connections, options.seconds))
        yardstick = max(statistics.median(run.rate for run in runs[site]) for site in RESPONDERS if site in runs)
        rows += [row(label, connections, site, runs[site], yardstick) for site in runs]
    return rows


def row(label, connections, site, runs, yardstick):
    median = sorted(runs)[len(runs) // 2]
    rates = [run.rate for run in runs]
    spread = f" ({min(rates):.0f} to {max(rates):.0f})" if len(runs) > 1 else ""
    return (label, connections, site, f"{median.rate:.0f}{spread}", f"{median.rate / yardstick:.2f}",
            f"{median.median_us / 1000:.2f}", f"{median.p99_us / 1000:.2f}", sum(run.errors for run in runs),
            sum(run.timeouts for run in runs), f"{median.processor_us:.0f}" if median.processor_us else "-")


def measure_still(options):
    """All sites with a device on which nothing moves: they give the same bytes, which is checked first."""
    with ThreeSites(options.build, ("--still",)) as device:
        device.start_responders()
        sizes = {script: len(device.ask("service", script)) for script in SCRIPTS}
        for script in SCRIPTS:
            assert len({device.ask(site, script) for site in device.ports}) == 1, f"{script}: different bytes"
        rows = [line for script in SCRIPTS for line in contest(device, f"{script}.cgi", script, device.ports, options)]
    return rows, sizes


def measure_moving(options):
    """The tree of a device in use, where each answer differs from the one before."""
    with ThreeSites(options.build, ()) as device:
        device.start_responders()
        return contest(device, "all.cgi, device moving", "all", ("service", *RESPONDERS), options)


def main():
    arguments = parser("Requests per second of all.cgi and set.cgi behind nginx.")
    arguments.add_argument("--seconds", type=int, default=20, help="length of each run (%(default)s)")
    arguments.add_argument("--rounds", type=int, default=1, help="runs of each; the median counts (%(default)s)")
    options = arguments.parse_args()
    print("## Throughput\n")
    print_conditions()
    rows, sizes = measure_still(options)
    rows += measure_moving(options)
    print(f"Bodies: all.cgi {sizes['all']} bytes, set.cgi {sizes['set']} bytes; {options.seconds} s each.\n")
    print_table(("script", "connections", "answered by", "requests/s", "of responder", "median ms", "99 % ms", "errors",
                 "time-outs", "its processor, µs/request"), rows)
    sys.exit(any(line[7] or line[8] for line in rows))


main()
