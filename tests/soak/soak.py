#!/usr/bin/env python3
"""A hub and two agents under mixed load while the members are killed and started again. Ends with a
report; status 1 when a property is broken: every call on a connection that lived gets exactly one
answer, its own; nobody is cut off without a cause; and once the load is over the hub is as before.

The load runs three times: while the hub is killed, to warm the new one up, and for the figures."""

import argparse
import asyncio
import pathlib
import random
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time

import chaos
import report
import roles
from calls import Call
from client import Client
from doors import doors_of
from ledger import Ledger
from member import Member


RESIDENT = "resident bytes"
IDLE_CPU = "CPU seconds in two idle seconds"


class Soak:
    """The members and the load. What the roles share of it: doors, hub, agents, ledger, over."""

    settling = 20  # seconds in which the hub has to become as before

    def __init__(self, options, folder):
        self.seed = options.seed
        self.seconds = options.seconds
        self.slack = options.memory_slack * 1_000_000
        self.ledger = Ledger()
        self.over = asyncio.Event()
        self.doors = []
        self.before = self.after = None
        self.elapsed = 0.0
        self.waits = ""
        self._build = options.build.resolve()
        self._folder = folder
        self._rng = random.Random(self.seed)
        self._broken_off = False
        limits = ["--stall-timeout", str(roles.STALL), "--log-level", "warning"]
        self.hub = self._member("hub", limits)
        self.hub.environment.update(Member.thrifty)
        urls = ["tcp://127.0.0.1:0", "tcp://[::1]:0", "http://127.0.0.1:0", "ws://127.0.0.1:0"]
        self.hub.listen([*urls, f"unix://{folder}/hub.sock"])
        self.agents = {}

    def _member(self, name, options):
        folder = self._folder / name
        folder.mkdir()
        return Member(name, self._build, folder, options, self.ledger)

    @property
    def agent_names(self):
        return list(self.agents)

    async def open(self, rng, needed=None):
        """A client at any door whose framing has what is needed. A hub that lives lets everyone in."""
        doors = [door for door in self.doors if needed is None or getattr(door.framing, needed)]
        while not self._broken_off:
            door = rng.choice(doors)
            begin = time.monotonic()
            try:
                return await Client(self, door).open()
            except BlockingIOError:
                pass  # the backlog of a Unix socket is full
            except OSError as error:
                if self.hub.steady_since(begin):
                    self.ledger.violate("refused", f"over {door.name}: {error}")
            await asyncio.sleep(0.1)
        # wait_for() can lose a cancellation; nobody would ever be let in again.
        raise asyncio.CancelledError

    async def pause(self, seconds):
        """Sleeps, no longer than the phase lasts."""
        try:
            await asyncio.wait_for(self.over.wait(), seconds)
        except asyncio.TimeoutError:
            pass

    async def run(self):
        begin = time.monotonic()
        try:
            await self._phases()
            self.ledger.check_sum()
        finally:
            self._broken_off = sys.exc_info()[0] is not None
            for member in self._members():
                await member.kill()
        self.elapsed = time.monotonic() - begin

    async def _phases(self):
        self.waits, content = await self._change_wait()
        if not content:
            self.ledger.violate("change_wait", "a change failed or waited too long")
        await self._start_members()
        await self._load(self.seconds * 0.15, self._kill_the_hub)
        await self._load(self.seconds * 0.2)
        self.before = await self._figures()
        await self._load(self.seconds * 0.65)
        await self._settle()
        for difference in self._differences():
            self.ledger.violate("not as before", difference)
        for member in self._members():
            await member.stop()
        if not self.ledger.noted["deaf readers that were let go"]:
            self.ledger.violate("kept", "no connection that read nothing was closed")
        log = self.hub.log.read_text("utf-8", "replace")
        for reason in re.findall(r"Channel \d+ is closed: (.*)", log):
            self.ledger.noted[f"the hub closed a channel: {reason}"] += 1

    def _members(self):
        return [*self.agents.values(), self.hub]

    def keep_logs(self, folder):
        folder.mkdir(parents=True, exist_ok=True)
        for member in self._members():
            shutil.copy(member.log, folder)

    async def _change_wait(self):
        """What it printed, and whether it was content."""
        process = await asyncio.create_subprocess_exec(
            f"{self._build}/bin/change_wait", "2", stdout=subprocess.PIPE
        )
        output, _ = await process.communicate()
        return output.decode(), process.returncode == 0

    async def _start_members(self):
        await self.hub.start()
        self.hub.back()
        self.doors = doors_of(self.hub.urls)
        for name, url in (("a1", self.hub.urls[0]), ("a2", self.hub.urls[-1])):
            self.agents[name] = self._member(
                name, ["--connect", url, "--agent-id", name, "--log-level", "warning"]
            )
            await self.agents[name].start()
        await self._agents_are_back()

    async def _agents_are_back(self):
        for agent in self.agents.values():
            await chaos.reachable(self, agent, self._rng)

    async def _kill_the_hub(self, rng):
        """In the middle of everything. Its agents find it again by themselves."""
        await self.pause(self.seconds * 0.05)
        for agent in self.agents.values():
            agent.gone()
        await self.hub.kill()
        await self.hub.start()
        self.hub.back()
        await self._agents_are_back()

    async def _load(self, seconds, meanwhile=None):
        self.over.clear()
        cast = [role for role, count in roles.CAST for _ in range(count)]
        tasks = [asyncio.create_task(role(self, self._own_rng())) for role in cast]
        befall = meanwhile(self._own_rng()) if meanwhile else chaos.befall(self, self._own_rng())
        tasks.append(asyncio.create_task(befall))
        await asyncio.wait(tasks, timeout=seconds, return_when=asyncio.FIRST_EXCEPTION)
        self.over.set()
        await asyncio.gather(*tasks)

    def _own_rng(self):
        return random.Random(self._rng.random())

    async def _figures(self):
        """Of the hub when nothing is asked of it, by name."""
        cpu = self.hub.cpu_seconds()
        await asyncio.sleep(2)
        return {
            IDLE_CPU: round(self.hub.cpu_seconds() - cpu, 2),
            RESIDENT: self.hub.resident(),
            "descriptors": self.hub.descriptors(),
            "threads": self.hub.threads(),
            "registered channels": await self._channels(),
        }

    async def _channels(self):
        """How many channels are registered, that of the question included."""
        listed = []
        client = await Client(self, self.doors[0]).open()
        client.call(Call("channels", "channels", [], lambda result: listed.extend(result) or True))
        await client.finish()
        return len(listed)

    async def _settle(self):
        """Until the hub is as before, or has had its time."""
        for _ in range(self.settling // 2):
            self.after = await self._figures()
            if not self._differences():
                break

    def _differences(self):
        allowed = {RESIDENT: self.before[RESIDENT] + self.slack, IDLE_CPU: 0.5}
        found = []
        for name, before in self.before.items():
            after = self.after[name]
            if after > allowed[name] if name in allowed else after != before:
                found.append(f"{name}: {before} before, {after} after")
        return found


def _options():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n", maxsplit=1)[0])
    parser.add_argument("--seconds", type=float, default=60, help="of load")
    parser.add_argument("--seed", type=int, default=random.SystemRandom().randrange(2**32))
    parser.add_argument("--build", type=pathlib.Path, default=pathlib.Path("build/release"))
    parser.add_argument("--report", type=pathlib.Path, default=pathlib.Path("build/soak.md"))
    parser.add_argument("--logs", type=pathlib.Path, help="a folder to keep the members' logs in")
    parser.add_argument(
        "--memory-slack", type=float, default=4, metavar="MB", help="by which the hub may grow"
    )
    return parser.parse_args()


def main():
    options = _options()
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(143))  # so that the members end too
    print(f"seed {options.seed}", flush=True)
    with tempfile.TemporaryDirectory(prefix="soak") as scratch:
        soak = Soak(options, pathlib.Path(scratch))
        asyncio.run(soak.run())
        if options.logs:
            soak.keep_logs(options.logs)
    text = report.text(soak)
    options.report.write_text(text)
    print(text)
    return 1 if soak.ledger.violations else 0


if __name__ == "__main__":
    sys.exit(main())
