"""An object store over HTTP that does what it is asked for; lying_store.py serves it."""
import hashlib
import hmac
import re
import time
from datetime import datetime, timezone
from email.utils import formatdate
from urllib.parse import parse_qsl, quote_plus, unquote
from xml.etree import ElementTree
from xml.sax.saxutils import escape

from loopback_server import LoopbackConnection, Lost, lock

ACCESS, SECRET, TOKEN, REGION = 'CANARYACCESS', 'CANARYSECRET/+=', 'CANARYTOKEN', 'eu-test-1'
buckets = {}
XML = '<?xml version="1.0" encoding="UTF-8"?>\n'


class Refusal(Exception):
    def __init__(self, status, word, more=''):
        self.answer = error(status, word, more)


def error(status, word, more='', *fields):
    return (status, list(fields), f'{XML}<Error><Code>{word}</Code><Message>for {SECRET} and {TOKEN}'
            f'</Message>{more}</Error>'.encode())


class Object:
    def __init__(self, data, fields=(), tag=None):
        self.data, self.fields, self.time = data, list(fields), time.time()
        self.tag = tag or hashlib.md5(data).hexdigest()


class Bucket:
    def __init__(self):
        self.objects, self.uploads, self.asked, self.number = {}, {}, {}, 0


class Connection(LoopbackConnection):
    clock_offset = 0

    def answer(self):
        self.take()
        getattr(self, 'do_' + self.behaviour.replace('-', '_'), self.do_good)()

    def take(self):
        self.body = self.file.read(int(self.fields.get('content-length', 0)))
        self.signed = dict(self.fields)
        path, _, query = self.target.partition('?')
        self.query = dict(parse_qsl(query, keep_blank_values=True, encoding='utf-8',
                                    errors='surrogateescape'))
        name, _, key = path[1:].partition('/')
        self.key = unquote(key, errors='surrogateescape')
        self.behaviour = name.partition('.')[0]
        with lock:
            self.bucket = buckets.setdefault(name, Bucket())
            self.operation = self.name_of_operation()
            self.count = self.bucket.asked[self.operation] = \
                self.bucket.asked.get(self.operation, 0) + 1

    def look(self):
        """Past all lies and signatures, and past the log: /__object/BUCKET/KEY to read and write, /__uploads/BUCKET
        takes the keys of uploads that were begun, and /__knows/BEHAVIOUR is there or is not."""
        what, name, *key = self.target[3:].split('/', 2)
        bucket = buckets.setdefault(name, Bucket())
        body = self.file.read(int(self.fields.get('content-length', 0)))
        status, answer = 200, b''
        with lock:
            if what == 'uploads':
                answer = ''.join(upload[0] + '\n' for upload in bucket.uploads.values()).encode()
                bucket.uploads.clear()
            elif what == 'knows':
                status = 200 if hasattr(self, 'do_' + name.replace('-', '_')) else 404
            elif self.method == 'PUT':
                bucket.objects[key[0]] = Object(body)
            elif key[0] in bucket.objects:
                answer = bucket.objects[key[0]].data
            else:
                status = 404
        self.method = 'GET'
        self.send((status, [], answer))

    def name_of_operation(self):
        has = self.query.__contains__
        if not self.key:
            if self.method == 'POST' and has('delete'):
                return 'remove-many'
            return 'uploads' if has('uploads') else 'list' if has('list-type') else 'bucket'
        if self.method == 'POST':
            return 'begin' if has('uploads') else 'complete'
        if has('uploadId'):
            return 'abort' if self.method == 'DELETE' else 'part'
        if self.method == 'PUT':
            return 'copy' if 'x-amz-copy-source' in self.fields else 'put'
        return {'GET': 'get', 'HEAD': 'head', 'DELETE': 'remove'}[self.method]

    # What answers are made of.

    def send(self, answer, cut=None):
        status, fields, body = answer
        if not any(field.lower().startswith(('content-length', 'transfer-')) for field in fields):
            fields = [f'Content-Length: {len(body)}', *fields]
        date = formatdate(time.time() + self.clock_offset, usegmt=True)
        head = '\r\n'.join([f'HTTP/1.1 {status} Status', f'Date: {date}', *fields, '', ''])
        self.socket.sendall(head.encode('latin-1'))
        if self.method != 'HEAD':
            self.socket.sendall(body if cut is None else body[:cut])
        if cut is not None:
            raise Lost

    def document(self, root, content):
        return 200, ['Content-Type: application/xml'], \
            f'{XML}<{root} xmlns="http://s3.amazonaws.com/doc/2006-03-01/">{content}</{root}>'.encode(
                'utf-8', 'surrogateescape')

    # What the store does.

    def good(self):
        """The right answer; it is not sent yet."""
        with lock:
            try:
                self.check_signature()
                return getattr(self, 'on_' + self.operation.replace('-', '_'))()
            except Refusal as refusal:
                return refusal.answer

    def check_signature(self):
        if self.behaviour.startswith('open'):
            if 'authorization' in self.signed:
                raise Refusal(400, 'SomebodyAsks')
            return
        match = re.fullmatch(r'AWS4-HMAC-SHA256 Credential=(\w+)/(\d{8})/([\w-]+)/s3/aws4_request,'
                             r'SignedHeaders=([\w;-]+),Signature=(\w{64})',
                             self.signed.get('authorization', ''))
        if not match:
            raise Refusal(403, 'AccessDenied')
        access, day, region, names, signature = match.groups()
        moment = self.signed['x-amz-date']
        asked = datetime.strptime(moment, '%Y%m%dT%H%M%SZ').replace(tzinfo=timezone.utc)
        if abs(asked.timestamp() - time.time() - self.clock_offset) > 900:
            raise Refusal(403, 'RequestTimeTooSkewed')
        if access != ACCESS:
            raise Refusal(403, 'InvalidAccessKeyId')
        if region != REGION:
            raise Refusal(400, 'AuthorizationHeaderMalformed', f'<Region>{REGION}</Region>')
        digest = self.signed['x-amz-content-sha256']
        if digest not in ('UNSIGNED-PAYLOAD', hashlib.sha256(self.body).hexdigest()):
            raise Refusal(400, 'XAmzContentSHA256Mismatch')
        if any(name.startswith('x-amz-') and name not in names.split(';') for name in self.signed):
            raise Refusal(403, 'AccessDenied')
        path, _, query = self.target.partition('?')
        parameters = sorted(tuple((one + '=').split('=')[:2]) for one in query.split('&') if one)
        canonical = '\n'.join([
            self.method, path, '&'.join(f'{name}={value}' for name, value in parameters),
            *(f'{name}:{" ".join(self.signed[name].split())}' for name in names.split(';')), '',
            names, digest])
        scope = f'{day}/{region}/s3/aws4_request'
        text = '\n'.join(['AWS4-HMAC-SHA256', moment, scope,
                          hashlib.sha256(canonical.encode('latin-1')).hexdigest()])
        key = ('AWS4' + SECRET).encode()
        for part in (day, region, 's3', 'aws4_request', text):
            key = hmac.new(key, part.encode(), hashlib.sha256).digest()
        if key.hex() != signature or self.signed.get('x-amz-security-token', TOKEN) != TOKEN:
            raise Refusal(403, 'SignatureDoesNotMatch')

    def found(self):
        if self.key not in self.bucket.objects:
            raise Refusal(404, 'NoSuchKey')
        return self.bucket.objects[self.key]

    def upload(self):
        upload = self.bucket.uploads.get(self.query['uploadId'])
        if not upload or upload[0] != self.key:
            raise Refusal(404, 'NoSuchUpload')
        return upload

    def refuse_existing(self):
        if self.fields.get('if-none-match') == '*' and self.key in self.bucket.objects:
            raise Refusal(412, 'PreconditionFailed')

    def metadata(self):
        kept = ('cache-control', 'content-disposition', 'content-encoding', 'content-language',
                'content-type', 'expires')
        return [f'{k}: {v}' for k, v in self.fields.items()
                if k.startswith('x-amz-meta-') or k in kept]

    def on_bucket(self):
        return 200, [], b''

    def on_get(self):
        found = self.found()
        data, tag = found.data, f'"{found.tag}"'
        if self.fields.get('if-match', tag) != tag:
            raise Refusal(412, 'PreconditionFailed')
        mark = [f'ETag: {tag}', f'Last-Modified: {formatdate(found.time, usegmt=True)}',
                *found.fields]
        match = re.fullmatch(r'bytes=(\d*)-(\d+)', self.fields.get('range', ''))
        if not match:
            return 200, mark, data
        first, end = max(len(data) - int(match[2]), 0), len(data)
        if match[1]:
            first, end = int(match[1]), min(int(match[2]) + 1, len(data))
        if first >= len(data):
            raise Refusal(416, 'InvalidRange')
        return 206, [f'Content-Range: bytes {first}-{end - 1}/{len(data)}', *mark], data[first:end]

    on_head = on_get

    def on_put(self):
        self.refuse_existing()
        self.bucket.objects[self.key] = made = Object(self.body, self.metadata())
        return 200, [f'ETag: "{made.tag}"'], b''

    def source(self):
        name, _, key = unquote(self.fields['x-amz-copy-source']).lstrip('/').partition('/')
        found = buckets[name].objects.get(key) if name in buckets else None
        if not found:
            raise Refusal(404, 'NoSuchKey')
        tag = f'"{found.tag}"'
        if self.fields.get('x-amz-copy-source-if-match', tag) != tag:
            raise Refusal(412, 'PreconditionFailed')
        return found

    def on_copy(self):
        found = self.source()
        isNew = self.fields.get('x-amz-metadata-directive') == 'REPLACE'
        self.bucket.objects[self.key] = made = Object(
            found.data, self.metadata() if isNew else found.fields, found.tag)
        return self.document('CopyObjectResult', f'<ETag>"{made.tag}"</ETag>')

    def on_remove(self):
        self.bucket.objects.pop(self.key, None)
        return 204, [], b''

    def on_remove_many(self):
        if 'content-md5' not in self.fields:
            raise Refusal(400, 'InvalidRequest')
        for element in ElementTree.fromstring(self.body).iter():
            if element.tag.endswith('}Key'):
                self.bucket.objects.pop(element.text or '', None)
        return self.document('DeleteResult', '')

    def on_begin(self):
        self.bucket.number += 1
        upload = f'upload/{self.bucket.number}+'
        self.bucket.uploads[upload] = (self.key, time.time(), {}, self.metadata())
        return self.document('InitiateMultipartUploadResult', f'<UploadId>{upload}</UploadId>')

    def on_part(self):
        parts = self.upload()[2]
        number = int(self.query['partNumber'])
        if 'x-amz-copy-source' not in self.fields:
            parts[number] = self.body
            return 200, [f'ETag: "{hashlib.md5(self.body).hexdigest()}"'], b''
        match = re.fullmatch(r'bytes=(\d+)-(\d+)', self.fields['x-amz-copy-source-range'])
        parts[number] = self.source().data[int(match[1]):int(match[2]) + 1]
        return self.document('CopyPartResult',
                             f'<ETag>{hashlib.md5(parts[number]).hexdigest()}</ETag>')

    def on_complete(self):
        key, _, parts, fields = self.upload()
        self.refuse_existing()
        data, digests = b'', b''
        for element in ElementTree.fromstring(self.body):
            number, tag = (child.text for child in element)
            digest = hashlib.md5(parts[int(number)])
            if tag.strip('"') != digest.hexdigest():
                raise Refusal(400, 'InvalidPart')
            data, digests = data + parts[int(number)], digests + digest.digest()
        tag = f'{hashlib.md5(digests).hexdigest()}-{len(digests) // 16}'
        self.bucket.objects[key] = Object(data, fields, tag)
        del self.bucket.uploads[self.query['uploadId']]
        return self.document('CompleteMultipartUploadResult', f'<ETag>&quot;{tag}&quot;</ETag>')

    def on_abort(self):
        self.upload()
        del self.bucket.uploads[self.query['uploadId']]
        return 204, [], b''

    def on_uploads(self):
        stamp = '%Y-%m-%dT%H:%M:%S.000Z'
        return self.document('ListMultipartUploadsResult', ''.join(
            f'<Upload><Key>{escape(key)}</Key><UploadId>{upload}</UploadId><Initiated>'
            f'{time.strftime(stamp, time.gmtime(begun))}</Initiated></Upload>'
            for upload, (key, begun, _, _) in self.bucket.uploads.items()
            if key.startswith(self.query['prefix'])))

    def on_list(self, keys=None, entry=None):
        prefix, delimiter = self.query.get('prefix', ''), self.query.get('delimiter')
        most = int(self.query.get('max-keys', 1000))
        after = self.query.get('continuation-token') or self.query.get('start-after', '')
        content, count, last = '', 0, None
        for key in sorted(self.bucket.objects) if keys is None else keys:
            shown, is_prefix = key, bool(delimiter) and delimiter in key[len(prefix):]
            if is_prefix:
                shown = key[:key.index(delimiter, len(prefix)) + 1]
            if not key.startswith(prefix) or key <= after or shown == last or \
                    (delimiter and after.endswith('/') and key.startswith(after)):
                continue
            if count == most:
                token = escape(last)
                content += f'<NextContinuationToken>{token}</NextContinuationToken>'
                break
            count, last = count + 1, shown
            content += (entry or self.entry)(shown, is_prefix)
        truncated = 'true' if 'NextContinuationToken' in content else 'false'
        return self.document('ListBucketResult', f'<EncodingType>url</EncodingType>'
                             f'<IsTruncated>{truncated}</IsTruncated>{content}')

    def entry(self, key, is_prefix):
        name = quote_plus(key.encode('utf-8', 'surrogateescape'), safe='/')
        if is_prefix:
            return f'<CommonPrefixes><Prefix>{name}</Prefix></CommonPrefixes>'
        found = self.bucket.objects.get(key) or Object(b'')
        return (f'<Contents><Key>{name}</Key><LastModified>2024-06-01T10:00:00.250Z</LastModified>'
                f'<ETag>&quot;{found.tag}&quot;</ETag><Size>{len(found.data)}</Size></Contents>')

    def do_good(self):
        self.send(self.good())

    do_open = do_good
