#!/usr/bin/env python3
"""Makes zip archives by hand, good and bad ones: make_archives.py FOLDER

Beside each NAME.zip stands NAME.expected, with what a reader is to make of it: a line for each entry,
in the order of a recursive listing, or one line for all of it.

    folder/         a folder
    file=content    a file
    file!9          a file that is refused with this code when it is opened
    file!read       a file whose reading fails
    link->target    a link
    !9              an archive that is refused with this code
"""
import bz2
import lzma
import struct
import sys
import zlib
from pathlib import Path

STORED, DEFLATED, BZIP2, OLD_ZSTD, ZSTD, XZ = 0, 8, 12, 20, 93, 95
UTF8, ENCRYPTED, DESCRIPTOR = 1 << 11, 1, 1 << 3
UNIX = 3 << 8
IS16, IS32 = 0xFFFF, 0xFFFFFFFF


METHODS = ((STORED, "stored"), (DEFLATED, "deflated"), (BZIP2, "bzip2"), (ZSTD, "zstd"), (XZ, "xz"))


def compress(method, data):
    if method == DEFLATED:
        coder = zlib.compressobj(1, zlib.DEFLATED, -15)
        return coder.compress(data) + coder.flush()
    if method == BZIP2:
        return bz2.compress(data, 1)
    if method == XZ:
        return lzma.compress(data, preset=0)
    if method in (OLD_ZSTD, ZSTD):
        return zstd(data)
    return data


def zstd(data, window=0):
    """A frame of raw blocks (RFC 8878), with a window of at least a KiB."""
    blocks = [data[at:at + 1024] for at in range(0, len(data), 1024)] or [b""]
    frame = struct.pack("<IBB", 0xFD2FB528, 0, window << 3)
    for number, block in enumerate(blocks):
        frame += struct.pack("<I", len(block) << 3 | (number == len(blocks) - 1))[:3] + block
    return frame


class Member:
    """What is not given is as a tool would write it; `local` overrides what stands before the content."""

    def __init__(self, name, data=b"", method=STORED, flags=0, mode=None, extra=b"", local=None, **given):
        self.name = name if isinstance(name, bytes) else name.encode()
        self.raw = given.pop("raw", None)
        if self.raw is None:
            self.raw = compress(method, data)
        self.fields = {
            "made": UNIX | 20 if mode is not None else 20,
            "need": 20, "flags": flags, "method": method, "time": 0, "date": 0x5A21,
            "crc": zlib.crc32(data), "stored": len(self.raw), "size": len(data),
            "disk": 0, "internal": 0, "external": (mode or 0) << 16, "offset": None,
        }
        self.extra = extra
        self.comment = given.pop("comment", b"")
        self.fields.update(given)
        self.local = {"name": self.name, "extra": b""}
        self.local.update(local or {})

    def header(self):
        f = {**self.fields, **self.local}
        if f["flags"] & DESCRIPTOR and "crc" not in self.local:
            f.update(crc=0, stored=0, size=0)
        return struct.pack("<4sHHHHHIIIHH", f.get("signature", b"PK\3\4"), f["need"], f["flags"], f["method"],
                           f["time"], f["date"], f["crc"], f["stored"] & IS32, f["size"] & IS32,
                           len(f["name"]), len(f["extra"])) + f["name"] + f["extra"]

    def descriptor(self):
        if not self.fields["flags"] & DESCRIPTOR:
            return b""
        return struct.pack("<4sIII", b"PK\7\x08", self.fields["crc"], self.fields["stored"], self.fields["size"])

    def central(self, offset):
        f = self.fields
        return struct.pack("<4sHHHHHHIIIHHHHHII", b"PK\1\2", f["made"], f["need"], f["flags"], f["method"],
                           f["time"], f["date"], f["crc"], f["stored"], f["size"], len(self.name),
                           len(self.extra), len(self.comment), f["disk"], f["internal"], f["external"],
                           offset if f["offset"] is None else f["offset"]) + self.name + self.extra + self.comment


def archive(*members, comment=b"", before=b"", **given):
    body, central = bytearray(), bytearray()
    for member in members:
        central += member.central(len(body))
        body += member.header() + member.raw + member.descriptor()
    end = {"disk": 0, "start": 0, "here": len(members) & IS16, "count": len(members) & IS16,
           "size": len(central), "offset": len(body), "comment": len(comment)}
    end.update(given)
    return before + bytes(body) + bytes(central) + struct.pack(
        "<4sHHHHIIH", b"PK\5\6", end["disk"], end["start"], end["here"], end["count"],
        end["size"], end["offset"], end["comment"]) + comment


