#!/usr/bin/env python3
"""A client of the resource service "/hmx": displays, displayables, layer configurations, touch regions and popups.

One module, standard library only, Python 3.9 or later, Linux. Copy it, or put its directory on PYTHONPATH.

    import hmx

    with hmx.connect() as client:
        for display in client.retrieve("displays", fields=["resolution"]):
            print(display["name"], display.get("resolution"))
        client.update("popups/Driver_Display/Volume", requested=True)
        client.wait("popups/Driver_Display/Volume", lambda popup: popup.get("visible"), timeout=3.0)
        with client.watch("popups", display="Driver_Display") as events:
            for event in events:
                print(event)

Targets name a whole resource ("displays") or one element of it:

    displays/UUID, /hmx/displays/UUID         any resource; the `uri` of an element is a target
    displays/NAME
    displayables/NUMBER                       the `displayableID`
    layerconfigurations/DISPLAY
    regionconfigurations/DISPLAY/HMI[/SUBCOMPONENT]
    popups/DISPLAY/NAME

An element is a plain dict with the members that the service sent: always `id`, `name` and `uri`, and the others if they are known.

Time. Every call has a limit in seconds, on the monotonic clock: the client's `timeout`, unless the call has its own. Within that limit a
call waits for a service that is not there, so callers do not notice a restart of the service. Iterating a watch is the only wait without
a limit; `Watch.next` has one.

Errors are all subclasses of `Error`. Each says what was tried, the reason, the status if the service answered, and its `outcome`: whether
the service may have carried the request out. No call repeats a request that may have been carried out.

Threads. A client and its watches must be used by one thread at a time; there are no locks. Give each thread its own client. After a fork,
the child must not use its parent's clients.

Memory. Frames, nesting, arrays and header fields are limited, see the constants; a watch keeps one state of what it watches. A watch has
a connection of its own. If its reader is slow, the service skips states and sends the newest.
"""

from __future__ import annotations

import argparse
import dataclasses
import enum
import grp
import importlib
import json
import math
import os
import pwd
import re
import select
import socket
import stat
import struct
import sys
import time
import uuid
from typing import (Any, Callable, Dict, Generator, Iterable, Iterator, List, Mapping, NamedTuple, NoReturn, Optional, Sequence, Tuple,
                    Type, TypeVar, Union, overload)

__all__ = ["connect", "Client", "Page", "Watch", "Element", "Event", "Snapshot", "Added", "Changed", "Removed", "Lost", "Back",
           "Outcome", "Error", "UsageError", "NotPermitted", "ServiceAbsent", "ConnectionLost", "Timeout", "Refused", "NotFound",
           "ProtocolError", "element_id"]

PROTOCOL_VERSION = 1
MAX_FRAME = 1_048_576  # bytes of a frame after its 16-byte header
MAX_FIELDS = 64        # of a header map
MAX_DEPTH = 64         # of a document
MAX_ITEMS = 100_000    # of all arrays of a document together

Element = Dict[str, Any]
T = TypeVar("T")


# ---- Errors ----

class Outcome(enum.Enum):
    """What is known of a request that failed."""

    NOT_SENT = "not sent"         # nothing was done; safe to repeat
    UNKNOWN = "outcome unknown"   # it was sent, and may have been carried out
    ANSWERED = "answered"         # the service answered: `status` and `reason` are its own


class Error(Exception):
    """Base of all errors. `attempt`: what was tried. `status`: the service's, else None. `outcome`: see Outcome."""

    def __init__(self, attempt: str, reason: str, outcome: Outcome = Outcome.NOT_SENT, status: Optional[int] = None) -> None:
        super().__init__(attempt, reason, outcome, status)
        self.attempt, self.reason, self.outcome, self.status = attempt, reason, outcome, status

    def __str__(self) -> str:
        status = "" if self.status is None else f"{self.status} "
        text = f"{self.attempt}: {status}{self.reason}"
        if self.status is None and self.outcome is not Outcome.ANSWERED:
            text += f", {self.outcome.value}"
        # The reason comes from another process and may end on a terminal or in a log.
        return "".join(each if each.isprintable() else ascii(each)[1:-1] for each in text)


class UsageError(Error, ValueError):
    """The call cannot be carried out as it stands. Nothing was sent."""


class NotPermitted(Error):
    """The service, or its directory, belongs to another user. Nothing was sent."""


class ServiceAbsent(Error):
    """No service within the limit. Nothing was sent."""


class ConnectionLost(Error):
    """The service went away, or ended the connection."""


class Timeout(Error, TimeoutError):
    """No answer within the limit; in a wait: the condition did not come to hold."""


class Refused(Error):
    """The service answered with an error. Of a 5xx that it passed on, `outcome` is what its reason says."""


class NotFound(Refused):
    """There is no such element or path (404)."""


class ProtocolError(Error):
    """The service sent something that is not allowed on the wire. The connection was closed."""


class _Malformed(Exception):
    """What is wrong with the bytes that came."""


# ---- Deadlines and waiting ----

class _Wait(NamedTuple):
    """What a step waits for: events of a descriptor (-1: none), until a time. It may be resumed early and then yields again."""

    descriptor: int
    events: int
    until: float


# All input and output is written as generators that yield what they wait for. A call runs one to its end; a watch keeps one and runs it
# as long as its caller has time.
_Steps = Generator[_Wait, None, T]


def _seconds(value: float, attempt: str) -> float:
    if not isinstance(value, (int, float)) or not math.isfinite(value) or value < 0:
        raise UsageError(attempt, f"the limit must be a number of seconds from 0, not {value!r}")
    return value


def _poll(wait: _Wait, until: float) -> bool:
    """Until `wait` is over or it is `until`, whichever comes first. True if `wait` is over."""
    left = min(wait.until, until) - time.monotonic()
    poller = select.poll()
    if wait.descriptor >= 0:
        poller.register(wait.descriptor, wait.events)
    return bool(poller.poll(math.ceil(max(0.0, min(left, 3600.0)) * 1000))) or time.monotonic() >= wait.until


