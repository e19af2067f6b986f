"""What is wrong about the objects that a store gives; lying_store.py serves it."""
import re
import time

from loopback_server import Lost, content
from true_store import Connection, Object, error


class LyingReads(Connection):
    def distorted(self, operation, make, times=1 << 30):
        """The right answers, but for the first ones to one kind of question."""
        if self.operation == operation and self.count <= times:
            make()
        else:
            self.send(self.good())

    def altered(self, change):
        def make():
            self.send(change(*self.good()))
        self.distorted('get', make)

    def do_whole(self):
        self.fields.pop('range', None)
        self.send(self.good())

    def do_shifted_range(self):
        self.altered(lambda s, f, b: (s, [re.sub(r'bytes (\d+)', lambda m: f'bytes {int(m[1]) + 1}',
                                                 one) for one in f], b))

    def do_longer_than_its_range(self):
        self.altered(lambda s, f, b: (s, [f'Content-Length: {len(b) + 5}', *f], b))

    def do_range_unsaid(self):
        self.altered(lambda s, f, b: (s, [one for one in f if 'Range' not in one], b))

    def do_of_unknown_size(self):
        self.altered(lambda s, f, b: (s, [re.sub(r'/\d+$', '/*', one) for one in f], b))

    def do_extra_bytes(self):
        def change(status, fields, body):
            body += b'extra'
            return status, ['Transfer-Encoding: chunked', *fields], \
                b'%x\r\n' % len(body) + body + b'\r\n0\r\n\r\n'
        self.altered(change)

    def do_an_error_for_the_object(self):
        self.altered(lambda s, f, b: (200, [], error(500, 'InternalError')[2]))

    def do_smaller_ends(self):
        """Not all of what is asked for at once: 700 bytes from where it begins."""
        def change(status, fields, body):
            first = int(re.search(r'bytes (\d+)', ' '.join(fields))[1])
            return status, [re.sub(r'-\d+/', f'-{first + len(body[:700]) - 1}/', one)
                            for one in fields], body[:700]
        self.altered(change)

    def do_other_ends(self):
        """Fewer bytes than are asked for, and there are more."""
        self.fields['range'] = self.fields.get('range', '').replace('=-1000', '=-999')
        self.send(self.good())

    def without_ends(self, make):
        """Knows no ranges that are counted from the end."""
        if self.fields.get('range', '').startswith('bytes=-'):
            make()
        else:
            self.send(self.good())

    def do_ignores_ends(self):
        self.without_ends(self.do_whole)

    def do_takes_ends_for_starts(self):
        def make():
            most = int(self.fields['range'].removeprefix('bytes=-'))
            self.fields['range'] = f'bytes=0-{most - 1}'
            self.send(self.good())
        self.without_ends(make)

    def do_gives_all_for_ends(self):
        """As if that had been asked for."""
        def make():
            self.fields['range'] = 'bytes=0-'
            self.send(self.good())
        self.without_ends(make)

    def do_gives_all_for_ends_and_no_size(self):
        def make():
            self.fields.pop('range')
            status, fields, body = self.good()
            if status == 200:
                fields = ['Transfer-Encoding: chunked', *fields]
                body = b'%x\r\n' % len(body) + body + b'\r\n0\r\n\r\n'
            self.send((status, fields, body))
        self.without_ends(make)

    def do_refuses_ends(self):
        self.without_ends(lambda: self.send(error(416, 'InvalidRange')))

    def do_takes_ends_for_nonsense(self):
        self.without_ends(lambda: self.send(error(400, 'InvalidArgument')))

    def do_has_no_ends_yet(self):
        self.without_ends(lambda: self.send(error(501, 'NotImplemented')))

    def do_smaller_ranges(self):
        self.fields['range'] = re.sub(r'=(\d+)-\d+', lambda m: f'={m[1]}-{int(m[1]) + 699}',
                                      self.fields.get('range', ''))
        self.send(self.good())

    def do_short(self):
        def make():
            answer = self.good()
            self.send(answer, cut=(len(answer[2]) + 1) // 2)
        self.distorted('get', make)

    def do_short_without_tags(self):
        def make():
            status, fields, body = self.good()
            fields = [one for one in fields if not one.startswith('ETag')]
            self.send((status, fields, body), cut=len(body) // 2 if self.count < 3 else None)
        self.distorted('get', make)

    def do_reset_at_every_tenth_byte(self):
        def make():
            try:
                self.send(self.good(), cut=10)
            except Lost:
                time.sleep(0.002)  # a reset may overtake what was sent
                self.reset()
        self.distorted('get', make)

    def do_stalls_in_the_first_body(self):
        def make():
            try:
                answer = self.good()
                self.send(answer, cut=len(answer[2]) // 2)
            except Lost:
                time.sleep(60)
        self.distorted('get', make, 1)

    def stalls_from(self, position):
        first = re.match(r'bytes=(\d+)', self.fields.get('range', ''))
        if self.operation == 'get' and first and int(first[1]) >= position:
            time.sleep(60)
        self.send(self.good())

    def do_stalls_beyond_a_mebibyte(self):
        self.stalls_from(1 << 20)

    def do_stalls_beyond_24_mebibytes(self):
        self.stalls_from(24 << 20)

    def do_is_down_beyond_a_mebibyte(self):
        """Until there is an object that is called so."""
        first = re.match(r'bytes=(\d+)', self.fields.get('range', ''))
        if self.operation == 'get' and first and int(first[1]) >= 1 << 20 and \
                'up' not in self.bucket.objects:
            self.send(error(503, 'SlowDown'))
        else:
            self.send(self.good())

    def do_tells_odd_metadata(self):
        """That is no ASCII, and so cannot be sent as it is."""
        status, fields, body = self.good()
        if self.operation in ('get', 'head') and status < 300:
            fields = [*fields, 'x-amz-meta-odd: \xc3\xa4']
        self.send((status, fields, body))

    def do_tells_odd_names(self):
        """Of metadata, that no field can have."""
        status, fields, body = self.good()
        if self.operation in ('get', 'head') and status < 300:
            fields = [*fields, 'x-amz-meta-odd name: x']
        self.send((status, fields, body))

    def do_tells_fields_twice(self):
        status, fields, body = self.good()
        if self.operation in ('get', 'head') and status < 300:
            fields = [*fields, *(one for one in fields if one.lower().startswith((
                'cache-control', 'content-type', 'x-amz-meta-')))]
        self.send((status, fields, body))

    def do_keeps_metadata_to_itself(self):
        """And tells only how much of it there is that no answer can have."""
        status, fields, body = self.good()
        if self.operation in ('get', 'head') and status < 300:
            fields = [*fields, 'x-amz-missing-meta: 1']
        self.send((status, fields, body))

    def do_changes(self):
        """At each time, and does not look at conditions."""
        def make():
            self.bucket.objects[self.key] = Object(content(5000, self.count))
            self.fields.pop('if-match', None)
            answer = self.good()
            self.send(answer, cut=len(answer[2]) // 2)
        self.distorted('get', make)

    def do_untagged(self):
        """Tells no versions, and reads another one each time."""
        if self.operation == 'get':
            size = len(self.bucket.objects[self.key].data)
            self.bucket.objects[self.key] = Object(bytes([65 + self.count]) * size)
        status, fields, body = self.good()
        self.send((status, [one for one in fields if not one.startswith('ETag')], body))

    def do_refuses_ranges(self):
        self.distorted('get', lambda: self.send(error(416, 'InvalidRange')))
