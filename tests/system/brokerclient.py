"""Another process of the device, as far as events are concerned."""

import itertools
import socket
import struct

NOTIFY = struct.Struct("<III")
SUBSCRIBE_ALL = 3
# Beyond all event names: the service drops it.
MARKER = 0xFFFFFFFE
TIMEOUT = 60


class BrokerClient:
    """Is subscribed to all events once it is made."""

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
        """Posts all in one piece; an event is an id or (id, argument, argument)."""
        self._socket.sendall(b"".join(NOTIFY.pack(*(event if isinstance(event, tuple) else (event, 0, 0)))
                                      for event in events))

    def posted(self):
        """All events that were posted before this call and have not been told yet."""
        marker = (MARKER, next(self._numbers), 0)
        self.post(marker)
        events = []
        while not events or events[-1] != marker:
            record = self._socket.recv(NOTIFY.size, socket.MSG_WAITALL)
            assert len(record) == NOTIFY.size, "the broker has gone"
            events.append(NOTIFY.unpack(record))
        return events[:-1]
