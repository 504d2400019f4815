"""Posts and receives events as another process of the device."""

import itertools
import socket
import struct

NOTIFY = struct.Struct("<III")
SUBSCRIBE_ALL = 3
# An unknown event, which the service drops.
MARKER = 0xFFFFFFFE
TIMEOUT = 60


class BrokerClient:
    """A connection to the broker that is subscribed to all events."""

    def __init__(self, device):
        self._numbers = itertools.count()
        self._socket = socket.socket(socket.AF_UNIX)
        self._socket.settimeout(TIMEOUT)
        self._socket.connect(str(device.path("/var/volatile/message-broker.socket")))
        self._socket.sendall(NOTIFY.pack(SUBSCRIBE_ALL, 0, 0))
        self.posted()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self._socket.close()

    def post(self, *events):
        """Posts all events in one write. An event is an id or (id, argument, argument)."""
        self._socket.sendall(b"".join(NOTIFY.pack(*(event if isinstance(event, tuple) else (event, 0, 0)))
                                      for event in events))

    def posted(self):
        """The events that were posted before this call and after the last one."""
        marker = (MARKER, next(self._numbers), 0)
        self.post(marker)
        events = []
        while not events or events[-1] != marker:
            record = self._socket.recv(NOTIFY.size, socket.MSG_WAITALL)
            assert len(record) == NOTIFY.size, "the broker has gone"
            events.append(NOTIFY.unpack(record))
        return events[:-1]
