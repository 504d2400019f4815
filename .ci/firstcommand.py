#!/usr/bin/python3
"""Runs the README's first command as a new user does: in a fresh clone without a build, once for each web server.

The clone has what is committed. The second run uses the build of the first. Ends with an AssertionError that tells what
is wrong, or prints how long each run took.
"""

import ctypes
import http.client
import json
import os
import random
import re
import shutil
import signal
import subprocess
import tempfile
import time
import urllib.request
from pathlib import Path

REPOSITORY = Path(__file__).resolve().parents[1]
PR_SET_CHILD_SUBREAPER = 36
LIMIT_SECONDS = 30 * 60
REQUEST_SECONDS = 60
END_SECONDS = 20
TICK_SECONDS = 0.1
PORTS = range(20000, 32000)  # script/server takes the next one that is free


def start(clone, web_server):
    """Starts script/server in a process group of its own, from another folder; returns the process and its last lines,
    which begin with the address."""
    server = subprocess.Popen([clone / "script" / "server", "--web-server", web_server, "--port",
                               str(random.choice(PORTS))],
                              cwd="/", stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                              text=True, process_group=0)
    words = ""
    for line in server.stdout:
        print(line, end="", flush=True)
        words += line if words or "in the browser" in line else ""
        if line.startswith("Ctrl-C"):
            return server, words
    raise AssertionError(f"script/server ended with {server.wait()} instead of printing an address")


def get(url, body=None):
    with urllib.request.urlopen(url, body, REQUEST_SECONDS) as answer:
        return answer.read()


def check_variables(url):
    """The whole tree can be read, and a client that waits for updates receives a change."""
    assert len(json.loads(get(f"{url}api/v1/all.cgi"))["variables"]) == 18
    # The device changes by itself, too: a poll may be answered before the set request, and the next value is tried.
    for brightness in (3, 4) * 50:
        poll = http.client.HTTPConnection(url.split("/")[2], timeout=REQUEST_SECONDS)
        poll.request("GET", "/api/v1/update.cgi")
        answer = get(f"{url}api/v1/set.cgi", b'{"MemPersistent": {"DisplayBrightness": %d}}' % brightness)
        assert json.loads(answer) == {"result": 1}, answer
        persistent = json.loads(poll.getresponse().read())["variables"].get("MemPersistent", {})
        poll.close()
        if persistent.get("DisplayBrightness", {}).get("value") == str(brightness):
            return
    raise AssertionError("no poll received the change")


def check_console(url, clone):
    """Every file of the console is delivered as the build has made it."""
    client = clone / "build" / "release" / "client"
    for file in (file for file in client.rglob("*") if file.is_file()):
        assert get(f"{url}{file.relative_to(client)}") == file.read_bytes(), file
    assert get(url) == (clone / "apps" / "web" / "client" / "index.html").read_bytes()
    assert b"/api/v1/update.cgi" in get(f"{url}feed/worker.js"), "the worker has all that it imports"
    assert json.loads(get(f"{url}catalogue.json"))
    assert b"uPlot" in get(f"{url}vendor/uPlot.iife.min.js")
    assert b"uplot" in get(f"{url}vendor/uPlot.min.css")


def processes_left():
    """Whether a process that script/server started still runs."""
    try:
        while os.waitpid(-1, os.WNOHANG)[0]:
            pass
    except ChildProcessError:
        return False
    return True


def check_end(server, folder):
    """Ctrl-C ends everything. Ticks are counted instead of seconds, so that a machine that stalls does not count."""
    os.killpg(server.pid, signal.SIGINT)
    for _ in range(round(END_SECONDS / TICK_SECONDS)):
        if server.poll() is not None and not processes_left():
            break
        time.sleep(TICK_SECONDS)
    assert server.poll() is not None, f"script/server still runs {END_SECONDS} s after Ctrl-C"
    assert server.returncode in (0, 130), server.returncode
    assert not processes_left(), "processes are left"
    assert not folder.exists(), folder
    assert not list(Path("/dev/shm").glob(f"*{folder.name}*")), "segments or semaphores are left"


def run(clone, web_server):
    begin = time.monotonic()
    server, words = start(clone, web_server)
    seconds = time.monotonic() - begin
    try:
        url = re.search(r"http://\S+/$", words, re.MULTILINE)[0]
        check_variables(url)
        check_console(url, clone)
        check_end(server, Path(re.search(r"/tmp/vd-[^/]+", words)[0]))
    finally:
        if server.poll() is None:
            os.killpg(server.pid, signal.SIGTERM)
            server.wait()
    return f"The first command works with {web_server}; its address came after {seconds:.1f} s"


def main():
    signal.alarm(LIMIT_SECONDS)
    # Processes that outlive their parent become children of this one.
    ctypes.CDLL(None).prctl(PR_SET_CHILD_SUBREAPER, 1)
    folder = Path(tempfile.mkdtemp(prefix="first-command-"))
    try:
        clone = folder / "clone"
        subprocess.run(["git", "clone", "--quiet", REPOSITORY, clone], check=True)
        print("\n".join([run(clone, web_server) for web_server in ("nginx", "lighttpd")]))
        changed = subprocess.check_output(["git", "-C", clone, "status", "--porcelain"], text=True)
        assert changed == "", f"the run changed the clone:\n{changed}"
    finally:
        shutil.rmtree(folder)


main()
