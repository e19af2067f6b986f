"""The part of lying_server.py that speaks WebDAV (RFC 4918), well and badly.

/dav-BEHAVIOUR/PATH is a store of files and folders for each behaviour, empty at first. /xml-NAME/ is a folder that
has the items and the lies of that name in the table below."""
import copy
import socket
import threading
import time
from urllib.parse import quote, unquote, urlsplit

from loopback_server import lock, ports

MODIFIED = 'Sat, 01 Jun 2024 10:00:00 GMT'
stores = {}  # by behaviour, and of each the files' bytes by path; None for folders
times = {}  # that were set
versions = {}  # of files, by path
done = set()  # what was done once already


def part(href, kind='', more='', status='HTTP/1.1 200 OK'):
    return (f'<D:response><D:href>{href}</D:href><D:propstat><D:prop><D:resourcetype>{kind}</D:resourcetype>{more}'
            f'</D:prop><D:status>{status}</D:status></D:propstat></D:response>')


def whole(*parts):
    return '<?xml version="1.0"?>\n<D:multistatus xmlns:D="DAV:">' + ''.join(parts) + '</D:multistatus>'


def folder(href):
    return part(href, '<D:collection/>')


SIZE = '<D:getcontentlength>5</D:getcontentlength>'

# What a listing answers, where {self} is the folder.
LISTINGS = {
    'plain': whole(folder('{self}'), part('{self}a%20file', more=SIZE), folder('{self}folder/')),
    'itself-last-and-absolute': whole(part('{self}a%20file'), folder('http://somewhere.else:81{self}folder/'),
                                      folder('HTTP://127.0.0.1{self}')),
    'long': whole(folder('{self}'), *[part('{self}' + str(i), more=SIZE) for i in range(2000)]),
    'with-what-is-no-markup': '\ufeff<?xml version="1.0" encoding="utf-8"?><!-- <a> --><?go on?>\n' + whole(
        '<!-- <D:response> -->', folder('{self}'), '<![CDATA[</D:multistatus>]]>', '<?x </D:multistatus>?>',
        part('{self}file', more='<x y=">" z=\'"/>\'/><!-- </D:response> --><![CDATA[</D:response>]]>'),
        '<D:responsedescription>fine</D:responsedescription>') + '\n<!-- end -->\n',
    'two-roots': whole(folder('{self}')) + whole(part('{self}file')),
    'another-end': whole(folder('{self}')).replace('</D:multistatus>', '</D:other>'),
    'more-behind': whole(folder('{self}')) + 'text',
    'itself-is-n\xf6t-told-of': whole(folder('/xml-another-one/')),
    'itself-in-another-case': whole(folder('/XML-itself-in-ANOTHER-case/'), part('/XML-itself-in-ANOTHER-case/file')),
    'itself-alone-in-another-case': whole(folder('{SELF}'), part('{self}file')),
    'items-in-another-case': whole(folder('{self}'), part('{SELF}file')),
    'unreadable-in-another-case': whole(folder('{self}'), part('{self}good'), part('{SELF}a%2Fb')),
    'in-latin-1': whole(folder('{self}'), part('{self}\xe4')).replace('<?xml version="1.0"?>', '<?xml\tversion="1.0" '
                                                                     'encoding="ISO-8859-1"?>'),
    'in-utf-16': whole(folder('{self}'), part('{self}\xe4 \U0001f600')),
    'in-utf-16-unmarked': whole(folder('{self}'), part('{self}\xe4')),
    'in-half-of-utf-16': whole(folder('{self}'), part('{self}\ud83d')),
    'itself-without-slash': whole(folder('/xml-itself-without-sl%61sh'), part('{self}file')),
    'relative': whole(folder('{self}'), part('file'), folder('folder/')),
    'other-prefixes': '<multistatus xmlns="DAV:" xmlns:x="DAV:"><response xmlns:y="urn:other"><x:href>{self}</x:href>'
                      '<propstat><prop><y:resourcetype/><resourcetype><z:collection xmlns:z="DAV:"/></resourcetype>'
                      '</prop><status>HTTP/1.1 200 OK</status></propstat></response><response><href> {self}file\n'
                      '</href><propstat><prop><resourcetype><y:collection xmlns:y="urn:other"/></resourcetype></prop>'
                      '<status>HTTP/2 200</status></propstat></response></multistatus>',
    'names-that-escape': whole(
        folder('{self}'), *[part(name) for name in [
            '../up', '{self}../../etc/passwd', '{self}%2e%2e', '{self}.', '{self}deep/er', '/elsewhere/file',
            '/xml-names-that-escapee', '/xml-names-that-escape?x', '//host/file', 'mailto:a@b', '']],
        part('{self}good'), part('{self}%252e%252e')),
    'slashes': whole(folder('/{self}'[1:] + '/'), part('{self}/file'), folder('.//folder//'), part('./other')),
    'twice': whole(folder('{self}'), part('{self}file'), part('{self}fil%65')),
    'of-two-kinds': whole(folder('{self}'), part('{self}file'), folder('{self}file/')),
    'itself-of-two-kinds': whole(folder('{self}'), part('{self}')),
    'failing-parts': whole(
        folder('{self}'), part('{self}denied', status='HTTP/1.1 403 Forbidden'),
        '<D:response><D:href>{self}gone</D:href><D:status>HTTP/1.1 404 Not Found</D:status></D:response>',
        '<D:response><D:href>{self}locked/</D:href><D:status>HTTP/1.1 423 Locked</D:status></D:response>',
        part('{self}file', more=SIZE)),
    'numbers': whole(folder('{self}'), *[
        part('{self}' + str(i), more=f'<D:getcontentlength>{text}</D:getcontentlength><D:creationdate>{date}'
                                     '</D:creationdate>')
        for i, (text, date) in enumerate([
            ('18446744073709551615', '1970-01-01T00:00:01Z'), ('18446744073709551616', '1970-01-01T01:00:01.5+01:00'),
            ('-1', 'yesterday'), (' 7 ', '1969-12-31T23:00:01-01:00'), ('<![CDATA[8]]>', '')])]),
    'bomb': '<!DOCTYPE a [<!ENTITY a "aaaaaaaaaa"><!ENTITY b "&a;&a;&a;&a;&a;&a;">]>' +
            whole(folder('{self}'), part('{self}&b;')),
    'outside-entity': '<!DOCTYPE a SYSTEM "file:///etc/passwd">' + whole(folder('{self}')),
    'many-tags': whole(folder('{self}'), '<D:a/>' * 100_000),
    'tiny-items': whole(*['<D:response><D:href>{self}</D:href><D:status>HTTP/1.1 200 OK</D:status></D:response>']
                        * 9_000),
    'many-attributes': whole('<D:response ' + ' '.join(f'a{i}="x"' for i in range(1000)) + '><D:href>{self}</D:href>'
                             '</D:response>'),
    'attributes-of-nothing': whole(folder('{self}'), '<a' + ' a=""' * 100_000 + '/>'),
    'many-places': whole('<D:response>' + '<D:href>a</D:href>' * 300 + part('', more='<D:getetag>' + 'x' * 900_000 +
                                                                           '</D:getetag>')[len('<D:response>'):]),
    'endless': whole(folder('{self}'), ' ' * 3_000_000),
    'no-xml': 'the folder is empty',
    'broken-off': whole(folder('{self}'), part('{self}file'))[:-30],
    'nothing': '',
    'another-root': '<html/>',
    'another-namespace': '<multistatus xmlns="urn:other"/>',
    'without-namespace': '<multistatus/>',
    'empty': whole(),
    'of-something-else': whole(folder('/xml-plain/'), part('/xml-plain/file')),
    'without-location': whole('<D:response/>'),
    'without-state': whole('<D:response><D:href>{self}</D:href><D:propstat><D:prop/></D:propstat></D:response>'),
    'a-state-of-nonsense': whole(part('{self}', status='fine')),
    'two-states': whole('<D:response><D:href>{self}</D:href><D:status>HTTP/1.1 200 OK</D:status>'
                        '<D:status>HTTP/1.1 404 Not Found</D:status></D:response>'),
    'a-file': whole(part('{self}')),
}
# Items of the folder with names that cannot be read, or that none can have.
UNREADABLE = ['{self}a%2Fb', '{self}a%00b', '{self}%zz', '{self}%4', '{self}a?b', '{self}a#b', '{self}?', '{self}%00/',
              'a#b', '//host{self}file', '/{self}file', 'http://host{self}a%2fb']
