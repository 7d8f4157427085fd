"""How texts stand in the bytes of a connection."""

import secrets
import struct


class Framing:
    """How texts stand in a stream of bytes, both ways. One object a connection."""

    stream = False  # half of a text is an error of its own, and texts that are none are skipped
    pushes = True  # the host can send what is no answer
    greeting = b""  # is sent first, and answered before anything else is

    @staticmethod
    def frame(text):
        """The bytes that carry the text."""
        raise NotImplementedError

    def texts(self, data):
        """Takes bytes; the texts that they complete."""
        raise NotImplementedError

    def replies(self):
        """What the framing itself has to say to the bytes that came."""
        return b""

    def rest(self):
        """What of an unfinished text has come."""
        raise NotImplementedError


class LineFeeds(Framing):
    """One text a line."""

    stream = True

    def __init__(self):
        self._begun = []

    @staticmethod
    def frame(text):
        return text + b"\n"

    def texts(self, data):
        if b"\n" not in data:
            self._begun.append(data)
            return []
        lines = b"".join([*self._begun, data]).split(b"\n")
        last = lines.pop()
        self._begun = [last] if last else []
        return lines

    def rest(self):
        return b"".join(self._begun)


class Headers(Framing):
    """Content-Length before each text."""

    stream = True

    def __init__(self):
        self._begun = bytearray()

    @staticmethod
    def frame(text):
        return b"Content-Length: %d\r\n\r\n" % len(text) + text

    def texts(self, data):
        self._begun += data
        found = []
        while True:
            end = self._begun.find(b"\r\n\r\n", 0, 4096)
            if end < 0:
                return found
            length = int(bytes(self._begun[:end]).split(b":")[1])
            if len(self._begun) < end + 4 + length:
                return found
            found.append(bytes(self._begun[end + 4 : end + 4 + length]))
            del self._begun[: end + 4 + length]

    def rest(self):
        return bytes(self._begun)


class HttpPosts(Framing):
    """Each text is the body of a POST; the answers leave in their order."""

    pushes = False

    def __init__(self):
        self._begun = bytearray()
        self._body = None  # the chunks of a body so far

    @staticmethod
    def frame(text):
        return (
            b"POST /rpc HTTP/1.1\r\nHost: localhost\r\nContent-Type: application/json\r\n"
            b"Content-Length: %d\r\n\r\n" % len(text) + text
        )

    def texts(self, data):
        self._begun += data
        found = []
        while True:
            body = self._chunks() if self._body is not None else self._whole()
            if body is None:
                return found
            if body:
                found.append(body)

    def _whole(self):
        """The next body; empty also when it comes in chunks. None when it is not there yet."""
        end = self._begun.find(b"\r\n\r\n", 0, 65536)
        if end < 0:
            return None
        head = bytes(self._begun[:end]).lower()
        if b"\r\ntransfer-encoding: chunked" in head:
            del self._begun[: end + 4]
            self._body = []
            return b""
        length = 0
        if b"\r\ncontent-length:" in head:
            length = int(head.split(b"\r\ncontent-length:")[1].split(b"\r\n")[0])
        return self._take(end + 4, length)

    def _chunks(self):
        """The next body once its last chunk is there; None before."""
        while True:
            end = self._begun.find(b"\r\n", 0, 20)
            if end < 0:
                return None
            size = int(self._begun[:end], 16)
            chunk = self._take(end + 2, size + 2)
            if chunk is None:
                return None
            if size == 0:
                body = b"".join(self._body)
                self._body = None
                return body
            self._body.append(chunk[:-2])

    def _take(self, head, length):
        if len(self._begun) < head + length:
            return None
        taken = bytes(self._begun[head : head + length])
        del self._begun[: head + length]
        return taken

    def rest(self):
        return bytes(self._begun)


class WebSocket(Framing):
    """Each text is a text message."""

    greeting = (
        b"GET /rpc HTTP/1.1\r\nHost: localhost\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
        b"Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\nSec-WebSocket-Version: 13\r\n\r\n"
    )
    CONTINUED, TEXT, CLOSE, PING, PONG = 0, 1, 8, 9, 10

    def __init__(self):
        self._begun = bytearray()
        self._upgraded = False
        self._message = []
        self._replies = []

    @classmethod
    def frame(cls, text):
        return cls._frame(cls.TEXT, text)

    @staticmethod
    def _frame(kind, text):
        size = len(text)
        if size < 126:
            head = struct.pack("!BB", 0x80 | kind, 0x80 | size)
        elif size < 65536:
            head = struct.pack("!BBH", 0x80 | kind, 0xFE, size)
        else:
            head = struct.pack("!BBQ", 0x80 | kind, 0xFF, size)
        key = secrets.token_bytes(4)
        mask = (key * (size // 4 + 1))[:size]
        masked = int.from_bytes(text, "big") ^ int.from_bytes(mask, "big")
        return head + key + masked.to_bytes(size, "big")

    def texts(self, data):
        self._begun += data
        if not self._upgraded:
            end = self._begun.find(b"\r\n\r\n")
            if end < 0:
                return []
            self._upgraded = True
            del self._begun[: end + 4]
        found = []
        while True:
            frame = self._next_frame()
            if frame is None:
                return found
            kind, last, payload = frame
            if kind in (self.CONTINUED, self.TEXT):
                self._message.append(payload)
                if last:
                    found.append(b"".join(self._message))
                    self._message = []
            elif kind == self.PING:
                self._replies.append(self._frame(self.PONG, payload))
            elif kind == self.CLOSE:
                self._replies.append(self._frame(self.CLOSE, payload))

    def _next_frame(self):
        """(kind, whether it is its message's last, payload), or None when it is not there yet."""
        if len(self._begun) < 2:
            return None
        at, size = 2, self._begun[1] & 0x7F
        if size >= 126:
            more = 2 if size == 126 else 8
            size = int.from_bytes(self._begun[2 : 2 + more], "big")
            at += more
        if len(self._begun) < at + size:
            return None
        kind, last = self._begun[0] & 0x0F, bool(self._begun[0] & 0x80)
        payload = bytes(self._begun[at : at + size])
        del self._begun[: at + size]
        return kind, last, payload

    def replies(self):
        replies = b"".join(self._replies)
        self._replies = []
        return replies

    def rest(self):
        return b"".join(self._message) + bytes(self._begun)
