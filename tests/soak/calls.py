"""Kinds of calls. Results carry a nonce: no two calls of a soak have the same right answer, apart from
those that sleep."""

import dataclasses
import itertools
from typing import Any, Callable, Optional

nonces = itertools.count(1_000_000)

SERVER_BUSY = -32000
SERVER_STOPPING = -32001
INVALID_REQUEST = -32600
METHOD_NOT_FOUND = -32601
INVALID_PARAMS = -32602
INTERNAL_ERROR = -32603
PARSE_ERROR = -32700


@dataclasses.dataclass
class Call:
    kind: str
    method: str
    params: Any
    check: Optional[Callable[[Any], bool]] = None  # of the result; None when an error is expected
    error: int = 0  # the error code that is the right answer; 0 for a result
    agent: Optional[str] = None  # who must live for it
    large: bool = False  # its answer may break off on the wire
    pooled: bool = False  # may be refused as busy
    filtered: bool = False  # its params must come behind its method


def sum_call(rng):
    nonce, shift = next(nonces), rng.randrange(10**12)
    terms = [nonce, shift, -shift] + [0] * rng.randrange(8)
    rng.shuffle(terms)
    return Call("sum", "sum", terms, lambda result: result == nonce)


def echo_call(rng, size=None):
    if size is None:
        size = rng.choice([0, 10, 100, 1000]) if rng.random() < 0.97 else rng.randrange(300_000)
    text = rng.choice(["x", "é", '"\\', "\n", "𝄞 ", "\u0000"]) * size
    params = {"nonce": f"{next(nonces)}", "text": text, "more": [None, True, -0.5, {"a": {}}]}
    return Call("echo", "echo", params, lambda result: result == params)


def count_call(rng):
    size = rng.randrange(3000)
    elements = [[i] for i in range(size)]
    return Call("count", "count", elements, lambda result: result == size, filtered=True)


def sleep_call(rng):
    ms = rng.randrange(20)
    method = "sleep" if rng.random() < 0.8 else "solo"
    return Call(method, method, {"ms": ms}, lambda result: result == ms, pooled=True)


def blob_call(rng, least=0, most=2_000_000):
    size = rng.randrange(least, most)
    return Call(
        "blob",
        "blob",
        {"bytes": size},
        lambda result: sum(map(len, result)) == size,
        large=True,
        pooled=True,
    )


def channels_call(rng):
    def check(result):
        return all(set(entry) == {"type", "id", "address"} for entry in result) and len(result) > 0

    return Call("channels", "channels", [], check)


def unknown_call(rng):
    return Call("unknown method", f"nope.{next(nonces)}", [1], error=METHOD_NOT_FOUND)


def bad_params_call(rng):
    method, params = rng.choice(
        [
            ("sum", {"a": 1}),
            ("sum", [1, "2"]),
            ("sleep", {"ms": -1}),
            ("solo", "soon"),
            ("blob", {"bytes": "many"}),
            ("count", {"of": 5}),
            ("subscribe", []),
            ("agent.call", {"agent": "", "method": "sum"}),
            ("agent.call", {"agent": "nobody", "method": "sum"}),
        ]
    )
    pooled = method in ("sleep", "solo", "blob")
    return Call("bad params", method, params, error=INVALID_PARAMS, pooled=pooled)


def relayed(call, agent):
    params = {"agent": agent, "method": call.method, "params": call.params}
    return dataclasses.replace(
        call, kind=f"relayed {call.kind}", method="agent.call", params=params, agent=agent
    )


_BRISK = [
    (30, sum_call),
    (25, echo_call),
    (5, count_call),
    (1, channels_call),
    (4, unknown_call),
    (4, bad_params_call),
]
_SLOW = [(5, sleep_call), (1, blob_call)]


def _any_of(mix, rng):
    return rng.choices([make for _, make in mix], [weight for weight, _ in mix])[0](rng)


def brisk_call(rng):
    """One that waits for nobody: it is answered on the hub's reading thread."""
    while True:
        call = _any_of(_BRISK, rng)
        if not call.pooled:
            return call


def any_call(rng, agents):
    call = _any_of(_BRISK + _SLOW, rng)
    # What the agent itself would be asked to relay is none of this soak's business.
    if call.method in ("agent.call", "subscribe") or rng.random() < 0.4:
        return call
    return relayed(call, rng.choice(agents))
