"""The service behind the reference configuration of the web server."""

import http.client
import json
import socket
import time

import pytest

from systemdevice import LOG_REQUESTS, wait_until

SET = "/api/v1/set.cgi"
UPDATE = "/api/v1/update.cgi"
TREE = "/api/v1/all.cgi"
TIMEOUT = 20
BODY = b'{"MemPersistent":{"DisplayBrightness":%d}}'


@pytest.fixture(scope="module")
def device_options():
    return {"nginx": True}


@pytest.fixture(scope="module")
def shared_device(shared_device):
    """When the web server has gone, and with it the connections that it keeps, nothing is left of what it was asked."""
    shared_device.write("MemApp", 0, LOG_REQUESTS)
    before = shared_device.descriptors()
    yield shared_device
    shared_device.end("nginx")
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
    assert (status, headers["Content-Type"], headers["Cache-Control"]) == (200, "application/json", "no-store")
    assert body.startswith(b'{\r\n"id": 1,\r\n"variables": {"MemPersistent" : {"ProductName" : {')
    assert body.endswith(b"}}}\r\n")
    assert len(json.loads(body)["variables"]) == 18


@pytest.mark.parametrize("path", [TREE, "//api//v1/./all.cgi", "/api/v1/x/../all.cgi", "/api/%76%31/%61ll.cgi",
                                  "/api/v1%2Fall.cgi", "/api/v1/all.cgi?id=1&x=%00"])
def test_paths_reach_the_service_normalised(device, path):
    assert ask(device, path)[2].startswith(b'{\r\n"id": 1,\r\n"variables": {')


@pytest.mark.parametrize("path, script", [
    ("/api/v1/nope.cgi", "/api/v1/nope.cgi"), ("/api/v1/all.cgi/", "/api/v1/all.cgi/"),
    ("/api/v1/ALL.CGI", "/api/v1/ALL.CGI"), ("/api/v1/a%22b%5cc%0d%0a", '/api/v1/a"b\\c\r\n'), ("/api/v1/", "/api/v1/"),
])
def test_an_unknown_script_is_answered_by_the_service(device, path, script):
    status, _, body = ask(device, path)
    assert (status, json.loads(body)) == (200, {"result": 0, "error": f"Unknown script: '{script}'"})


@pytest.mark.parametrize("path, options, status", [
    ("/", {}, 404),
    ("/api/../../etc/passwd", {}, 400),
    ("/api/v1/%2e%2e/%2e%2e/%2e%2e/x", {}, 400),
    (SET, {"Sec-Fetch-Site": "cross-site"}, 403),
])
def test_what_is_not_the_api_stays_outside(device, path, options, status):
    assert ask(device, path, **options)[0] == status


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


def test_clients_that_leave_make_room_at_once(device):
    before = device.descriptors()
    for _ in range(3):
        for client in wait_for_update(device, 30):
            client.close()
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
