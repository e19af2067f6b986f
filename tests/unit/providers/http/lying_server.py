"""Serves files over HTTP, well and badly; see loopback_server.py for how it is run.

A target is /BEHAVIOUR/SIZE, and the file has SIZE bytes that tell their positions; or /disk/PATH,
for a file that is there. What speaks WebDAV is in lying_dav.py."""
import os
import re
import socket
import sys
import time
from urllib.parse import unquote

sys.dont_write_bytecode = True  # beside the sources
here = os.path.dirname(os.path.abspath(__file__))
sys.path[:0] = [here, os.path.dirname(here)]  # which an isolated interpreter leaves out
from loopback_server import LoopbackConnection, Lost, content, lock, ports, serve
from lying_dav import Dav

MODIFIED = 'Sat, 01 Jun 2024 10:00:00 GMT'
asked = {}  # how often, by target


class Connection(Dav, LoopbackConnection):
    def look(self):
        """/__knows/BEHAVIOUR is there or is not."""
        name = self.target[len('/__knows/'):]
        known = name.startswith(('dav-', 'xml-')) or hasattr(self, 'do_' + name.replace('-', '_'))
        self.simple(200 if known else 404)

    def answer(self):
        with lock:
            self.count = asked[self.target] = asked.get(self.target, 0) + 1
        if self.is_dav():
            self.dav()
            return
        path = self.target.split('?')[0].split('/')
        behaviour = path[1]
        size = int(path[2]) if len(path) > 2 and path[2].isdigit() else 0
        getattr(self, 'do_' + behaviour.replace('-', '_'), self.do_missing)(size)

    # What answers are made of.

    def take(self, pause=0):
        """Reads the body of the request, and returns it."""
        left, data = int(self.fields['content-length']), b''
        while left:
            piece = self.file.read(min(left, 65536))
            if not piece:
                raise Lost
            data, left = data + piece, left - len(piece)
            time.sleep(pause)
        return data

    def took(self, size):
        """Takes a body, and tells whether it is the right one."""
        data = self.take()
        self.whole_text(f'{len(data)} bytes, {"right" if data == content(size) else "wrong"}')

    def whole_text(self, text, status=200, *fields):
        self.head(status, f'Content-Length: {len(text)}', *fields)
        self.body(text.encode())

    def head(self, status, *fields):
        lines = [f'HTTP/1.1 {status} Status', *fields, '', '']
        self.socket.sendall('\r\n'.join(lines).encode('latin-1'))

    def body(self, data):
        if self.method != 'HEAD':
            self.socket.sendall(data)

    def simple(self, status, *fields):
        self.head(status, 'Content-Length: 4', *fields)
        self.body(b'text')

    def range(self, size):
        """The first byte and the one behind the last, of what is asked for."""
        match = re.fullmatch(r'bytes=(\d*)-(\d*)', self.fields.get('range', ''))
        if not match:
            return None
        if not match[1]:
            return max(size - int(match[2]), 0), size
        first = int(match[1])
        return first, min(int(match[2]) + 1 if match[2] else size, size)

    def good(self, size, data=None, etag='"one"', modified=MODIFIED, total=None, send=None,
             length=None, honours=True, shift=0, extra=()):
        data = content(size) if data is None else data
        mark = ([f'ETag: {etag}'] if etag else []) + ([f'Last-Modified: {modified}'] if modified
                                                      else []) + list(extra)
        part = self.range(size)
        condition = self.fields.get('if-range')
        if honours and condition and condition != (etag or modified):
            part = None
        if part and part[0] >= size:
            self.head(416, f'Content-Range: bytes */{size}', 'Content-Length: 0')
        elif part:
            piece = data[part[0]:part[1]]
            self.head(206, f'Content-Range: bytes {part[0] + shift}-{part[1] + shift - 1}/'
                      f'{size if total is None else total}',
                      f'Content-Length: {len(piece) if length is None else length(len(piece))}',
                      'Accept-Ranges: bytes', *mark)
            (send or self.body)(piece)
        else:
            self.head(200, f'Content-Length: {size}', *mark)
            (send or self.body)(data)

    def whole(self, size, *fields):
        self.head(200, *fields)
        return content(size)

    def chunks(self, data):
        for i in range(0, len(data), 1000):
            piece = data[i:i + 1000]
            self.body(b'%x\r\n' % len(piece) + piece + b'\r\n')
        self.body(b'0\r\n\r\n')

    def garble(self):
        self.socket.sendall(b'no answer at all\r\n\r\n')
        raise Lost

    # Behaviours.

    def do_missing(self, size):
        self.simple(404)

    # For requests that carry something.

    def do_takes(self, size):
        self.took(size)

    def do_takes_at_the_third_time(self, size):
        if self.count == 1:
            self.file.read(size // 2)
            self.reset()
        if self.count == 2:
            self.take()
            self.head(503, 'Content-Length: 0')
        else:
            self.took(size)

    def do_takes_and_is_lost(self, size):
        self.take()
        self.reset()

    def do_loses_what_comes_on_an_open_connection(self, size):
        if self.answered:
            raise Lost
        self.took(size)

    def do_refuses_before_the_end(self, size):
        self.head(403, 'Content-Length: 0', 'Connection: close')
        raise Lost

    def do_agrees_before_the_end(self, size):
        self.head(200, 'Content-Length: 0')
        time.sleep(1)
        raise Lost

    def do_stops_taking(self, size):
        self.file.read(1000)
        time.sleep(60)

    def do_takes_slowly(self, size):
        self.socket.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 65536)
        self.whole_text(f'{len(self.take(0.02))} bytes')

    def do_takes_elsewhere(self, size):
        self.take()
        self.head(int(self.target.split('?')[1]), f'Location: /takes/{size}', 'Content-Length: 0')

    def do_takes_at_another_origin(self, size):
        self.take()
        self.head(307, f'Location: http://127.0.0.1:{ports[1]}/takes/{size}', 'Content-Length: 0')

    def do_good(self, size):
        self.good(size)

    def do_dated(self, size):
        self.good(size, etag=None)

    def do_unmarked(self, size):
        self.good(size, etag=None, modified=None)

    def do_weak(self, size):
        self.good(size, etag='W/"one"', honours=False)

    def do_whole(self, size):
        self.body(self.whole(size, f'Content-Length: {size}', 'ETag: "one"'))

    def do_whole_without_length(self, size):
        self.body(self.whole(size, 'Connection: close'))
        raise Lost

    def do_whole_in_chunks(self, size):
        self.chunks(self.whole(size, 'Transfer-Encoding: chunked'))

    def do_whole_in_chunks_broken_off(self, size):
        data = self.whole(size, 'Transfer-Encoding: chunked', 'ETag: "one"')
        self.body(b'%x\r\n' % size + data[:size // 2])
        raise Lost

    def in_chunks(self, size, extra):
        first, end = self.range(size)
        self.head(206, f'Content-Range: bytes {first}-{end - 1}/{size}',
                  'Transfer-Encoding: chunked')
        data = content(size) + b'extra bytes'
        self.chunks(data[first:end + extra])

    def do_in_chunks(self, size):
        self.in_chunks(size, 0)

    def do_extra_bytes(self, size):
        self.in_chunks(size, 5)

    def do_extra_bytes_in_one_piece(self, size):
        first, end = self.range(size)
        data = content(size)[first:end] + b'extra bytes'
        head = (f'HTTP/1.1 206 Status\r\nContent-Range: bytes {first}-{end - 1}/{size}\r\n'
                f'Transfer-Encoding: chunked\r\n\r\n{len(data):x}\r\n')
        self.socket.sendall(head.encode('latin-1') + data + b'\r\n0\r\n\r\n')

    def do_fewer_in_chunks(self, size):
        self.in_chunks(size, -1)

    def do_of_unknown_size(self, size):
        self.good(size, total='*')

    def do_smaller_ranges(self, size):
        first, end = self.range(size)
        end = min(end, first + 700)
        self.head(206, f'Content-Range: bytes {first}-{end - 1}/{size}',
                  f'Content-Length: {end - first}')
        self.body(content(size)[first:end])

    def do_smaller_ranges_than_the_end(self, size):
        """Of what is asked for from the end, without its first byte."""
        first, end = self.range(size)
        self.head(206, f'Content-Range: bytes {first + 1}-{end - 1}/{size}',
                  f'Content-Length: {end - first - 1}')
        self.body(content(size)[first + 1:end])

    def do_shifted_range(self, size):
        self.good(size, shift=1)

    def do_longer_than_its_range(self, size):
        self.good(size, length=lambda n: n + 5)

    def do_range_unsaid(self, size):
        first, end = self.range(size)
        self.head(206, f'Content-Length: {end - first}')
        self.body(content(size)[first:end])

    def do_range_of_nonsense(self, size):
        self.head(206, 'Content-Range: bytes 5-2/x', 'Content-Length: 4')
        self.body(b'text')

    def asks_for_the_end(self):
        return self.fields.get('range', '').startswith('bytes=-')

    def do_ignores_ends(self, size):
        """As if no range were asked for; and says that it knows others."""
        if self.asks_for_the_end():
            del self.fields['range']
            return self.good(size, extra=['Accept-Ranges: bytes'])
        self.good(size)

    def do_takes_ends_for_starts(self, size):
        if self.asks_for_the_end():
            self.fields['range'] = self.fields['range'].replace('=-', '=0-')
        self.good(size)

    def do_takes_ends_for_everything(self, size):
        if self.asks_for_the_end():
            self.fields['range'] = 'bytes=0-'
        self.good(size)

    def do_ignores_ends_in_chunks(self, size):
        """Without a size, and without a word of knowing ranges."""
        self.do_whole_in_chunks(size) if self.asks_for_the_end() else self.good(size)

    def do_ignores_ends_until_it_closes(self, size):
        if self.asks_for_the_end():
            self.body(self.whole(size, 'Accept-Ranges: bytes', 'Connection: close'))
            raise Lost
        self.good(size)

    def do_refuses_ends(self, size):
        """With the status behind the question mark."""
        if self.asks_for_the_end():
            return self.head(int(self.target.split('?')[1]), f'Content-Range: bytes */{size}',
                             'Content-Length: 0')
        self.good(size)

    def do_refused_range(self, size):
        self.head(416, f'Content-Range: bytes */{size}', 'Content-Length: 0')

    def do_short(self, size):
        """Half of each body, and more for the next request."""
        def send(piece):
            self.body(piece[:(len(piece) + 1) // 2])
            raise Lost
        self.good(size, send=send)

    def do_nothing_but_heads(self, size):
        def send(piece):
            raise Lost
        self.good(size, send=send)

    def do_reset_at_every_tenth_byte(self, size):
        def send(piece):
            self.body(piece[:10])
            time.sleep(0.002)  # a reset may overtake what was sent
            self.reset()
        self.good(size, send=send)

    def do_reset_at_once(self, size):
        self.reset()

    def do_reset_once(self, size):
        if self.count == 1:
            self.reset()
        self.good(size)

    def do_stalls_in_the_body(self, size):
        def send(piece):
            self.body(piece[:len(piece) // 2])
            time.sleep(60)
        self.good(size, send=send)

    def do_stalls_in_the_first_body(self, size):
        self.do_stalls_in_the_body(size) if self.count == 1 else self.good(size)

    def do_never_answers(self, size):
        time.sleep(60)

    def do_trickles(self, size):
        def send(piece):
            for i in range(len(piece)):
                self.body(piece[i:i + 1])
                time.sleep(0.05)
        self.good(size, send=send)

    def do_busy_twice(self, size):
        self.simple(503, 'Retry-After: 0') if self.count <= 2 else self.good(size)

    def do_busy_for_an_hour(self, size):
        self.simple(503, 'Retry-After: 3600')

    def do_always_busy(self, size):
        self.simple(503)

    def do_status(self, size):
        self.simple(size or 404)

    def do_to_itself(self, size):
        self.simple(301, f'Location: {self.target}')

    def do_deeper(self, size):
        self.simple(302, f'Location: /deeper/{size + 1}')

    def do_to(self, size):
        """A redirect to what stands behind the question mark."""
        place = unquote(self.target.split('?', 1)[1]).replace('OTHER', f'127.0.0.1:{ports[1]}')
        self.simple(307, f'Location: {place}')

    def do_redirected_until_it_expires(self, size):
        self.simple(302, f'Location: /expires/{size}?{self.count}')

    def do_redirected_to_one_that_fails(self, size):
        """The second place answers nothing but 500."""
        place = '/status/500' if self.count == 2 else f'/expires/{size}?{self.count}'
        self.simple(302, f'Location: {place}')

    def do_expires(self, size):
        """Each address is good for two requests."""
        self.good(size) if self.count <= 2 else self.simple(403)

    def do_changes(self, size):
        self.good(size, content(size, self.count), etag=f'"{self.count}"')

    def do_changes_and_ignores_conditions(self, size):
        self.good(size, content(size, self.count), etag=f'"{self.count}"', honours=False)

    def do_changes_its_date(self, size):
        self.good(size, content(size, self.count), etag=None,
                  modified=f'Sat, 01 Jun 2024 10:00:{self.count:02} GMT')

    def do_changes_its_size(self, size):
        self.good(size + self.count, etag=None, modified=None)

    def do_changes_to_something_whole(self, size):
        self.good(size) if self.count == 1 else self.do_whole_without_length(size)

    def do_forgets_its_tag(self, size):
        mark = {} if self.count == 1 else {'etag': None, 'modified': None, 'honours': False}
        self.good(size, content(size, self.count), **mark)

    def do_forgets_its_tag_with_the_whole(self, size):
        """The first answer breaks off, and the second one is of another file."""
        if self.count == 1:
            self.body(self.whole(size, f'Content-Length: {size}', 'ETag: "one"')[:777])
            raise Lost
        self.head(200, f'Content-Length: {size}')
        self.body(content(size, self.count))

    def do_forgets_its_date_with_the_whole(self, size):
        if self.count == 1:
            self.body(self.whole(size, f'Content-Length: {size}', f'Last-Modified: {MODIFIED}')[:777])
            raise Lost
        self.head(200, f'Content-Length: {size}')
        self.body(content(size, self.count))

    def do_weakens_its_tag(self, size):
        if self.count == 1:
            return self.good(size)
        self.good(size, content(size, 1), etag='W/"one"', honours=False)

    def do_turns_encoded(self, size):
        if self.count == 1:
            return self.good(size, etag=None)
        self.good(size, content(size, 1), etag=None, extra=['Content-Encoding: gzip'])

    def do_shrinks(self, size):
        """The first answer tells no size; the file has become shorter than that already."""
        if self.count == 1:
            return self.good(size, total='*')
        self.head(416, 'Content-Range: bytes */100', 'Content-Length: 0')

    def do_refuses_without_a_size(self, size):
        self.good(size, total='*') if self.count == 1 else self.head(416, 'Content-Length: 0')

    def do_empty_tag(self, size):
        self.good(size, etag=' ', honours=False)

    def do_several_parts(self, size):
        self.good(size, extra=['Content-Type: Multipart/ByteRanges; boundary=x'])

    def do_two_ranges(self, size):
        self.good(size, extra=['Content-Range: bytes 0-1/2'])

    def do_folds(self, size):
        first, end = self.range(size)
        self.head(206, 'X-Long: a', ' ', '\tb', 'Content-Range:', f' bytes {first}-{end - 1}/{size}',
                  f'Content-Length: {end - first}')
        self.body(content(size)[first:end])

    def do_long_line(self, size):
        self.head(200, f'X-Long: {"x" * 150_000}', 'Content-Length: 0')

    def do_many_fields(self, size):
        self.head(200, *['X: y'] * 2000, 'Content-Length: 0')

    def do_byte_by_byte(self, size):
        def send(piece):
            self.body(piece[:1])
            raise Lost
        self.good(size, send=send)

    def do_answers_unasked(self, size):
        """Some time behind the first range, a next one that is wrong."""
        self.good(size)
        if self.count == 1:
            time.sleep(0.03)
            first = self.range(size)[1]
            self.head(206, f'Content-Range: bytes {first}-{first + 99}/{size}', 'ETag: "one"',
                      'Content-Length: 100')
            self.body(content(size, 1)[:100])

    def do_garbage_behind(self, size):
        self.good(size)
        if self.count == 1:
            time.sleep(0.03)
            self.socket.sendall(b'more\r\n\r\n')

    def do_garbled_when_used_again(self, size):
        if self.answered:
            self.garble()
        self.good(size)

    def do_body_for_head(self, size):
        self.head(200, 'Content-Length: 5')
        time.sleep(0.03)
        self.socket.sendall(b'HTTP/1.1 404 Status\r\nContent-Length: 0\r\n\r\n')

    def do_says_that_it_changed(self, size):
        self.good(size) if self.count == 1 else self.simple(412)

    def do_vanishes(self, size):
        self.good(size) if self.count == 1 else self.simple(404)

    def do_lies_to_head(self, size):
        if self.method == 'HEAD':
            self.head(200, 'Content-Length: 3')
        else:
            self.good(size)

    def do_refuses_head(self, size):
        self.simple(405) if self.method == 'HEAD' else self.good(size)

    def do_forbids_head(self, size):
        self.simple(403) if self.method == 'HEAD' else self.good(size)

    def do_huge_head(self, size):
        self.head(200, *[f'X-{i}: {"x" * 1000}' for i in range(300)], 'Content-Length: 0')

    def do_no_http(self, size):
        self.socket.sendall(b'220 mail.example.org ESMTP\r\n')
        raise Lost

    def do_two_lengths(self, size):
        self.head(200, f'Content-Length: {size}', f'Content-Length: {size + 9}')
        self.body(content(size))
        raise Lost

    def do_hints_first(self, size):
        self.socket.sendall(b'HTTP/1.1 103 Early Hints\r\nETag: "hint"\r\n\r\n')
        self.good(size)

    def do_disk(self, size):
        try:
            with open(unquote(self.target[len('/disk'):]), 'rb') as file:
                data = file.read()
        except OSError:
            return self.simple(404)
        self.good(len(data), data)

    def do_disk_without_ends(self, size):
        """The same, and refuses to be asked for the end."""
        if self.asks_for_the_end():
            return self.simple(501)
        self.target = self.target.replace('-without-ends', '', 1)
        self.do_disk(size)

    def do_disk_or_busy(self, size):
        """The same, but for the time in which there is a file of its name and '.busy'."""
        self.target = self.target.replace('-or-busy', '', 1)
        if os.path.exists(unquote(self.target[len('/disk'):]) + '.busy'):
            return self.simple(503)
        self.do_disk(size)

    def do_disk_whole(self, size):
        """The same, and knows no ranges."""
        self.fields.pop('range', None)
        self.target = self.target.replace('-whole', '', 1)
        self.do_disk(size)

    def do_echoes(self, size):
        """What it is told by whom it asks comes back wherever there is room."""
        word = self.fields.get('authorization', '')
        self.whole_text(word, 403, f'X-Echo: {word}', f'WWW-Authenticate: Basic realm="{word}"', f'ETag: "{word}"')

    def do_for_digests(self, size):
        self.simple(401, 'WWW-Authenticate: Digest realm="Basic things", nonce="1"')

    def do_for_users(self, size):
        self.good(size) if 'authorization' in self.fields else self.simple(401)


serve(Connection)
