"""An FTP proxy on loopback that holds back every byte, control and data, for a time in each direction."""

import asyncio
import re
import threading
from collections import deque

PIECE = 256 * 1024  # bytes read at once


class DelayProxy:
    """Stands before the FTP server at `port`; its own port is `port` of this object, `commands` what clients sent."""

    def __init__(self, server_port: int, delay: float):
        self.commands = 0
        self._server_port = server_port
        self._delay = delay
        self._loop = asyncio.new_event_loop()
        self._thread = threading.Thread(target=self._loop.run_forever, daemon=True)

    def __enter__(self):
        self._thread.start()
        self.port = asyncio.run_coroutine_threadsafe(self._listen(self._server_port, self._control), self._loop).result()
        return self

    def __exit__(self, *_):
        asyncio.run_coroutine_threadsafe(self._end(), self._loop).result()
        self._loop.call_soon_threadsafe(self._loop.stop)
        self._thread.join()
        self._loop.close()

    async def _end(self):
        running = asyncio.all_tasks() - {asyncio.current_task()}
        for task in running:
            task.cancel()
        await asyncio.gather(*running, return_exceptions=True)

    async def _listen(self, server_port: int, relay, once: bool = False) -> int:
        async def connected(reader, writer):
            if once:
                server.close()
            try:
                upstream = await asyncio.open_connection("127.0.0.1", server_port, limit=2 * PIECE)
            except OSError:
                writer.close()
                return
            await relay(reader, writer, *upstream)

        server = await asyncio.start_server(connected, "127.0.0.1", 0, limit=2 * PIECE)
        return server.sockets[0].getsockname()[1]

    async def _control(self, reader, writer, upstream_reader, upstream_writer):
        async def commands():
            while line := await reader.readline():
                self.commands += 1
                yield line

        async def replies():
            while line := await upstream_reader.readline():
                yield await self._with_own_data_port(line)

        await asyncio.gather(self._hold(commands(), upstream_writer), self._hold(replies(), writer))

    async def _data(self, reader, writer, upstream_reader, upstream_writer):
        await asyncio.gather(self._hold(_pieces(reader), upstream_writer), self._hold(_pieces(upstream_reader), writer))

    async def _with_own_data_port(self, reply: bytes) -> bytes:
        """The reply to EPSV or PASV names a port: clients get one of the proxy's in its place."""
        if found := re.match(rb"229 .*\(\|\|\|(\d+)\|\)", reply):
            port = await self._listen(int(found[1]), self._data, once=True)
            return b"229 Entering Extended Passive Mode (|||%d|)\r\n" % port
        if found := re.match(rb"227 .*\((?:\d+,){4}(\d+),(\d+)\)", reply):
            port = await self._listen(int(found[1]) * 256 + int(found[2]), self._data, once=True)
            return b"227 Entering Passive Mode (127,0,0,1,%d,%d).\r\n" % divmod(port, 256)
        return reply

    async def _hold(self, source, writer):
        """Passes on what comes, each piece when its time has come, without slowing what follows."""
        held = deque()
        came = asyncio.Event()

        async def take():
            try:
                async for piece in source:
                    held.append((self._loop.time() + self._delay, piece))
                    came.set()
            except OSError:
                pass  # A reset ends the connection as a close does.
            held.append((self._loop.time() + self._delay, None))
            came.set()

        taking = asyncio.ensure_future(take())
        try:
            while True:
                while not held:
                    came.clear()
                    await came.wait()
                due, piece = held.popleft()
                await asyncio.sleep(max(0.0, due - self._loop.time()))
                if piece is None:
                    break
                writer.write(piece)
                await writer.drain()
        except OSError:
            pass
        finally:
            taking.cancel()
            writer.close()


async def _pieces(reader):
    while piece := await reader.read(PIECE):
        yield piece
