"""What befalls the members during a soak."""

import asyncio

from calls import echo_call, relayed
from client import PATIENCE


async def befall(soak, rng):
    """Agents are killed, stopped, frozen and started again, one at a time."""
    while not soak.over.is_set():
        await soak.pause(rng.uniform(0.5, 3))
        agent = soak.agents[rng.choice(soak.agent_names)]
        what = rng.choices([kill, stop, freeze], [3, 1, 1])[0]
        soak.ledger.noted[f"agent: {what.__name__}"] += 1
        await what(soak, agent, rng)


async def kill(soak, agent, rng):
    await agent.kill()
    await soak.pause(rng.uniform(0, 1))
    await agent.start()
    await reachable(soak, agent, rng)


async def stop(soak, agent, rng):
    await agent.stop()
    await agent.start()
    await reachable(soak, agent, rng)


async def freeze(soak, agent, rng):
    """Shorter than any time-out: nothing may fail."""
    agent.freeze()
    await asyncio.sleep(rng.uniform(0.2, 1.5))
    agent.thaw()


async def reachable(soak, agent, rng):
    """Until the hub relays to the agent."""
    client = await soak.open(rng)
    came = asyncio.Event()
    for _ in range(PATIENCE * 10):
        probe = echo_call(rng, 10)
        check = probe.check
        probe.check = lambda result, check=check: came.set() or check(result)
        client.call(relayed(probe, agent.name))
        await client.room(0)
        if came.is_set():
            break
        await asyncio.sleep(0.1)
    else:
        soak.ledger.violate("lost agent", f"{agent.name} was started and cannot be reached")
    agent.back()
    await client.finish()
