"""The packages in a fresh minimal Debian: installed, started by systemd with the unit's restrictions, used through the
installed nginx, and purged. The tests build on one another, in this order. They run in the container of run.py.
"""

import contextlib
import http.client
import json
import os
import re
import signal
import socket
import subprocess
import sys
import threading
import time
from pathlib import Path

import pytest

sys.path.insert(0, "/repository/tests/system")

from fastcgi import Connection

UNIT = "webservice.service"
LIVE = "webservice-live.service"
DROP_INS = [Path(f"/run/systemd/system/{unit}.d/virtual.conf") for unit in (UNIT, LIVE)]
INSTALLED_DEVICE = "/usr/lib/webservice-virtualdevice"
OWN_ADDRESS = "10.9.9.1"
RIGHTS = "0000000400020000"  # SYSLOG and SYS_RAWIO
DEFAULT_START_LIMIT = 5
WRITTEN = ("/update", "/var/LDA", "/var/FOR", "/var/SETUPS", "/dev/shm", "/tmp")
# Tries every mount: prints the folders where it can create a file, with "runs" if it can execute the file.
WRITE_AND_RUN = r"""while read -r _ _ _ _ folder _; do
    [ -d "$folder" ] && (printf '#!/bin/sh\n' >"$folder/probe") 2>/dev/null || continue
    chmod 755 "$folder/probe" && "$folder/probe" 2>/dev/null && folder="$folder runs"
    echo "$folder"
    rm "${folder% runs}/probe"
done </proc/self/mountinfo"""
WAIT_SECONDS = 120
FIRMWARE = ("POST", "/qorapp/v1/device/update",
            b'--x\r\nContent-Disposition: form-data; name="deviceid"\r\n\r\nK1-K1-00042\r\n'
            b'--x\r\nContent-Disposition: form-data; name="file"; filename="a"\r\n\r\nfirmware\r\n--x--\r\n',
            {"Content-Type": "multipart/form-data; boundary=x"})


def run(*command):
    """The output of a command, which has to succeed."""
    return subprocess.run(command, capture_output=True, text=True, timeout=WAIT_SECONDS, check=True).stdout


def show(what):
    """A property of the unit."""
    return run("systemctl", "show", "-P", what, UNIT).strip()


def in_namespace(*command):
    """The output of a command that sees the file system as the service does."""
    return run("nsenter", "--mount", f"--target={show('MainPID')}", *command)


def wait_until(is_so, what):
    end = time.monotonic() + WAIT_SECONDS
    while not is_so():
        assert time.monotonic() < end, f"still waiting for: {what}"
        time.sleep(0.02)


def restart_with_new_settings():
    run("systemctl", "daemon-reload")
    run("systemctl", "restart", UNIT)


def start_device(stack):
    """Starts the installed virtual device without a service, and tells the unit where the device is."""
    sys.path.insert(0, INSTALLED_DEVICE + "/device/launcher")
    from virtualdevice import VirtualDevice  # pylint: disable=import-outside-toplevel  # only now installed

    device = stack.enter_context(VirtualDevice(INSTALLED_DEVICE, service=False, fcgi_port=9000))
    environment = device.environment()
    names = ("PATH", "LD_PRELOAD", "VIRTUAL_DEVICE_ROOT", "VIRTUAL_DEVICE_NAME", "VIRTUAL_DEVICE_PORT")
    # A system call outside the unit's list, which fails in the field, kills the service here. The device is in /tmp, of
    # which the service has its own.
    lines = ["SystemCallErrorNumber=kill", f"BindPaths={device.root}",
             *(f'Environment="{name}={environment[name]}"' for name in names)]
    for folder in WRITTEN[:4]:
        device.path(folder).rmdir()
        device.path(folder).symlink_to(folder)
    for drop_in in DROP_INS:
        drop_in.parent.mkdir(parents=True)
        drop_in.write_text("[Service]\n" + "\n".join(lines) + "\n")
    run("systemctl", "daemon-reload")
    return device


@pytest.fixture(scope="module")
def stack():
    """What the tests start, until all of them have run."""
    with contextlib.ExitStack() as stack:
        yield stack


def ask(method, path, body=None, headers=None, address="127.0.0.1", port=80):
    """Status and body of the web server's answer."""
    with contextlib.closing(http.client.HTTPConnection(address, port, timeout=WAIT_SECONDS)) as connection:
        connection.request(method, path, body, headers or {})
        response = connection.getresponse()
        return response.status, response.read()


def answers():
    try:
        return ask("GET", "/qorapp/v1/device/status")[0] == 200
    except OSError:
        return False


