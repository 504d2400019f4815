"""The service behind the reference configurations of the web servers, and the browser console that they serve."""

import gzip
import json
import socket
from io import BytesIO

import pytest
from PIL import Image

from systemdevice import DONE, LOG, LOG_REQUESTS, SCREEN, SET, TREE, UPDATE, wait_until

BODY = b'{"MemPersistent":{"DisplayBrightness":%d}}'
PLACES_OF_ADDRESS = 24
PAGES = {"index.html": "text/html", "app.js": "text/javascript", "modules/plot.mjs": "text/javascript",
         "style.css": "text/css", "icon.svg": "image/svg+xml", "icon.png": "image/png", "favicon.ico": "image/x-icon",
         "names.json": "application/json", "console.webmanifest": "application/manifest+json",
         "text.woff2": "font/woff2", "LICENSE": "application/octet-stream"}
FOR_ALL = {"Referrer-Policy": "no-referrer", "X-Content-Type-Options": "nosniff", "X-Frame-Options": "DENY"}
FOR_PAGES = {**FOR_ALL, "Cache-Control": "no-cache", "Content-Security-Policy": "default-src 'self'"}
FOR_ANSWERS = {**FOR_ALL, "Cache-Control": "no-store",
               "Content-Security-Policy": "default-src 'none'; frame-ancestors 'none'"}
FOR_THE_LOG = {**FOR_ANSWERS, "Content-Security-Policy":
               "default-src 'none'; style-src 'unsafe-inline'; frame-ancestors 'none'; sandbox"}


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


@pytest.mark.parametrize("path", [TREE, "//api//v1/./all.cgi", "/api/v1/x/../all.cgi", "/api/%76%31/%61ll.cgi",
                                  "/api/v1%2Fall.cgi", "/api/v1/all.cgi?id=1&x=%20"])
def test_the_tree_comes_as_json_whatever_form_its_path_has(device, path):
    status, headers, body = device.http(path)
    assert (status, headers["Content-Type"]) == (200, "application/json")
    assert FOR_ANSWERS.items() <= dict(headers).items()
    assert body.startswith(b'{\r\n"id": 1,\r\n"variables": {"MemPersistent" : {"ProductName" : {')
    assert body.endswith(b"}}}\r\n")
    assert len(json.loads(body)["variables"]) == 18


def test_what_is_not_the_api_stays_outside(device):
    before = len(device.log())
    for path in ("/api", "/api/v2/all.cgi", "/qorapp/v1x/device/info", "/qorapp/v10", "/qorapp",
                 "/api/../../etc/passwd", "/api/v1/%2e%2e/%2e%2e/%2e%2e/x", "/api/v1/%00"):
        assert device.http(path)[0] in (400, 404), path
    assert "REQUEST handle" not in device.log()[before:]


def test_the_log_is_a_page_with_colours_and_the_screen_a_picture(device):
    wait_until(lambda: b"<span style='color: #" in device.http(LOG)[2], "a line")
    status, headers, _ = device.http(LOG)
    assert (status, headers["Content-Type"]) == (200, "text/html")
    assert FOR_THE_LOG.items() <= dict(headers).items()
    status, headers, body = device.http(SCREEN)
    assert (status, headers["Content-Type"]) == (200, "image/png")
    assert FOR_ANSWERS.items() <= dict(headers).items()
    assert Image.open(BytesIO(body)).size == (800, 480)


def test_the_consoles_files_come_with_their_types_and_load_only_each_other(device, client_folder):
    for name, kind in PAGES.items():
        status, headers, body = device.http(f"/{name}")
        assert (status, headers["Content-Type"], body) == (200, kind, f"this is {name}".encode())
        assert FOR_PAGES.items() <= dict(headers).items()
        status, again, body = device.http(f"/{name}", **{"If-None-Match": headers["ETag"]})
        assert (status, body) == (304, b"")
        assert FOR_PAGES.items() <= dict(again).items()
    assert device.http("/")[2] == device.http("/?view=log")[2] == b"this is index.html"
    assert device.http("/", method="DELETE", **{"Content-Length": "0"})[0] in (405, 501)
    away = client_folder.rename(client_folder.parent / "away")
    assert [device.http(path)[0] for path in ("/", "/index.html", TREE)] == [404, 404, 200]
    away.rename(client_folder)