def _run(steps: _Steps[T]) -> T:
    try:
        while True:
            wait = next(steps)
            _poll(wait, wait.until)
    except StopIteration as done:
        result: T = done.value
        return result
    finally:
        steps.close()


def _sleep(until: float) -> _Steps[None]:
    while time.monotonic() < until:
        yield _Wait(-1, 0, until)


class _Call:
    """An attempt: what is tried, until when, and its outcome so far."""

    def __init__(self, attempt: str, limit: float) -> None:
        self.attempt, self.limit = attempt, _seconds(limit, attempt)
        self.until = time.monotonic() + self.limit
        self.outcome = Outcome.NOT_SENT

    def over(self) -> bool:
        return time.monotonic() >= self.until

    def error(self, kind: Type[Error], reason: str) -> Error:
        return kind(self.attempt, reason, self.outcome)

    def timeout(self, reason: str) -> Error:
        return self.error(Timeout, f"{reason} within {self.limit:g} s")


# ---- Frames: a 16-byte head, a CBOR map from text to text or unsigned integers, and a payload ----

_HEAD = struct.Struct("<IBBHQ")  # length, type, flags, zero, request id
_HELLO, _REQUEST, _NEXT, _ERROR, _COMPLETED, _CANCEL = range(1, 7)
_ONE_SHOT, _END = 1, 2
_Header = Dict[str, Union[str, int]]


class _Frame(NamedTuple):
    type: int
    id: int
    header: _Header
    payload: bytes


def _cbor_head(major: int, number: int) -> bytes:
    if number < 24:
        return bytes([major << 5 | number])
    for code, size in ((24, 1), (25, 2), (26, 4), (27, 8)):
        if number < 1 << 8 * size:
            return bytes([major << 5 | code]) + number.to_bytes(size, "big")
    raise OverflowError("wider than 64 bits")


def _encode_map(header: Mapping[str, Union[str, int]]) -> bytes:
    out = bytearray(_cbor_head(5, len(header)))
    for each in (each for pair in header.items() for each in pair):
        if isinstance(each, int):
            out += _cbor_head(0, each)
        else:
            text = each.encode()
            out += _cbor_head(3, len(text)) + text
    return bytes(out)


def _decode_map(body: bytes) -> Tuple[_Header, int]:
    """The map that `body` begins with, and where the payload begins. Errors: _Malformed."""
    at = 0

    def take(count: int) -> bytes:
        nonlocal at
        if count > len(body) - at:
            raise _Malformed("the header is cut short")
        at += count
        return body[at - count:at]

    def head() -> Tuple[int, Optional[int]]:
        """Major type and number; None for "until the break"."""
        first = take(1)[0]
        major, code = first >> 5, first & 31
        if code < 24:
            return major, code
        if code < 28:
            return major, int.from_bytes(take(1 << code - 24), "big")
        if code == 31:
            return major, None
        raise _Malformed("the header is not CBOR")

    def item(major: int, number: Optional[int]) -> Union[str, int]:
        if number is not None and major == 0:
            return number
        if number is None or major != 3:
            raise _Malformed("the header holds something other than text and unsigned integers")
        try:
            return take(number).decode()
        except UnicodeDecodeError:
            raise _Malformed("the header holds text that is not UTF-8") from None

    major, count = head()
    if major != 5:
        raise _Malformed("the header is not a map")
    header: _Header = {}
    fields = 0
    while count is None or fields < count:
        kind, number = head()
        if count is None and (kind, number) == (7, None):
            break
        fields += 1
        if fields > MAX_FIELDS:
            raise _Malformed(f"the header has more than {MAX_FIELDS} fields")
        key = item(kind, number)
        if not isinstance(key, str):
            raise _Malformed("a key of the header is not text")
        header[key] = item(*head())
    return header, at


def _encode_frame(kind: int, flags: int, number: int, header: Optional[Mapping[str, Union[str, int]]] = None,
                  payload: bytes = b"") -> bytes:
    body = b"" if header is None else _encode_map(header) + payload
    return _HEAD.pack(len(body), kind, flags, 0, number) + body


def _take_frame(buffer: bytearray) -> Optional[_Frame]:
    """Removes the first frame from `buffer` and returns it; None while it is not complete. Errors: _Malformed."""
    if len(buffer) < _HEAD.size:
        return None
    length, kind, flags, reserved, number = _HEAD.unpack_from(buffer)
    if length > MAX_FRAME:
        raise _Malformed(f"a frame of {length} bytes")
    if kind not in (_HELLO, _NEXT, _ERROR, _COMPLETED):
        raise _Malformed(f"a frame of type {kind}")
    if reserved != 0 or flags & ~(_END if kind == _NEXT else 0):
        raise _Malformed(f"a frame with the flags {flags:#x} and {reserved:#x}")
    if (number == 0) != (kind == _HELLO):
        raise _Malformed(f"a frame of type {kind} for the request {number}")
    if len(buffer) < _HEAD.size + length:
        return None
    body = bytes(memoryview(buffer)[_HEAD.size:_HEAD.size + length])
    del buffer[:_HEAD.size + length]
    header, end = ({}, 0) if kind == _COMPLETED and not body else _decode_map(body)
    if kind in (_HELLO, _COMPLETED) and end != len(body):
        raise _Malformed(f"a frame of type {kind} with a payload")
    return _Frame(kind, number, header, body[end:])


# ---- Documents ----

def _encode_document(document: Any, attempt: str) -> bytes:
    def known(value: object) -> str:
        if isinstance(value, uuid.UUID):
            return str(value)
        raise TypeError(f"{type(value).__name__} has no form in JSON")

    try:
        return json.dumps(document, ensure_ascii=False, allow_nan=False, separators=(",", ":"), default=known).encode()
    except (TypeError, ValueError, RecursionError) as error:
        raise UsageError(attempt, f"the body does not become JSON: {error}") from None