def test_packages_install_and_enable_the_site():
    run("sh", "-c", "dpkg --install /repository/build/packages/*_$(dpkg --print-architecture).deb")
    assert run("dpkg", "--audit") == ""
    run("nginx", "-t", "-q")
    assert run("systemctl", "is-enabled", UNIT) == "enabled\n"
    assert ask("GET", "/api/v3/all.cgi")[0] == 404  # the site; nginx's welcome page is a file of another server
    assert ask("GET", "/api/v1/set.cgi")[0] == 405


def test_bills_of_materials_name_the_libraries():
    for package in ("webservice", "webservice-live", "webservice-variables", "webservice-virtualdevice"):
        bill = json.loads(Path(f"/usr/share/doc/{package}/{package}.cdx.json").read_text())
        names = {component["name"] for component in bill["components"]}
        depends = run("dpkg-query", "-W", "-f", "${Depends}", package)
        assert names >= {"nlohmann-json3-dev", *re.findall(r"\blib[\w.+-]+", depends)}, package


def test_unit_restarts_until_the_device_is_there(stack):
    wait_until(lambda: int(show("NRestarts")) > DEFAULT_START_LIMIT, "restarts")
    stack.device = start_device(stack)
    wait_until(answers, "the service")


def test_every_endpoint_works_under_the_restrictions():
    pid = show("MainPID")
    assert b'"MemApp" : {"AppServiceLogLevel"' in ask("GET", "/api/v1/all.cgi")[1]
    assert ask("POST", "/api/v1/set.cgi", b'{"MemPersistent": {"DisplayBrightness": 7}}')[1] == b'{"result": 1 }'
    assert ask("GET", "/api/v1/screen.cgi")[1].startswith(b"\x89PNG\r\n\x1a\n")
    wait_until(lambda: b"Framebuffer is 800x480x32" in ask("GET", "/api/v1/log.cgi")[1], "the log")
    assert b'"serialnumber": "K1-00042"' in ask("GET", "/qorapp/v1/device/info")[1]
    has_console = Path("/usr/share/webservice/client/index.html").exists()
    assert ask("GET", "/")[0] == (200 if has_console else 404)
    for kind, folder in (("lenstables", "LDA"), ("focusrings", "FOR"), ("setups", "SETUPS")):
        assert ask("PUT", f"/qorapp/v1/{kind}/file/Prime32", kind.encode())[1] == b'{"result": "Success" }'
        assert Path(f"/var/{folder}/Prime32").read_text() == kind
        assert ask("GET", f"/qorapp/v1/{kind}/list")[1] == b'[\r\n"Prime32"\r\n]'
    assert ask("DELETE", "/qorapp/v1/setups/file/Prime32")[1] == b'{"result": "Success" }'
    assert ask(*FIRMWARE) == (200, b'{"taskid": "K1-K1-00042" }')
    assert Path("/update/host.swu").read_text() == "firmware"
    assert show("MainPID") == pid


def test_writable_folders_are_few_and_noexec():
    # The service joins folder and name. nginx refuses these names; without nginx the unit protects the files.
    for path in ("/etc/stranger", "/usr/sbin/stranger", "/var/stranger", "/var/lib/stranger", "/root/stranger"):
        with Connection(9000) as connection:
            answer = connection.ask("/qorapp/v1", b"x", PATH_INFO=f"/lenstables/file/../..{path}", REQUEST_METHOD="PUT")
        assert answer.body == b'{"result": "Open error" }\r\n', path
        assert not Path(path).exists()
    written = in_namespace("sh", "-c", WRITE_AND_RUN).splitlines()
    assert {line for line in written if not line.startswith("/tmp/")} == {*WRITTEN, "/var/tmp"}


def test_process_has_only_the_rights_that_it_needs():
    status = dict(line.split(":\t") for line in Path(f"/proc/{show('MainPID')}/status").read_text().splitlines())
    fields = ("CapBnd", "CapEff", "CapAmb", "NoNewPrivs", "Seccomp")
    assert [status[field] for field in fields] == [RIGHTS, RIGHTS, "0" * 16, "1", "2"]
    confined = ("setpriv", "--bounding-set=-all,+sys_rawio,+syslog")
    seen = in_namespace(*confined, "sh", "-c", "echo /proc/[0-9]*").split()
    assert f"/proc/{show('MainPID')}" in seen and "/proc/1" not in seen


def test_strangers_reach_nginx_but_not_the_service():
    run("ip", "address", "add", f"{OWN_ADDRESS}/32", "dev", "lo")
    assert ask("GET", "/qorapp/v1/device/status", address=OWN_ADDRESS)[0] == 200
    with pytest.raises(ConnectionRefusedError):
        socket.create_connection((OWN_ADDRESS, 9000), timeout=WAIT_SECONDS)
    with Connection(9000) as connection:
        assert connection.ask("/qorapp/v1", PATH_INFO="/device/status").body != b""


