"""The FastCGI side under records in any shape, and with clients of every kind."""

import socket
import struct

import pytest

from fastcgi import BEGIN, JSON_HEADER, PARAMS, RESPONDER, RESPONDER_KEEPING, STDIN, pair, record, request
from systemdevice import wait_until

SET = "/api/v1/set.cgi"
UPDATE = "/api/v1/update.cgi"
BODY = b'{"MemPersistent":{"DisplayBrightness":%d}}'
DONE = JSON_HEADER + b'{"result": 1 }'
UNKNOWN = JSON_HEADER + b'{"result": 0, "error": "Unknown script: \'%s\'" }'
BEGINNING = record(BEGIN, RESPONDER)


@pytest.fixture
def device(device):
    """A test leaves no descriptor behind."""
    before = device.descriptors()
    yield device
    wait_until(lambda: device.descriptors() == before, "descriptors back where they were")


def brightness(device):
    return device.read("MemPersistent", 92, 1)[0]


def test_answers_are_literal_records(device):
    with device.connect() as connection:
        connection.send_request(SET, BODY % 1, request_id=0x1234)
        assert connection.answer().raw == (b"\1\6\x12\x34\x00\x30\0\0" + DONE +
                                           b"\1\3\x12\x34\0\x08\0\0" + bytes(8))
        assert connection.is_closed()
    with device.connect() as connection:
        connection.send_request("xy", version=2)
        assert connection.answer().raw == (b"\2\6\0\1\0\x51\7\0" + UNKNOWN % b"xy" + bytes(7) +
                                           b"\2\3\0\1\0\x08\0\0" + bytes(8))


def test_requests_may_come_in_any_pieces_and_one_after_another(device):
    with device.connect() as connection, device.connect() as other:
        whole = request(SET, BODY % 0, keep=True, padding=3)
        for split in range(1, len(whole)):
            data = request(SET, BODY % (split % 10), keep=True, padding=3)
            connection.send(data[:split])
            assert other.ask("other", keep=True).output == UNKNOWN % b"other"  # the first piece has been read
            connection.send(data[split:])
            assert connection.answer().output == DONE
            assert brightness(device) == split % 10
        for byte in request(SET, BODY % 4, keep=True, chunk=5):
            connection.send(bytes([byte]))
        assert connection.answer().output == DONE
        connection.send(b"".join(request(SET, BODY % value, request_id=value, keep=True) for value in range(1, 9)))
        assert [connection.answer().records[0][1] for _ in range(8)] == list(range(1, 9))
        assert brightness(device) == 8
        assert connection.ask("last", request_id=200).output == UNKNOWN % b"last"
        assert connection.is_closed()


def answers(device, stream, count):
    """The outputs of that many answers."""
    with device.connect() as connection:
        connection.send(stream)
        return [connection.answer().output for _ in range(count)]


@pytest.mark.parametrize("stream, outputs", [
    # Lengths beyond the content end the parameters.
    (BEGINNING + record(PARAMS, b"\xff" * 8 + pair("SCRIPT_NAME", "a")) + record(STDIN), [UNKNOWN % b""]),
    (record(STDIN), [UNKNOWN % b""]),  # an end without a beginning; such a connection is kept
    (record(BEGIN, b"\0\1") + record(PARAMS, pair("SCRIPT_NAME", "a")) + record(STDIN), [UNKNOWN % b"a"]),
    (record(BEGIN, b"\0\3\1" + bytes(250)) + record(STDIN) * 2, [UNKNOWN % b""]),
    (BEGINNING + record(PARAMS, pair("SCRIPT_NAME", "a")) + BEGINNING + record(STDIN), [UNKNOWN % b""]),
    (request("a") + request("b"), [UNKNOWN % b"a"]),
    (request(UPDATE, keep=True) + record(STDIN) * 3, []),
    (record(BEGIN, RESPONDER_KEEPING) + b"\1\5\0\1\xff\xff\xff\0" + bytes(1000), []),
])
def test_a_strange_stream_is_answered_as_far_as_it_makes_sense(device, stream, outputs):
    assert answers(device, stream, len(outputs)) == outputs


def test_records_of_other_types_are_passed_over_and_flipped_bits_harm_nobody_else(device):
    for kind in (0, 2, 3, 6, 7, 8, 9, 10, 11, 255):
        other = record(kind, b"whatever", padding=5)
        stream = other.join([b"", BEGINNING, record(PARAMS, pair("SCRIPT_NAME", SET)), record(STDIN, BODY % 2),
                             record(STDIN)])
        assert answers(device, stream, 1) == [DONE], kind
    good = request(SET, BODY % 5)
    for bit in range(len(good) * 8):
        stream = bytearray(good)
        stream[bit // 8] ^= 1 << bit % 8
        answers(device, stream, 0)
        device.ping()


def test_a_header_whose_content_never_comes_costs_only_its_connection(device):
    stuck = []
    for _ in range(40):  # more than there are places for requests
        stuck.append(device.connect())
        stuck[-1].send(BEGINNING + b"\1\4\0\1\xff\xff\0\0" + bytes(1000))
        device.ping()
    assert device.comes_to_rest()
    assert all(connection.is_silent(0.001) for connection in stuck)
    for connection in stuck:
        connection.close()


def test_clients_that_have_gone_cost_nothing(device):
    whole = request("/qorapp/v1", b"half a file", PATH_INFO="/setups/file/half", REQUEST_METHOD="PUT")
    endings = [whole[:4], whole[:8], whole[:20], whole[:len(whole) // 2], whole[:-1], b"", whole[:-8], record(STDIN),
               request(UPDATE), request(UPDATE, keep=True), request("/api/v1/all.cgi"), request("a")[:12]]
    for number in range(2000):
        with device.connect() as connection:
            connection.send(endings[number % len(endings)])
            if number % 5 < 2:
                connection.socket.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
        if number % 8 == 7:
            device.ping()  # more would wait in the kernel than the listener has room for
    assert device.comes_to_rest()
    assert not device.path("/var/SETUPS/half").exists()


def test_the_33rd_client_is_left_alone_until_a_place_is_free_and_later_ones_are_served(device):
    device.forget_changes()
    with device.connect() as other:
        other.ask("other", keep=True)
        waiting = []
        for number in range(32):
            waiting.append(device.connect())
            waiting[-1].send_request(UPDATE, request_id=number)
            other.ask("other", keep=True)  # it is accepted now
            other.ask("other", keep=True)  # it waits now
    alone = [device.connect() for _ in range(3)]
    for connection in alone:
        connection.send_request("alone")
    assert all(connection.is_silent(0.1) for connection in alone)
    assert device.comes_to_rest()
    waiting.pop().close()  # a place is free
    wait_until(lambda: is_served(device), "a place for another client")
    assert device.ask(SET, BODY % (brightness(device) ^ 1)) == DONE[len(JSON_HEADER):]
    for number, connection in enumerate(waiting):
        assert connection.answer().output.startswith(JSON_HEADER + b'{\r\n"id": %d,\r\n' % number)
        connection.close()
    assert all(connection.is_silent(0.05) for connection in alone)
    for connection in alone:
        connection.close()


def is_served(device):
    with device.connect() as connection:
        connection.send_request("late")
        return not connection.is_silent(0.5)