def _decode_document(payload: bytes) -> Any:
    """Members that are null are left out: they count as absent. Errors: _Malformed."""
    def constant(name: str) -> NoReturn:
        raise ValueError(f"{name} is no number")

    def present(members: Dict[str, Any]) -> Dict[str, Any]:
        return {key: value for key, value in members.items() if value is not None} if None in members.values() else members

    try:
        document = json.loads(payload.decode(), parse_constant=constant, object_hook=present)
    except (ValueError, RecursionError) as error:
        raise _Malformed(f"the payload is not JSON: {error}") from None
    items, level, depth = 0, [document], 0
    while level:
        depth += any(isinstance(each, (dict, list)) for each in level)
        items += sum(len(each) for each in level if isinstance(each, list))
        if depth > MAX_DEPTH or items > MAX_ITEMS:
            raise _Malformed(f"the document is nested deeper than {MAX_DEPTH}, or has more than {MAX_ITEMS} array elements")
        level = [inner for each in level if isinstance(each, (dict, list))
                 for inner in (each.values() if isinstance(each, dict) else each)]
    return document


# ---- Finding the service ----

@dataclasses.dataclass(frozen=True)
class _Address:
    service: str
    application: str
    path: str  # of the socket


def _socket_path(service: str, runtime_dir: Optional[str], domain: str) -> str:
    def variable(name: str) -> str:
        return os.environ.get(name, "")

    base = runtime_dir or variable("KELO_RUNTIME_DIR")
    if not base and variable("XDG_RUNTIME_DIR"):
        base = variable("XDG_RUNTIME_DIR") + "/kelo"
    if not base:
        name = domain or variable("KELO_DOMAIN") or "local"
        usable = os.access("/run/kelo", os.W_OK | os.X_OK) or os.access(f"/run/kelo/{name}", os.R_OK | os.X_OK)
        base = "/run/kelo" if usable else f"{variable('TMPDIR') or '/tmp'}/kelo-{os.geteuid()}"
    directory = f"{base}/{domain or variable('KELO_DOMAIN') or 'local'}"
    name = "".join(chr(each) if chr(each).isalnum() and each < 128 or each in b"-_" else f"%{each:02X}" for each in service.encode())
    if len(os.fsencode(f"{directory}/{name}.sock")) > 83:
        name = "#" + str(uuid.uuid5(uuid.NAMESPACE_URL, service))[:18]
    return f"{directory}/{name}.sock"


# ---- Who is trusted ----

_SO_PEERGROUPS = 59


def _path_matches(pattern: str, path: str) -> bool:
    """Whether the pattern of a policy stands for the path: "*" is any part, "**" at the end any number of them."""
    wanted, parts = pattern.split("/"), path.split("/")
    if wanted[-1] == "**":
        wanted.pop()
        parts = parts[:len(wanted)]
    return len(wanted) == len(parts) and all(each == part or (each == "*" and part) for each, part in zip(wanted, parts))


def _may_publish(service: str, peer: socket.socket, uid: int, gid: int) -> bool:
    """Whether the policy lets the user at the other end publish the service. What it says there twice, or wrongly, counts as a no."""
    directory = os.environ.get("KELO_POLICY_DIR") or "/etc/kelo/policy.d"
    allowed = False
    try:
        toml = importlib.import_module("tomllib")  # from Python 3.11
        groups = {gid, *(number for number, in struct.iter_unpack("I", peer.getsockopt(socket.SOL_SOCKET, _SO_PEERGROUPS, 1024)))}
        files = sorted(f"{directory}/{name}" for name in os.listdir(directory) if name.endswith(".toml") and name[0] != ".")
        for each in (directory, *files):
            status = os.lstat(each)
            if stat.S_ISLNK(status.st_mode) or status.st_uid not in (0, os.geteuid()) or status.st_mode & 0o022:
                return False
        for file in files:
            with open(file, "rb") as text:
                policy = toml.load(text)
            for effect, rule in ((effect, rule) for effect in ("allow", "deny") for rule in policy.get(effect, [])):
                named = {key: value if isinstance(value, list) else [value] for key, value in rule.items()}
                users = {user if isinstance(user, int) or user == "*" else pwd.getpwnam(user).pw_uid for user in named.get("user", [])}
                members = {group if isinstance(group, int) else grp.getgrnam(group).gr_gid for group in named.get("group", [])}
                if any(_path_matches(pattern, service) for pattern in named.get("publish", [])) and (users & {uid, "*"} or members & groups):
                    if effect == "deny":
                        return False
                    allowed = True
    except (ImportError, OSError, ValueError, KeyError, AttributeError, TypeError):
        return False
    return allowed


# ---- One connection ----