def test_the_tree_the_log_and_the_console_are_compressed_for_those_who_accept_it(device, client_folder):
    accepting = {"Accept-Encoding": "gzip"}
    (client_folder / "long.css").write_text("a { color: red }\n" * 100)
    for path in (TREE, "/long.css"):
        _, headers, body = device.http(path, **accepting)
        assert (headers["Content-Encoding"], headers["Vary"]) == ("gzip", "Accept-Encoding"), path
        assert gzip.decompress(body) == device.http(path)[2]
        assert device.http(path)[1]["Content-Encoding"] is None
    for path in ("/icon.png", "/qorapp/v1/device/info", SET, SCREEN):
        assert device.http(path, **accepting)[1]["Content-Encoding"] is None, path
    (client_folder / "long.css").unlink()


def test_compression_does_not_hold_back_log_text_that_a_client_waits_for(device):
    length = int(device.http(LOG)[2].split(b"\r\n")[0])
    waiting = device.send(f"{LOG}?offset={length}", **{"Accept-Encoding": "gzip"})
    device.http(TREE)  # leaves a line in the log
    answer = waiting.getresponse()
    body = answer.read()
    assert (gzip.decompress(body) if answer.headers["Content-Encoding"] else body).partition(b"\r\n")[2]
    waiting.close()


@pytest.mark.parametrize("path", ["/../secret", "/%2e%2e/secret", "/..%2fsecret", "/modules/..%2f..%2fsecret",
                                  "/..%5csecret", "/../client/../secret", "/%252e%252e/secret", "/..%00/secret",
                                  "/modules", "/modules/", "/nothing.html", "/index.html/", "/app.js/x"])
def test_nothing_else_is_served_as_a_file(device, path):
    status, _, body = device.http(path)
    assert status in (301, 400, 403, 404)
    assert b"secret" not in body and b"this is" not in body and b"plot" not in body


def wait_for_update(device, count):
    """That many clients, each with a request that has reached the service."""
    device.forget_changes()
    before = device.handled(UPDATE)
    clients = []
    for number in range(count):
        clients.append(device.send(UPDATE, source=f"127.0.0.{1 + number // PLACES_OF_ADDRESS}"))
        wait_until(lambda: device.handled(UPDATE) == before + len(clients), "the client at the service")
    return clients


def change(device):
    """Another brightness than there was, as the body of a set."""
    return BODY % (device.read("MemPersistent", 92, 1)[0] ^ 1)


def test_thirty_clients_wait_the_next_gets_503_and_sets_still_work(device):
    clients = wait_for_update(device, 30)
    for _ in range(5):
        assert device.http(UPDATE)[0] == device.http(LOG)[0] == 503
    assert device.http(TREE)[0] == 200
    same = BODY % device.read("MemPersistent", 92, 1)[0]
    for _ in range(40):
        assert device.http(SET, same)[2] == DONE  # nothing changes, so nobody is answered
    assert device.http(SET, change(device))[2] == DONE
    bodies = [client.getresponse().read() for client in clients]
    assert len(set(bodies)) == 1
    value = json.loads(bodies[0])["variables"]["MemPersistent"]["DisplayBrightness"]["value"]
    assert value == str(device.read("MemPersistent", 92, 1)[0])
    for client in clients:
        client.close()


def test_clients_that_leave_make_room_at_once_or_with_the_next_change(device, web_server):
    before = device.descriptors()
    for _ in range(3):
        for client in wait_for_update(device, 30):
            client.close()
        if web_server == "lighttpd":
            device.ask(SET, change(device))
        wait_until(lambda: device.descriptors() <= before, "an end of all that waited")
    assert device.comes_to_rest()


def test_bodies_of_a_megabyte_arrive_and_larger_ones_only_as_files(device):
    content = b"0123456789abcdef" * 62500
    assert device.http(SET, b'{"MemPersistent":{"ProductName":"%s"}}' % content)[2] == DONE
    assert device.read("MemPersistent", 0, 20) == b"0123456789abcdef012\0"
    assert [device.http(path, 2 * content)[0] for path in (SET, TREE, "/qorapp/v1/device/info")] == [413, 413, 200]


def test_a_slow_reader_holds_up_nobody(device):
    slow = []
    for _ in range(10):
        client = socket.socket()
        client.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 4096)
        client.connect(("127.0.0.1", device.http_port))
        client.sendall(b"GET /api/v1/all.cgi HTTP/1.0\r\n\r\n")
        slow.append(client)
    for number in range(20):
        assert device.http(SET, BODY % (number % 10))[2] == DONE
    assert device.comes_to_rest()
    first = slow[0].makefile("rb").read()
    assert len(json.loads(first.partition(b"\r\n\r\n")[2])["variables"]) == 18
    for client in slow:
        client.close()
