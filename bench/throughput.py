#!/usr/bin/python3
"""Requests per second of all.cgi and set.cgi, compared with prepared answers and static files.

One nginx with one worker serves the reference site several times, each on its own port:

    service     the service
    responder   another process (readyresponder) that sends the same bytes from memory, one connection per request
    kept        the same on a persistent connection, like the service. Measured with one client only, because the
                responder's library serves one connection until it is closed
    static      the same bytes as a static file of nginx (set.cgi too, but with GET)

wrk measures them in turn. A FastCGI process cannot have its answer earlier than the responder, so the rates are given
as multiples of the responder's; of two responders, the faster one counts.
"""

import re
import subprocess
import sys
from collections import namedtuple

from measure import REPOSITORY, UNLIMITED, Process, ask, begin, print_table, progress
from desk import free_port, is_listening, render_nginx
from virtualdevice import VirtualDevice

SCRIPTS = ("all", "set")
RESPONDERS = ("responder", "kept")
OTHERS = (*RESPONDERS, "static")
BODY = b'{"MemPersistent": {"DisplayBrightness": 3}}'
HEADER = b"Content-type: application/json\r\n\r\n"
Figures = namedtuple("Figures", "rate median_us p99_us errors timeouts processor_us")


class FourSites(VirtualDevice):
    """A virtual device whose web server also has the sites of the responders and the static one."""

    def __init__(self, build, simulation):
        super().__init__(build, simulation=simulation, nginx=True)
        self.ports = {"service": self.http_port, **{site: free_port() for site in OTHERS}}
        self._responder_ports = {site: free_port() for site in RESPONDERS}

    def start_nginx(self):
        folder = self.root / "nginx"
        config = render_nginx(REPOSITORY / "packaging" / "nginx", folder, self.http_address, self.http_port,
                              self.fcgi_port, changes=UNLIMITED)
        for name in OTHERS:
            (folder / "webservice" / f"{name}.conf").write_text(self._site(name))
        includes = " ".join(f"include webservice/{name}.conf;" for name in ("webservice", *OTHERS))
        config.write_text(replaced(config.read_text(), "include webservice/webservice.conf;", includes))
        self._run("nginx", ["nginx", "-p", folder, "-c", config, "-e", folder / "error.log"],
                  lambda: is_listening(self.http_port))

    def start_responders(self):
        """Uses the service's present answers as those of the other sites."""
        ready = []
        (self.root / "static/api/v1").mkdir(parents=True)
        for script in reversed(SCRIPTS):  # the tree last, because the set request changes it
            body = self.ask("service", script)
            file = self.path(f"/tmp/{script}")
            file.write_bytes(HEADER + body)
            ready.append(f"/api/v1/{script}.cgi={file}")
            (self.root / f"static/api/v1/{script}.cgi").write_bytes(body)
        for site, port in self._responder_ports.items():
            self._run(site, [self.build / "bin" / "readyresponder", port, *ready], lambda port=port: is_listening(port))

    def ask(self, site, script):
        posts = script == "set" and site != "static"
        request = ("POST", f"/api/v1/{script}.cgi", BODY) if posts else ("GET", f"/api/v1/{script}.cgi")
        return ask(self.ports[site], *request)

    def _site(self, name):
        """The reference site with another upstream. It uses the maps of the reference site."""
        text = (REPOSITORY / "packaging" / "nginx" / "server.conf").read_text()
        answer = f"fastcgi_pass {name};"
        if name == "static":
            answer = f"root {self.root / 'static'}; default_type application/json; sendfile on;"
            text = replaced(text, "!= POST", "= PUT")
        for pattern, replacement in (
                ("fastcgi_keep_conn on", f"fastcgi_keep_conn {'off' if name == 'responder' else 'on'}"),
                ("fastcgi_pass webservice;", answer),
                ("include webservice/listen.conf", f"listen 127.0.0.1:{self.ports[name]}")):
            text = replaced(text, pattern, replacement)
        upstream = f"server 127.0.0.1:{self._responder_ports.get(name, 9)}; keepalive 32;"
        return f"upstream {name} {{ {upstream} }}\nserver {{\n{text}}}\n"


def replaced(text, pattern, replacement):
    result, count = re.subn(pattern, replacement, text)
    assert count > 0, pattern
    return result


def measure(device, site, script, connections, seconds):
    """One run of wrk. The CPU time is that of the process behind nginx."""
    answering = Process(device.pids[site]) if site in device.pids else None
    before = answering.processor_seconds() if answering else 0
    posts = script == "set" and site != "static"
    command = ["wrk", "-t1", f"-c{connections}", f"-d{seconds}s", "-s", REPOSITORY / "bench" / "wrk.lua",
               f"http://127.0.0.1:{device.ports[site]}/api/v1/{script}.cgi", "--", *(["set"] if posts else [])]
    output = subprocess.run(command, check=True, capture_output=True, text=True).stdout
    requests, duration, *rest = map(int, re.search(r"^figures ([\d ]+)$", output, re.M)[1].split())
    used = answering.processor_seconds() - before if answering else 0
    return Figures(requests / duration * 1e6, *rest, used / max(requests, 1) * 1e6)


def compare(device, label, script, sites, seconds):
    """Rows of all sites for one script."""
    for connections in (1, 4):
        runs = {}
        for site in sites:
            if connections == 1 or site != "kept":
                progress(f"{label}, {connections} connections: {site}")
                runs[site] = measure(device, site, script, connections, seconds)
        reference = max(runs[site].rate for site in RESPONDERS if site in runs)
        for site, run in runs.items():
            yield (label, connections, site, f"{run.rate:.0f}", f"{run.rate / reference:.2f}",
                   f"{run.median_us / 1000:.2f}", f"{run.p99_us / 1000:.2f}", run.errors, run.timeouts,
                   f"{run.processor_us:.0f}" if run.processor_us else "-")


options = begin("Throughput", seconds=(20, "length of each run"))
rows, sizes = [], {}
# All sites with a device whose variables do not change: the sites have to give the same bytes.
with FourSites(options.build, ("--still",)) as device:
    device.start_responders()
    for script in SCRIPTS:
        sizes[script] = len(device.ask("service", script))
        assert len({device.ask(site, script) for site in device.ports}) == 1, f"{script}: different bytes"
    for script in SCRIPTS:
        rows += compare(device, f"{script}.cgi", script, device.ports, options.seconds)
# The tree of a device in use, where consecutive answers differ.
with FourSites(options.build, ()) as device:
    device.start_responders()
    rows += compare(device, "all.cgi, device moving", "all", ("service", *RESPONDERS), options.seconds)
print(f"Bodies: all.cgi {sizes['all']} bytes, set.cgi {sizes['set']} bytes; {options.seconds} s each.\n")
print_table(("script", "connections", "answered by", "requests/s", "multiple of responder", "median ms", "99 % ms",
             "errors", "timeouts", "CPU time, µs/request"), rows)
sys.exit(any(row[7] or row[8] for row in rows))
