"""Makes archives byte by byte, and beside each what a reader is to make of it.

A line of NAME.expected is an entry as the listing has it: `folder/`, `file=content`, `link->target`,
`name!N` where opening is refused with code N, `name!read` where reading fails. `!N` alone: the whole
archive is refused. What is in the folder `cut` is an archive that ends too soon.
"""
import bz2
import gzip
import io
import lzma
import struct
import sys
import tarfile
import zlib
from pathlib import Path

BLOCK = 512
REGULAR, HARD, LINK, CHARACTER, DEVICE, FOLDER, PIPE = b"0", b"1", b"2", b"3", b"4", b"5", b"6"


def padded(data):
    return data + bytes(-len(data) % BLOCK)


def member(name, data=b"", type=REGULAR, target=b"", size=None, mode=0o644, magic=b"ustar\x0000", prefix=b"",
           time=1_600_000_000, checksum=None):
    """A header of POSIX ustar, and the content behind it."""
    name, target = (text.encode() if isinstance(text, str) else text for text in (name, target))
    size = len(data) if size is None else size
    sized = b"%011o\0" % size if isinstance(size, int) else size
    header = bytearray(struct.pack("100s8s8s8s12s12s8sc100s8s32s32s8s8s155s12s", name, b"%07o\0" % mode, b"0000000\0",
                                   b"0000000\0", sized, b"%011o\0" % time, b" " * 8, type, target, magic, b"", b"",
                                   b"0000000\0", b"0000000\0", prefix, b""))
    header[148:156] = b"%06o\0 " % (sum(header) if checksum is None else checksum)
    return bytes(header) + padded(data)


def pax(records, name=b"pax", type=b"x"):
    text = b""
    for key, value in records:
        line = b" " + key + b"=" + value + b"\n"
        size = len(line)
        while len(b"%d" % size) + len(line) != size:
            size = len(b"%d" % size) + len(line)
        text += b"%d" % size + line
    return member(name, text, type)


def archive(*members, end=bytes(2 * BLOCK)):
    return b"".join(members) + end


def long_name(name, type=b"L"):
    return member("././@LongLink", name + b"\0", type, magic=b"ustar  \0")


def shown(path, data):
    return f"{path}={data.decode()}"


TEXT = b"some text, some more text, and some text again"
REST = member("rest", b"r")


def sparse(name, size, *parts):
    """GNU's first form: the map of the parts stands in the header."""
    data = b"".join(text for _, text in parts)
    header = bytearray(member(name, b"", b"S", size=len(data), magic=b"ustar  \0"))
    at = 386
    for offset, text in parts[:4]:
        header[at:at + 24] = b"%011o\0" % offset + b"%011o\0" % len(text)
        at += 24
    header[483:495] = b"%011o\0" % size
    header[148:156] = b" " * 8
    header[148:156] = b"%06o\0 " % sum(header)
    return bytes(header) + padded(data)


def xxh64(data):
    """The check sum of zstd's frames, from its document, with the seed 0."""
    p1, p2, p3, p4, p5 = (0x9E3779B185EBCA87, 0xC2B2AE3D27D4EB4F, 0x165667B19E3779F9, 0x85EBCA77C2B2AE63,
                          0x27D4EB2F165667C5)
    mask = 2**64 - 1

    def turned(value, bits):
        return (value << bits | value >> (64 - bits)) & mask

    def mixed(sum, lane):
        return turned((sum + lane * p2) & mask, 31) * p1 & mask

    at, value = 0, p5
    if len(data) >= 32:
        sums = [p1 + p2 & mask, p2, 0, -p1 & mask]
        while at + 32 <= len(data):
            sums = [mixed(sum, lane) for sum, lane in zip(sums, struct.unpack_from("<4Q", data, at))]
            at += 32
        value = sum(turned(lane, bits) for lane, bits in zip(sums, (1, 7, 12, 18))) & mask
        for lane in sums:
            value = ((value ^ mixed(0, lane)) * p1 + p4) & mask
    value = value + len(data) & mask
    while at + 8 <= len(data):
        value = turned(value ^ mixed(0, struct.unpack_from("<Q", data, at)[0]), 27) * p1 + p4 & mask
        at += 8
    if at + 4 <= len(data):
        value = turned(value ^ struct.unpack_from("<I", data, at)[0] * p1 & mask, 23) * p2 + p3 & mask
        at += 4
    for byte in data[at:]:
        value = turned(value ^ byte * p5 & mask, 11) * p1 & mask
    value = (value ^ value >> 33) * p2 & mask
    value = (value ^ value >> 29) * p3 & mask
    return value ^ value >> 32


