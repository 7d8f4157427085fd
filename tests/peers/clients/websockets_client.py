"""Python's websockets: fragments, pings, compression that is offered.
Arguments: WebSocket addresses. Environment: PEER_CA, of wss."""
import asyncio
import json
import os
import ssl
import sys

import websockets

from report import equal, finish, report

CALL = '{"jsonrpc":"2.0","method":"sum","params":[1,2,3],"id":1}'


def connect(url, **options):
    if url.startswith("wss:"):
        options["ssl"] = ssl.create_default_context(cafile=os.environ["PEER_CA"])
    return websockets.connect(url, max_size=None, open_timeout=20, **options)


async def answer(peer):
    return json.loads(await asyncio.wait_for(peer.recv(), 20))


async def calls(url):
    async with connect(url) as peer:
        await peer.send(CALL)
        equal((await answer(peer))["result"], 6)
        await peer.send(CALL[n:n + 1] for n in range(len(CALL)))  # a fragment for each
        equal((await answer(peer))["result"], 6, "fragments")
        await asyncio.wait_for(await peer.ping(b"x" * 125), 20)
        await peer.send(json.dumps({"jsonrpc": "2.0", "method": "count", "params": [0] * 1000000, "id": 2}))
        equal((await answer(peer))["result"], 1000000, "a large message")
        await peer.send('{"jsonrpc":"2.0","method":"blob","params":{"bytes":3000000},"id":3}')
        equal(sum(map(len, (await answer(peer))["result"])) > 2900000, True, "a large answer")
        await peer.send('{"no JSON')
        equal((await answer(peer))["error"]["code"], -32700)
        await peer.send(CALL)
        equal((await answer(peer))["result"], 6, "after what was no JSON")


async def plain(url):
    async with connect(url, compression=None) as peer:
        await peer.send(CALL)
        equal((await answer(peer))["result"], 6)


for address in sys.argv[1:]:
    for test in (calls, plain):
        report(f"websockets: {test.__name__}, {address}", lambda: asyncio.run(test(address)))
finish()
