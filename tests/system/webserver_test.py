"""The service behind the reference configurations of the web servers, and the browser console that they serve."""

import http.client
import json
import socket
import time

import pytest

import png
from systemdevice import LOG_REQUESTS, wait_until

LOG = "/api/v1/log.cgi"
SCREEN = "/api/v1/screen.cgi"
INFO = "/qorapp/v1/device/info"
SET = "/api/v1/set.cgi"
UPDATE = "/api/v1/update.cgi"
TREE = "/api/v1/all.cgi"
TIMEOUT = 20
BODY = b'{"MemPersistent":{"DisplayBrightness":%d}}'
PAGES = {"index.html": "text/html", "app.js": "text/javascript", "modules/plot.mjs": "text/javascript",
         "style.css": "text/css", "icon.svg": "image/svg+xml", "icon.png": "image/png", "favicon.ico": "image/x-icon",
         "names.json": "application/json", "console.webmanifest": "application/manifest+json",
         "text.woff2": "font/woff2", "LICENSE": "application/octet-stream"}
FOR_ALL = {"Referrer-Policy": "no-referrer", "X-Content-Type-Options": "nosniff", "X-Frame-Options": "DENY"}
FOR_PAGES = {**FOR_ALL, "Cache-Control": "no-cache", "Content-Security-Policy": "default-src 'self'"}
FOR_ANSWERS = {**FOR_ALL, "Cache-Control": "no-store",
               "Content-Security-Policy": "default-src 'none'; frame-ancestors 'none'"}


@pytest.fixture(scope="module")
def client_folder(tmp_path_factory):
    folder = tmp_path_factory.mktemp("web") / "client"
    for name in PAGES:
        (folder / name).parent.mkdir(parents=True, exist_ok=True)
        (folder / name).write_text(f"this is {name}")
    (folder.parent / "secret").write_text("secret")
    return folder


@pytest.fixture(scope="module")
def device_options(web_server, client_folder):
    return {web_server: True, "client": client_folder}


@pytest.fixture(scope="module")
def shared_device(shared_device, web_server):
    """When the web server has gone, and with it the connections that it keeps, nothing is left of what it was asked."""
    shared_device.write("MemApp", 0, LOG_REQUESTS)
    before = shared_device.descriptors()
    yield shared_device
    shared_device.end(web_server)
    wait_until(lambda: shared_device.descriptors() == before, "descriptors back where they were")


def send(device, path, body=None, method=None, **headers):
    connection = http.client.HTTPConnection("127.0.0.1", device.http_port, timeout=TIMEOUT)
    connection.request(method or ("GET" if body is None else "POST"), path, body, headers)
    return connection


def ask(device, path, body=None, **options):
    """Status, headers and body."""
    connection = send(device, path, body, **options)
    response = connection.getresponse()
    content = response.read()
    connection.close()
    return response.status, response.headers, content


def test_the_tree_comes_as_json(device):
    status, headers, body = ask(device, TREE)
    assert (status, headers["Content-Type"]) == (200, "application/json")
    assert FOR_ANSWERS.items() <= dict(headers).items()
    assert body.startswith(b'{\r\n"id": 1,\r\n"variables": {"MemPersistent" : {"ProductName" : {')
    assert body.endswith(b"}}}\r\n")
    assert len(json.loads(body)["variables"]) == 18


@pytest.mark.parametrize("path", [TREE, "//api//v1/./all.cgi", "/api/v1/x/../all.cgi", "/api/%76%31/%61ll.cgi",
                                  "/api/v1%2Fall.cgi", "/api/v1/all.cgi?id=1&x=%20"])
def test_paths_reach_the_service_normalised(device, path):
    assert ask(device, path)[2].startswith(b'{\r\n"id": 1,\r\n"variables": {')


@pytest.mark.parametrize("path, script", [
    ("/api/v1/nope.cgi", "/api/v1/nope.cgi"), ("/api/v1/all.cgi/", "/api/v1/all.cgi/"),
    ("/api/v1/ALL.CGI", "/api/v1/ALL.CGI"), ("/api/v1/a%22b%5cc", '/api/v1/a"b\\c'), ("/api/v1/", "/api/v1/"),
    ("/api/v1/all.cgi/info", "/api/v1/all.cgi/info"),
])
def test_an_unknown_script_is_answered_by_the_service(device, path, script):
    status, _, body = ask(device, path)
    assert (status, json.loads(body)) == (200, {"result": 0, "error": f"Unknown script: '{script}'"})


@pytest.mark.parametrize("path", ["/api", "/api/v2/all.cgi", "/qorapp/v1x/device/info", "/qorapp/v10", "/qorapp",
                                  "/api/../../etc/passwd", "/api/v1/%2e%2e/%2e%2e/%2e%2e/x", "/api/v1/%00"])
def test_what_is_not_the_api_stays_outside(device, path):
    before = len(device.log())
    assert ask(device, path)[0] in (400, 404)
    assert "REQUEST handle" not in device.log()[before:]


@pytest.mark.parametrize("path", [SET, LOG, INFO, "/api//v1/set.cgi", "/qorapp/v1"])
def test_pages_from_elsewhere_may_link_to_the_console_and_nothing_else(device, path):
    elsewhere = {"Sec-Fetch-Site": "cross-site"}
    assert ask(device, path, b"{}", **elsewhere)[0] == 403
    assert ask(device, path, b"{}", **{"Sec-Fetch-Site": "same-origin"})[0] == 200
    assert ask(device, "/", **elsewhere)[0] == 200


