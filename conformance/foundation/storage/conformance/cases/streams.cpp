// What is read and written through open streams.

#include <foundation/storage/conformance/detail/case.hpp>
#include <foundation/storage/conformance/detail/trial.hpp>

#include <algorithm>
#include <memory>

namespace foundation::storage::conformance::detail {

namespace {

using enum Ability;
using std::ios_base;
using Kind = DeclaredItem::Kind;

// The buffer that the system puts before a stream, and other sizes at which blocks end.
constexpr long bufferSize = 131'072;
constexpr long pieces[] = {1,
                           2,
                           3,
                           7,
                           511,
                           512,
                           513,
                           4095,
                           4096,
                           4097,
                           65'535,
                           65'536,
                           65'537,
                           bufferSize - 1,
                           bufferSize,
                           bufferSize + 1,
                           2 * bufferSize,
                           2 * bufferSize + 1,
                           1'000'000};
constexpr std::size_t sizes[] = {1,          4095,           4096,           4097,
                                 65'535,     65'536,         65'537,         bufferSize - 1,
                                 bufferSize, bufferSize + 1, 2 * bufferSize, 3 * bufferSize + 17};

std::unique_ptr<ByteStream> openToWrite(Trial& t, ustring const& path) {
    return t.provider().openStream(
        t.at(path), {ByteStreamAccess::WriteOnly, ByteStreamCreation::OpenOrCreate, 1, 1});
}
std::unique_ptr<ByteStream> openToReadAndWrite(Trial& t, ustring const& path) {
    return t.provider().openStream(
        t.at(path), {ByteStreamAccess::ReadWrite, ByteStreamCreation::OpenOrCreate, 1, 1});
}
std::unique_ptr<ByteStream> openToAppend(Trial& t, ustring const& path) {
    return t.provider().openStream(
        t.at(path), {ByteStreamAccess::WriteOnly, ByteStreamCreation::OpenOrCreate, 1, 0});
}
std::unique_ptr<ByteStream> openToRead(Trial& t, ustring const& path) {
    return t.provider().openReadOnlyStream(t.at(path));
}

/// Calls with each file of the content that has bytes; a remark where there is none.
void withEachFile(Trial& t, std::function<void(DeclaredItem const&)> const& check) {
    bool any = false;
    for (DeclaredItem const& item : std::vector(t.content())) {
        if (item.kind == Kind::File && !item.bytes.empty()) {
            check(item);
            any = true;
        }
    }
    t.expect(any, "no file with bytes is declared");
}

std::string readPiece(ByteStream& stream, long count) {
    std::string buffer(static_cast<std::size_t>(count), '\0');
    long const got = stream.read(buffer.data(), count);
    buffer.resize(static_cast<std::size_t>(std::max(got, 0L)));
    return buffer;
}

void expectUseless(Trial& t, ByteStream& stream, std::string const& when, ErrorCode code) {
    char byte = 0;
    t.expectStreamFailure<ByteStreamReadFailure>(
        "read " + when, [&] { stream.read(&byte, 1); }, code);
    t.expectStreamFailure<ByteStreamWriteFailure>(
        "write " + when, [&] { stream.write(&byte, 1); }, code);
    t.expectStreamFailure<ByteStreamSeekFailure>(
        "seek " + when, [&] { stream.seek(0, ios_base::beg); }, code);
    t.expectStreamFailure<ByteStreamCloseFailure>(
        "close " + when, [&] { stream.close(); }, code);
}

constexpr Case cases[] = {
    {"WhatIsThereIsRead",
     [](Trial& t) {
         withEachFile(t, [&](DeclaredItem const& file) { t.expectFile(file.path, file.bytes); });
     },
     Reading},
    {"PiecesOfEverySizeReadTheSame",
     [](Trial& t) {
         withEachFile(t, [&](DeclaredItem const& file) {
             for (long const piece : pieces) {
                 auto const stream = openToRead(t, file.path);
                 t.expectEqual("reading " + textOf(file.path) + " in pieces of " + textOf(piece),
                               readAll(t, *stream, piece), file.bytes);
             }
         });
     },
     Reading},
    {"PiecesOfEverySizeReadALargeFile",
     [](Trial& t) {
         std::string const bytes = pattern(3 * bufferSize + 17);
         t.makeFile(u"file", bytes);
         for (long const piece : pieces) {
             if (piece >= 512) {
                 auto const stream = openToRead(t, u"file");
                 t.expectEqual("reading in pieces of " + textOf(piece), readAll(t, *stream, piece),
                               bytes);
             }
         }
     },
     Reading | Writing},
    {"PiecesOfEverySizeWriteTheSame",
     [](Trial& t) {
         std::string const bytes = pattern(3 * bufferSize + 17);
         for (long const piece : pieces) {
             // Byte by byte the first block is enough.
             std::size_t const size = piece < 512 ? 5000 : bytes.size();
             auto const step = static_cast<std::size_t>(piece);
             auto const stream = openToWrite(t, u"file");
             for (std::size_t done = 0; done < size; done += step) {
                 write(*stream, std::string_view(bytes).substr(done, std::min(step, size - done)));
             }
             stream->close();
             t.expectEqual("what was written in pieces of " + textOf(piece),
                           t.bytesOf(u"file").substr(0, size), bytes.substr(0, size));
         }
     },
     Reading | Writing},
    {"FilesOfEverySizeAreKept",
     [](Trial& t) {
         for (std::size_t const size : sizes) {
             t.makeFile(u"file", pattern(size, static_cast<unsigned>(size)));
             t.expectFile(u"file", pattern(size, static_cast<unsigned>(size)));
         }
     },
     Reading | Writing},
    {"EveryByteIsKept",
     [](Trial& t) {
         std::string bytes;
         for (int byte = 0; byte < 256; ++byte) {
             bytes += static_cast<char>(byte);
         }
         bytes += std::string("\r\n\x1A\0\n\r", 6);
         t.makeFile(u"file", bytes);
         t.expectFile(u"file", bytes);
     },
     Reading | Writing},
    {"TwentyMegabytesAreKept",
     [](Trial& t) {
         std::string const bytes = pattern(20'000'000);
         t.makeFile(u"file", bytes);
         t.expectFile(u"file", bytes);
     },
     Reading | Writing},
    {"AReadBehindTheEndGivesMinusOne",
     [](Trial& t) {
         withEachFile(t, [&](DeclaredItem const& file) {
             auto const stream = openToRead(t, file.path);
             readAll(t, *stream);
             char byte = 0;
             for (int time = 0; time < 3; ++time) {
                 t.expectEqual("read at the end", stream->read(&byte, 1), -1L);
             }
         });
     },
     Reading},
    {"AnEmptyFileIsAtItsEnd",
     [](Trial& t) {
         t.makeFile(u"file");
         auto const stream = openToRead(t, u"file");
         char byte = 0;
         t.expectEqual("read of an empty file", stream->read(&byte, 1), -1L);
         t.expectEqual("the end of an empty file", stream->seek(0, ios_base::end), 0L);
     },
     Reading | FileCreation},
    {"AReadOfNothingGivesNothing",
     [](Trial& t) {
         withEachFile(t, [&](DeclaredItem const& file) {
             auto const stream = openToRead(t, file.path);
             char byte = 0;
             t.expectEqual("read of 0 bytes", stream->read(&byte, 0), 0L);
             readAll(t, *stream);
             t.expectEqual("read of 0 bytes at the end", stream->read(&byte, 0), 0L);
         });
     },
     Reading},
    {"AReadIsShortAtTheEndAlone",
     [](Trial& t) {
         withEachFile(t, [&](DeclaredItem const& file) {
             auto const size = static_cast<long>(file.bytes.size());
             std::string buffer(file.bytes.size() + 10, '\0');
             auto const stream = openToRead(t, file.path);
             t.expectEqual("read of more than there is", stream->read(buffer.data(), size + 10),
                           size);
             stream->seek(0, ios_base::beg);
             t.expectEqual("read of as much as there is", stream->read(buffer.data(), size), size);
         });
     },
     Reading},
    {"SeeksCountFromTheStart",
     [](Trial& t) {
         withEachFile(t, [&](DeclaredItem const& file) {
             auto const size = static_cast<long>(file.bytes.size());
             auto const stream = openToRead(t, file.path);
             for (long const to : {size - 1, 0L, size / 2, size / 3}) {
                 t.expectEqual("seek from the start", stream->seek(to, ios_base::beg), to);
                 t.expectEqual("the byte at " + textOf(to), readPiece(*stream, 1),
                               file.bytes.substr(static_cast<std::size_t>(to), 1));
             }
         });
     },
     Reading},
    {"SeeksCountFromTheEnd",
     [](Trial& t) {
         withEachFile(t, [&](DeclaredItem const& file) {
             auto const size = static_cast<long>(file.bytes.size());
             auto const stream = openToRead(t, file.path);
             t.expectEqual("seek to the end", stream->seek(0, ios_base::end), size);
             for (long const back : {1L, size, size / 2}) {
                 t.expectEqual("seek from the end", stream->seek(-back, ios_base::end),
                               size - back);
                 t.expectEqual("what is left", readAll(t, *stream),
                               file.bytes.substr(static_cast<std::size_t>(size - back)));
             }
         });
     },
     Reading},
    {"SeeksCountFromThePosition",
     [](Trial& t) {
         withEachFile(t, [&](DeclaredItem const& file) {
             if (file.bytes.size() < 3) {
                 return; // too little to move about in
             }
             auto const stream = openToRead(t, file.path);
             t.expectEqual("the position at first", stream->seek(0, ios_base::cur), 0L);
             readPiece(*stream, 3);
             t.expectEqual("the position behind a read of 3", stream->seek(0, ios_base::cur), 3L);
             t.expectEqual("seek by 2", stream->seek(2, ios_base::cur), 5L);
             t.expectEqual("seek back by 4", stream->seek(-4, ios_base::cur), 1L);
             t.expectEqual("the byte at 1", readPiece(*stream, 1), file.bytes.substr(1, 1));
         });
     },
     Reading},
    {"ASeekBeforeTheStartLeavesThePosition",
     [](Trial& t) {
         withEachFile(t, [&](DeclaredItem const& file) {
             if (file.bytes.size() < 3) {
                 return;
             }
             auto const size = static_cast<long>(file.bytes.size());
             auto const stream = openToRead(t, file.path);
             stream->seek(2, ios_base::beg);
             t.expectStreamFailure<ByteStreamSeekFailure>(
                 "seek to -1", [&] { stream->seek(-1, ios_base::beg); },
                 ErrorCode::InvalidLocation);
             t.expectStreamFailure<ByteStreamSeekFailure>(
                 "seek to 3 before 2", [&] { stream->seek(-3, ios_base::cur); },
                 ErrorCode::InvalidLocation);
             t.expectStreamFailure<ByteStreamSeekFailure>(
                 "seek to before the start from the end",
                 [&] { stream->seek(-size - 1, ios_base::end); }, ErrorCode::InvalidLocation);
             t.expectEqual("the position behind", stream->seek(0, ios_base::cur), 2L);
             t.expectEqual("the byte there", readPiece(*stream, 1), file.bytes.substr(2, 1));
             t.expectDone("close behind refused seeks", [&] { stream->close(); });
         });
     },
     Reading},
    {"BehindTheEndThereIsNothingToRead",
     [](Trial& t) {
         withEachFile(t, [&](DeclaredItem const& file) {
             auto const size = static_cast<long>(file.bytes.size());
             auto const stream = openToRead(t, file.path);
             t.expectEqual("seek behind the end", stream->seek(size + 1000, ios_base::beg),
                           size + 1000);
             char byte = 0;
             t.expectEqual("read there", stream->read(&byte, 1), -1L);
             t.expectEqual("seek back", stream->seek(0, ios_base::beg), 0L);
             t.expectEqual("what is read then", readAll(t, *stream), file.bytes);
         });
     },
     Reading},
    {"ManyReadersHaveTheirOwnPositions",
     [](Trial& t) {
         withEachFile(t, [&](DeclaredItem const& file) {
             std::vector<std::unique_ptr<ByteStream>> readers;
             for (std::size_t i = 0; i < 20; ++i) {
                 readers.push_back(openToRead(t, file.path));
                 readers.back()->seek(static_cast<long>(i % file.bytes.size()), ios_base::beg);
             }
             for (std::size_t i = 0; i < readers.size(); ++i) {
                 t.expectEqual("reader " + textOf(i), readAll(t, *readers[i]),
                               file.bytes.substr(i % file.bytes.size()));
             }
         });
     },
     Reading},
    {"AReaderOutlivesOthers",
     [](Trial& t) {
         withEachFile(t, [&](DeclaredItem const& file) {
             auto first = openToRead(t, file.path);
             auto const second = openToRead(t, file.path);
             first->close();
             first.reset();
             t.expectEqual("what the second reads", readAll(t, *second), file.bytes);
         });
     },
     Reading},
    {"WritingToAReaderPoisonsIt",
     [](Trial& t) {
         withEachFile(t, [&](DeclaredItem const& file) {
             auto const stream = openToRead(t, file.path);
             t.expectStreamFailure<ByteStreamWriteFailure>(
                 "write to a stream for reading", [&] { stream->write("x", 1); },
                 ErrorCode::PermissionDenied);
             expectUseless(t, *stream, "behind a failed write", ErrorCode::PermissionDenied);
             t.expectFile(file.path, file.bytes);
         });
     },
     Reading},
    {"AClosedReaderIsOfNoMoreUse",
     [](Trial& t) {
         withEachFile(t, [&](DeclaredItem const& file) {
             auto const stream = openToRead(t, file.path);
             stream->close();
             expectUseless(t, *stream, "behind close", ErrorCode::InternalError);
         });
     },
     Reading},
    {"AClosedWriterIsOfNoMoreUse",
     [](Trial& t) {
         auto const stream = openToReadAndWrite(t, u"file");
         write(*stream, "content");
         stream->close();
         expectUseless(t, *stream, "behind close", ErrorCode::InternalError);
         t.expectFile(u"file", "content");
     },
     Writing},
    {"ReadingAWriterFailsAndLosesNothing",
     [](Trial& t) {
         auto const stream = openToWrite(t, u"file");
         write(*stream, "one ");
         char byte = 0;
         t.expectStreamFailure<ByteStreamReadFailure>(
             "read of a stream for writing", [&] { stream->read(&byte, 1); },
             ErrorCode::PermissionDenied);
         write(*stream, "two");
         stream->close();
         t.expectFile(u"file", "one two");
     },
     Writing},
    {"WhatIsWrittenIsReadOnTheSameStream",
     [](Trial& t) {
         auto const stream = openToReadAndWrite(t, u"file");
         write(*stream, "0123456789");
         stream->seek(3, ios_base::beg);
         t.expectEqual("what is read behind a seek", readPiece(*stream, 4), std::string("3456"));
         write(*stream, "ab");
         stream->seek(0, ios_base::beg);
         t.expectEqual("what is read in the end", readAll(t, *stream), std::string("0123456ab9"));
         stream->close();
     },
     Writing},
    {"WritingInTheMiddleKeepsTheRest",
     [](Trial& t) {
         std::string bytes = pattern(200'000);
         t.makeFile(u"file", bytes);
         for (std::size_t const offset : {0UL, 1UL, 4095UL, 65'535UL, 131'071UL, 199'990UL}) {
             auto const stream = openToWrite(t, u"file");
             stream->seek(static_cast<long>(offset), ios_base::beg);
             write(*stream, "changed");
             stream->close();
             bytes.replace(offset, 7, "changed");
             t.expectFile(u"file", bytes);
         }
     },
     Writing},
    {"WritingOverTheEndMakesTheFileLonger",
     [](Trial& t) {
         t.makeFile(u"file", "0123456789");
         auto const stream = openToWrite(t, u"file");
         stream->seek(-3, ios_base::end);
         write(*stream, "abcdef");
         t.expectEqual("the position behind", stream->seek(0, ios_base::cur), 13L);
         stream->close();
         t.expectFile(u"file", "0123456abcdef");
     },
     Writing},
    {"WhatIsSkippedIsZero",
     [](Trial& t) {
         std::string bytes = "start";
         t.makeFile(u"file", bytes);
         auto const stream = openToWrite(t, u"file");
         stream->seek(150'000, ios_base::beg);
         write(*stream, "end");
         stream->close();
         bytes.resize(150'000, '\0');
         t.expectFile(u"file", bytes + "end");
     },
     Writing},
    {"ASeekAloneMakesNothingLonger",
     [](Trial& t) {
         t.makeFile(u"file", "short");
         auto const stream = openToWrite(t, u"file");
         stream->seek(10'000, ios_base::beg);
         stream->close();
         t.expectFile(u"file", "short");
     },
     Writing},
    {"AWriteOfNothingIsDone",
     [](Trial& t) {
         auto const stream = openToWrite(t, u"file");
         t.expectEqual("write of 0 bytes", stream->write("", 0), 0L);
         stream->seek(100, ios_base::beg);
         t.expectEqual("write of 0 bytes behind the end", stream->write("", 0), 0L);
         stream->close();
         t.expectFile(u"file", "");
     },
     Writing},
    {"AnAppendGoesToTheEnd",
     [](Trial& t) {
         t.makeFile(u"file", "old ");
         auto const stream = openToAppend(t, u"file");
         write(*stream, "one ");
         write(*stream, "two");
         stream->close();
         t.expectFile(u"file", "old one two");
     },
     Writing},
    {"AnAppendGoesToTheEndWhereverThePositionIs",
     [](Trial& t) {
         t.makeFile(u"file", "old ");
         auto const stream = openToAppend(t, u"file");
         stream->seek(0, ios_base::beg);
         write(*stream, "one ");
         t.expectEqual("the position behind an append", stream->seek(0, ios_base::cur), 8L);
         stream->seek(1, ios_base::beg);
         write(*stream, "two");
         stream->close();
         t.expectFile(u"file", "old one two");
     },
     Writing},
    {"AppendsOfTwoStreamsAreBothKept",
     [](Trial& t) {
         t.makeFile(u"file", "old ");
         auto const one = openToAppend(t, u"file");
         auto const two = openToAppend(t, u"file");
         write(*one, "one ");
         write(*two, "two ");
         write(*one, "three");
         one->close();
         two->close();
         t.expectFile(u"file", "old one two three");
     },
     Writing},
    {"AppendsAcrossBlocksAreKept",
     [](Trial& t) {
         std::string bytes;
         for (unsigned round = 0; round < 40; ++round) {
             std::string const piece = pattern(10'007, round);
             auto const stream = openToAppend(t, u"file");
             write(*stream, piece);
             stream->close();
             bytes += piece;
         }
         t.expectFile(u"file", bytes);
     },
     Writing},
    {"WhatIsClosedIsSeenByReaders",
     [](Trial& t) {
         t.makeFile(u"file", "old");
         for (std::string const content : {"a", "longer", "b"}) {
             auto const stream =
                 t.provider().openStream(t.at(u"file"), {ByteStreamAccess::WriteOnly,
                                                         ByteStreamCreation::OpenExisting, 0, 1});
             write(*stream, content);
             stream->close();
             t.expectFile(u"file", content);
         }
     },
     Writing},
    {"TheSizeIsThatOfWhatWasWritten",
     [](Trial& t) {
         for (std::size_t const size : {0UL, 1UL, 4096UL, 65'537UL, 300'001UL}) {
             t.makeFile(u"file", pattern(size));
             t.expectEqual("the size of a file",
                           t.provider().getFileAttributes(t.at(u"file")).values().size,
                           std::optional<std::uint64_t>(size));
         }
     },
     Writing | Ability::FileAttributes},
};

} // namespace

Family streamFamily() {
    return {"Streams", cases};
}

} // namespace foundation::storage::conformance::detail