for index, href in enumerate(UNREADABLE):
    LISTINGS[f'unreadable-{index}'] = whole(folder('{self}'), part('{self}good'), part(href))


ENCODINGS = {'in-latin-1': 'latin-1', 'in-utf-16': 'utf-16', 'in-utf-16-unmarked': 'utf-16-be',
             'in-half-of-utf-16': 'utf-16'}


class Dav:
    silence = [0]  # questions that are not answered

    def is_dav(self):
        return self.target.startswith(('/dav-', '/xml-'))

    def dav(self):
        path = unquote(self.target.split('?')[0])
        kind, _, self.flaw = path.split('/')[1].partition('-')
        self.root = f'/{kind}-{self.flaw}'
        if self.flaw == 'takes-slowly':
            self.socket.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 65536)
        self.payload = self.take(0.12 if self.flaw == 'takes-slowly' else 0) if 'content-length' in self.fields else b''
        if self.flaw == 'never-answers' and self.method == 'PUT':
            time.sleep(60)
        if self.flaw == 'never-moves' and self.method == 'MOVE':
            time.sleep(60)
        if self.flaw == 'stalls-when-read' and self.method == 'GET':
            time.sleep(1.5)
            self.head(200, 'Content-Length: 5')
            time.sleep(60)
        if self.method == 'OPTIONS':
            self.options(path)
        elif kind == 'xml':
            self.listing_of(self.flaw)
        else:
            with lock:
                self.store = stores.setdefault(self.flaw, {self.root: None})
                self.change(path)

    def options(self, path):
        if self.flaw == 'of-class-two':
            self.simple(200, 'DAV: <http://example.org/more>', 'DAV: 4, 2')
        elif self.flaw == 'of-another-origin':
            self.simple(307, f'Location: http://127.0.0.1:{ports[1]}/dav-good/')
        elif self.flaw == 'not-spoken':
            self.simple(200, 'DAV: 10, x1, <1>')
        elif self.flaw == 'denied' or (self.flaw == 'mixed' and 'private' in path):
            self.simple(401 if self.flaw == 'denied' else 403)
        elif self.flaw == 'mixed' and 'page' in path:
            self.simple(200)
        elif self.flaw.endswith('-at-first') and self.count <= 2:
            self.reset() if self.flaw.startswith('resets') else self.simple(503)
        elif self.flaw == 'echoes':
            self.do_echoes(0)
        elif self.flaw.startswith('options-'):
            self.simple(int(self.flaw[8:])) if self.flaw != 'options-reset' else self.reset()
        else:
            self.simple(200, 'DAV: 1')

    def xml(self, text, encoding='utf-8'):
        data = text.encode(encoding, 'surrogatepass' if 'utf' in encoding else 'strict')
        self.head(207, 'Content-Type: application/xml', f'Content-Length: {len(data)}')
        self.body(data)

    def listing_of(self, name):
        itself = f'/xml-{name}/'
        if name == 'breaks-off-once' and self.first('off'):
            self.head(207, 'Content-Length: 5000')
            self.body(b'<D:multistatus xmlns:D="DAV:">')
            return self.reset()
        if name == 'not-of-several-parts':
            return self.simple(200)
        if name == 'in-an-own-status':
            return self.xml(whole('<D:response><D:href>' + itself + '</D:href><D:status>HTTP/1.1 403 Forbidden'
                                  '</D:status></D:response>'))
        text = LISTINGS.get(name, LISTINGS['plain']).replace('{self}', itself).replace('{SELF}', itself.upper())
        self.xml(text, ENCODINGS.get(name, 'utf-8'))

    # The store.

    def first(self, what):
        """Whether that has not happened yet."""
        key = (self.method, self.target, what)
        if key in done:
            return False
        done.add(key)
        return True

    def describe(self, path):
        href = quote(path) + ('/' if self.store[path] is None else '')
        modified = times.get(path, MODIFIED)
        more = f'<D:getlastmodified>{modified}</D:getlastmodified><D:getetag>{self.tag(path)}</D:getetag>'
        if self.flaw in ('keeps-kinds-back', 'tells-no-kinds') and path != self.root:
            status = '500 No' if self.flaw == 'keeps-kinds-back' else '404 Not Found'
            return (f'<D:response><D:href>{href.rstrip("/")}</D:href><D:propstat><D:prop><D:resourcetype/></D:prop>'
                    f'<D:status>HTTP/1.1 {status}</D:status></D:propstat><D:propstat><D:prop>{more}</D:prop>'
                    '<D:status>HTTP/1.1 200 OK</D:status></D:propstat></D:response>')
        if self.store[path] is None:
            return part(href, '<D:collection/>', more)
        return part(href, '', more + f'<D:getcontentlength>{len(self.store[path])}</D:getcontentlength>')

    def tag(self, path):
        version = versions.get(path, 0)
        if self.flaw == 'breaks-tags':
            return '"a&#13;&#10;X-Injected: b"' if self.method == 'PROPFIND' else '"a"'
        if self.flaw == 'has-weak-tags':
            return f'W/"{version}"'
        return f'"{len(path)}-{version}"' if version else f'"{len(path)}"'

    def set(self, path, data):
        self.store[path] = data
        versions[path] = versions.get(path, -1) + 1

    def is_refused(self, path):
        """By a condition of the request."""
        wanted = self.fields.get('if-match')
        if self.flaw == 'ignores-conditions' or not wanted:
            return False
        return path not in self.store or wanted != self.tag(path) or self.flaw == 'confuses-tags'

    def below(self, path):
        return [other for other in self.store if other.startswith(path + '/')]

    def change(self, path):
        slash, path = path.endswith('/'), path.rstrip('/')
        if self.flaw == 'knows-no-case':
            path = path.lower()
        if self.method in ('GET', 'HEAD'):
            data = b'bytes' if 'readable' in path else self.store.get(path)
            if data is None and self.flaw == 'shows-folders' and path in self.store:
                return self.simple(200, 'Content-Type: text/html; charset=utf-8')
            tag = self.tag(path) if self.flaw != 'has-other-tags-to-read' else '"other"'
            if data is None:
                return self.simple(404)
            self.good(len(data), data, etag=tag)
            if self.flaw == 'another-writes-often' and self.first('changed'):
                self.set(path, b'theirs again')
            return
        if self.method == 'PROPFIND':
            return self.find(path, slash)
        if self.flaw == 'is-busy-for-an-hour':
            return self.simple(503, 'Retry-After: 3600')
        if self.flaw == 'locked':
            return self.simple(423)
        if self.flaw == 'full' and self.method == 'PUT':
            return self.simple(507)
        if self.flaw == 'led-to-folders' and not slash:
            return self.simple(301, f'Location: {self.target}/')
        if self.flaw == 'resets-changes' or (self.flaw in ('loses-requests', 'is-late') and self.first('lost')):
            return self.reset()
        if self.flaw == 'is-called-otherwise' and self.method in ('COPY', 'MOVE'):
            return self.simple(502)
        if self.flaw == 'gives-names-away' and self.method == 'PUT' and self.first('given'):
            self.set(path, b'X' * len(self.payload))
            return self.reset()
        if self.flaw == 'accepts-and-falls-silent':
            self.silence[0] = 4  # once more than a question is asked, as the first one goes on an open connection
            threading.Timer(0.5, getattr(copy.copy(self), 'dav_' + self.method.lower()), [path]).start()
            return self.simple(202)
        if self.flaw == 'accepts-for-nothing':
            return self.simple(202)
        if self.flaw == 'accepts':
            threading.Timer(0.05, getattr(copy.copy(self), 'dav_' + self.method.lower()), [path]).start()
            return self.simple(202)
        if self.flaw == 'is-late' and self.first('done'):
            getattr(self, 'dav_' + self.method.lower())(path)  # the first one, which went on
        if self.flaw == 'takes-its-time':
            time.sleep(0.8)
        if self.flaw == 'never-moves' and self.method == 'COPY':
            time.sleep(1.5)
        status = getattr(self, 'dav_' + self.method.lower())(path)
        if self.flaw == 'copies-by-halves' and self.method == 'COPY' and self.first('half'):
            half = unquote(urlsplit(self.fields['destination']).path)
            self.store[half] = bytes(len(self.store[half]))
            return self.reset()
        if self.flaw == 'loses-answers' and self.first('lost ' + self.fields.get('if-match', '')):
            return self.reset()
        if self.flaw == 'stalls-when-read' and 'if-none-match' in self.fields:
            return self.reset()
        if self.flaw == 'falls-silent-behind' and self.fields.get('if-match', self.fields.get('if-none-match')) \
                and self.first('silent ' + self.fields.get('if-match', '')):
            self.silence[0] = 4
            return self.reset()
        if self.flaw == 'garbles-answers' and self.first('garbled'):
            return self.garble()
        if self.flaw == 'fails-behind' and self.first('failed'):
            return self.simple(504)
        if self.flaw == 'is-busy-behind' and self.first('failed'):
            return self.simple(503)
        if isinstance(status, str):
            return self.xml(status)
        self.simple(status) if status != 204 else self.head(204)

    def find(self, path, slash):
        if self.flaw == 'knows-no-propfind':
            return self.simple(405)
        if self.flaw == 'mixed' and 'cgi' in path:
            return self.simple(405)
        if self.flaw == 'is-closed':
            return self.simple(403)
        if self.silence[0] > 0:
            self.silence[0] -= 1
            return self.reset()
        if self.flaw == 'resets-questions':
            return self.reset()
        if self.flaw == 'is-slow':
            time.sleep(0.1)
        if path not in self.store:
            return self.simple(404)
        if slash and self.store[path] is not None:
            return self.simple(400)
        found = [path]
        if self.fields.get('depth') == '1':
            found += [other for other in self.below(path) if other.rpartition('/')[0] == path]
        self.xml(whole(*[self.describe(one) for one in found]))
        if 'changing' in path and self.first('changed'):
            self.set(path, None if self.flaw == 'makes-folders-of-files' else b'theirs')

    def has_folder(self, path):
        above = path.rpartition('/')[0]
        return above in self.store and self.store[above] is None

    def make_above(self, path):
        above = path.rpartition('/')[0]
        if self.flaw == 'makes-what-is-missing' and above and above not in self.store:
            self.make_above(above)
            self.store[above] = None

    def dav_put(self, path):
        self.make_above(path)
        if self.is_refused(path):
            return 412
        if not self.has_folder(path) or self.store.get(path, b'') is None:
            return 409
        if path in self.store and self.fields.get('if-none-match') and self.flaw != 'ignores-conditions':
            return 412
        is_new = path not in self.store
        self.set(path, self.payload)
        return 201 if is_new else 204

    def dav_mkcol(self, path):
        self.make_above(path)
        if path in self.store:
            return 405
        if not self.has_folder(path):
            return 409
        self.store[path] = None
        return 201

    def dav_delete(self, path):
        if self.is_refused(path):
            return 412
        if path not in self.store:
            return 404
        if self.flaw == 'keeps-what-is-locked':
            locked = [other for other in self.below(path) if other.endswith('locked')]
            if locked:
                return whole(*['<D:response><D:href>' + quote(other) + '</D:href><D:status>HTTP/1.1 '
                               f'{"423 Locked" if other in locked else "424 Failed"}</D:status></D:response>'
                               for other in [path] + locked])
        for other in self.below(path) + [path]:
            del self.store[other]
        return 204

    def transfer(self, path, is_move):
        destination = unquote(urlsplit(self.fields['destination']).path).rstrip('/')
        if self.flaw == 'knows-no-case':
            destination = destination.lower()
        if path not in self.store:
            return 404
        if not self.has_folder(destination):
            return 409
        is_new = destination not in self.store
        if not is_new and self.fields.get('overwrite') == 'F':
            return 412
        if not is_new:
            self.dav_delete(destination)
        for other in [path] + self.below(path):
            self.store[destination + other[len(path):]] = self.store[other]
            if is_move:
                del self.store[other]
        return 201 if is_new else 204

    def dav_copy(self, path):
        return self.transfer(path, False)

    def dav_move(self, path):
        return self.transfer(path, True)

    def dav_proppatch(self, path):
        if self.flaw == 'sets-times':
            times[path] = self.payload.decode().split('getlastmodified>')[1].split('<')[0]
        status = '403 Forbidden' if self.flaw == 'keeps-times' else '200 OK'
        return whole(f'<D:response><D:href>{quote(path)}</D:href><D:propstat><D:prop><D:getlastmodified/></D:prop>'
                     f'<D:status>HTTP/1.1 {status}</D:status></D:propstat></D:response>')
