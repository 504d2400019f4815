"""Reads, sets and watches variables."""

import json
import re
import time
import zlib
from dataclasses import dataclass
from http.client import HTTPConnection, HTTPException, HTTPResponse, HTTPSConnection
from typing import (Dict, Generic, Iterator, List, Mapping, NewType, Optional, Tuple, TypedDict, TypeVar, Union, cast,
                    overload)
from urllib.parse import quote

from .variables import Changes, SomeValues, Values  # pylint: disable=import-error; the build generates it

ADDRESS = re.compile(r"(https?)://([^/@?#]+)((?:/[^/?#]+)*)/*")
API = "/api/v2"
RETRY_SECONDS = 1
SILENCE_SECONDS = 75  # the controller sends something every 30 s
PIECE_BYTES = 65536
GZIP = 16 + zlib.MAX_WBITS  # the format that zlib expects
HEADERS = {"Accept-Encoding": "gzip", "Connection": "close"}

# A moment in the history of some variables: what `read`, `set` and `Changed` give and `set` takes.
Version = NewType("Version", str)
Some = TypeVar("Some", Values, SomeValues)


@dataclass(frozen=True)
class Reading(Generic[Some]):
    """Values and their version."""

    values: Some
    version: Version


class _RefusalText(TypedDict):
    variable: str
    code: str  # "unknown-variable", "not-an-index", "wrong-type", "out-of-bounds", "too-long" or "not-an-entry"
    given: object
    message: str


class Refusal(_RefusalText, total=False):
    """Why a value cannot be set. Bounds are those of a number, entries those of an enumeration."""

    min: float
    max: float
    entries: List[str]


class Refused(Exception):
    """The controller answered a request with an error.

    status      of HTTP
    refusals    one for each value that cannot be set
    """

    def __init__(self, status: int, message: str, refusals: List[Refusal]) -> None:
        super().__init__(message)
        self.status = status
        self.refusals = refusals


class _Change(TypedDict):
    variable: str
    version: int
    value: object


class Changed(Refused):
    """Variables have changed since the version that `set` got. Nothing is stored.

    values    the names of `set` whose variables have changed, with the present values; an element has its own name,
              for example "MemLens.LensFileList[2]"
    version   the version of these values, for another `set`
    """

    def __init__(self, message: str, changes: List[_Change]) -> None:
        super().__init__(412, message, [])
        self.values = cast(SomeValues, {change["variable"]: change["value"] for change in changes})
        self.version = Version(f'"{max(change["version"] for change in changes)}"')


class Controller:
    """The variables of one controller.

    address   "http://192.168.1.20", or with a path that is in front of /api/v2. Another form raises ValueError.
    headers   of every request, for example Authorization

    Every method raises OSError or HTTPException without a connection, and Refused if the controller answers with an
    error.
    """

    def __init__(self, address: str, headers: Optional[Mapping[str, str]] = None) -> None:
        parts = ADDRESS.fullmatch(address)
        if parts is None:
            raise ValueError(f'"{address}" is not an address such as "http://192.168.1.20"')
        self._scheme, self._host, self._path = parts.groups()
        self._headers = {**HEADERS, **(headers or {})}

    @overload
    def values(self) -> Values: ...

    @overload
    def values(self, pattern: str, /, *patterns: str) -> SomeValues: ...

    def values(self, *patterns: str) -> Union[Values, SomeValues]:
        """The present values of the variables that the patterns name, of all without a pattern."""
        return self._read(patterns).values

    @overload
    def read(self) -> Reading[Values]: ...

    @overload
    def read(self, pattern: str, /, *patterns: str) -> Reading[SomeValues]: ...

    def read(self, *patterns: str) -> Union[Reading[Values], Reading[SomeValues]]:
        """The same with their version."""
        return self._read(patterns)

    def _read(self, patterns: Tuple[str, ...]) -> Reading[Values]:
        response = self._ask("GET", f"/values?vars={_list(patterns)}" if patterns else "/values")
        return Reading(cast(Values, json.loads(_body(response))), _version(response))

    def set(self, *changes: Changes, unchanged_since: Optional[Version] = None) -> Version:
        """Stores all values, or none and raises Refused. Returns their version.

        unchanged_since   stores only if none of the variables has changed since, else raises Changed
        """
        values = {name: value for change in changes for name, value in change.items()}
        condition = {} if unchanged_since is None else {"If-Match": unchanged_since}
        response = self._ask("PATCH", "/values", json.dumps(values), {"Content-Type": "application/json", **condition})
        response.read()
        return _version(response)

    def watch(self, *patterns: str, period_ms: int = 0) -> Iterator[SomeValues]:
        """The present values of the variables that the patterns name, then for ever those that change.

        Connects again when the connection is lost, and then delivers what has changed meanwhile. Of a variable that
        changes more often than the program takes it, the program gets the latest value.

        period_ms   at most one delivery in this time
        """
        path = f"/events?vars={_list(patterns)}&period={period_ms}"
        last: Dict[str, str] = {}
        while True:
            try:
                with self._ask("GET", path, headers=last) as response:
                    for number, data in _events(response):
                        last = {"Last-Event-ID": number}
                        yield cast(SomeValues, json.loads(data))
            except Refused as error:
                if error.status < 500 and error.status != 429:
                    raise
            except (OSError, HTTPException, zlib.error):
                pass
            time.sleep(RETRY_SECONDS)

    def _ask(self, method: str, path: str, body: Optional[str] = None,
             headers: Optional[Mapping[str, str]] = None) -> HTTPResponse:
        kind = HTTPSConnection if self._scheme == "https" else HTTPConnection
        connection: HTTPConnection = kind(self._host, timeout=SILENCE_SECONDS)
        connection.request(method, self._path + API + path, body, {**self._headers, **(headers or {})})
        response = connection.getresponse()
        if response.status >= 400:
            raise _refused(response)
        return response


def _refused(response: HTTPResponse) -> Refused:
    try:
        problem = json.loads(_body(response))
    except ValueError:  # the web server's own page
        problem = {}
    if response.status == 412 and "errors" in problem:
        return Changed(problem["detail"], problem["errors"])
    return Refused(response.status, problem.get("detail", response.reason), problem.get("errors", []))


def _version(response: HTTPResponse) -> Version:
    return Version(response.headers["ETag"])


def _events(response: HTTPResponse) -> Iterator[Tuple[str, str]]:
    """The lines "id:" and "data:" of each event until the connection ends."""
    number, data = "", ""
    for line in _lines(response):
        if line.startswith("id: "):
            number = line[len("id: "):]
        elif line.startswith("data: "):
            data += line[len("data: "):]
        elif not line:
            if data:
                yield number, data
            number, data = "", ""


def _lines(response: HTTPResponse) -> Iterator[str]:
    """The lines of the body, each as soon as it has arrived, also when it is compressed."""
    unpacker = zlib.decompressobj(GZIP) if _is_packed(response) else None
    rest = b""
    for piece in iter(lambda: response.read1(PIECE_BYTES), b""):
        *lines, rest = (rest + (unpacker.decompress(piece) if unpacker else piece)).split(b"\n")
        yield from (line.decode() for line in lines)


def _body(response: HTTPResponse) -> bytes:
    body = response.read()
    return zlib.decompress(body, GZIP) if _is_packed(response) else body


def _is_packed(response: HTTPResponse) -> bool:
    return response.getheader("Content-Encoding") == "gzip"


def _list(patterns: Tuple[str, ...]) -> str:
    return ",".join(quote(pattern, safe="") for pattern in patterns)