class _Connection:
    """A connection, from the hello to the first failure; after that it stays closed."""

    def __init__(self, sock: socket.socket) -> None:
        self._socket = sock
        self._input = bytearray()
        self._last_id = 0
        self.closed = False

    def close(self) -> None:
        self.closed = True
        self._socket.close()

    @classmethod
    def establish(cls, address: _Address, call: _Call) -> _Steps[_Connection]:
        """One attempt. Errors: ServiceAbsent, NotPermitted, ConnectionLost, Timeout, ProtocolError, UsageError; all not sent."""
        self = cls(socket.socket(socket.AF_UNIX, socket.SOCK_STREAM))
        try:
            self._connect(address, call)
            hello: _Header = {"$version": PROTOCOL_VERSION, "$application": address.application, "$service-path": address.service}
            yield from self._send(call, _encode_frame(_HELLO, 0, 0, hello))
            answer = yield from self.receive(call)
            if answer.type != _HELLO or answer.header.get("$version") != PROTOCOL_VERSION:
                raise call.error(ProtocolError, f"the service did not say hello in version {PROTOCOL_VERSION}")
            if not any(_is_json(each) for each in str(answer.header.get("$mime-types", "")).split(",")):
                raise call.error(ProtocolError, "the service does not speak JSON")
            return self
        except BaseException:
            self.close()
            raise

    def _connect(self, address: _Address, call: _Call) -> None:
        self._socket.setblocking(False)
        try:
            self._socket.connect(address.path)
        except PermissionError as error:
            raise call.error(NotPermitted, f"{address.path}: {error.strerror}") from None
        except (FileNotFoundError, NotADirectoryError, ConnectionRefusedError, BlockingIOError) as error:
            raise call.error(ServiceAbsent, f"no service at {address.path}: {error.strerror}") from None
        except (OSError, ValueError) as error:
            raise call.error(UsageError, f"{address.path}: {error}") from None
        credentials = self._socket.getsockopt(socket.SOL_SOCKET, socket.SO_PEERCRED, struct.calcsize("iII"))
        _, user, group = struct.unpack("iII", credentials)
        if user not in (0, os.geteuid()) and not _may_publish(address.service, self._socket, user, group):
            raise call.error(NotPermitted, f"the service is run by user {user}, not by {os.geteuid()} or root, and no policy lets it")

    def _send(self, call: _Call, frame: bytes) -> _Steps[None]:
        """Sends all of it, or raises an error: an incomplete frame is never carried out, and ends the connection."""
        rest = memoryview(frame)
        try:
            while True:
                try:
                    rest = rest[self._socket.send(rest, socket.MSG_NOSIGNAL):]
                except BlockingIOError:
                    pass
                except OSError as error:
                    raise call.error(ConnectionLost, f"connection lost: {error.strerror}") from None
                if not rest:
                    return
                if call.over():
                    raise call.timeout("the service did not take the request")
                yield _Wait(self._socket.fileno(), select.POLLOUT, call.until)
        except BaseException:
            self.close()
            raise

    def receive(self, call: _Call) -> _Steps[_Frame]:
        """The next frame. Errors: ConnectionLost, Timeout (the connection can still be used), ProtocolError."""
        while True:
            try:
                frame = _take_frame(self._input)
            except _Malformed as error:
                raise self._malformed(call, str(error)) from None
            if frame is not None:
                return frame
            if call.over():
                raise call.timeout("no answer")
            yield _Wait(self._socket.fileno(), select.POLLIN, call.until)
            try:
                data = self._socket.recv(65536)
            except BlockingIOError:
                continue
            except OSError as error:
                self.close()
                raise call.error(ConnectionLost, f"connection lost: {error.strerror}") from None
            if not data:
                self.close()
                raise call.error(ConnectionLost, "the service ended the connection")
            self._input += data

    def _malformed(self, call: _Call, reason: str) -> Error:
        self.close()
        return call.error(ProtocolError, f"malformed answer: {reason}")

    def request(self, call: _Call, command: str, path: str, body: Any, one_shot: bool = True) -> _Steps[int]:
        """Sends it and returns its id. Errors: ConnectionLost, Timeout, UsageError; all not sent."""
        call.outcome = Outcome.NOT_SENT
        header = {"$request-command": command, "$request-path": path, "$mime-type": "application/json", "$accept": "application/json"}
        payload = b"" if body is None else _encode_document(body, call.attempt)
        frame = _encode_frame(_REQUEST, _ONE_SHOT if one_shot else 0, self._last_id + 1, header, payload)
        if len(frame) - _HEAD.size > MAX_FRAME:
            raise call.error(UsageError, f"the request is larger than {MAX_FRAME} bytes")
        self._last_id += 1
        yield from self._send(call, frame)
        call.outcome = Outcome.UNKNOWN
        return self._last_id

    def value(self, call: _Call, frame: _Frame) -> Any:
        """The value of an answer; None if it has no payload. Errors: Refused, ProtocolError."""
        if frame.type == _COMPLETED:
            raise call.error(ProtocolError, "the service ended the request without an answer")
        status = frame.header.get("$status")
        if frame.type == _HELLO or not isinstance(status, int) or not 100 <= status <= 999:
            raise self._malformed(call, "no status between 100 and 999")
        if frame.type == _ERROR or status >= 400:
            reason = frame.payload.decode(errors="replace")
            said = (each for each in (Outcome.NOT_SENT, Outcome.UNKNOWN) if status >= 500 and reason.endswith(each.value))
            raise (NotFound if status == 404 else Refused)(call.attempt, reason, next(said, Outcome.ANSWERED), status)
        if not frame.payload:
            return None
        if not _is_json(str(frame.header.get("$mime-type", ""))):
            raise self._malformed(call, f"a payload of type {frame.header.get('$mime-type')!r}")
        try:
            return _decode_document(frame.payload)
        except _Malformed as error:
            raise self._malformed(call, str(error)) from None

    def was_asked(self, call: _Call, number: int) -> None:
        if number > self._last_id:
            raise self._malformed(call, f"an answer to the request {number}, which was not made")

    def ask(self, call: _Call, command: str, path: str, body: Any) -> _Steps[Any]:
        """One request and its answer. Errors: as request, receive and value."""
        number = yield from self.request(call, command, path, body)
        while True:
            try:
                frame = yield from self.receive(call)
            except Timeout:
                self._cancel(number)
                raise
            if frame.id == number or frame.type == _HELLO:
                return self.value(call, frame)
            self.was_asked(call, frame.id)
            if call.over():  # a service that sends without end must not keep us
                self._cancel(number)
                raise call.timeout("no answer")

    def _cancel(self, number: int) -> None:
        frame = _encode_frame(_CANCEL, 0, number)
        try:
            if self._socket.send(frame, socket.MSG_NOSIGNAL) < len(frame):
                self.close()
        except OSError:
            self.close()


def _is_json(mime_type: str) -> bool:
    return mime_type.partition(";")[0].strip().lower() == "application/json"


# ---- Resources and their elements ----

