"""The FastCGI side under records in any shape, and with clients of every kind."""

import resource
import socket
import struct
import time

import pytest

from fastcgi import (BEGIN, END, JSON_HEADER, PARAMS, RESPONDER, RESPONDER_KEEPING, STDIN, STDOUT, length, pair, record,
                     request)
from systemdevice import wait_until

SET = "/api/v1/set.cgi"
UPDATE = "/api/v1/update.cgi"
BODY = b'{"MemPersistent":{"DisplayBrightness":%d}}'
DONE = JSON_HEADER + b'{"result": 1 }'
UNKNOWN = JSON_HEADER + b'{"result": 0, "error": "Unknown script: \'%s\'" }'
END_OF_REQUEST = bytes(8)


@pytest.fixture(scope="module", autouse=True)
def quiet(shared_device):
    shared_device.write("MemApp", 0, struct.pack("<i", 6))


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
        connection.send_request("x", version=2)
        content = UNKNOWN % b"x"
        assert len(content) == 80
        assert connection.answer().raw == (b"\2\6\0\1\0\x50\0\0" + content + b"\2\3\0\1\0\x08\0\0" + bytes(8))
    with device.connect() as connection:
        connection.send_request("xy")
        assert connection.answer().raw.startswith(b"\1\6\0\1\0\x51\7\0" + UNKNOWN % b"xy" + bytes(7) + b"\1\3")


def test_a_request_may_come_in_any_two_pieces(device):
    whole = request(SET, BODY % 0, keep=True, padding=3, REMOTE_ADDR="10.0.0.1")
    with device.connect() as connection, device.connect() as other:
        for split in range(1, len(whole)):
            value = split % 10
            data = request(SET, BODY % value, keep=True, padding=3, REMOTE_ADDR="10.0.0.1")
            connection.send(data[:split])
            assert other.ask("ping", keep=True).output == UNKNOWN % b"ping"  # the first piece has been read
            connection.send(data[split:])
            assert connection.answer().output == DONE
            assert brightness(device) == value


def test_a_request_may_come_byte_by_byte_or_with_others_in_one_piece(device):
    with device.connect() as connection:
        for byte in request(SET, BODY % 4, keep=True, chunk=5):
            connection.send(bytes([byte]))
        assert connection.answer().output == DONE
        connection.send(b"".join(request(SET, BODY % value, request_id=value, keep=True) for value in range(1, 9)))
        assert [connection.answer().records[0][1] for _ in range(8)] == list(range(1, 9))
    assert brightness(device) == 8


@pytest.mark.parametrize("params, script", [
    (pair("SCRIPT_NAME", "a", is_long=True), b"a"),
    (pair("X" * 127, "Y" * 127) + pair("SCRIPT_NAME", "b"), b"b"),
    (pair("X" * 128, "Y" * 60000) + pair("SCRIPT_NAME", "c"), b"c"),
    (pair("SCRIPT_NAME", "a") + pair("SCRIPT_NAME", "d"), b"d"),
    (pair("SCRIPT_NAME", ""), b""),
    (pair("", "v") + pair("SCRIPT_NAME", "e"), b"e"),
    (pair("SCRIPT_NAME", '"\\\r\n\t'), b"\\u0022\\u005c\\u000d\\u000a\\u0009"),
    # What ends the decoding: a pair of nothing, lengths that do not fit, lengths that are cut off.
    (b"\0\0" + pair("SCRIPT_NAME", "f"), b""),
    (b"\xff\xff\xff\xff\xff\xff\xff\xff" + pair("SCRIPT_NAME", "f"), b""),
    (b"\xff\xff\xff\xff\1" + pair("SCRIPT_NAME", "f"), b""),
    (b"\x0b" + length(0x7FFFFFF5) + b"SCRIPT_NAMEf", b""),
    (b"\x0b\x02SCRIPT_NAMEf", b""),
    (pair("SCRIPT_NAME", "g") + b"\x80\0\0", b"g"),
    (pair("SCRIPT_NAME", "h") + b"\5", b"h"),
])
def test_parameters_are_decoded_as_far_as_they_go(device, params, script):
    with device.connect() as connection:
        connection.send(record(BEGIN, RESPONDER) + record(PARAMS, params) + record(PARAMS) + record(STDIN))
        assert connection.answer().output == UNKNOWN % script


@pytest.mark.parametrize("kind", [0, 2, 3, 6, 7, 8, 9, 10, 11, 255])
def test_records_of_other_types_are_passed_over(device, kind):
    with device.connect() as connection:
        other = record(kind, b"whatever", padding=5)
        connection.send(other + record(BEGIN, RESPONDER) + other + record(PARAMS, pair("SCRIPT_NAME", SET)) + other +
                        record(STDIN, BODY % 2) + other + record(STDIN, request_id=1))
        assert connection.answer().output == DONE