def zstd_block(data, size=None, kind=0, last=False):
    """Stored; of kind 1 it is a byte that stands for `size` of them."""
    return struct.pack("<I", int(last) | kind << 1 | (len(data) if size is None else size) << 3)[:3] + data


def zstd(data, check=None):
    """A frame of one stored block, with its size before it and its check sum behind it."""
    return (b"\x28\xb5\x2f\xfd\xa4" + struct.pack("<I", len(data)) + zstd_block(data, last=True) +
            struct.pack("<I", (xxh64(data) if check is None else check) & 0xFFFFFFFF))


def lzip(data, dictionary=20, check=None, size=None):
    coder = dict(id=lzma.FILTER_LZMA1, dict_size=2**20, lc=3, lp=0, pb=2, preset=6)
    packed = lzma.compress(data, lzma.FORMAT_RAW, filters=[coder])
    return (b"LZIP\1" + bytes([dictionary]) + packed +
            struct.pack("<IQQ", zlib.crc32(data) if check is None else check, len(data) if size is None else size,
                        len(packed) + 26))


def good():
    yield "empty", archive(), []
    yield "no bytes", b"", []
    yield "one member", archive(member("a", b"1")), ["a=1"]
    yield "one other member", archive(member("b", b"2")), ["b=2"]
    yield "no end", archive(member("a", TEXT), end=b""), [shown("a", TEXT)]
    yield "half an end", archive(member("a", TEXT), end=bytes(BLOCK)), [shown("a", TEXT)]
    yield "something behind the end", archive(member("a", b"1")) + b"more" * 300, ["a=1"]
    yield "a member behind the end", archive(member("a", b"1")) + archive(member("b", b"2")), ["a=1"]
    yield "old format", archive(member("a", b"1", magic=b"", type=b"\0"), member("d/", magic=b"", type=b"\0")), ["a=1", "d/"]
    yield "gnu format", archive(member("a", b"1", magic=b"ustar  \0")), ["a=1"]
    yield "folders", archive(member("d/", type=FOLDER), member("d/e/f", b"1"), member("d/g", b"2")), [
        "d/", "d/e/", "d/e/f=1", "d/g=2"]
    yield "folder behind its contents", archive(member("d/f", b"1"), member("d", type=FOLDER)), ["d/", "d/f=1"]
    yield "prefix", archive(member("f", b"1", prefix=b"d/e")), ["d/", "d/e/", "d/e/f=1"]
    yield "gnu long name", archive(long_name(b"n" * 300), member("n" * 99, b"1")), ["n" * 300 + "=1"]
    yield "gnu long target", archive(long_name(b"t" * 300, b"K"), member("l", type=LINK, target="t" * 99)), ["l->" + "t" * 300]
    yield "pax long name", archive(pax([(b"path", b"n" * 300)]), member("n" * 99, b"1")), ["n" * 300 + "=1"]
    yield "pax name of two forms", archive(pax([(b"path", "e\u0301-\u00e9".encode())]), member("e", b"1")), ["e\u0301-\u00e9=1"]
    yield "pax name of bytes", archive(pax([(b"path", b"\xff\x80")]), member("e", b"1")), ["\\xff\\x80=1"]
    yield "pax binary name of bytes", archive(
        pax([(b"hdrcharset", b"BINARY"), (b"path", b"\xff\xc3\xa9")]), member("e", b"1")), ["\\xff\u00e9=1"]
    yield "pax target of bytes", archive(pax([(b"linkpath", b"\xff\x80")]), member("l", type=LINK, target="t")), ["l->\\xff\\x80"]
    yield "pax size", archive(pax([(b"size", b"46")]), member("a", TEXT, size=0)), [shown("a", TEXT)]
    yield "pax of all", archive(pax([(b"comment", b"c")], type=b"g"), member("a", b"1")), ["a=1"]
    yield "names of bytes", archive(member(b"\xff\xfe", b"1"), member("\u00e9", b"2")), ["\\xff\\xfe=1", "\u00e9=2"]
    yield "names that are odd but good", archive(
        member("back\\slash", b"1"), member("c:drive", b"2"), member("tab\t", b"3"), member("...", b"4"), member(" ", b"5")), [
        "back\\slash=1", "c:drive=2", "tab\t=3", "...=4", " =5"]
    yield "names with a dot", archive(
        member("./", type=FOLDER), member("./a", b"1"), member("./d/", type=FOLDER), member("d/./f/.//", type=FOLDER)), ["a=1", "d/", "d/f/"]
    for name in ("LZIP", "LZIP-notes.txt", "BZh1", "BZh9.txt", "]"):
        yield "first name like a signature, " + name, archive(member(name, b"1"), REST), [name + "=1", "rest=r"]
    yield "first name like that of gzip", archive(member(b"\x1f\x8b\x08", b"1")), ["\x1f\\x8b\x08=1"]
    yield "names with two slashes", archive(
        member("./d//e", b"1"), member(".//a", b"2"), member("x//", type=FOLDER), member("h", type=HARD, target="d//e")), [
        "d/", "d/e=1", "a=2", "x/", "h=1"]
    yield "links", archive(member("link", type=LINK, target="d/f"), member("d/f", b"1"), member("d/up", type=LINK, target="../link")), [
        "link->d/f", "d/", "d/f=1", "d/up->../link"]
    yield "links to nothing", archive(
        member("d/", type=FOLDER), member("to nothing", type=LINK, target="d/nothing"), member("to itself", type=LINK, target="to itself"),
        member("f", b"1"), member("to f as a folder", type=LINK, target="f/"), member("empty", type=LINK)), [
        "d/", "to nothing->d/nothing", "to itself->to itself", "f=1", "to f as a folder->f/", "empty->"]
    yield "hard links", archive(member("a", TEXT), member("d/b", type=HARD, target="a"), member("c", type=HARD, target="./d/b")), [
        shown("a", TEXT), "d/", shown("d/b", TEXT), shown("c", TEXT)]
    yield "hard link to a link", archive(member("l", type=LINK, target="x"), member("h", type=HARD, target="l")), ["l->x", "h->x"]
    yield "hard link to what is replaced", archive(
        member("a", b"1"), member("b", type=HARD, target="a"), member("a", b"2")), ["a=2", "b=1"]
    yield "special", archive(member("pipe", type=PIPE), member("c", type=CHARACTER), member("d", type=DEVICE), REST), [
        "pipe!11", "c!11", "d!11", "rest=r"]
    yield "sparse", archive(sparse("s", 519, (512, b"ab")), REST), ["s=" + "\0" * 512 + "ab\0\0\0\0\0", "rest=r"]
    yield "sparse in two parts", archive(sparse("s", 1026, (0, b"a" * 512), (1024, b"cd")), REST), [
        "s=" + "a" * 512 + "\0" * 512 + "cd", "rest=r"]
    yield "sparse without a part", archive(sparse("s", 3), REST), ["s=\0\0\0", "rest=r"]
    yield "sparse in one part", archive(sparse("s", 2, (0, b"ab")), REST), ["s=ab", "rest=r"]
    for title, size in (("more than there is", 2**40), ("as much as can be", 2**63 - 1)):
        claim = pax([(b"GNU.sparse.size", b"%d" % size), (b"GNU.sparse.numblocks", b"1"), (b"GNU.sparse.map", b"0,2")])
        yield "sparse that claims " + title, archive(claim, member("s", b"ab"), sparse("t", 3), REST), [
            "s!5", "t=\0\0\0", "rest=r"]
    yield "same name twice", archive(member("a", b"1"), member("a", b"22")), ["a=22"]
    yield "time before 1970", archive(pax([(b"mtime", b"-1.5")]), member("a", b"1")), ["a=1"]
    tar = archive(member("a", TEXT), member("d/b", b"2"))
    listed = [shown("a", TEXT), "d/", "d/b=2"]
    for title, data in (("gzip", gzip.compress(tar)), ("bzip2", bz2.compress(tar)), ("xz", lzma.compress(tar)),
                        ("lzma", lzma.compress(tar, lzma.FORMAT_ALONE)), ("lzip", lzip(tar)), ("zstd", zstd(tar))):
        yield f"compressed, {title}", data, listed
    yield "compressed in two pieces", gzip.compress(tar[:700]) + gzip.compress(tar[700:]), listed
    for title, compress in (("bzip2", bz2.compress), ("xz", lzma.compress), ("lzip", lzip), ("zstd", zstd)):
        yield f"compressed, {title} in two pieces", compress(tar[:700]) + compress(tar[700:]), listed
    skippable = b"\x5e\x2a\x4d\x18" + struct.pack("<I", 5) + b"hello"
    yield "compressed, zstd between frames to be skipped", (
        skippable + zstd(tar[:700]) + skippable + zstd(tar[700:]) + skippable), listed
    yield "compressed, xz in two pieces with zeros", lzma.compress(tar[:700]) + bytes(8) + lzma.compress(tar[700:]), listed
    yield "compressed, with much behind the end", gzip.compress(tar + bytes(300_000)), listed
    yield "compressed, a block in all", gzip.compress(archive(member("a", b"1")) + bytes(128 * 1024 - 4 * BLOCK)), ["a=1"]
    yield "something behind a compressed one", gzip.compress(tar) + b"behind", listed
    yield "sparse and compressed", gzip.compress(archive(REST, sparse("s", 519, (512, b"ab")))), [
        "rest=r", "s=" + "\0" * 512 + "ab\0\0\0\0\0"]