# The text that an element's id is made from, by the parts of its name; None if they do not name one.
_NAMES: Dict[str, Tuple[str, Callable[[str], Optional[str]]]] = {
    "displays": ("NAME", lambda name: "hmx/displays/" + name),
    "displayables": ("NUMBER", lambda name: f"hmx/displayables/{int(name)}" if re.fullmatch(r"-?[0-9]{1,10}", name) else None),
    "layerconfigurations": ("DISPLAY", lambda name: "hmx/layerconfigurations/" + name),
    "regionconfigurations": ("DISPLAY/HMI[/SUBCOMPONENT]", lambda name: "".join(name.split("/", 2)) if "/" in name else None),
    "popups": ("DISPLAY/NAME", lambda name: "".join(name.split("/", 1)) if "/" in name else None),
}
_UUID = re.compile(r"[0-9a-fA-F]{8}(-[0-9a-fA-F]{4}){3}-[0-9a-fA-F]{12}")


class _Target(NamedTuple):
    resource: str
    id: Optional[str]       # None for the whole resource
    display: Optional[str]  # of a popup that is named by its name

    @property
    def path(self) -> str:
        return f"/{self.resource}" + ("" if self.id is None else f"/{self.id}")


def _parse(text: str, verb: str, element: bool = False) -> _Target:
    attempt = f"{verb} {text}"
    if re.search("[\ud800-\udfff]", text):
        raise UsageError(attempt, "a target is text that can be written as UTF-8")
    resource, slash, name = re.sub("^/?(hmx/)?", "", text).partition("/")
    if resource not in _NAMES:
        raise UsageError(attempt, f"no such resource; there are {', '.join(_NAMES)}")
    form, text_of = _NAMES[resource]
    if not slash and not element:
        return _Target(resource, None, None)
    if _UUID.fullmatch(name):
        return _Target(resource, name.lower(), None)
    made_of = text_of(name) if name else None
    if made_of is None:
        raise UsageError(attempt, f"which element? {resource}/UUID or {resource}/{form}")
    display = name.partition("/")[0] if resource == "popups" else None
    return _Target(resource, str(uuid.uuid5(uuid.NAMESPACE_URL, made_of)), display)


def element_id(target: str) -> uuid.UUID:
    """The id of an element by its name, computed without asking a service. Errors: UsageError."""
    return uuid.UUID(_parse(target, "id of", element=True).id or "")


Parameters = Dict[str, Any]
_Ask = Callable[[_Call, str, str, Any], _Steps[Any]]


def _parameters(fields: Iterable[str], filters: Mapping[str, Any], **others: Any) -> Parameters:
    wanted = [fields] if isinstance(fields, str) else list(fields) or None
    return {key: value for key, value in {**filters, **others, "fields": wanted}.items() if value is not None}


def _page(call: _Call, document: Any) -> Page:
    """Errors: ProtocolError."""
    def near(key: str) -> Optional[Dict[str, Any]]:
        hint = document.get(key)
        return {"offset_id" if name == "offsetId" else name: value for name, value in hint.items()} if isinstance(hint, dict) else None

    if not isinstance(document, dict):
        raise call.error(ProtocolError, "the answer is no list page")
    total, pages = document.get("total"), document.get("totalPages")
    if not isinstance(total, int) or not isinstance(pages, int):
        raise call.error(ProtocolError, "the answer is a list page without its totals")
    return Page(_elements(call, document.get("data")), total, pages, near("previous"), near("next"))


def _elements(call: _Call, data: Any) -> Tuple[Element, ...]:
    if not isinstance(data, list) or not all(isinstance(each, dict) and isinstance(each.get("id"), str) for each in data):
        raise call.error(ProtocolError, "the answer holds something that is no element")
    return tuple(data)


def _queries(ask: _Ask, call: _Call, target: _Target, parameters: Parameters) -> _Steps[List[Tuple[str, Parameters]]]:
    """The requests that show `target`: one, or one per display for the popups of all displays. Errors: UsageError, as ask."""
    if target.id is None and target.resource == "regionconfigurations":
        raise call.error(UsageError, f"the service shows region configurations one by one only, as {_NAMES[target.resource][0]}")
    if target.id is not None or target.resource != "popups" or "display" in parameters:
        return [(target.path, parameters)]
    if not {"limit", "offset", "offsetId"}.isdisjoint(parameters):
        raise call.error(UsageError, "pages of popups are made by display: name one with display=")
    displays = _page(call, (yield from ask(call, "retrieve", "/displays", {"fields": []})))
    return [(target.path, {**parameters, "display": each["name"]}) for each in displays if each.get("name")]


def _gather(ask: _Ask, call: _Call, target: _Target, parameters: Parameters) -> _Steps[Page]:
    """The elements of a whole resource. Errors: as _queries."""
    queries = yield from _queries(ask, call, target, parameters)
    pages = []
    for path, each in queries:
        try:
            pages.append(_page(call, (yield from ask(call, "retrieve", path, each))))
        except NotFound:
            if len(queries) == 1:
                raise  # one of several displays may be unknown to the popup manager: it has no popups
    if len(queries) == 1:
        return pages[0]
    elements = tuple(element for page in pages for element in page)
    return Page(elements, len(elements), 1)


def _ask_element(ask: _Ask, call: _Call, command: str, target: _Target, body: Any) -> _Steps[Any]:
    """The service knows an id only after it has listed the element, so this lists it if necessary. Errors: as ask."""
    try:
        return (yield from ask(call, command, target.path, body))
    except NotFound:
        if target.resource == "regionconfigurations":
            raise
    whole = _Target(target.resource, None, None)
    yield from _gather(ask, call, whole, {"fields": [], **({} if target.display is None else {"display": target.display})})
    return (yield from ask(call, command, target.path, body))


