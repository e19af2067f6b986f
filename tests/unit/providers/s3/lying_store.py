"""An object store over HTTP, good and bad; see loopback_server.py for how it is run.

The name of a bucket is how it behaves, up to the first dot; it comes to be when it is first named.
Every signature is checked, but for those of buckets that are `open`."""
import os
import sys
import time
from urllib.parse import unquote

sys.dont_write_bytecode = True  # beside the sources
here = os.path.dirname(os.path.abspath(__file__))
sys.path[:0] = [here, os.path.dirname(here)]  # which an isolated interpreter leaves out
from loopback_server import Lost, content, ports, serve
from lying_reads import LyingReads
from true_store import ACCESS, SECRET, TOKEN, Object, error


class LyingConnection(LyingReads):
    # Trouble with any question.

    def do_busy_twice(self):
        self.distorted(self.operation, lambda: self.send(error(503, 'SlowDown')), 2)

    def do_always_busy(self):
        self.send(error(503, 'SlowDown'))

    def do_refused_twice(self):
        """As if the bytes had come slowly: a status that passes though it does not look so."""
        self.distorted(self.operation, lambda: self.send(error(400, 'RequestTimeout')), 2)

    def do_never_answers(self):
        time.sleep(60)

    def do_resets(self):
        self.reset()

    def do_cuts_heads(self):
        """The first two to each kind of question, behind the first field."""
        def make():
            self.good()
            self.socket.sendall(b'HTTP/1.1 200 Status\r\nServer: x\r\nCont')
            raise Lost
        self.distorted(self.operation, make, 2)

    def do_resets_once(self):
        self.distorted(self.operation, self.reset, 1)

    def do_elsewhere(self):
        self.send(error(301, 'PermanentRedirect', '<Endpoint>x</Endpoint>',
                        'x-amz-bucket-region: mars-north-1'))

    def do_elsewhere_and_says_where(self):
        self.send(error(307, 'TemporaryRedirect', '',
                        f'Location: http://127.0.0.1:{ports[1]}/good/a'))

    def do_elsewhere_untold(self):
        self.send((301, [], b''))

    def do_takes_its_time(self):
        time.sleep(0.5)
        self.send(self.good())

    def do_an_hour_ahead(self):
        self.clock_offset = 3600
        self.send(self.good())

    def do_echoes(self):
        """Sends what it knows of the secrets back wherever there is room."""
        word = [SECRET, TOKEN, ACCESS, self.fields.get('authorization', '')][self.count % 4]
        self.send(error(403, word, f'<Region>{word}</Region>', f'x-amz-bucket-region: {TOKEN}'))

    # Listing.

    def listed(self, answer, times=1 << 30):
        self.distorted('list', lambda: self.send(answer() if callable(answer) else answer), times)

    def do_token_that_stays(self):
        def make():
            token = self.query.get('continuation-token', 'same')
            return self.document('ListBucketResult', '<IsTruncated>true</IsTruncated>'
                                 f'<NextContinuationToken>{token}</NextContinuationToken>')
        self.listed(make)

    def without_end(self, token, content=''):
        """Behind the first page."""
        def make():
            if 'continuation-token' not in self.query:
                return self.document('ListBucketResult', '<EncodingType>url</EncodingType>'
                                     f'<IsTruncated>true</IsTruncated>{self.entry("d/x", False)}'
                                     '<NextContinuationToken>A</NextContinuationToken>')
            return self.document('ListBucketResult', '<EncodingType>url</EncodingType>'
                                 f'<IsTruncated>true</IsTruncated>{content}'
                                 f'<NextContinuationToken>{token}</NextContinuationToken>')
        self.listed(make)

    def do_empty_pages_for_ever(self):
        self.without_end(f't{self.count}')

    def do_tokens_in_a_circle(self):
        self.without_end('A' if self.query.get('continuation-token') == 'B' else 'B')

    def do_same_keys_for_ever(self):
        self.without_end(f't{self.count}', self.entry('d/x', False))

    def do_empty_pages_first(self):
        """Three of them, as where much was removed."""
        def make():
            token = self.query.get('continuation-token', 'xxx')
            if not token:
                return self.on_list()
            self.query['continuation-token'] = token[1:]
            if token == 'x':
                self.query.pop('continuation-token')
                return self.on_list()
            return self.document('ListBucketResult', '<IsTruncated>true</IsTruncated>'
                                 f'<NextContinuationToken>{token[1:]}</NextContinuationToken>')
        self.listed(make)

    def do_fails_at_page_2_once(self):
        if self.operation == 'list' and 'continuation-token' in self.query and \
                not hasattr(self.bucket, 'has_failed'):
            self.bucket.has_failed = True
            self.send(error(403, 'AccessDenied'))
        else:
            self.send(self.good())

    def do_fails_at_page_3_and_removes_slowly(self):
        if self.operation == 'list' and self.count == 3:
            self.send(error(403, 'AccessDenied'))
            return
        if self.operation == 'remove-many':
            time.sleep(0.3)
        self.send(self.good())

    def do_stalls_at_page_2(self):
        if self.operation == 'list' and 'continuation-token' in self.query:
            time.sleep(60)
        self.send(self.good())

    def do_token_that_lacks(self):
        self.listed(self.document('ListBucketResult', '<IsTruncated>true</IsTruncated>'))

    def do_end_unsaid(self):
        self.listed(self.document('ListBucketResult', ''))

    def do_starts_anew(self):
        self.query.pop('start-after', '')
        self.listed(lambda: self.on_list(['a', 'b']))

    def do_lists_more(self):
        self.query['max-keys'] = '9'
        self.listed(lambda: self.on_list(list('abcdefghij')))

    def do_lists_others(self):
        self.query.pop('prefix', None)
        self.listed(lambda: self.on_list(['x/a']))

    def do_lists_deep(self):
        self.query.pop('delimiter', None)
        self.listed(lambda: self.on_list(['a/b/c']))

    def do_lists_prefixes(self):
        self.listed(self.document('ListBucketResult', '<IsTruncated>false</IsTruncated>'
                                  '<CommonPrefixes><Prefix>a</Prefix></CommonPrefixes>'))

    def do_lists_without_size(self):
        self.listed(lambda: self.on_list(['a'], lambda *_: '<Contents><Key>a</Key></Contents>'))

    def do_lists_a_malformed_time(self):
        self.listed(lambda: self.on_list(['a'], lambda *_: self.entry('a', False).replace(
            '2024-06-01', '2024-02-30')))

    def do_lists_times_beyond_any(self):
        """Of the year 0 and of the last one that can be written."""
        times = {'a': '0000-01-01T00:00:00Z', 'b': '9999-12-31T23:59:59.999999999999Z'}
        self.listed(lambda: self.on_list(['a', 'b'], lambda key, _: self.entry(key, False).replace(
            '2024-06-01T10:00:00.250Z', times[key])))

    def do_lists_a_tag_of_two_lines(self):
        self.listed(lambda: self.on_list(['a'], lambda *_: self.entry('a', False).replace(
            '<ETag>', '<ETag>x&#13;&#10;Range: bytes=0-0')))

    def do_lists_badly_encoded(self):
        self.listed(lambda: self.on_list(['a'], lambda *_: self.entry('a', False).replace(
            '>a<', '>%4g<')))

    def do_lists_hostile_names(self):
        self.listed(lambda: self.on_list(['../../etc/passwd', '.', '/etc/passwd', '//', 'a\0b']))

    def do_lists_plain(self):
        """Knows no encoding of names."""
        self.listed(lambda: (200, [], self.on_list(['a+b%41'], lambda *_: self.entry(
            'a', False).replace('>a<', '>a+b%41<'))[2].replace(b'<EncodingType>url</EncodingType>',
                                                              b'')))

    def do_bomb(self):
        self.listed((200, [], (
            '<?xml version="1.0"?><!DOCTYPE l [<!ENTITY a "aaaaaaaaaa">' + ''.join(
                f'<!ENTITY {chr(98 + i)} "{f"&{chr(97 + i)};" * 10}">' for i in range(9)) +
            ']><ListBucketResult><IsTruncated>false</IsTruncated><Contents><Key>&j;</Key><Size>1</Size>'
            '</Contents></ListBucketResult>').encode()))

    def do_deep(self):
        self.listed((200, [], b'<ListBucketResult>' + b'<a>' * 1_000_000))

    def do_endless(self):
        def make():
            self.send((200, ['Transfer-Encoding: chunked'], b''))
            piece = b'<ListBucketResult>' + b'<Contents></Contents>' * 5000
            while True:
                self.socket.sendall(b'%x\r\n' % len(piece) + piece + b'\r\n')
        self.distorted('list', make)

    def do_no_xml(self):
        self.listed((200, [], b'Welcome to the hotel. <a href=login>Log in'))

    def do_another_document(self):
        self.listed(self.document('ListAllMyBucketsResult', ''))

    def do_empty_documents(self):
        self.listed((200, [], b''))

    def do_lists_an_error(self):
        self.listed((200, [], error(200, 'InternalError')[2]))

    def do_lists_an_error_once(self):
        self.listed((200, [], error(200, 'InternalError')[2]), 1)

    def do_breaks_off_once(self):
        self.distorted('list', lambda: self.send(self.good(), cut=100), 1)

    # Writing.

    def lost(self, operation, times=1, is_done=True):
        def make():
            if is_done:
                self.good()
            raise Lost
        self.distorted(operation, make, times)

    def do_loses_the_answer_to_put(self):
        self.lost('put')

    def do_loses_put(self):
        self.lost('put', is_done=False)

    def do_loses_all_of_put(self):
        self.lost('put', times=99)

    def do_fails_behind_put(self):
        def make():
            self.good()
            self.send(error(500, 'InternalError'))
        self.distorted('put', make, 1)

    def do_loses_put_to_another(self):
        def make():
            self.bucket.objects[self.key] = Object(self.query.get('other', b'other'))
            raise Lost
        self.distorted('put', make, 1)

    def do_loses_put_to_an_older_one(self):
        """The same bytes, that were there long before."""
        def make():
            self.bucket.objects[self.key] = older = Object(self.body)
            older.time -= 60
            raise Lost
        self.distorted('put', make, 1)

    def do_has_tags_of_its_own(self):
        """As of encrypted objects; and loses the answer to a put and to the end of an upload."""
        def make():
            self.good()
            self.bucket.objects[self.key].tag = '0123456789abcdef' * 2
            raise Lost
        if self.operation in ('put', 'complete') and self.count == 1:
            make()
        self.send(self.good())

    def do_conflicts_once(self):
        self.distorted('put', lambda: self.send(error(409, 'ConditionalRequestConflict')), 1)

    def do_knows_no_conditions(self):
        if 'if-none-match' in self.fields:
            self.send(error(501, 'NotImplemented'))
        else:
            self.send(self.good())

    def do_is_full(self):
        self.distorted('put', lambda: self.send(error(403, 'QuotaExceeded')))

    def do_takes_small_ones(self):
        self.distorted('put', lambda: self.send(error(400, 'EntityTooLarge')))

    def do_loses_the_answer_to_begin(self):
        self.lost('begin')

    def do_loses_begin(self):
        self.lost('begin', is_done=False)

    def do_loses_all_answers_to_begin(self):
        self.lost('begin', times=99)

    def do_begins_without_a_name(self):
        def make():
            self.good()
            self.send(self.document('InitiateMultipartUploadResult', ''))
        self.distorted('begin', make, 1)

    def do_begins_late(self):
        """What was asked first is done when nobody waits for it any more."""
        if self.operation == 'begin' and self.count == 1:
            raise Lost
        if self.operation == 'begin' and self.count == 2:
            self.on_begin()
        self.send(self.good())

    def do_others_begin_too(self):
        """Somebody else writes the same key at the same moment, twice."""
        def make():
            for _ in range(2):
                self.on_begin()
            raise Lost
        self.distorted('begin', make, 1)

    def do_loses_the_answer_to_complete(self):
        self.lost('complete')

    def do_loses_complete(self):
        self.lost('complete', is_done=False)

    def do_completes_with_an_error(self):
        def make():
            self.send((200, [], b' \n ' + error(200, 'InternalError')[2]))
        self.distorted('complete', make, 1)

    def do_always_completes_with_an_error(self):
        self.distorted('complete', lambda: self.send((200, [], error(200, 'InternalError')[2])))

    def do_completes_late(self):
        """The answer is lost; the object is there only when it is asked for the second time."""
        def make():
            self.good()
            self.bucket.late = self.bucket.objects.pop(self.key)
            raise Lost
        if self.operation == 'complete' and self.count == 1:
            make()
        if self.operation == 'complete':
            self.bucket.late.time = time.time()
            self.bucket.objects[self.key] = self.bucket.late
        self.send(self.good())

    def do_loses_parts(self):
        self.distorted('part', self.reset, 2)

    def do_spoils_parts_on_the_way(self):
        self.distorted('part', lambda: self.send(error(400, 'BadDigest')), 1)

    def do_parts_without_tags(self):
        self.distorted('part', lambda: self.send((200, [], b'')))

    def do_copies_with_an_error(self):
        self.distorted('copy', lambda: self.send((200, [], error(200, 'SlowDown')[2])), 2)

    def do_always_copies_with_an_error(self):
        self.distorted('copy', lambda: self.send((200, [], error(200, 'InternalError')[2])))

    def do_others_write_behind_a_copied_part(self):
        """And it does not look at the tag of what it copies."""
        answer = None
        if 'x-amz-copy-source' in self.fields and self.operation == 'part':
            self.fields.pop('x-amz-copy-source-if-match', None)
            answer = self.good()
            key = unquote(self.fields['x-amz-copy-source']).lstrip('/').partition('/')[2]
            self.bucket.objects[key] = Object(b'N' * (9 << 20))
        self.send(answer or self.good())

    def do_others_write_behind_a_copy(self):
        answer = self.good()
        if self.operation == 'copy':
            key = unquote(self.fields['x-amz-copy-source']).lstrip('/').partition('/')[2]
            self.bucket.objects[key] = Object(b'theirs')
        self.send(answer)

    def do_forgets_what_is_to_be_copied(self):
        if self.operation == 'copy' and self.key.endswith('/b'):
            key = unquote(self.fields['x-amz-copy-source']).lstrip('/').partition('/')[2]
            self.bucket.objects.pop(key)
        self.send(self.good())

    def do_refuses_copies_to_b(self):
        if self.operation == 'copy' and self.key.endswith('/b'):
            self.send(error(403, 'AccessDenied'))
        else:
            self.send(self.good())

    def do_others_write_below_behind_a_copy(self):
        """A new file beside the one that was copied."""
        answer = self.good()
        if self.operation == 'copy':
            self.bucket.objects['a/new'] = Object(b'theirs')
        self.send(answer)

    def do_copies_slowly(self):
        answer = self.good()
        if self.operation == 'copy':
            time.sleep(0.5)
        self.send(answer)

    def do_takes_parts_for_ever(self):
        if self.operation == 'part':
            time.sleep(60)
        self.send(self.good())

    def do_refuses_parts(self):
        self.distorted('part', lambda: self.send(error(403, 'QuotaExceeded')))

    def do_refuses_complete(self):
        self.distorted('complete', lambda: self.send(error(403, 'AccessDenied')))

    def gone_for_a_while_behind(self, operation):
        """The answer is lost, and nothing can be asked until somebody lists uploads."""
        if self.operation == operation and self.count == 1:
            self.good()
            self.bucket.is_gone = True
            raise Lost
        if self.operation == 'uploads':
            self.bucket.is_gone = False
        if getattr(self.bucket, 'is_gone', False):
            self.send(error(403, 'AccessDenied'))
        else:
            self.send(self.good())

    def do_completes_and_is_gone_for_a_while(self):
        self.gone_for_a_while_behind('complete')

    def do_puts_and_is_gone_for_a_while(self):
        self.gone_for_a_while_behind('put')

    def do_loses_removals(self):
        if self.operation in ('remove', 'remove-many'):
            self.good()
            self.send(error(403, 'AccessDenied'))
        else:
            self.send(self.good())

    def do_refuses_complete_once(self):
        self.distorted('complete', lambda: self.send(error(403, 'AccessDenied')), 1)

    def do_copies_parts_with_an_error(self):
        self.distorted('part', lambda: self.send((200, [], error(200, 'InternalError')[2])), 1)

    def refusing(self, word, key):
        return self.document('DeleteResult', f'<Error><Key>{key}</Key><Code>{word}</Code></Error>')

    def do_keeps_b(self):
        self.distorted('remove-many', lambda: self.send(self.refusing('AccessDenied', 'b')))

    def do_keeps_b_once(self):
        self.distorted('remove-many', lambda: self.send(self.refusing('SlowDown', 'b')), 1)

    def do_keeps_another(self):
        self.distorted('remove-many', lambda: self.send(self.refusing('AccessDenied', 'x')))

    def do_keeps_what_is_called_b(self):
        """And removes the rest."""
        def make():
            kept = [key for key in self.bucket.objects if key.endswith('/b')]
            copies = {key: self.bucket.objects[key] for key in kept}
            self.good()
            self.bucket.objects.update(copies)
            self.send(self.refusing('AccessDenied', kept[0]))
        self.distorted('remove-many', make)

    def do_misses_b(self):
        self.distorted('remove-many', lambda: self.send(self.refusing('NoSuchKey', 'b')))


serve(LyingConnection)
