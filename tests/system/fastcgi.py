"""A FastCGI client that has every byte in its hand.

    record: version, type, request id (2), content length (2), padding length, reserved, content, padding
"""

import socket
import struct
from dataclasses import dataclass

BEGIN, ABORT, END, PARAMS, STDIN, STDOUT, STDERR = range(1, 8)
HEADER = struct.Struct(">BBHHBB")
RESPONDER_KEEPING = b"\0\1\1\0\0\0\0\0"
RESPONDER = b"\0\1\0\0\0\0\0\0"
JSON_HEADER = b"Content-type: application/json\r\n\r\n"
TIMEOUT = 60


def record(kind, content=b"", request_id=1, padding=0, version=1):
    return HEADER.pack(version, kind, request_id, len(content), padding, 0) + content + bytes(padding)


def length(size, is_long=False):
    return struct.pack(">I", size | 0x80000000) if is_long or size > 127 else bytes([size])


def pair(name, value, is_long=False):
    name, value = name.encode(), value.encode()
    return length(len(name), is_long) + length(len(value), is_long) + name + value


def request(script, body=b"", *, request_id=1, keep=False, padding=0, chunk=65535, version=1, **params):
    """All records of a request."""
    content = b"".join(pair(name, value) for name, value in {"SCRIPT_NAME": script, **params}.items())
    pieces = [body[at:at + chunk] for at in range(0, len(body), chunk)]
    records = [(BEGIN, RESPONDER_KEEPING if keep else RESPONDER), (PARAMS, content), (PARAMS, b"")]
    records += [(STDIN, piece) for piece in pieces] + [(STDIN, b"")]
    return b"".join(record(kind, piece, request_id, padding, version) for kind, piece in records)


@dataclass
class Answer:
    """What came back up to END_REQUEST."""
    raw: bytes
    records: list  # (type, request id, content) of each

    @property
    def output(self):
        return b"".join(content for kind, _, content in self.records if kind == STDOUT)

    @property
    def body(self):
        """The output behind the default header."""
        assert self.output.startswith(JSON_HEADER), self.output[:200]
        return self.output[len(JSON_HEADER):]


class Connection:
    def __init__(self, port):
        self.socket = socket.create_connection(("127.0.0.1", port), TIMEOUT)
        self.socket.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        self._received = bytearray()

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
        """Reads up to END_REQUEST. Fails when the connection ends before."""
        raw, records = b"", []
        while not records or records[-1][0] != END:
            header = self._take(HEADER.size)
            _, kind, request_id, size, padding, _ = HEADER.unpack(header)
            content = self._take(size + padding)
            raw += header + content
            records.append((kind, request_id, content[:size]))
        return Answer(raw, records)

    def is_silent(self, seconds=0.3):
        """Whether nothing comes, not even an end, for a while."""
        self.socket.settimeout(seconds)
        try:
            self._received += self.socket.recv(1)
            return False
        except TimeoutError:
            return True
        finally:
            self.socket.settimeout(TIMEOUT)

    def is_closed(self):
        """Waits for what comes next, and tells whether that is the end of the connection."""
        return not self._received and self.socket.recv(1) == b""

    def _take(self, size):
        while len(self._received) < size:
            data = self.socket.recv(65536)
            assert data, f"the connection ended after {bytes(self._received)!r}"
            self._received += data
        taken = bytes(self._received[:size])
        del self._received[:size]
        return taken