def test_hang_ends_with_a_restart_and_waiting_connections_are_answered(stack):
    """More connections than the service's own queue holds; systemd's watchdog ends the hang. Before and after this test its
    period is the unit's, because a machine that stalls does not hang."""
    shorter = DROP_INS[0].with_name("watchdog.conf")
    shorter.write_text("[Service]\nWatchdogSec=5s\n")
    restart_with_new_settings()
    pid = show("MainPID")
    os.kill(int(pid), signal.SIGSTOP)
    connections = [stack.enter_context(Connection(9000)) for _ in range(100)]
    for connection in connections:
        connection.send_request("/qorapp/v1", PATH_INFO="/device/status")
    assert {connection.answer().body for connection in connections} == {b'{"status": "NoFileSelected", "progress": 0 }'}
    assert show("MainPID") != pid
    shorter.unlink()
    restart_with_new_settings()


def test_restarts_fail_no_request():
    """At most 18 requests per second of each kind, each from its own address because of the web server's limits."""
    answers, end = [], threading.Event()

    def load(source, *request):
        while not end.wait(0.055):
            with contextlib.closing(http.client.HTTPConnection("127.0.0.1", 80, WAIT_SECONDS, (source, 0))) as connection:
                try:
                    connection.request(*request)
                    answers.append(connection.getresponse().status)
                except (OSError, http.client.HTTPException) as error:
                    answers.append(repr(error))

    requests = [("POST", "/api/v1/set.cgi", b'{"MemPersistent": {"DisplayBrightness": 7}}'), ("GET", "/api/v1/all.cgi"),
                ("PUT", "/qorapp/v1/setups/file/a", bytes(100_000)), FIRMWARE, *2 * [("GET", "/api/v1/update.cgi")]]
    threads = [threading.Thread(target=load, args=(f"127.0.0.{2 + i}", *request)) for i, request in enumerate(requests)]
    for thread in threads:
        thread.start()
    for number in range(1, 11):
        wait_until(lambda number=number: len(answers) >= 30 * number, "answers before the next restart")
        run("systemctl", "restart", UNIT)
    end.set()
    for thread in threads:
        thread.join()
    assert set(answers) == {200}, Path("/var/log/nginx/error.log").read_text()


def test_service_stops_and_restarts_when_killed_or_without_broker(stack):
    run("systemctl", "stop", UNIT)
    assert show("Result") == "success"
    run("systemctl", "start", UNIT)
    for name in ("service", "broker"):
        pid = show("MainPID")
        if name == "service":
            os.kill(int(pid), signal.SIGKILL)
        else:
            stack.device.end("broker", signal.SIGKILL)
            stack.device.start_broker()
        wait_until(lambda pid=pid: show("MainPID") not in ("0", pid) and answers(), "the next service")


def test_live_runs_without_rights_and_leaves_nothing_but_configuration():
    def is_ready():
        return ask("GET", "/api/v2/health") == (200, b'{"status":"ready"}')

    wait_until(is_ready, "version 2")
    assert ask("PATCH", "/api/v2/values", b'{"DisplayBrightness": 3}')[0] == 200
    status = Path(f"/proc/{run('systemctl', 'show', '-P', 'MainPID', LIVE).strip()}/status").read_text()
    assert "CapEff:\t" + "0" * 16 in status and "CapBnd:\t" + "0" * 16 in status
    before = ask("GET", "/api/v1/all.cgi")[1]
    run("dpkg", "--remove", "webservice-live")
    wait_until(lambda: ask("GET", "/api/v2/health")[0] == 404, "the site without version 2")
    assert ask("GET", "/api/v1/all.cgi")[1] == before
    assert run("find", "/etc", "/usr", "/lib/systemd", "-name", "*webservice-live*", "-not", "-type", "l") == ""


def test_virtual_device_runs_for_any_user():
    run("systemd-run", "--unit", "desk", "--uid", "nobody", "webservice-virtualdevice", "--port", "8080")
    wait_until(lambda: "http://127.0.0.1:8080/api/v1/all.cgi" in run("journalctl", "-u", "desk", "-o", "cat"), "device")
    assert ask("GET", "/api/v1/all.cgi", port=8080)[1].startswith(b'{\r\n"id": 1,\r\n"variables": {"MemPersistent"')
    run("systemctl", "stop", "desk")
    assert run("find", "/tmp", "-maxdepth", "1", "-user", "nobody") == ""


def test_purge_leaves_user_files_and_a_working_nginx():
    run("dpkg", "--purge", "webservice-virtualdevice", "webservice-variables", "webservice-live", "webservice")
    assert run("find", "/etc", "/usr", "/lib/systemd", "-name", "*webservice*") == ""
    assert b"Welcome to nginx" in ask("GET", "/")[1]
    assert Path("/var/LDA/Prime32").read_text() == "lenstables"
