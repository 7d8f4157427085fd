"""The ways into a host. A door opens lines; a line sends texts, and hands each text that comes to
whoever opened it. A door joins by its framing (framings.py) and a name in DOORS."""

import asyncio

from framings import Headers, HttpPosts, LineFeeds, WebSocket


class Line(asyncio.Protocol):
    """One connection over a stream socket. Its owner has on_text(bytes) and on_closed()."""

    def __init__(self, owner, framing):
        self.owner = owner
        self.framing = framing
        self.transport = None
        self.ready = asyncio.Event()  # texts may be sent; or it is closed
        self.slow = 0.0  # seconds without reading after each piece that was read

    def connection_made(self, transport):
        self.transport = transport
        self.send_raw(self.framing.greeting)
        if not self.framing.greeting:
            self.ready.set()

    def data_received(self, data):
        for text in self.framing.texts(data):
            self.owner.on_text(text)
        self.send_raw(self.framing.replies())
        self.ready.set()
        if self.slow:
            self.pause()
            asyncio.get_running_loop().call_later(self.slow, self.resume)

    def connection_lost(self, error):
        self.owner.on_closed()
        self.ready.set()

    def send(self, text, pieces=()):
        """Sends a text, cut at `pieces`."""
        whole = self.framing.frame(text)
        at = 0
        for cut in pieces:
            self.send_raw(whole[at : at + cut])
            at += cut
        self.send_raw(whole[at:])

    def send_raw(self, data):
        if data and not self.transport.is_closing():
            self.transport.write(data)

    def part_of(self, text, fraction):
        """The beginning of what send() would send."""
        whole = self.framing.frame(text)
        return whole[: max(1, min(len(whole) - 2, int(len(whole) * fraction)))]

    def pause(self):
        if not self.transport.is_closing():
            self.transport.pause_reading()

    def resume(self):
        if not self.transport.is_closing():
            self.transport.resume_reading()

    def close(self):
        self.transport.close()

    def abort(self):
        self.transport.abort()


class Door:
    """A listener's URL with a framing."""

    def __init__(self, url, framing):
        self.url = url
        self.framing = framing
        self.name = f"{url.split('://')[0]}, {framing.__name__}"

    async def open(self, owner):
        """A line, or OSError."""
        loop = asyncio.get_running_loop()

        def make():
            return Line(owner, self.framing())

        if self.url.startswith("unix://"):
            _, line = await loop.create_unix_connection(make, self.url[len("unix://") :])
        else:
            host, port = self.url.split("/")[2].rsplit(":", 1)
            _, line = await loop.create_connection(make, host.strip("[]"), int(port))
        await line.ready.wait()
        return line


DOORS = {
    "tcp": (LineFeeds, Headers),
    "unix": (LineFeeds, Headers),
    "http": (HttpPosts, WebSocket),
    "ws": (WebSocket,),
}


def doors_of(urls):
    """Every door that the listeners' URLs make."""
    return [
        Door(url, framing) for url in urls for framing in DOORS.get(url.split("://")[0], ())
    ]
