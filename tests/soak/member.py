"""A host process of the soak, started, killed and measured."""

import asyncio
import os
import signal
import time


class Member:
    """A json_rpc_host. When it is ended and started again it keeps its name and its URLs."""

    patience = 60  # seconds until it must be ready, or gone

    # What stays resident is then what is in use, and not what the allocator keeps for each thread.
    thrifty = {
        "MALLOC_ARENA_MAX": "1",
        "MALLOC_MMAP_THRESHOLD_": "131072",
        "MALLOC_TRIM_THRESHOLD_": "131072",
    }

    def __init__(self, name, build, folder, options, ledger):
        self.name = name
        self.environment = dict(os.environ)
        self.urls = []
        self.process = None
        self.log = folder / f"{name}.log"
        self.up = False  # it serves, as far as the soak knows
        self.disturbed_at = time.monotonic()  # when it last went, or was last seen to be back
        self._ledger = ledger
        self._expected_to_end = False
        configuration = folder / "svc.conf"
        configuration.write_text(
            f"dynamic JSON_RPC_Service Service_Object * {build}/lib/libjson_rpc.so:"
            f'_make_JSON_RPC_Service() "-j {build}/etc/json_rpc/methods.json '
            f'-f {build}/etc/json_rpc/params_filters.json -n 8"\n'
        )
        self._command = [f"{build}/bin/json_rpc_host", "--svc", str(configuration), *options]
        self._listen = []

    def listen(self, urls):
        self._listen = urls

    async def start(self):
        options = [part for url in self._listen for part in ("--listen", url)]
        self._expected_to_end = False
        with open(self.log, "ab") as log:
            self.process = await asyncio.create_subprocess_exec(
                *self._command,
                *options,
                stdout=asyncio.subprocess.PIPE,
                stderr=log,
                env=self.environment,
            )
        urls = []
        while True:
            line = await asyncio.wait_for(self.process.stdout.readline(), self.patience)
            if line.startswith(b"listening "):
                urls.append(line.split()[1].decode())
            elif line.strip() == b"ready":
                break
            elif not line:
                raise RuntimeError(f"{self.name} did not start: see {self.log}")
        self.urls = self._listen = urls
        self._watch = asyncio.create_task(self._note_end(self.process))

    async def _note_end(self, process):
        status = await process.wait()
        if not self._expected_to_end:
            self._ledger.violate("crashed", f"{self.name} ended with status {status}")

    def gone(self):
        """It serves nobody any more, or soon."""
        self.up = False
        self.disturbed_at = time.monotonic()

    def back(self):
        self.up = True
        self.disturbed_at = time.monotonic()

    def steady_since(self, moment):
        return self.up and self.disturbed_at <= moment

    async def kill(self):
        self.gone()
        self._expected_to_end = True
        if self.process is None:
            return
        if self.process.returncode is None:
            self.process.kill()
        await self.process.wait()

    async def stop(self):
        """In order: SIGTERM, and status 0."""
        self.gone()
        self._expected_to_end = True
        if self.process.returncode is None:
            self.process.terminate()
        try:
            await asyncio.wait_for(self.process.wait(), self.patience)
        except asyncio.TimeoutError:
            self._ledger.violate("hung", f"{self.name} does not stop")
            return await self.kill()
        if self.process.returncode != 0:
            text = f"{self.name} stopped with status {self.process.returncode}"
            self._ledger.violate("crashed", text)

    def freeze(self):
        self.process.send_signal(signal.SIGSTOP)

    def thaw(self):
        self.process.send_signal(signal.SIGCONT)

    def descriptors(self):
        return len(os.listdir(f"/proc/{self.process.pid}/fd"))

    def threads(self):
        return len(os.listdir(f"/proc/{self.process.pid}/task"))

    def resident(self):
        """Bytes."""
        with open(f"/proc/{self.process.pid}/statm") as file:
            return int(file.read().split()[1]) * os.sysconf("SC_PAGE_SIZE")

    def cpu_seconds(self):
        with open(f"/proc/{self.process.pid}/stat") as file:
            fields = file.read().rsplit(")", 1)[1].split()
        return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")