def large(*members, before=b""):
    """The same with the records for large archives, and the old ones full of what says so."""
    body, central = bytearray(), bytearray()
    for member in members:
        member.extra = struct.pack("<HHQQQ", 1, 24, member.fields["size"], member.fields["stored"], len(body))
        member.fields.update(size=IS32, stored=IS32, offset=IS32)
        member.local.update(size=0, stored=0)
        central += member.central(0)
        body += member.header() + member.raw
    record = struct.pack("<4sQHHIIQQQQ", b"PK\6\6", 44, 45, 45, 0, 0, len(members), len(members),
                         len(central), len(body))
    locator = struct.pack("<4sIQI", b"PK\6\7", 0, len(body) + len(central), 1)
    end = struct.pack("<4sHHHHIIH", b"PK\5\6", IS16, IS16, IS16, IS16, IS32, IS32, 0)
    return before + bytes(body) + bytes(central) + record + locator + end


def unicode_path(name, path, crc=None):
    field = b"\1" + struct.pack("<I", zlib.crc32(name) if crc is None else crc) + path.encode()
    return struct.pack("<HH", 0x7075, len(field)) + field


def shown(path, data):
    return f"{path}={data.decode()}"


TEXT = b"some text, some more text, and some text again"
ZEROS = bytes(1024 * 1024)
BIG = b"".join(b"%d\n" % n for n in range(800_000))  # more than is decoded as a whole


def good():
    yield "empty", archive(), []
    yield "no bytes", b"", []
    yield "stored", archive(Member("a", TEXT)), [shown("a", TEXT)]
    yield "one member", archive(Member("a", b"1")), ["a=1"]
    yield "one other member", archive(Member("b", b"2")), ["b=2"]
    yield "empty files", archive(Member("a"), Member("b", method=DEFLATED)), ["a=", "b="]
    for number, name in (*METHODS[1:], (OLD_ZSTD, "zstd by its old number")):
        yield name, archive(Member("a", TEXT, number), Member("b", b"x", number)), [shown("a", TEXT), "b=x"]
    yield "folders", archive(Member("d/"), Member("d/e/f", b"1"), Member("d/g", b"2")), [
        "d/", "d/e/", "d/e/f=1", "d/g=2"]
    yield "folder behind its contents", archive(Member("d/f", b"1"), Member("d/")), ["d/", "d/f=1"]
    yield "folder by its mode", archive(Member("d", mode=0o40755), Member("d/f", b"1")), ["d/", "d/f=1"]
    yield "data descriptors", archive(Member("a", TEXT, DEFLATED, DESCRIPTOR), Member("b", b"2", STORED, DESCRIPTOR)), [
        shown("a", TEXT), "b=2"]
    yield "comment", archive(Member("a", b"1"), comment=b"a comment"), ["a=1"]
    yield "long comment", archive(Member("a", b"1"), comment=b"c" * 65535), ["a=1"]
    yield "comment with an archive", archive(Member("a", b"1"), comment=archive(Member("b", b"2"))), ["b=2"]
    yield "comment with an empty end", archive(Member("a", b"1"), comment=b"PK\5\6" + bytes(18) + b" text"), ["a=1"]
    yield "comment with an end of text", archive(
        Member("a", b"1"), comment=b"see PK\5\6 in the format description" + bytes(40)), ["a=1"]
    yield "something behind", archive(Member("a", b"1")) + b"behind", ["a=1"]
    yield "something before", archive(Member("a", b"1"), before=b"#!/bin/sh\nexit 0\n"), ["a=1"]
    yield "archive before", archive(Member("b", b"2"), before=archive(Member("a", b"1"))), ["b=2"]
    yield "comments of members", archive(
        Member("a", b"1", comment=b"of the first"), Member(b"\x81", b"2", comment=b"\x81ber"), Member("é", b"3", flags=UTF8,
        comment="für".encode())), ["a=1", "ü=2", "é=3"]
    yield "large numbers", large(Member("a", TEXT, DEFLATED), Member("b", b"2")), [shown("a", TEXT), "b=2"]
    yield "large numbers behind something", large(Member("a", b"1"), before=b"before"), ["a=1"]
    yield "links", archive(Member("link", b"d/f", mode=0o120777), Member("d/f", b"1"), Member("d/up", b"../link", mode=0o120777)), [
        "link->d/f", "d/", "d/f=1", "d/up->../link"]
    yield "names with a dot", archive(Member("./"), Member("./a", b"1"), Member("./d/"), Member("d/./f/.//", b"")), [
        "a=1", "d/", "d/f/"]
    yield "a dot before an implied folder", archive(Member("./"), Member("./d/f", b"1")), ["d/", "d/f=1"]
    yield "a dot alone", archive(Member("."), Member("a/.", b"")), ["a/"]
    yield "links to nothing", archive(
        Member("d/"), Member("to nothing", b"d/nothing", mode=0o120777), Member("to nothing in nothing", b"d/e/f", mode=0o120777),
        Member("to itself", b"to itself", mode=0o120777), Member("empty", b"", mode=0o120777), Member("f", b"1"),
        Member("to f as a folder", b"f/", mode=0o120777), Member("to d as a folder", b"d/", mode=0o120777)), [
        "d/", "to nothing->d/nothing", "to nothing in nothing->d/e/f", "to itself->to itself", "empty->", "f=1",
        "to f as a folder->f/", "to d as a folder->d/"]
    yield "unicode names", archive(Member("é/日本", b"1", flags=UTF8)), ["é/", "é/日本=1"]
    yield "code page 437", archive(Member(b"\x81ber\xe1", b"1")), ["überß=1"]
    yield "code page 437 without a gap", archive(Member(b"\x81\x81\x81\x81"), Member(b"\x82\x82", b"x")), ["üüüü=", "éé=x"]
    yield "bytes of unix", archive(Member("é".encode(), b"1", mode=0o100644), Member(b"\x81", b"2", mode=0o100644)), [
        "é=1", "\\x81=2"]
    yield "unicode extra field without a gap", archive(
        Member(b"?", extra=unicode_path(b"?", "日本日本日本")), Member(b"b", b"x")), ["日本日本日本=", "b=x"]
    yield "unicode extra field", archive(Member(b"?", b"1", extra=unicode_path(b"?", "日本"))), ["日本=1"]
    yield "unicode extra field of another name", archive(Member(b"?", b"1", extra=unicode_path(b"?", "x", crc=7))), ["?=1"]
    yield "names of bytes", archive(Member(b"\xff\xfe", b"1", flags=UTF8)), ["\\xff\\xfe=1"]
    yield "names that are odd but good", archive(
        Member("back\\slash", b"1"), Member("c:drive", b"2"), Member("tab\t", b"3"), Member("...", b"4"), Member(" ", b"5")), [
        "back\\slash=1", "c:drive=2", "tab\t=3", "...=4", " =5"]
    yield "names with two slashes", archive(Member("./d//e", b"1"), Member(".//a", b"2"), Member("x//", b"")), [
        "d/", "d/e=1", "a=2", "x/"]