@dataclasses.dataclass(frozen=True)
class Page(Sequence[Element]):
    """The answer to a retrieve: a sequence of elements. `total`: the number that match, on all pages. `next` and `previous`: limit and offset
    of the neighbouring pages, None if there is none. Fields and filters must be given again:

        page = client.retrieve("displayables", type=1, limit=100)
        if page.next: page = client.retrieve("displayables", type=1, **page.next)"""

    elements: Tuple[Element, ...]
    total: int
    total_pages: int
    previous: Optional[Dict[str, Any]] = None
    next: Optional[Dict[str, Any]] = None

    def __len__(self) -> int:
        return len(self.elements)

    @overload
    def __getitem__(self, index: int) -> Element: ...

    @overload
    def __getitem__(self, index: slice) -> Sequence[Element]: ...

    def __getitem__(self, index: Union[int, slice]) -> Union[Element, Sequence[Element]]:
        return self.elements[index]


# ---- The client ----

_SHORTEST_PAUSE, _LONGEST_PAUSE, _POLL_PAUSE = 0.02, 0.4, 1.0  # seconds between attempts to find or to ask again


def connect(service: str = "/hmx", runtime_dir: Optional[str] = None, domain: str = "", timeout: float = 5.0,
            application: Optional[str] = None) -> Client:
    """Connects to `service`, waiting for it up to `timeout` seconds, which is also the limit of each later call.

    `runtime_dir`: where the domains are, instead of KELO_RUNTIME_DIR. `application`: the name of this program in the service's log.
    Errors: ServiceAbsent, NotPermitted, ConnectionLost, Timeout, ProtocolError, UsageError."""
    client = Client(service, runtime_dir, domain, timeout, application)
    client.open()
    return client


class Client:
    """Requests to one service; see `connect`. Connects when needed, also after a loss. Thread: one at a time. Every method may raise
    ServiceAbsent, NotPermitted, ConnectionLost, Timeout, Refused, ProtocolError and UsageError; `timeout` is in seconds, None for the
    client's."""

    def __init__(self, service: str = "/hmx", runtime_dir: Optional[str] = None, domain: str = "", timeout: float = 5.0,
                 application: Optional[str] = None) -> None:
        self.timeout = _seconds(timeout, f"connect to {service}")
        name = application or os.path.basename(sys.argv[0] if sys.argv else "") or "python"
        name = name.encode(errors="replace")[:200].decode(errors="ignore")
        self._address = _Address(service, name, _socket_path(service, runtime_dir, domain))
        self._connection: Optional[_Connection] = None
        self._closed = False

    def __enter__(self) -> Client:
        return self

    def __exit__(self, *_: object) -> None:
        self.close()

    def close(self) -> None:
        """Closes the connection. Watches have their own. May be called again."""
        self._closed = True
        if self._connection is not None:
            self._connection.close()

    def open(self) -> None:
        """Connects now instead of with the first request."""
        _run(self._connected(self._call("connect", None)))

    def retrieve(self, target: str, /, *, fields: Iterable[str] = (), limit: Optional[int] = None, offset: Optional[int] = None,
                 offset_id: Union[str, uuid.UUID, None] = None, timeout: Optional[float] = None, **filters: Any) -> Page:
        """The elements of a resource, or the one that `target` names.

        `fields`: the optional members to return. `limit`: elements per page, at least 1. `offset`: elements to skip, or `offset_id`: the page
        begins after this element. `filters`: members and the values that elements must have. Popups can be listed for one display at a time:
        without display=NAME, those of all displays are collected into one page."""
        parsed = _parse(target, "retrieve")
        call = self._call(f"retrieve {target}", timeout)
        parameters = _parameters(fields, filters, limit=limit, offset=offset, offsetId=offset_id)
        if parsed.id is None:
            return _run(_gather(self._ask, call, parsed, parameters))
        return Page(_elements(call, [_run(_ask_element(self._ask, call, "retrieve", parsed, parameters))]), 1, 1)

    def get(self, target: str, /, *, fields: Iterable[str] = (), timeout: Optional[float] = None) -> Element:
        """One element. Errors also: NotFound."""
        _parse(target, "get", element=True)
        return self.retrieve(target, fields=fields, timeout=timeout)[0]

    def insert(self, target: str, body: Optional[Mapping[str, Any]] = None, /, *, timeout: Optional[float] = None, **members: Any) -> str:
        """Adds an element, given as a mapping, as keywords or as both, and returns its URI, which is a target."""
        call = self._call(f"insert {target}", timeout)
        return self._uri(call, _run(self._ask(call, "insert", _parse(target, "insert").path, {**(body or {}), **members})))

    def update(self, target: str, body: Optional[Mapping[str, Any]] = None, /, *, timeout: Optional[float] = None, **members: Any) -> str:
        """Changes members of an element and returns its URI. Errors also: NotFound."""
        call = self._call(f"update {target}", timeout)
        parsed = _parse(target, "update", element=True)
        return self._uri(call, _run(_ask_element(self._ask, call, "update", parsed, {**(body or {}), **members})))

    def delete(self, target: str, /, *, timeout: Optional[float] = None) -> None:
        """Removes an element. Errors also: NotFound."""
        parsed = _parse(target, "delete", element=True)
        _run(_ask_element(self._ask, self._call(f"delete {target}", timeout), "delete", parsed, None))

    def status(self, *, timeout: Optional[float] = None) -> Element:
        """The status of the service's process: counters, limits, connections."""
        call = self._call("retrieve /$platform/status", timeout)
        document: Any = _run(self._ask(call, "retrieve", "/$platform/status", None))
        if not isinstance(document, dict):
            raise call.error(ProtocolError, "the answer is no object")
        return document

    def watch(self, target: str, /, *, fields: Iterable[str] = (), give_up: Optional[float] = None, appear: bool = False,
              **filters: Any) -> Watch:
        """Follows a resource or an element; see Watch. `fields`, `filters`: as in retrieve.

        `give_up`: after so many seconds without the source, the watch ends with the error of the loss; None: never. `appear`: wait for an
        element that does not exist yet, instead of raising NotFound. Popups without display=NAME are those of the displays that exist when
        the watch connects. Errors are raised when the watch is read, except UsageError."""
        parsed = _parse(target, "watch")
        return Watch(self._address, self._call(f"watch {target}", None), parsed, _parameters(fields, filters), give_up, appear)

    def wait(self, target: str, predicate: Optional[Callable[[Element], object]] = None, /, *, timeout: Optional[float] = None,
             **filters: Any) -> Element:
        """Waits until `target`, or an element of a whole resource, exists and `predicate` is true for it, and returns that element.

        Continues after losses of the service. Errors: Timeout, which says what was missing; Refused and others as in watch."""
        call = self._call(f"wait for {target}", timeout)
        reason = "the service did not answer"
        outcome = Outcome.ANSWERED
        with self.watch(target, appear=True, **filters) as watch:
            while True:
                event = None if call.over() else watch.next(max(0.0, call.until - time.monotonic()))
                if event is None:
                    raise Timeout(call.attempt, f"{reason} within {call.limit:g} s", outcome)
                if isinstance(event, (Snapshot, Added, Changed)):
                    elements = event.elements if isinstance(event, Snapshot) else (event.element,)
                    for element in elements:
                        if predicate is None or predicate(element):
                            return element
                    reason, outcome = ("the condition did not hold" if elements else "there was no such element"), Outcome.ANSWERED
                elif isinstance(event, Removed):
                    reason = "the element was removed, and the condition did not hold of another"
                elif isinstance(event, Lost):
                    reason, outcome = f"the source was lost ({event.error.reason}) and did not return", event.error.outcome

    def _call(self, attempt: str, limit: Optional[float]) -> _Call:
        attempt = f"{attempt} at {self._address.service}"
        if self._closed:
            raise UsageError(attempt, "the client is closed")
        return _Call(attempt, self.timeout if limit is None else limit)

    def _connected(self, call: _Call) -> _Steps[_Connection]:
        pause = _SHORTEST_PAUSE
        while self._connection is None or self._connection.closed:
            try:
                self._connection = yield from _Connection.establish(self._address, call)
            except (ServiceAbsent, ConnectionLost):
                if time.monotonic() + pause >= call.until:
                    raise
                yield from _sleep(time.monotonic() + pause)
                pause = min(2 * pause, _LONGEST_PAUSE)
        return self._connection

    def _ask(self, call: _Call, command: str, path: str, body: Any) -> _Steps[Any]:
        while True:
            connection = yield from self._connected(call)
            try:
                return (yield from connection.ask(call, command, path, body))
            except ConnectionLost as error:
                # The service was lost since the last call. Nothing was sent, so its successor may be asked.
                if error.outcome is not Outcome.NOT_SENT or call.over():
                    raise
            yield from _sleep(time.monotonic() + _SHORTEST_PAUSE)

    @staticmethod
    def _uri(call: _Call, answer: Any) -> str:
        if not isinstance(answer, str):
            raise call.error(ProtocolError, "the answer is no URI")
        return answer