def misleading():
    """Names that no tree has are left out, and the rest is read."""
    for name in ("../x", "/x", "//x", "a/../../x", "a/../x", "/./x", "./../x", "..", "a/..", ""):
        title = "left out " + (name.replace("/", "_") or "nothing")
        yield title, archive(member(name, b"1"), REST), ["rest=r"]
        if name:
            yield title + ", by pax", archive(pax([(b"path", name.encode())]), member("n", b"1"), REST), ["rest=r"]
            yield title + ", a link", archive(member(name, type=LINK, target="rest"), REST), ["rest=r"]
    yield "a zero in a name", archive(pax([(b"path", b"x\0y")]), member("n", b"1"), REST), ["x=1", "rest=r"]
    yield "file below a file", archive(member("a", b"1"), member("a/b", b"2")), ["a=1"]
    yield "file in the place of a folder", archive(member("a/b", b"2"), member("a", b"1")), ["a/", "a/b=2"]
    yield "folder in the place of a file", archive(member("a", b"1"), member("a/", type=FOLDER)), ["a=1"]
    yield "file below a link", archive(member("a", type=LINK, target="/tmp"), member("a/b", b"2"), REST), ["a->/tmp", "rest=r"]
    yield "file in the place of a link out", archive(member("a", type=LINK, target="../../x"), member("a", b"2")), ["a=2"]
    yield "links out", archive(member("up", type=LINK, target="../../etc"), member("abs", type=LINK, target="/etc/passwd")), [
        "up->../../etc", "abs->/etc/passwd"]
    yield "hard link out", archive(member("h", type=HARD, target="/etc/passwd"), member("u", type=HARD, target="../x"), REST), [
        "h!9", "u!9", "rest=r"]
    yield "hard link with the content of what is left out", archive(
        pax([(b"size", b"46")]), member("h", TEXT, type=HARD, target="../x", size=46), member("i", type=HARD, target="h"), REST), [
        shown("h", TEXT), shown("i", TEXT), "rest=r"]
    yield "hard link to a folder", archive(member("d/", type=FOLDER), member("h", type=HARD, target="d"), REST), ["d/", "rest=r"]
    yield "hard link to itself", archive(member("h", type=HARD, target="h"), REST), ["h!9", "rest=r"]
    yield "hard link to what comes later", archive(member("h", type=HARD, target="rest"), REST), ["h!9", "rest=r"]
    yield "link too long to be one", archive(
        long_name(b"t" * 5000, b"K"), member("l", type=LINK, target="t" * 99)), ["l!1"]
    yield "the root as a file", archive(member("/"), REST), ["rest=r"]
    yield "pax without an end", archive(member("p", b"5000 path=x\n", b"x"), member("a", b"1")), ["a=1"]
    yield "sparse with a part behind its end", archive(sparse("s", 3, (7, b"ab")), REST), ["s=ab\0", "rest=r"]
    yield "too deep", archive(pax([(b"path", b"d/" * 101 + b"f")]), member("f", b"1"), REST), ["rest=r"]
    yield "name as long as none", archive(long_name(b"n" * 70_000), member("n", b"1"), REST), ["rest=r"]


