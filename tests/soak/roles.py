"""Who is at the hub's doors during a soak. Each role goes on until the soak's phase is over, and leaves
no connection behind."""

import asyncio
import itertools

from calls import (
    INVALID_REQUEST,
    PARSE_ERROR,
    Call,
    any_call,
    blob_call,
    brisk_call,
    echo_call,
    relayed,
    sum_call,
)

STALL = 4  # seconds: the hub's --stall-timeout
_names = itertools.count(1)


async def patient(soak, rng):
    """Calls of every kind, which also wait behind others' slow answers."""
    await _calls(soak, rng, lambda: any_call(rng, soak.agent_names))


async def brisk(soak, rng):
    """Calls that wait for nobody."""
    await _calls(soak, rng, lambda: brisk_call(rng))


async def _calls(soak, rng, make):
    """Many at once, all answers read at once."""
    while not soak.over.is_set():
        client = await soak.open(rng)
        window = rng.choice([1, 4, 16, 64])
        for _ in range(rng.randrange(1, 3000)):
            if soak.over.is_set() or client.closed.is_set():
                break
            pieces = [rng.randrange(1, 40) for _ in range(3)] if rng.random() < 0.02 else ()
            client.call(make(), pieces)
            if len(client.pending) >= window:
                await client.room(window // 2)
        await client.finish()


async def publisher(soak, rng):
    """Numbered notifications, and calls between them."""
    while not soak.over.is_set():
        client = await soak.open(rng)
        name = f"p{next(_names)}"
        for n in range(rng.randrange(100, 2000)):
            if soak.over.is_set() or client.closed.is_set():
                break
            client.notify("soak.news", {"from": name, "n": n, "text": "x" * rng.randrange(300)})
            soak.ledger.noted["notifications published"] += 1
            if n % 20 == 0:
                client.call(sum_call(rng))
                await asyncio.sleep(0.08)
        await client.finish()


def _subjects(method, subjects):
    return Call(method, method, {"subjects": subjects}, lambda result: result is True)


async def subscriber(soak, rng):
    """Every notification of a publisher comes, once and in order, from the first to the end of the
    subscription; and none after it."""
    while not soak.over.is_set():
        client = await soak.open(rng, "pushes")
        last = {}
        subscribed = True

        def take(message, last=last):
            if message["method"].startswith("channel."):
                return
            soak.ledger.noted["notifications received"] += 1
            publisher, n = message["params"]["from"], message["params"]["n"]
            if not subscribed:
                soak.ledger.violate("notification", "one came after the end of the subscription")
            if n != last.get(publisher, n - 1) + 1:
                text = f"{publisher} sent {n} after {last[publisher]}"
                soak.ledger.violate("notification", text)
            last[publisher] = n

        client.on_notification = take
        subjects = ["soak.news"]
        if rng.random() < 0.5:
            subjects += ["channel.registered", "channel.unregistered"]
        client.call(_subjects("subscribe", subjects))
        await soak.pause(rng.uniform(0.5, 8))
        client.call(_subjects("unsubscribe", subjects))
        await client.room(0)
        subscribed = False
        await soak.pause(0.2)
        await client.finish()


async def slow_reader(soak, rng):
    """Takes a large answer piece by piece, but does take it."""
    while not soak.over.is_set():
        client = await soak.open(rng)
        client.line.slow = rng.uniform(0.01, 0.2)
        for _ in range(rng.randrange(1, 4)):
            client.call(_maybe_relayed(soak, rng, blob_call(rng, most=4_000_000)))
        await client.finish()


async def deaf_reader(soak, rng):
    """Takes nothing of answers that fit into no socket's buffers: the hub lets it go. But answers that
    begin late, behind those of others, or are errors, may find a reader."""
    while not soak.over.is_set():
        client = await soak.open(rng)
        client.will_end("its caller did not read")
        client.line.pause()
        for _ in range(4):
            client.call(_maybe_relayed(soak, rng, blob_call(rng, 8_000_000, 9_000_000)))
        await asyncio.sleep(STALL + 3)
        client.line.resume()
        await client.room(0)
        if client.closed.is_set():
            soak.ledger.noted["deaf readers that were let go"] += 1
        else:
            soak.ledger.noted["deaf readers that were served late"] += 1
            await client.finish()


async def half_sender(soak, rng):
    """Messages that break off or stop, and text that is no message."""
    ways = [_vanishes_in_a_message, _stops_in_a_message, _garbage]
    while not soak.over.is_set():
        client = await soak.open(rng, "stream")
        await rng.choices(ways, [5, 1, 6])[0](soak, rng, client)
        await soak.pause(rng.uniform(0, 0.05))


async def vanisher(soak, rng):
    """Asks and goes without a word."""
    while not soak.over.is_set():
        client = await soak.open(rng)
        client.will_end("its caller went")
        for _ in range(rng.randrange(0, 40)):
            client.call(any_call(rng, soak.agent_names))
        client.call(_maybe_relayed(soak, rng, blob_call(rng)))
        await soak.pause(rng.uniform(0, 0.1))
        client.line.abort()
        await client.closed.wait()
        await soak.pause(rng.uniform(0, 0.2))


def _maybe_relayed(soak, rng, call):
    return relayed(call, rng.choice(soak.agent_names)) if rng.random() < 0.5 else call


async def _vanishes_in_a_message(soak, rng, client):
    client.will_end("its caller went")
    client.call(sum_call(rng))
    client.line.send_raw(client.line.part_of(client.text_of(echo_call(rng)), rng.random()))
    client.line.abort()
    await client.closed.wait()


async def _stops_in_a_message(soak, rng, client):
    client.will_end("its caller sent half a message")
    client.line.send_raw(client.line.part_of(client.text_of(echo_call(rng, 10)), rng.random()))
    try:
        await asyncio.wait_for(client.closed.wait(), 30)
    except asyncio.TimeoutError:
        soak.ledger.violate("kept", f"over {client.door.name}: half a message is waited for")
        client.line.abort()
        await client.closed.wait()


async def _garbage(soak, rng, client):
    text, code = rng.choice(
        [
            (b"garbage", PARSE_ERROR),
            (b'{"id":1,}', PARSE_ERROR),
            (b'[{"jsonrpc":"2.0","method":"sum","params":[1],"id":1}]', INVALID_REQUEST),
            (b'{"jsonrpc":"2.0","unknown":{"a":[]},"id":1}', INVALID_REQUEST),
        ]
    )
    for _ in range(rng.randrange(1, 5)):
        client.complaints.append(code)
        client.line.send(text)
        client.call(sum_call(rng))
        await client.room(0)
    await client.finish()


CAST = [
    (brisk, 4),
    (patient, 8),
    (publisher, 2),
    (subscriber, 4),
    (slow_reader, 2),
    (deaf_reader, 1),
    (half_sender, 3),
    (vanisher, 2),
]