def misleading():
    """Names that no tree has are left out, and the rest is read."""
    rest = Member("rest", b"r")
    for name in ("../x", "/x", "//x", "a/../../x", "a/../x", "/./x", "./../x", "..", "/", "a/..",
                 "x\0y", "a\0/x", ""):
        title = "left out " + (name.replace("/", "_").replace("\0", "NUL") or "nothing")
        yield title, archive(Member(name, b"1"), rest), ["rest=r"]
    yield "same name twice", archive(Member("a", b"1"), Member("a", b"2")), ["a=2"]
    yield "file below a file", archive(Member("a", b"1"), Member("a/b", b"2")), ["a=1"]
    yield "file in the place of a folder", archive(Member("a/b", b"2"), Member("a", b"1")), ["a/", "a/b=2"]
    yield "folder in the place of a file", archive(Member("a", b"1"), Member("a/")), ["a=1"]
    yield "links out", archive(Member("up", b"../../etc", mode=0o120777), Member("abs", b"/etc/passwd", mode=0o120777)), [
        "up->../../etc", "abs->/etc/passwd"]


def refused():
    a = Member("a", TEXT, DEFLATED)
    yield "not an archive", b"this is text, and nothing else at all, really", ["!9"]
    yield "one byte", b"P", ["!9"]
    yield "end alone cut short", archive()[:-1], ["!9"]
    yield "directory behind the end", archive(a, offset=10_000), ["!9"]
    yield "directory larger than the item", archive(a, size=1_000_000), ["!9"]
    yield "directory shorter than its headers", archive(a, size=50), ["!9"]
    yield "more members than told", archive(Member("a", b"1"), Member("b", b"2"), here=1, count=1), ["!9"]
    yield "fewer members than told", archive(Member("a", b"1"), here=2, count=2), ["!9"]
    yield "directory of zeros", archive(before=bytes(46), size=46, here=1, count=1), ["!9"]
    yield "several volumes", archive(a, disk=1), ["!11"]
    yield "several volumes by the start", archive(a, start=2), ["!11"]
    yield "encrypted directory", archive(Member("a", TEXT, flags=1 << 13)), ["!11"]
    yield "member behind the end", archive(Member("a", TEXT, offset=1_000_000)), ["!9"]
    yield "member longer than the item", archive(Member("a", TEXT, stored=1_000_000, size=1_000_000)), ["!9"]
    yield "large numbers without a field", archive(Member("a", TEXT, size=IS32)), ["!9"]
    yield "large records without a record", archive(a, offset=IS32), ["!9"]
    one, two = Member("a", TEXT), Member("b", TEXT, offset=0)
    yield "overlapping members", archive(one, two), ["!9"]
    yield "members that overlap by a byte", archive(
        Member("a", TEXT, stored=len(TEXT) + 1), Member("b", TEXT)), ["!9"]
    kernel = Member("a", ZEROS, DEFLATED)
    yield "bomb of one kernel", archive(kernel, *[Member(f"b{n}", raw=b"", method=DEFLATED, offset=0,
        stored=len(kernel.raw), size=len(ZEROS), crc=zlib.crc32(ZEROS)) for n in range(1000)]), ["!9"]


