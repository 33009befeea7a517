"""A relay that passes everything on, a while later."""

import asyncio
import contextlib
import threading


class DelayRelay:
    """Listens on a port of its own, on a thread of its own, and delays each direction."""

    def __init__(self, server_port, delay):
        self._server_port = server_port
        self._delay = delay
        self._loop = asyncio.new_event_loop()
        self.port = None

    @contextlib.contextmanager
    def running(self):
        server = self._loop.run_until_complete(
            asyncio.start_server(self._accept, "127.0.0.1", 0))
        self.port = server.sockets[0].getsockname()[1]
        thread = threading.Thread(target=self._loop.run_forever)
        thread.start()
        try:
            yield self
        finally:
            self._loop.call_soon_threadsafe(self._loop.stop)
            thread.join()
            server.close()
            for task in asyncio.all_tasks(self._loop):
                task.cancel()
            self._loop.run_until_complete(asyncio.sleep(0))
            self._loop.close()

    async def _accept(self, reader, writer):
        far_reader, far_writer = await asyncio.open_connection("127.0.0.1", self._server_port)
        await asyncio.gather(self._pass_on(reader, far_writer), self._pass_on(far_reader, writer))

    async def _pass_on(self, reader, writer):
        """What arrives is due a while after its arrival, whatever has arrived before."""
        while data := await reader.read(65536):
            self._loop.call_later(self._delay, writer.write, data)
        self._loop.call_later(self._delay, writer.close)