# ---- Watching ----

@dataclasses.dataclass(frozen=True)
class Snapshot:
    """All elements: the first event, and again after each return of the source."""

    elements: Tuple[Element, ...]


@dataclasses.dataclass(frozen=True)
class Added:
    element: Element


@dataclasses.dataclass(frozen=True)
class Changed:
    element: Element
    before: Element


@dataclasses.dataclass(frozen=True)
class Removed:
    """`element`: its last state."""

    element: Element


@dataclasses.dataclass(frozen=True)
class Lost:
    """The source is lost, or has not answered yet; earlier events may be out of date."""

    error: Error


@dataclasses.dataclass(frozen=True)
class Back:
    """The source answers again; a snapshot follows."""


Event = Union[Snapshot, Added, Changed, Removed, Lost, Back]


class Watch(Iterator[Event]):
    """The events of a resource or an element. Reconnects by itself: 20 to 400 ms after a loss, once a second if the service ends a request
    without an error. States between two events of one element may be left out, but never the last one. A change of the order alone is not an
    event. A service that is stopped, but not gone, looks like one without changes.

    Errors that cannot go away by themselves are raised when the watch is read, and end it: a request that is refused (4xx), a service that
    breaks the protocol or belongs to another user, NotFound for an element that never existed."""

    def __init__(self, address: _Address, call: _Call, target: _Target, parameters: Parameters, give_up: Optional[float],
                 appear: bool) -> None:
        self._address, self._attempt, self._limit = address, call.attempt, call.limit
        self._target, self._parameters, self._appear = target, parameters, appear
        self._give_up = math.inf if give_up is None else _seconds(give_up, call.attempt)
        self._told: Optional[Dict[Tuple[str, int], Element]] = None  # by id, and by number among those with the same id
        self._lost: Optional[Error] = None
        self._lost_at = 0.0
        self._pause = 0.0
        self._steps = self._run()

    def __enter__(self) -> Watch:
        return self

    def __exit__(self, *_: object) -> None:
        self.close()

    def close(self) -> None:
        """Ends the watch and its connection. May be called again."""
        self._steps.close()

    def __next__(self) -> Event:
        """The next event, however long it takes. Errors: see the class; StopIteration once it has ended."""
        while True:
            step = next(self._steps)
            if not isinstance(step, _Wait):
                return step
            _poll(step, step.until)

    def next(self, timeout: float) -> Optional[Event]:
        """The next event, or None if none comes within `timeout` seconds, or if the watch has ended. Errors: see the class."""
        until = time.monotonic() + _seconds(timeout, self._attempt)
        last = False
        for step in self._steps:
            if not isinstance(step, _Wait):
                return step
            if last or not _poll(step, until):
                break
            last = time.monotonic() >= until  # reads what has arrived by now, but nothing more
        return None

    def _run(self) -> Generator[Union[_Wait, Event], None, None]:
        while True:
            call = _Call(self._attempt, self._limit)
            connection: Optional[_Connection] = None
            try:
                connection = yield from _Connection.establish(self._address, call)
                yield from self._follow(connection, call)
                self._pause = _POLL_PAUSE
            except NotFound:
                if self._told is None and not self._appear:
                    raise
                yield from self._tell(())
                self._pause = _LONGEST_PAUSE
            except (ServiceAbsent, ConnectionLost, Timeout, Refused) as error:
                if error.status is not None and error.status < 500:
                    raise
                yield from self._lose(error)
                self._pause = min(max(2 * self._pause, _SHORTEST_PAUSE), _LONGEST_PAUSE)
            finally:
                if connection is not None:
                    connection.close()
            yield from _sleep(time.monotonic() + self._pause)

    def _follow(self, connection: _Connection, call: _Call) -> Generator[Union[_Wait, Event], None, None]:
        """Follows until the service ends a request without an error. Errors: why it cannot be followed (any longer)."""
        if self._target.id is not None:
            yield from _ask_element(connection.ask, call, "retrieve", self._target, self._parameters)
        queries = yield from _queries(connection.ask, call, self._target, self._parameters)
        states: Dict[int, Optional[Tuple[Element, ...]]] = {}  # by the id of the request
        for path, parameters in queries:
            states[(yield from connection.request(call, "retrieve", path, parameters, one_shot=False))] = None
        if not states:  # no display, so no popups
            yield from self._tell(())
            return
        while True:
            try:
                frame = yield from connection.receive(call)
            except Timeout as error:
                # The service is there but has not answered. Asking again would only add to its work.
                yield from self._lose(error)
                call.until = self._lost_at + self._give_up
                continue
            connection.was_asked(call, frame.id)
            if frame.id not in states and frame.type != _HELLO:
                continue
            if frame.type == _COMPLETED and states[frame.id] is not None:
                return
            try:
                value = connection.value(call, frame)
                states[frame.id] = _elements(call, [value]) if self._target.id is not None else _page(call, value).elements
            except NotFound:
                if len(states) == 1:
                    raise
                states[frame.id] = ()
            known = [each for each in states.values() if each is not None]
            if len(known) == len(states):
                call.until = math.inf
                yield from self._tell(element for each in known for element in each)

    def _tell(self, elements: Iterable[Element]) -> Iterator[Event]:
        """The differences between `elements` and the last state reported."""
        now: Dict[Tuple[str, int], Element] = {}
        count: Dict[str, int] = {}
        for element in elements:
            count[element["id"]] = count.get(element["id"], 0) + 1
            now[element["id"], count[element["id"]]] = element
        before, self._told, self._pause = self._told, now, 0.0
        if self._lost is not None:
            self._lost, before = None, None
            yield Back()
        if before is None:
            yield Snapshot(tuple(now.values()))
            return
        for key, element in before.items():
            if key not in now:
                yield Removed(element)
        for key, element in now.items():
            if key not in before:
                yield Added(element)
            elif element != before[key]:
                yield Changed(element, before[key])

    def _lose(self, error: Error) -> Iterator[Event]:
        if self._lost is None:
            self._lost, self._lost_at = error, time.monotonic()
            yield Lost(error)
        if time.monotonic() >= self._lost_at + self._give_up:
            raise self._lost