def refused():
    a = member("a", TEXT)
    yield "not an archive", b"this is text, and nothing else at all, really" * 30, ["!9"]
    yield "one byte", b"P", ["!9"]
    yield "wrong check sum", archive(member("a", TEXT, checksum=1)), ["!9"]
    yield "wrong check sum of the second", archive(a, member("b", TEXT, checksum=1)), ["!9"]
    yield "larger than the item", archive(member("a", TEXT, size=100_000)), ["!9"]
    yield "as large as can be", archive(member("a", TEXT, size=b"\x80" + b"\0" * 3 + b"\x7f" + b"\xff" * 7)), ["!9"]
    yield "of a negative size", archive(member("a", TEXT, size=b"\xff" * 12)), ["!9"]
    yield "of no size", archive(member("a", TEXT, size=b"no number..."), REST), ["!9"]
    yield "pax of a large size", archive(member("p", b"", b"x", size=2**33), member("a", TEXT)), ["!9"]
    yield "cut short behind the content of a member", archive(a, end=b"")[:-100], ["!9"]
    yield "pax alone", archive(pax([(b"path", b"x")]), end=b""), ["!9"]
    yield "long name of a large size", archive(member("././@LongLink", b"", b"L", size=2**33), a), ["!9"]
    yield "long name alone", archive(long_name(b"n" * 300), end=b""), ["!9"]
    tar = archive(a)
    yield "gzip with a wrong check sum", gzip.compress(tar)[:-8] + b"\1" * 8, ["!9"]
    yield "gzip with nothing in it", gzip.compress(b""), []
    yield "gzip of no archive", gzip.compress(b"some text"), ["!9"]
    yield "gzip of gzip", gzip.compress(gzip.compress(tar)), ["!9"]
    # What stands behind the archive's end is decoded in blocks of 128 KiB, of which it does not fill the first.
    long = padded(tar + bytes(300_000))
    yield "gzip with a wrong check sum far behind the end", gzip.compress(long)[:-8] + b"\1" * 8, ["!9"]
    yield "gzip that is cut short far behind the end", gzip.compress(long)[:-20], ["!9"]
    yield "xz that is cut short far behind the end", lzma.compress(long)[:-30], ["!9"]
    flipped = bytearray(gzip.compress(long, 0))
    flipped[290_000] ^= 1
    yield "gzip with another byte far behind the end", bytes(flipped), ["!9"]
    full = archive(member("a", bytes(128 * 1024 - 3 * BLOCK)))
    for blocks in (1, 2):
        whole = full + bytes((blocks - 1) * 128 * 1024)
        assert len(whole) == blocks * 128 * 1024
        yield f"gzip of {blocks} blocks with a wrong check sum", gzip.compress(whole)[:-8] + b"\1" * 8, ["!9"]
        yield f"gzip of {blocks} blocks without its end", gzip.compress(whole)[:-8], ["!9"]
    yield "xz with a damaged check sum", lzma.compress(tar)[:-30] + bytes(30), ["!9"]
    yield "bzip2 with rubbish in it", bz2.compress(tar)[:40] + b"\xff" * 40, ["!9"]
    yield "gzip header alone", gzip.compress(tar)[:10], ["!9"]
    yield "zstd with a wrong check sum", zstd(tar, 1), ["!9"]
    yield "zstd with a wrong check sum far behind the end", zstd(tar + bytes(100_000), 1), ["!9"]
    yield "zstd with a wrong check sum in the second frame", zstd(tar[:700]) + zstd(tar[700:], 1), ["!9"]
    yield "zstd with a block of no kind", zstd(tar)[:9] + zstd_block(tar, kind=3, last=True), ["!9"]
    yield "zstd with a window of 128 MiB", b"\x28\xb5\x2f\xfd\0\x88" + zstd_block(tar, last=True), ["!5"]
    yield "lzip with a wrong check sum", lzip(tar, check=1), ["!9"]
    yield "lzip with a wrong size", lzip(tar, size=1), ["!9"]
    yield "lzip with a wrong check sum in the second member", lzip(tar[:700]) + lzip(tar[700:], check=1), ["!9"]
    yield "lzip of a later version", lzip(tar)[:4] + b"\7" + lzip(tar)[5:], ["!9"]
    yield "lzip with a dictionary of 512 MiB", lzip(tar, 29), ["!5"]
    yield "zstd with rubbish in it", b"\x28\xb5\x2f\xfd" + b"\xff" * 60, ["!9"]
    yield "zip", b"PK\x05\x06" + bytes(18), ["!9"]
    yield "7z header alone", b"7z\xbc\xaf\x27\x1c\0\4" + bytes(24), ["!11"]
    yield "7z with a header behind the end", b"7z\xbc\xaf\x27\x1c\0\4" + b"\xff" * 24, ["!11"]
    # 20 million empty files in some hundred bytes.
    bits = b"\xff" * (20_000_000 // 8)
    header = (b"\x01\x05\xff" + struct.pack("<Q", 20_000_000) + b"\x0e\xff" + struct.pack("<Q", len(bits)) + bits + bytes(2))
    coder = dict(id=lzma.FILTER_LZMA1, dict_size=2**20, lc=3, lp=0, pb=2, preset=1)
    packed = lzma.compress(header, lzma.FORMAT_RAW, filters=[coder])
    encoded = (b"\x17\x06\0\1\x09\xff" + struct.pack("<Q", len(packed)) + b"\0\x07\x0b\1\0\1\x23\3\1\1\5\x5d" +
               struct.pack("<I", 2**20) + b"\x0c\xff" + struct.pack("<Q", len(header)) + b"\x0a\1" +
               struct.pack("<I", zlib.crc32(header)) + bytes(2))
    start = struct.pack("<QQI", len(packed), len(encoded), zlib.crc32(encoded))
    many = b"7z\xbc\xaf\x27\x1c\0\4" + struct.pack("<I", zlib.crc32(start)) + start + packed + encoded
    yield "7z of many members", many, ["!11"]
    # Where a program that unpacks itself has its archive.
    yield "7z of many members behind a program", b"MZ" + bytes(0x27000 - 2) + many, ["!9"]
    yield "ar header alone", b"!<arch>\n", []
    yield "ar with rubbish in it", b"!<arch>\n" + b"\xff" * 60, ["!9"]
    yield "cpio cut short", b"070701" + b"0" * 100, ["!9"]
    yield "mtree", b"#mtree\n./a type=file\n", ["!9"]


def bombs():
    """More content than the bytes can hold, and more than anybody wants."""
    zeros = bytes(1024 * 1024)
    size = 2**27
    head = member("bomb", b"", size=size)
    for title, compressor in (("bzip2", bz2.BZ2Compressor()), ("xz", lzma.LZMACompressor(preset=1)),
                              ("gzip", zlib.compressobj(9, zlib.DEFLATED, 31))):
        parts = [compressor.compress(head)] + [compressor.compress(zeros) for _ in range(size // len(zeros))]
        yield f"bomb of {title}", b"".join(parts) + compressor.flush(), ["!5"]
    yield "bomb of zstd", b"\x28\xb5\x2f\xfd\0\x38" + zstd_block(head) + b"".join(
        zstd_block(b"\0", 2**17, 1) for _ in range(size // 2**17)), ["!5"]
    yield "bomb of lzip", lzip(head + zeros * 128), ["!5"]
    wanting = bytearray(lzma.compress(archive(member("a", TEXT)), lzma.FORMAT_ALONE))
    wanting[1:5] = struct.pack("<I", 2**30)  # the size of the dictionary
    yield "lzma that wants much memory", bytes(wanting), ["!5"]


def cut():
    whole = archive(member("a", TEXT), pax([(b"path", b"d/b")]), member("b", b"2"))
    for title, data in (("plain", whole), ("gzip", gzip.compress(whole, mtime=0)), ("bzip2", bz2.compress(whole)),
                        ("xz", lzma.compress(whole)), ("lzip", lzip(whole)), ("zstd", zstd(whole))):
        for size in range(0, len(data), 1 if title != "plain" else 7):
            yield f"cut/{title} {size}", data[:size], None


def main():
    target = Path(sys.argv[1])
    (target / "cut").mkdir(parents=True)
    for group in (good, misleading, refused, bombs, cut):
        for name, data, expected in group():
            (target / f"{name}.tar").write_bytes(data)
            if expected is not None:
                (target / f"{name}.expected").write_bytes("".join(line + "\n" for line in expected).encode())
    big = b"".join(b"%d\n" % n for n in range(800_000))
    (target / "big.txt").write_bytes(big)
    whole = archive(member("a", big), member("b", big[:100_000]), member("c", big))
    (target / "big.tar").write_bytes(whole)
    (target / "big gzip.tar").write_bytes(gzip.compress(whole, 1))
    (target / "many.tar").write_bytes(archive(*[member(f"{n // 1000}/{n % 1000}", b"%d" % n) for n in range(20_000)]))
    deep = io.BytesIO()
    with tarfile.open(fileobj=deep, mode="w", format=tarfile.PAX_FORMAT) as file:
        for n in range(990):
            file.addfile(tarfile.TarInfo(f"{n}/" + "/".join("d" * 99) + "/f"))
    (target / "deep.tar").write_bytes(deep.getvalue())


main()