def test_the_log_is_a_page_with_colours_and_the_screen_a_picture(device):
    status, headers, body = ask(device, LOG)
    assert (status, headers["Content-Type"]) == (200, "text/html")
    assert headers["Content-Security-Policy"] == \
        "default-src 'none'; style-src 'unsafe-inline'; frame-ancestors 'none'"
    assert b"<span style='color: #" in body
    status, headers, body = ask(device, SCREEN)
    assert (status, headers["Content-Type"]) == (200, "image/png")
    assert FOR_ANSWERS.items() <= dict(headers).items()
    assert png.decode(body)[:2] == (800, 480)


@pytest.mark.parametrize("name", PAGES)
def test_the_consoles_files_come_with_their_types_and_load_only_each_other(device, name):
    status, headers, body = ask(device, f"/{name}")
    assert (status, headers["Content-Type"], body) == (200, PAGES[name], f"this is {name}".encode())
    assert FOR_PAGES.items() <= dict(headers).items()
    status, again, body = ask(device, f"/{name}", **{"If-None-Match": headers["ETag"]})
    assert (status, body) == (304, b"")
    assert FOR_PAGES.items() <= dict(again).items()


def test_the_console_opens_at_the_root(device):
    assert ask(device, "/")[2] == ask(device, "/?view=log")[2] == b"this is index.html"
    assert ask(device, "/", **{"Content-Length": "0"}, method="DELETE")[0] in (405, 501)


@pytest.mark.parametrize("path", ["/../secret", "/%2e%2e/secret", "/..%2fsecret", "/modules/..%2f..%2fsecret",
                                  "/..%5csecret", "/../client/../secret", "/%252e%252e/secret", "/..%00/secret",
                                  "/modules", "/modules/", "/nothing.html", "/index.html/", "/app.js/x"])
def test_nothing_else_is_served_as_a_file(device, path):
    status, _, body = ask(device, path)
    assert status in (301, 400, 403, 404)
    assert b"secret" not in body and b"this is" not in body and b"plot" not in body


def test_without_a_console_there_is_the_api(device, client_folder):
    client_folder.rename(client_folder.parent / "away")
    try:
        assert [ask(device, path)[0] for path in ("/", "/index.html", TREE)] == [404, 404, 200]
    finally:
        (client_folder.parent / "away").rename(client_folder)


def test_a_set_is_stored_and_told_to_a_client_that_waits(device):
    waiting = wait_for_update(device, 1)[0]
    assert ask(device, SET, BODY % 4)[2] == b'{"result": 1 }'
    assert device.read("MemPersistent", 92, 4) == b"\4\0\0\0"
    assert json.loads(waiting.getresponse().read())["variables"]["MemPersistent"]["DisplayBrightness"]["value"] == "4"
    waiting.close()


def wait_for_update(device, count):
    """That many clients, each with a request that has reached the service."""
    device.forget_changes()
    before = device.handled(UPDATE)
    clients = []
    for _ in range(count):
        clients.append(send(device, UPDATE))
        wait_until(lambda: device.handled(UPDATE) == before + len(clients), "the client at the service")
    return clients


def test_thirty_clients_wait_the_next_gets_503_and_sets_still_work(device):
    clients = wait_for_update(device, 30)
    for _ in range(5):
        assert ask(device, UPDATE)[0] == 503
    assert ask(device, TREE)[0] == 200
    value = device.read("MemPersistent", 92, 1)[0]
    for _ in range(40):
        assert ask(device, SET, BODY % value)[2] == b'{"result": 1 }'  # nothing changes, so nobody is answered
    assert ask(device, SET, BODY % (value ^ 1))[2] == b'{"result": 1 }'
    bodies = [client.getresponse().read() for client in clients]
    assert len(set(bodies)) == 1 and b'"DisplayBrightness" : {' in bodies[0]
    for client in clients:
        client.close()


def test_clients_that_leave_make_room_at_once_or_with_the_next_change(device, web_server):
    before = device.descriptors()
    for number in range(3):
        for client in wait_for_update(device, 30):
            client.close()
        if web_server == "lighttpd":
            device.ask(SET, BODY % number)
        wait_until(lambda: device.descriptors() <= before, "an end of all that waited")
    assert device.is_idle()


def test_twenty_megabytes_arrive(device):
    content = b"0123456789abcdef" * (20 << 16)
    for number in range(3):
        body = b'{"MemPersistent":{"ProductName":"%d%s"}}' % (number, content)
        assert ask(device, SET, body)[2] == b'{"result": 1 }'
        assert device.read("MemPersistent", 0, 20) == b"%d0123456789abcdef01\0" % number
    assert ask(device, SET, content)[2] == b'{"result": 0, "error": "JSON parse error at 0.\\u000d\\u000a" }'
    assert ask(device, TREE, content[:2 << 20])[0] == 413


def test_a_slow_reader_holds_up_nobody(device):
    slow = []
    for _ in range(10):
        client = socket.socket()
        client.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 4096)
        client.connect(("127.0.0.1", device.http_port))
        client.sendall(b"GET /api/v1/all.cgi HTTP/1.0\r\n\r\n")
        slow.append(client)
    begin = time.monotonic()
    for number in range(20):
        assert ask(device, SET, BODY % (number % 10))[0] == 200
    assert time.monotonic() - begin < 5
    assert device.is_idle()
    first = slow[0].makefile("rb").read()
    assert len(json.loads(first.partition(b"\r\n\r\n")[2])["variables"]) == 18
    for client in slow:
        client.close()