# ---- The command line ----

def _members(words: Sequence[str]) -> Dict[str, Any]:
    """KEY=VALUE with JSON values; a value that is not JSON is text."""
    members: Dict[str, Any] = {}
    for word in words:
        key, equals, value = word.partition("=")
        if not equals:
            raise UsageError(word, "expected KEY=VALUE")
        try:
            members[key] = json.loads(value)
        except ValueError:
            members[key] = value
    return members


def main(arguments: Optional[Sequence[str]] = None) -> int:
    """Runs the command line, prints JSON lines, returns the exit code: 0, 1 for an error, 130 when interrupted."""
    parser = argparse.ArgumentParser(prog="hmx", description="Look at and change displays, layers, touch regions and popups.")
    parser.add_argument("--service", default="/hmx")
    parser.add_argument("--runtime-dir")
    parser.add_argument("--domain", default="")
    parser.add_argument("--timeout", type=float, default=5.0, metavar="SECONDS")
    parser.add_argument("verb", choices=("list", "watch", "wait", "insert", "update", "delete", "id"))
    parser.add_argument("target", help="for example displays, displays/NAME, popups/DISPLAY/NAME, or an element's uri")
    parser.add_argument("members", nargs="*", metavar="KEY=VALUE", help="filters of list and watch, what wait waits for, or the body")
    options = parser.parse_args(arguments)

    def show(document: Any) -> None:
        print(json.dumps(document), flush=True)

    try:
        members = _members(options.members)
        if options.verb == "id":
            show(str(element_id(options.target)))
            return 0
        with connect(options.service, options.runtime_dir, options.domain, options.timeout, "hmx.py") as client:
            if options.verb == "list":
                for element in client.retrieve(options.target, **members):
                    show(element)
            elif options.verb == "watch":
                for event in client.watch(options.target, **members):
                    said = {name: str(value) if isinstance(value, Error) else value for name, value in vars(event).items()}
                    show({"event": type(event).__name__.lower(), **said})
            elif options.verb == "wait":
                show(client.wait(options.target, lambda element: all(element.get(key) == value for key, value in members.items())))
            elif options.verb == "delete":
                client.delete(options.target)
            else:
                show((client.insert if options.verb == "insert" else client.update)(options.target, members))
        return 0
    except Error as error:
        print(f"hmx: {error}", file=sys.stderr)
        return 1
    except KeyboardInterrupt:
        return 130
    except BrokenPipeError:
        os.dup2(os.open(os.devnull, os.O_WRONLY), sys.stdout.fileno())  # what is left in the buffer has nowhere to go
        return 0


if __name__ == "__main__":
    sys.exit(main())
