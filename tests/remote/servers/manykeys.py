#!/usr/bin/env python3
"""A bucket that holds so many keys that nobody stores them.   manykeys.py PORT COUNT

Answers ListObjectsV2 (prefix "", start-after and continuation-token known) for any bucket, a page at a time, and
nothing else. The keys are folder-0000/file-0000000 and so on, a thousand in each folder.
"""
import http.server, sys, urllib.parse

PORT, COUNT = int(sys.argv[1]), int(sys.argv[2])
HEAD = '<?xml version="1.0" encoding="UTF-8"?><ListBucketResult xmlns="http://s3.amazonaws.com/doc/2006-03-01/">'
ENTRY = ('<Contents><Key>{}</Key><LastModified>2024-02-03T04:05:06.000Z</LastModified>'
         '<ETag>&quot;d41d8cd98f00b204e9800998ecf8427e&quot;</ETag><Size>{}</Size>'
         '<StorageClass>STANDARD</StorageClass></Contents>')


def key(number):
    return f"folder-{number // 1000:04}/file-{number:07}"


def first_behind(name):
    low, high = 0, COUNT
    while low < high:
        middle = (low + high) // 2
        low, high = (middle + 1, high) if key(middle) <= name else (low, middle)
    return low


class Handler(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"

    def answer(self, body):
        self.send_response(200)
        self.send_header("Content-Type", "application/xml")
        self.send_header("Content-Length", str(len(body)))
        self.end_headers()
        self.wfile.write(body)

    def do_HEAD(self):
        self.answer(b"")

    def do_GET(self):
        asked = dict(urllib.parse.parse_qsl(urllib.parse.urlsplit(self.path).query))
        if asked.get("prefix") or asked.get("delimiter") or "list-type" not in asked:
            return self.send_error(501)
        most = min(int(asked.get("max-keys", "1000")), 1000)
        begin = int(asked.get("continuation-token", first_behind(asked.get("start-after", ""))))
        end = min(begin + most, COUNT)
        parts = [HEAD, f"<Name>many</Name><Prefix></Prefix><MaxKeys>{most}</MaxKeys><KeyCount>{end - begin}</KeyCount>"]
        parts += [ENTRY.format(key(i), i) for i in range(begin, end)]
        if end < COUNT:
            parts.append(f"<IsTruncated>true</IsTruncated><NextContinuationToken>{end}</NextContinuationToken>")
        else:
            parts.append("<IsTruncated>false</IsTruncated>")
        self.answer("".join(parts + ["</ListBucketResult>"]).encode())

    def log_message(self, *ignored):
        pass


http.server.ThreadingHTTPServer.daemon_threads = True
http.server.ThreadingHTTPServer(("127.0.0.1", PORT), Handler).serve_forever()
