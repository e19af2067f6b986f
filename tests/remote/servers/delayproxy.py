#!/usr/bin/env python3
"""TCP delay line on loopback, for any protocol (TLS, HTTP).   delayproxy.py PORT HOST:PORT ONE_WAY_MS [KBPS]

Every byte arrives ONE_WAY_MS later in each direction, in flight together like on a long wire, at most KBPS
(1000 bytes a second) per direction. A new connection's first byte waits one round trip more, as a handshake would.
"""
import asyncio, sys

PORT, TARGET, DELAY = int(sys.argv[1]), sys.argv[2].rsplit(":", 1), float(sys.argv[3]) / 1000
KBPS = float(sys.argv[4]) if len(sys.argv) > 4 else 0


async def line(reader, writer):
    wire = asyncio.Queue(512)
    now = asyncio.get_running_loop().time

    async def send():
        while True:
            data = await reader.read(32768)
            if KBPS:
                await asyncio.sleep(len(data) / 1000 / KBPS)
            await wire.put((now() + DELAY, data))
            if not data:
                return

    sender = asyncio.ensure_future(send())
    try:
        while True:
            get = asyncio.ensure_future(wire.get())
            await asyncio.wait({get, sender}, return_when=asyncio.FIRST_COMPLETED)
            if not get.done() and sender.exception():
                get.cancel()
                raise sender.exception()
            due, data = await get
            await asyncio.sleep(max(0, due - now()))
            if not data:
                return writer.write_eof()
            writer.write(data)
            await writer.drain()
    finally:
        sender.cancel()


async def serve(reader, writer):
    await asyncio.sleep(2 * DELAY)
    try:
        up = await asyncio.open_connection(*TARGET)
    except OSError:
        return writer.transport.abort()
    try:
        await asyncio.gather(line(reader, up[1]), line(up[0], writer))
    except OSError:
        writer.transport.abort()
        up[1].transport.abort()
    finally:
        up[1].close()
        writer.close()


async def main():
    async with await asyncio.start_server(serve, "127.0.0.1", PORT) as server:
        await server.serve_forever()

asyncio.run(main())
