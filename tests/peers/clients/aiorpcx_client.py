"""Python's aiorpcX: JSON-RPC in lines over TCP and TLS. Environment: HOST_TCP, HOST_TCPS, PEER_CA."""
import asyncio
import os
import ssl
import urllib.parse

import aiorpcx

from report import equal, finish, report


class Session(aiorpcx.RPCSession):
    """Keeps the notifications that come."""

    came = ()

    async def handle_request(self, request):
        self.came += ((request.method, request.args),)


def connect(url, **options):
    parts = urllib.parse.urlsplit(url)
    return aiorpcx.connect_rs(parts.hostname, parts.port, session_factory=Session, **options)


async def talk(url, **options):
    async with connect(url, **options) as peer, connect(url, **options) as other:
        answers = await asyncio.gather(*(peer.send_request("sum", [n, 1]) for n in range(100)))
        equal(answers, list(range(1, 101)), "at once")
        try:
            await peer.send_request("none")
            raise AssertionError("an error is expected")
        except aiorpcx.RPCError as error:
            equal(error.code, -32601, "none")
        await peer.send_request("subscribe", {"subjects": ["news"]})
        for n in range(3):
            await other.send_notification("news", [n])
        for session in (other, peer):  # behind it
            await session.send_request("sum", [0])
        await asyncio.sleep(0)
        equal(peer.came, tuple(("news", [n]) for n in range(3)), "notifications")


report("aiorpcX: TCP", lambda: asyncio.run(talk(os.environ["HOST_TCP"])))
trust = ssl.create_default_context(cafile=os.environ["PEER_CA"])
report("aiorpcX: TLS", lambda: asyncio.run(talk(os.environ["HOST_TCPS"], ssl=trust)))
finish()
