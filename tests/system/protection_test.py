"""What the reference configurations of the web servers refuse, limit and log."""

import base64
import hashlib
import http.server
import json
import re
import select
import shutil
import socket
import subprocess
import threading
from pathlib import Path

import pytest

from systemdevice import LOG, SCREEN, SET, TREE, UPDATE, SystemDevice, wait_until

INFO, FIRMWARE, STATUS = (f"/qorapp/v1/device/{name}" for name in ("info", "update", "status"))
FILE = "/qorapp/v1/setups/file/"
BODY = b'{"MemPersistent":{"DisplayBrightness":9}}'
REQUESTS = [
    ("GET", SET, "Origin", "", 405), ("PUT", SET, "Origin", "", 405), ("POST", SET, "Origin", "own", 200),
    ("POST", SET, "Origin", "http://evil.test", 403), ("POST", SET, "Origin", "https", 403),
    ("POST", SET, "Origin", "http://127.0.0.1", 403), ("POST", SET, "Origin", "null", 403),
    ("POST", "/api//v1/set.cgi", "Origin", "null", 403), ("POST", FIRMWARE, "Origin", "null", 403),
    ("GET", STATUS, "Origin", "null", 403), ("DELETE", FILE, "Origin", "null", 403),
    ("GET", TREE, "Origin", "null", 200), ("POST", SET, "Sec-Fetch-Site", "same-origin", 200),
    ("POST", SET, "Sec-Fetch-Site", "cross-site", 403), ("GET", LOG, "Sec-Fetch-Site", "cross-site", 403),
    ("GET", "/qorapp/v1", "Sec-Fetch-Site", "same-site", 403), ("GET", "/", "Sec-Fetch-Site", "cross-site", 200),
    ("GET", TREE, "Host", "evil.test", 421), ("GET", "/", "Host", "evil.test", 421),
    ("GET", TREE, "Host", "10.0.0.1.evil.test", 421), ("GET", TREE, "Host", "evil-local", 421),
    ("GET", TREE, "Host", "10.0.0.1:80", 200), ("GET", TREE, "Host", "[fe80::1]", 200),
    ("GET", TREE, "Host", "Localhost:8080", 200), ("GET", TREE, "Host", "unit-7.local", 200),
    ("PUT", FILE + "caf%E9", "Origin", "", 400), ("PUT", FILE + "%ED%A0%80", "Origin", "", 400),
    ("DELETE", FILE + "caf%C3%A9", "Origin", "", 200)]
ATTACK = b"""<title>Attack</title><script>
async function attack() {
    await fetch("TARGET/api/v1/set.cgi", {method: "POST", mode: "no-cors", body: 'BODY'});
    plain.submit();
    upload.submit();
    setTimeout(() => fetch("/done"), 3000);  // virtual time, which does not pass during requests
}
</script><body onload="attack()">
<form id=plain target=a method=post enctype=text/plain action=TARGET/api/v1/set.cgi>
<input name='{"MemPersistent": {"ProductName": "stolen' value='"}}'></form><iframe name=a></iframe>
<form id=upload target=b method=post enctype=multipart/form-data action=TARGET/qorapp/v1/device/update>
<input name=file value=x><input name=deviceid value=X-1></form><iframe name=b></iframe>"""


@pytest.fixture(scope="module")
def device_options(web_server):
    return {web_server: True}


@pytest.mark.parametrize("method, path, header, value, status", REQUESTS)
def test_requests_of_other_sites_and_bad_names_are_refused(device, method, path, header, value, status):
    own = f"http://127.0.0.1:{device.http_port}"
    headers = {header: {"own": own, "https": own.replace("http", "https")}.get(value, value)} if value else {}
    answer = device.http(path, b"{}" if method in ("POST", "PUT") else None, method, **headers)
    assert answer[0] == status or (status, answer[0]) == (400, 404)  # lighttpd has 404 for names


class Attacker(http.server.BaseHTTPRequestHandler):
    """The other site. Records the paths that a browser requests."""

    def do_GET(self):  # pylint: disable=invalid-name  # the name that the base class calls
        self.server.asked.append(self.path)
        self.send_response(200)
        self.send_header("Content-Type", "text/html")
        self.end_headers()
        self.wfile.write(ATTACK.replace(b"TARGET", self.server.target).replace(b"BODY", BODY))

    def log_message(self, *_):
        pass


def visit(browser, folder, page):
    names = "MAP *.local 127.0.0.1, MAP *.test 127.0.0.1"
    subprocess.run([browser, "--headless", "--no-sandbox", "--disable-gpu", f"--user-data-dir={folder}",
                    f"--host-resolver-rules={names}", "--virtual-time-budget=9000", "--dump-dom", page],
                   check=True, capture_output=True, timeout=240)


