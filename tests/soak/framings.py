"""How texts stand in the bytes of a connection."""

import secrets
import struct


class Framing:
    """How texts stand in a stream of bytes, both ways. One object a connection."""

    stream = False  # half of a text is an error of its own, and texts that are none are skipped
    pushes = True  # the host can send what is no answer
    greeting = b""  # is sent first, and answered before anything else is

    def __init__(self):
        self._begun = bytearray()

    @staticmethod
    def frame(text):
        """The bytes that carry the text."""
        raise NotImplementedError

    def texts(self, data):
        """Takes bytes; the texts that they complete."""
        self._begun += data
        found = []
        while (text := self._next()) is not None:
            if text:
                found.append(text)
        return found

    def replies(self):
        """What the framing itself has to say to the bytes that came."""
        return b""

    def rest(self):
        """What of an unfinished text has come."""
        return bytes(self._begun)

    def _next(self):
        """The next text; empty when something else came whole, None when more must come."""
        raise NotImplementedError

    def _take(self, head, length):
        """So many bytes behind so many that are dropped; None when they are not all there."""
        if len(self._begun) < head + length:
            return None
        taken = bytes(self._begun[head : head + length])
        del self._begun[: head + length]
        return taken


class LineFeeds(Framing):
    """One text a line."""

    stream = True

    @staticmethod
    def frame(text):
        return text + b"\n"

    def _next(self):
        end = self._begun.find(b"\n")
        return None if end < 0 else self._take(0, end + 1)


class Headers(Framing):
    """Content-Length before each text."""

    stream = True

    @staticmethod
    def frame(text):
        return b"Content-Length: %d\r\n\r\n" % len(text) + text

    def _next(self):
        end = self._begun.find(b"\r\n\r\n", 0, 4096)
        return None if end < 0 else self._take(end + 4, int(self._begun[:end].split(b":")[1]))


class HttpPosts(Framing):
    """Each text is the body of a POST; the answers leave in their order."""

    pushes = False

    def __init__(self):
        super().__init__()
        self._chunks = None  # of a body so far

    @staticmethod
    def frame(text):
        return (
            b"POST /rpc HTTP/1.1\r\nHost: localhost\r\nContent-Type: application/json\r\n"
            b"Content-Length: %d\r\n\r\n" % len(text) + text
        )

    def _next(self):
        if self._chunks is not None:
            return self._next_chunk()
        end = self._begun.find(b"\r\n\r\n", 0, 65536)
        if end < 0:
            return None
        head = bytes(self._begun[:end]).lower()
        if b"\r\ntransfer-encoding: chunked" in head:
            self._chunks = []
            return self._take(end + 4, 0)
        length = 0
        if b"\r\ncontent-length:" in head:
            length = int(head.split(b"\r\ncontent-length:")[1].split(b"\r\n")[0])
        return self._take(end + 4, length)

    def _next_chunk(self):
        end = self._begun.find(b"\r\n", 0, 20)
        chunk = None if end < 0 else self._take(end + 2, int(self._begun[:end], 16) + 2)
        if chunk is None:
            return None
        if chunk != b"\r\n":
            self._chunks.append(chunk[:-2])
            return b""
        body = b"".join(self._chunks)
        self._chunks = None
        return body


class WebSocket(Framing):
    """Each text is a text message."""

    greeting = (
        b"GET /rpc HTTP/1.1\r\nHost: localhost\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
        b"Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\nSec-WebSocket-Version: 13\r\n\r\n"
    )
    TEXT, CLOSE, PING, PONG = 1, 8, 9, 10

    def __init__(self):
        super().__init__()
        self._upgraded = False
        self._message = []
        self._replies = b""

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

    def _next(self):
        if not self._upgraded:
            end = self._begun.find(b"\r\n\r\n")
            self._upgraded = end >= 0
            return self._take(end + 4, 0) if self._upgraded else None
        if len(self._begun) < 2:
            return None
        first, size = self._begun[:2]
        more = {126: 2, 127: 8}.get(size, 0)
        if more:
            size = int.from_bytes(self._begun[2 : 2 + more], "big")
        payload = self._take(2 + more, size)
        return None if payload is None else self._came(first, payload)

    def _came(self, first, payload):
        """What a frame completes, "first" being its first byte."""
        kind = first & 0x0F
        if kind == self.PING:
            self._replies += self._frame(self.PONG, payload)
        elif kind == self.CLOSE:
            self._replies += self._frame(self.CLOSE, payload)
        else:
            self._message.append(payload)
        if kind > self.TEXT or first < 0x80:
            return b""
        text = b"".join(self._message)
        self._message = []
        return text

    def replies(self):
        replies, self._replies = self._replies, b""
        return replies

    def rest(self):
        return b"".join(self._message) + bytes(self._begun)
