"""The packages in a fresh minimal Debian: installed, started by systemd with all that the unit forbids, asked through the
installed nginx, and taken away again. The tests build on one another, in their order.
"""

import http.client
import os
import socket
import sys
from contextlib import closing
from pathlib import Path

import pytest

from container import Container, wait_until

HERE = Path(__file__).resolve().parent
REPOSITORY = HERE.parents[1]
sys.path.insert(0, str(REPOSITORY / "tests" / "system"))
from fastcgi import Connection

UNIT = "webservice.service"
OWN_ADDRESS = "10.9.9.1"
RIGHTS = "0000000400020000"  # SYSLOG and SYS_RAWIO
MORE_THAN_SYSTEMD_FORGIVES = 7
WRITTEN = ("/update", "/var/LDA", "/var/FOR", "/var/SETUPS", "/dev/shm", "/tmp")


@pytest.fixture(scope="module")
def container():
    folders = {"/packages": REPOSITORY / "build" / "packages", "/package-test": HERE}
    with Container(os.environ["PACKAGE_TEST_BASE"], folders) as container:
        container.enter_network()
        yield container


def ask(method, path, body=None, headers=None, address="127.0.0.1", port=80):
    """Status and body of the answer of the web server."""
    with closing(http.client.HTTPConnection(address, port, timeout=20)) as connection:
        connection.request(method, path, body, headers or {})
        response = connection.getresponse()
        return response.status, response.read()


def answers():
    try:
        return ask("GET", "/qorapp/v1/device/status")[0] == 200
    except OSError:
        return False


def test_the_packages_install_and_the_site_is_on(container):
    container.run("sh", "-c", "dpkg --install /packages/*_$(dpkg --print-architecture).deb")
    assert container.run("dpkg", "--audit").stdout == ""
    assert container.run("nginx", "-t", "-q").stderr == ""
    assert container.run("systemctl", "is-enabled", UNIT).stdout == "enabled\n"
    assert ask("GET", "/api/v1/all.cgi")[0] == 502  # nginx has the site; no memories yet


def test_the_unit_comes_up_when_memories_and_broker_do(container):
    wait_until(lambda: int(container.show(UNIT, "NRestarts")) >= MORE_THAN_SYSTEMD_FORGIVES, "restarts")
    container.run("systemd-run", "--unit", "device", "/usr/bin/python3", "-B", "/package-test/device.py")
    wait_until(answers, "the service")


def test_all_that_it_serves_works_in_confinement(container):
    assert b'"MemApp" : {"AppServiceLogLevel"' in ask("GET", "/api/v1/all.cgi")[1]
    assert ask("POST", "/api/v1/set.cgi", b'{"MemPersistent": {"DisplayBrightness": 7}}')[1] == b'{"result": 1 }'
    assert ask("GET", "/api/v1/screen.cgi")[1].startswith(b"\x89PNG\r\n\x1a\n")
    wait_until(lambda: b"Framebuffer is 800x480x32" in ask("GET", "/api/v1/log.cgi")[1], "the log")
    assert b'"serialnumber": "K1-00042"' in ask("GET", "/qorapp/v1/device/info")[1]
    has_console = container.run("test", "-e", "/usr/share/webservice/client/index.html", fails=True).returncode == 0
    assert ask("GET", "/")[0] == (200 if has_console else 404)
    for kind, folder in (("lenstables", "LDA"), ("focusrings", "FOR"), ("setups", "SETUPS")):
        assert ask("PUT", f"/qorapp/v1/{kind}/file/Prime32", kind.encode())[1] == b'{"result": "Success" }'
        assert container.run("cat", f"/var/{folder}/Prime32").stdout == kind
    form = (b'--x\r\nContent-Disposition: form-data; name="deviceid"\r\n\r\nK1-K1-00042\r\n'
            b'--x\r\nContent-Disposition: form-data; name="file"; filename="a"\r\n\r\nfirmware\r\n--x--\r\n')
    answer = ask("POST", "/qorapp/v1/device/update", form, {"Content-Type": "multipart/form-data; boundary=x"})
    assert answer == (200, b'{"taskid": "K1-K1-00042" }')
    assert container.run("cat", "/update/host.swu").stdout == "firmware"


def test_outside_its_folders_nothing_can_be_written_and_inside_nothing_run(container):
    """The name is joined to the folder as it comes. nginx lets none of these pass; past it the unit has the last word."""
    for path in ("/etc/stranger", "/usr/sbin/stranger", "/var/stranger", "/var/lib/stranger", "/root/stranger"):
        with Connection(9000) as connection:
            answer = connection.ask("/qorapp/v1", b"x", PATH_INFO=f"/lenstables/file/../..{path}", REQUEST_METHOD="PUT")
        assert answer.body == b'{"result": "Open error" }\r\n', path
        assert container.run("test", "-e", path, fails=True).returncode == 1
    mounts = container.run("cat", f"/proc/{container.show(UNIT, 'MainPID')}/mountinfo").stdout.splitlines()
    options = {words[4]: words[5].split(",") for words in map(str.split, mounts)}
    assert [folder for folder in WRITTEN if not {"rw", "noexec"} <= set(options[folder])] == []


def test_the_process_has_the_rights_that_it_needs_and_no_others(container):
    lines = container.run("cat", f"/proc/{container.show(UNIT, 'MainPID')}/status").stdout.splitlines()
    status = dict(line.split(":\t") for line in lines)
    fields = ("CapBnd", "CapEff", "CapAmb", "NoNewPrivs", "Seccomp")
    assert [status[field] for field in fields] == [RIGHTS, RIGHTS, "0" * 16, "1", "2"]


def test_strangers_reach_nginx_and_never_the_service(container):
    container.run("ip", "address", "add", f"{OWN_ADDRESS}/32", "dev", "lo")
    assert ask("GET", "/qorapp/v1/device/status", address=OWN_ADDRESS)[0] == 200
    with pytest.raises(TimeoutError):
        socket.create_connection((OWN_ADDRESS, 9000), timeout=1)
    with Connection(9000) as connection:
        assert connection.ask("/qorapp/v1", PATH_INFO="/device/status").body != b""


def test_a_service_that_dies_is_back(container):
    pid = container.show(UNIT, "MainPID")
    container.run("systemctl", "kill", "--signal=KILL", "--kill-whom=main", UNIT)
    wait_until(lambda: container.show(UNIT, "MainPID") not in ("0", pid) and answers(), "the next service")


def test_the_virtual_device_runs_for_any_user(container):
    container.run("systemd-run", "--unit", "desk", "--uid", "nobody", "webservice-virtualdevice", "--port", "8080", "--",
                  "--still")
    wait_until(lambda: "http://127.0.0.1:8080/api/v1/all.cgi" in
               container.run("journalctl", "-u", "desk", "-o", "cat").stdout, "the virtual device")
    assert ask("GET", "/api/v1/all.cgi", port=8080)[1].startswith(b'{\r\n"id": 1,\r\n"variables": {"MemPersistent"')
    container.run("systemctl", "stop", "desk")
    assert container.run("find", "/tmp", "-maxdepth", "1", "-user", "nobody").stdout == ""


def test_purging_leaves_a_web_server_that_works(container):
    container.run("dpkg", "--purge", "webservice-virtualdevice", "webservice")
    assert container.run("find", "/etc", "/usr", "/lib/systemd", "-name", "*webservice*").stdout == ""
    assert b"Welcome to nginx" in ask("GET", "/")[1]
    assert container.run("cat", "/var/LDA/Prime32").stdout == "lenstables"  # the user's own
