"""One connection that makes calls and judges each answer."""

import asyncio
import json
import time

from calls import (
    INTERNAL_ERROR,
    INVALID_PARAMS,
    SERVER_BUSY,
    SERVER_STOPPING,
)

PATIENCE = 60  # seconds until a call on a living connection counts as unanswered


class Client:
    """Ids begin anew on every connection, so an answer that went astray finds a call there, and only
    its nonce tells that it is another's."""

    def __init__(self, soak, door):
        self.soak = soak
        self.ledger = soak.ledger
        self.door = door
        self.line = None
        self.pending = {}  # id -> (call, when it was made)
        self.complaints = []  # the error codes under a null id that are due
        self.on_notification = None  # called with the message
        self.ending = None  # why this end goes, or has the hub go
        self.closed = asyncio.Event()
        self._opened = time.monotonic()
        self._done = set()
        self._last_id = 0
        self._room = None  # (most pending calls, future)

    async def open(self):
        """Itself."""
        self.line = await self.door.open(self)
        return self

    def text_of(self, call):
        """The request, which counts as made."""
        self._last_id += 1
        call_id = self._last_id if self._last_id % 3 else f"c{self._last_id}"
        self.ledger.made[call.kind] += 1
        if self.closed.is_set():
            self.ledger.lost[self.ending or "made on a closed connection"] += 1
        else:
            self.pending[call_id] = (call, time.monotonic())
        request = {"jsonrpc": "2.0", "id": call_id, "method": call.method, "params": call.params}
        if self._last_id % 5 == 0 and not call.filtered:
            request = dict(reversed(request.items()))
        return json.dumps(request, ensure_ascii=self._last_id % 2 == 0).encode()

    def call(self, call, pieces=()):
        self.line.send(self.text_of(call), pieces)

    def notify(self, method, params):
        self.line.send(json.dumps({"jsonrpc": "2.0", "method": method, "params": params}).encode())

    def will_end(self, cause):
        """This end is going to go, or has the hub go; what is pending then is lost."""
        self.ending = cause

    def hub_lived(self):
        return self.soak.hub.steady_since(self._opened)

    async def room(self, most):
        """Until no more than `most` calls wait, or the connection has gone."""
        if len(self.pending) <= most or self.closed.is_set():
            return
        future = asyncio.get_running_loop().create_future()
        self._room = (most, future)
        try:
            await asyncio.wait_for(future, PATIENCE)
        except asyncio.TimeoutError:
            now = time.monotonic()
            for call_id, (call, made) in self.pending.items():
                if now - made >= PATIENCE:
                    self._violate("unanswered", f"{call.kind} under {call_id!r}: {now - made:.0f} s")
            self.ending = "unanswered"
            self.line.abort()
            await self.closed.wait()

    async def finish(self):
        """Until all is answered; then it closes."""
        await self.room(0)
        if self.closed.is_set():
            return
        self.ending = "finished"
        if self.line.framing.rest():
            self._violate("stray bytes", repr(self.line.framing.rest()[:100]))
        if self.complaints:
            self._violate("no complaint", f"{self.complaints} were due")
        self.line.close()
        await self.closed.wait()

    def on_text(self, text):
        try:
            message = json.loads(text)
        except ValueError:
            return self._violate("no JSON", repr(text[:200]))
        if "method" in message:
            if self.on_notification is None:
                return self._violate("unasked notification", repr(text[:200]))
            return self.on_notification(message)
        if message.get("id") is None:
            return self._complained(message)
        return self._answered(message)

    def on_closed(self):
        cause = self.ending or self._cause_of_close()
        for _ in self.pending.values():
            self.ledger.lost[cause] += 1
        self.pending.clear()
        self.closed.set()
        self._make_room()

    def _cause_of_close(self):
        if not self.hub_lived():
            return "the hub was killed"
        for call, made in self.pending.values():
            if call.large and call.agent and not self.soak.agents[call.agent].steady_since(made):
                return "an answer broke off with its agent"
        self._violate("closed", f"the hub closed a connection with {len(self.pending)} calls")
        return "closed without a cause"

    def _complained(self, message):
        code = message.get("error", {}).get("code")
        if code not in self.complaints:
            return self._violate("complaint", repr(message)[:200])
        self.complaints.remove(code)
        return self._make_room()

    def _answered(self, message):
        call_id = message["id"]
        call, made = self.pending.pop(call_id, (None, 0))
        if call is None:
            kind = "answered twice" if call_id in self._done else "answer to nothing"
            return self._violate(kind, repr(message)[:200])
        self._done.add(call_id)
        self.ledger.answers[self.door.name] += 1
        self._judge(call, made, message)
        return self._make_room()

    def _judge(self, call, made, message):
        result = "result" in message
        if message.get("jsonrpc") != "2.0" or result == ("error" in message):
            return self._violate("malformed answer", repr(message)[:200])
        if result:
            if call.error == 0 and _holds(call.check, message["result"]):
                self.ledger.answered[call.kind] += 1
                return None
            return self._wrong(call, message)
        code = message["error"]["code"]
        if call.error == code:
            self.ledger.answered[call.kind] += 1
        elif code == SERVER_BUSY and (call.pooled or call.agent):
            self.ledger.failed["busy"] += 1
        elif self._agent_may_have_failed(call, made, code):
            self.ledger.failed[f"{code}: the agent went"] += 1
        else:
            self._wrong(call, message)
        return None

    def _agent_may_have_failed(self, call, made, code):
        return (
            call.agent is not None
            and code in (INVALID_PARAMS, INTERNAL_ERROR, SERVER_STOPPING)
            and not self.soak.agents[call.agent].steady_since(made)
        )

    def _wrong(self, call, message):
        self.ledger.failed["wrong answer"] += 1
        self._violate("wrong answer", f"{call.kind} {repr(call.params)[:200]}: {repr(message)[:300]}")

    def _make_room(self):
        if self._room and (self.closed.is_set() or len(self.pending) <= self._room[0]):
            future = self._room[1]
            self._room = None
            if not future.done():
                future.set_result(None)

    def _violate(self, kind, text):
        self.ledger.violate(kind, f"over {self.door.name}: {text}")


def _holds(check, result):
    try:
        return check(result)
    except (TypeError, KeyError, AttributeError):
        return False