def broken_members():
    rest = Member("rest", b"r")
    deflated = compress(DEFLATED, TEXT)

    def one(title, member, expected):
        return title, archive(member, rest), [f"{member.name.decode()}{expected}", "rest=r"]

    for number, name in METHODS:
        yield one(f"told empty, {name}", Member("a", b"", number, raw=compress(number, TEXT)), "!9" if number == STORED else "!read")
        yield one(f"empty with a check sum, {name}", Member("a", b"", number, crc=5), "!read")
    yield one("wrong check sum, stored", Member("a", TEXT, crc=1), "!read")
    yield one("wrong check sum, deflated", Member("a", TEXT, DEFLATED, crc=1), "!read")
    yield one("wrong check sum, bzip2", Member("a", TEXT, BZIP2, crc=1), "!read")
    yield one("wrong check sum, xz", Member("a", TEXT, XZ, crc=1), "!read")
    yield one("a window of zstd that no memory allows", Member("a", TEXT, ZSTD, raw=zstd(TEXT, window=18)), "!read")
    yield one("wrong check sum, zstd", Member("a", TEXT, ZSTD, crc=1), "!read")
    for number, name in METHODS[1:]:
        yield one(f"rubbish, {name}", Member("a", TEXT, number, raw=b"\xff\x00rubbish" * 5), "!read")
    for number, name in METHODS[1:]:
        raw = compress(number, TEXT)
        yield one(f"cut short, {name}", Member("a", TEXT, number, raw=raw[:len(raw) // 2]), "!read")
        yield one(f"longer than told, {name}", Member("a", TEXT, number, size=len(TEXT) - 1), "!read")
        yield one(f"shorter than told, {name}", Member("a", TEXT, number, size=len(TEXT) + 1), "!read")
        yield one(f"nothing at all, {name}", Member("a", TEXT, number, raw=b""), "!9")
    for number, name in METHODS[1:]:
        raw = compress(number, TEXT)
        yield one(f"something behind the stream, {name}", Member("a", TEXT, number, raw=raw + b"more"), shown("", TEXT))
        yield one(f"a second stream, {name}", Member("a", TEXT + TEXT, number, raw=raw + raw), "!read")
    yield one("stored with two sizes", Member("a", TEXT, size=len(TEXT) - 1), "!9")
    yield one("encrypted", Member("a", TEXT, flags=ENCRYPTED), "!11")
    yield one("unknown method", Member("a", TEXT, 1), "!11")
    yield one("reserved method", Member("a", TEXT, 0xFFFF), "!11")
    yield one("another name in the header", Member("a", TEXT, local={"name": b"b"}), "!9")
    yield one("a longer name in the header", Member("a", TEXT, local={"name": b"a" * 300}), "!9")
    yield one("another method in the header", Member("a", TEXT, local={"method": DEFLATED}), "!9")
    yield one("encrypted in the header alone", Member("a", TEXT, local={"flags": ENCRYPTED}), "!9")
    yield one("no header", Member("a", TEXT, local={"signature": b"PK\0\0"}), "!9")
    yield one("another size in the header", Member("a", TEXT, DEFLATED, local={"size": 7}), shown("", TEXT))
    yield one("a size that no ratio allows", Member("a", b"", DEFLATED, raw=deflated, size=IS32 - 1), "!5")
    yield one("less than the size of a bomb", Member("a", b"", DEFLATED, raw=compress(DEFLATED, ZEROS), size=2 ** 26), "!read")
    yield one("link too long to be one", Member("a", b"x" * 5000, mode=0o120777), "->!1")


def cut():
    whole = archive(Member("a", TEXT, DEFLATED), Member("d/b", b"2"))
    for size in range(len(whole)):
        yield f"cut/{size}", whole[:size], ["!9"] if size else []


def million():
    """Members in another order than their bytes, which are a hole, and an end that tells of none."""
    count, apart = 1_000_000, 37
    head = struct.pack("<4sHHHHHHIIIHHHHHI", b"PK\1\2", 20, 20, 0, STORED, 0, 0x5A21, 0, 0, 0, 6, 0, 0, 0, 0, 0)
    central = b"".join(head + struct.pack("<I", n * 7919 % count * apart) + b"%06d" % n for n in range(count))
    return count * apart, central + struct.pack("<4sHHHHIIH", b"PK\5\6", 0, 0, count & 0xFFFF, count & 0xFFFF, len(central), count * apart, 0)


def beyond_4_gib():
    """What lies before and behind a member that is a hole of 4.5 GiB, and the size of that."""
    hole = 9 << 29
    first = Member("hole", raw=b"", stored=IS32, size=IS32, crc=0)
    first.local["extra"] = struct.pack("<HHQQ", 1, 16, hole, hole)
    first.extra = struct.pack("<HHQQ", 1, 16, hole, hole)
    others = [Member("stored", BIG), Member("deflated", BIG, DEFLATED), *[Member(f"{n:05}", b"%d" % n) for n in range(20_000)]]
    body, central = bytearray(), bytearray(first.central(0))
    for member in others:
        member.extra = struct.pack("<HHQ", 1, 8, len(first.header()) + hole + len(body))
        central += member.central(IS32)
        body += member.header() + member.raw
    begin = len(first.header()) + hole + len(body)
    return first.header(), hole, bytes(body) + bytes(central) + struct.pack(
        "<4sQHHIIQQQQ", b"PK\6\6", 44, 45, 45, 0, 0, len(others) + 1, len(others) + 1, len(central), begin) + struct.pack(
        "<4sIQI", b"PK\6\7", 0, begin + len(central), 1) + struct.pack(
        "<4sHHHHIIH", b"PK\5\6", 0, 0, IS16, IS16, len(central), IS32, 0)


def main():
    target = Path(sys.argv[1])
    (target / "cut").mkdir(parents=True)
    for group in (good, misleading, refused, broken_members, cut):
        for name, data, expected in group():
            (target / f"{name}.zip").write_bytes(data)
            (target / f"{name}.expected").write_text("".join(line + "\n" for line in expected))
    (target / "big.zip").write_bytes(archive(
        *[Member(name, BIG, number) for number, name in METHODS]))
    (target / "big.txt").write_bytes(BIG)
    (target / "deep.zip").write_bytes(archive(*[Member(f"{n}/" + "/".join("d" * 99) + "/f") for n in range(990)]))
    inner = archive(*[Member(f"{n}", BIG[n * 20_000:][:20_000]) for n in range(250)])
    (target / "deflated twice.zip").write_bytes(archive(Member("inner.zip", inner, DEFLATED)))
    chained = archive(Member("x", b"hello"))
    for _ in range(4):
        chained = archive(*[Member(f"{n}", b"%d" % (n + 1), mode=0o120777) for n in range(38)], Member("38", chained))
    (target / "chained.zip").write_bytes(chained)
    hole, rest = million()
    with (target / "million.zip").open("wb") as file:
        file.seek(hole)
        file.write(rest)
    start, hole, rest = beyond_4_gib()
    with (target / "beyond 4 GiB.zip").open("wb") as file:
        file.write(start)
        file.seek(hole, 1)
        file.write(rest)
    # Names whose hashes would meet in one slot for who knows the constants of a well known function.
    for name, tail in (("colliding", bytes.fromhex("DB28B4A0D17E03E7")), ("not colliding", b"abcdefgh")):
        (target / f"{name}.zip").write_bytes(archive(*[Member(b"%08d" % n + tail, flags=UTF8) for n in range(20_000)]))
    (target / "many.zip").write_bytes(large(*[Member(f"{n // 1000}/{n % 1000}", b"%d" % n) for n in range(100_000)]))


main()
