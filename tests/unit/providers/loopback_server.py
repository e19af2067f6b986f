"""What the lying servers have in common: SCRIPT LOG [CERTIFICATE KEY]

Each prints two ports of the loopback interface, the second one another origin of the same things,
and serves them until its standard input ends; with a certificate a third one, for TLS. Every
request is appended to LOG before it is answered: port, method, target, its fields, and the number
of the connection, separated by a tab each. What asks for /__... goes past the lies, and the log."""
import os
import socket
import struct
import sys
import threading

log = open(sys.argv[1], 'a', buffering=1)
lock = threading.RLock()
ports = []
connections = [0]  # so far


def content(size, seed=0):
    """Bytes that tell their positions."""
    return bytes((i * 7 + (i >> 8) * 13 + seed) & 255 for i in range(size))


class Lost(Exception):
    """The connection is to be closed."""


class LoopbackConnection:
    """Takes requests, one behind the other; answer() sends the answer to one, and look() to what is
    asked past all lies."""

    def __init__(self, connection, port):
        self.socket, self.port, self.file = connection, port, connection.makefile('rb')
        self.answered = 0
        with lock:
            self.number = connections[0] = connections[0] + 1

    def serve(self):
        try:
            while self.take_head():
                if self.target.startswith('/__'):
                    self.look()
                else:
                    self.note()
                    self.answer()
                self.answered += 1
        except (Lost, OSError):
            pass
        finally:
            self.file.close()
            self.socket.close()

    def take_head(self):
        """False where there is no further request."""
        line = self.file.readline().decode('latin-1').split()
        if len(line) != 3:
            return False
        self.method, self.target = line[0], line[1]
        self.fields = {}
        while (field := self.file.readline().decode('latin-1').strip()):
            name, value = field.split(':', 1)
            self.fields[name.lower()] = value.strip()
        return True

    def note(self):
        with lock:
            log.write('\t'.join([str(self.port), self.method, self.target] +
                                [f'{k}: {v}' for k, v in self.fields.items()] +
                                [f'on-connection: {self.number}']) + '\n')

    def reset(self):
        self.socket.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack('ii', 1, 0))
        raise Lost


def listen(kind, tls=None):
    listener = socket.create_server(('127.0.0.1', 0))
    port = listener.getsockname()[1]
    ports.append(port)

    def accept():
        while True:
            connection, _ = listener.accept()
            connection.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
            if tls:
                with open(sys.argv[1] + '.tls', 'a') as file:
                    file.write('one comes\n')
                try:
                    connection = tls.wrap_socket(connection, server_side=True)
                except OSError:
                    continue
            threading.Thread(target=kind(connection, port).serve, daemon=True).start()
    threading.Thread(target=accept, daemon=True).start()


def serve(kind):
    """Until the standard input ends, with connections of this kind."""
    listen(kind)
    listen(kind)
    if len(sys.argv) > 2:
        import ssl  # takes its time
        tls = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        tls.load_cert_chain(sys.argv[2], sys.argv[3])
        listen(kind, tls)
    print(*ports, flush=True)
    sys.stdin.read()
    os._exit(0)