@pytest.mark.parametrize("stream, outputs", [
    (record(STDIN), [UNKNOWN % b""]),  # an end without a beginning; such a connection is kept
    (record(BEGIN, b"") + record(STDIN), [UNKNOWN % b""]),
    (record(BEGIN, b"\0\1") + record(PARAMS, pair("SCRIPT_NAME", "a")) + record(STDIN), [UNKNOWN % b"a"]),
    (record(BEGIN, b"\0\3\1" + bytes(250)) + record(STDIN) * 2, [UNKNOWN % b"", None]),
    (record(BEGIN, RESPONDER) + record(PARAMS, pair("SCRIPT_NAME", "a")) + record(BEGIN, RESPONDER) + record(STDIN),
     [UNKNOWN % b""]),
    (request("a") + request("b"), [UNKNOWN % b"a"]),
    (request(UPDATE, keep=True) + record(STDIN) * 3, []),
    (record(BEGIN, RESPONDER_KEEPING) + b"\1\5\0\1\xff\xff\xff\0" + bytes(1000), []),
])
def test_a_strange_stream_is_answered_as_far_as_it_makes_sense(device, stream, outputs):
    with device.connect() as connection:
        connection.send(stream)
        for output in outputs:
            answer = connection.answer()
            assert output is None or answer.output == output
            assert answer.records[-1] == (END, answer.records[0][1], END_OF_REQUEST)
        device.ping()


def test_flipped_bits_in_a_request_harm_nobody_else(device):
    good = request(SET, BODY % 5)
    for bit in range(len(good) * 8):
        stream = bytearray(good)
        stream[bit // 8] ^= 1 << bit % 8
        with device.connect() as connection:
            connection.send(stream)
            device.ping()


def test_a_header_whose_content_never_comes_costs_only_its_connection(device):
    stuck = []
    for _ in range(40):  # more than there are places for requests
        stuck.append(device.connect())
        stuck[-1].send(record(BEGIN, RESPONDER) + b"\1\4\0\1\xff\xff\0\0" + bytes(1000))
        device.ping()
    assert device.ask(SET, BODY % 3) == DONE[len(JSON_HEADER):]
    assert device.is_idle()
    assert all(connection.is_silent(0.001) for connection in stuck)
    for connection in stuck:
        connection.close()


def test_half_requests_that_close_leave_no_descriptor(device):
    whole = request(SET, BODY % 5)
    halves = [whole[:4], whole[:8], whole[:20], whole[:len(whole) // 2], whole[:-1], b"", whole[:-8], whole[:17]]
    for number in range(2000):
        with device.connect() as connection:
            connection.send(halves[number % len(halves)])
        if number % 8 == 7:
            device.ping()  # more would wait in the kernel than the listener has room for
    assert device.is_idle()


def test_quick_requests_one_after_another_are_all_answered(device):
    begin = time.monotonic()
    for number in range(330):
        assert device.ask(SET, BODY % (number % 10)) == DONE[len(JSON_HEADER):]
    assert time.monotonic() - begin < 5  # each place would be free again only after 100 ms


def test_the_33rd_client_is_left_alone_and_later_ones_are_served(device):
    device.forget_changes()
    with device.connect() as other:
        other.ask("ping", keep=True)
        waiting = []
        for number in range(32):
            waiting.append(device.connect())
            waiting[-1].send_request(UPDATE, request_id=number)
            other.ask("ping", keep=True)  # it is accepted now
            other.ask("ping", keep=True)  # it waits now
    alone = [device.connect() for _ in range(3)]
    for connection in alone:
        connection.send_request("ping")
    assert all(connection.is_silent(0.1) for connection in alone)
    assert device.is_idle()
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
        connection.send_request("ping")
        return not connection.is_silent(0.2)


def test_a_kept_connection_serves_one_request_after_another(device):
    with device.connect() as connection:
        for number in range(1, 200):
            answer = connection.ask(SET, BODY % (number % 10), request_id=number, keep=True)
            assert answer.output == DONE
            assert {request_id for _, request_id, _ in answer.records} == {number}
        assert connection.ask("last", request_id=200).output == UNKNOWN % b"last"
        assert connection.is_closed()


def test_a_client_that_does_not_read_loses_only_its_own_answer(device):
    with device.connect() as connection:
        connection.socket.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 4096)
        connection.send_request("/api/v1/all.cgi")
        connection.socket.shutdown(socket.SHUT_RDWR)
        device.ping()


def test_without_descriptors_a_client_is_turned_away_and_the_next_is_served(device):
    pid = device.pids["service"]
    limits = resource.prlimit(pid, resource.RLIMIT_NOFILE)
    resource.prlimit(pid, resource.RLIMIT_NOFILE, (device.descriptors() + 1, limits[1]))
    with device.connect() as first, device.connect() as second:
        assert second.is_closed()
        assert device.log_lines("Out of descriptors, connection turned away")
        assert device.is_idle()
        assert first.ask("a").output == UNKNOWN % b"a"
    resource.prlimit(pid, resource.RLIMIT_NOFILE, limits)


def test_clients_that_have_gone_leave_an_idle_service(device):
    for ending in (b"", request("a")[:12], request(UPDATE), request(UPDATE, keep=True), record(STDIN)):
        for linger in (0, 1):
            connection = device.connect()
            connection.send(ending)
            device.ping()
            connection.socket.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", linger, 0))
            connection.close()
    assert device.is_idle()