def test_a_page_of_another_site_in_a_browser_changes_nothing(device, tmp_path):
    """With names in place of loopback addresses, to which browsers send Sec-Fetch-Site. The log contains markup that
    leads to another page."""
    browser = shutil.which("chromium") or pytest.skip("NO BROWSER: cross-site requests are not tested")
    with http.server.ThreadingHTTPServer(("127.0.0.1", 0), Attacker) as other:
        other.asked, other.target = [], b"http://controller.local:%d" % device.http_port
        threading.Thread(target=other.serve_forever, daemon=True).start()
        site = f"http://evil.test:{other.server_port}"
        device.http(TREE, **{"User-Agent": f"<meta http-equiv=refresh content=0;{site}/moved>"})
        wait_until(lambda: b"/moved>" in device.http(LOG)[2], "the markup in the log")
        before = device.read("MemPersistent", 0, 100)
        visit(browser, tmp_path, f"{site}/")
        visit(browser, tmp_path, other.target.decode() + LOG)
        other.shutdown()
    assert "/done" in other.asked and "/moved" not in other.asked
    assert device.read("MemPersistent", 0, 100) == before
    assert not list(device.path("/update").iterdir())


@pytest.mark.parametrize("most, path, length", [(24, UPDATE, 0), (4, FIRMWARE, 10**6), (128, SET, 9)])
def test_one_address_cannot_take_everything(device, most, path, length):
    source = (f"127.0.1.{most}", 0)
    clients = [socket.create_connection(("127.0.0.1", device.http_port), 60, source) for _ in range(most + 1)]
    for client in clients:  # a body that never arrives
        client.sendall(b"POST %s HTTP/1.0\r\nContent-Length: %d\r\n\r\n" % (path.encode(), length))
    assert [client.recv(12)[9:] for client in select.select(clients, [], [], 60)[0]] == [b"503"]
    assert device.http(TREE, source="127.0.2.1")[0] == 200
    for client in clients:
        client.close()


def test_unknown_scripts_are_limited_and_header_values_truncated(device):
    def status(path):
        return device.http(path, source="127.0.0.7", **{"User-Agent": "x" * 5000})[0]

    assert {status("/api/v1/nope.cgi") for _ in range(20)} == {200}
    wait_until(lambda: status("/api/v1/nope.cgi") == 429, "a refusal")
    assert {status(TREE) for _ in range(40)} == {200}
    assert "xxx" in device.log() and "x" * 151 not in device.log()


def state(device):
    """The content of all memories and files of the device."""
    folders = device.path("/var"), device.path("/update")
    files = [*Path("/dev/shm").glob(f"{device.name}Mem*"), *(file for folder in folders for file in folder.rglob("*"))]
    return {file: file.read_bytes() for file in files if file.is_file()}


def test_a_reader_changes_nothing_and_changes_are_logged(web_server, catalogue, tmp_path):
    """The login of the access file, with the password files of this test."""
    def enable(text):
        login = re.search(r"# Login.*?\n\n", text, re.S)[0]
        return re.sub(r"(?m)^#   ", "", login).replace("/data/access", str(tmp_path))

    def ask(user, method, path):
        headers = {"Authorization": "Basic " + base64.b64encode(f"{user}:secret".encode()).decode(),
                   "Content-Type": "multipart/form-data; boundary=b"}
        return device.http(path, bodies.get(path, b"x"), method, **headers)[0]

    password = "{SHA}" + base64.b64encode(hashlib.sha1(b"secret").digest()).decode()
    (tmp_path / "readers").write_text(f"reader:{password}\nuser:{password}\n")
    (tmp_path / "users").write_text(f"user:{password}\n")
    parts = [b'--b\r\nContent-Disposition: form-data; name=%s\r\n\r\nX-1\r\n' % name for name in (b"file", b"deviceid")]
    bodies = {SET: BODY, FIRMWARE: b"".join(parts) + b"--b--\r\n"}
    with SystemDevice(site={"access.conf": enable}, **{web_server: True}) as device:
        update_state = catalogue.variable("MemExternalDevices", "RBusUpdateState").at
        device.write("MemExternalDevices", update_state, b"\2\0\0\0")  # FileValid: a request for the status starts it
        before = state(device)
        assert device.http(TREE)[0] == 401
        for method in ("GET", "HEAD", "POST", "PUT", "DELETE", "PATCH", "OPTIONS"):
            for path in (TREE, LOG, SCREEN, INFO, FILE + "x", "/", SET, STATUS, FIRMWARE):
                may_read = method in ("GET", "HEAD") and path not in (SET, STATUS, FIRMWARE)
                assert path == SET or (ask("reader", method, path) != 401) == may_read, (method, path)
        assert ask("reader", "POST", SET) == 401 and state(device) == before
        assert [ask("user", "POST", path) for path in (SET, FIRMWARE, STATUS)] == [200, 200, 200]
        assert len(state(device).items() - before.items()) == 3  # two memories and a file
        log = device.path(web_server) / "changes.log"
        wait_until(lambda: log.exists() and log.read_text(), "the log of changes")
        line = json.loads(log.read_text())
        assert (line["user"], line["address"], line["body"]) == ("user", "127.0.0.1", BODY.decode())
