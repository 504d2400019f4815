"""A FastCGI client that builds and reads single records.

    record: version, type, request id (2), content length (2), padding length, reserved, content, padding
"""

import select
import socket
import struct
from dataclasses import dataclass

BEGIN, ABORT, END, PARAMS, STDIN, STDOUT, STDERR = range(1, 8)
HEADER = struct.Struct(">BBHHBB")
RESPONDER_KEEPING = b"\0\1\1\0\0\0\0\0"
RESPONDER = b"\0\1\0\0\0\0\0\0"
JSON_HEADER = b"Content-type: application/json\r\n\r\n"
TIMEOUT = 60
LONG = 1 << 31  # marks a length of four bytes


def record(kind, content=b"", request_id=1):
    return HEADER.pack(1, kind, request_id, len(content), 0, 0) + content


def pair(name, value):
    name, value = name.encode(), value.encode()
    return struct.pack(">II", len(name) | LONG, len(value) | LONG) + name + value


def request(script, body=b"", *, request_id=1, keep=False, **params):
    """All records of a request, whose body is at most 65535 bytes long."""
    content = b"".join(pair(name, value) for name, value in {"SCRIPT_NAME": script, **params}.items())
    records = [(BEGIN, RESPONDER_KEEPING if keep else RESPONDER), (PARAMS, content), (PARAMS, b"")]
    records += [(STDIN, body), (STDIN, b"")] if body else [(STDIN, b"")]
    return b"".join(record(kind, piece, request_id) for kind, piece in records)


@dataclass
class Answer:
    """The records of an answer, up to END_REQUEST."""
    records: list  # (type, request id, content)

    @property
    def output(self):
        return b"".join(content for kind, _, content in self.records if kind == STDOUT)

    @property
    def body(self):
        """The output after the default header."""
        assert self.output.startswith(JSON_HEADER), self.output[:200]
        return self.output[len(JSON_HEADER):]


class Connection:
    def __init__(self, port):
        self.socket = socket.create_connection(("127.0.0.1", port))
        self.socket.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        self.socket.setsockopt(socket.SOL_SOCKET, socket.SO_RCVTIMEO, struct.pack("ll", TIMEOUT, 0))

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def close(self):
        self.socket.close()

    def send(self, data):
        self.socket.sendall(data)

    def send_request(self, *arguments, **options):
        self.send(request(*arguments, **options))

    def ask(self, *arguments, **options):
        self.send_request(*arguments, **options)
        return self.answer()

    def answer(self):
        """Reads up to END_REQUEST. Fails if the connection ends before it."""
        records = []
        while not records or records[-1][0] != END:
            records.append(self.record())
        return Answer(records)

    def record(self):
        """The next record: its type, request id and content."""
        _, kind, request_id, size, padding, _ = HEADER.unpack(self._take(HEADER.size))
        return kind, request_id, self._take(size + padding)[:size]

    def is_silent(self, seconds=0.3):
        """Whether nothing arrives for a while, not even the end of the connection."""
        return select.select([self.socket], [], [], seconds)[0] == []

    def is_closed(self):
        """Waits for data or for the end of the connection. Returns true for the end."""
        return self.socket.recv(1) == b""

    def _take(self, size):
        data = self.socket.recv(size, socket.MSG_WAITALL) if size else b""
        assert len(data) == size, f"the connection ended after {data!r}"
        return data
