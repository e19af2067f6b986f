#include <foundation/storage/vfs/streams/file_streams.hpp>

#include "fake_provider.hpp"
#include "fake_stream.hpp"

#include <foundation/core/except/exception.hpp>
#include <foundation/storage/vfs/streams/io_exception.hpp>

#include <gtest/gtest.h>

#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>

namespace {

using namespace vfs_test;
using provider::ByteStreamCloseFailure;
using provider::ByteStreamOpenOptions;
using provider::ByteStreamWriteFailure;
using std::ios_base;
using vfs::AbsoluteIRI;
using vfs::ErrorCode;

class FileStreams : public testing::Test {
  protected:
    FileStreams() {
        storage.fake->onOpenReadOnlyStream = [this](StorageIRI const&) {
            return std::make_unique<FakeStream>(script);
        };
        storage.fake->onOpenStream = [this](StorageIRI const&, ByteStreamOpenOptions const& given) {
            options = given;
            return std::make_unique<FakeStream>(script);
        };
    }

    FakeStorage storage;
    std::shared_ptr<StreamScript> script = std::make_shared<StreamScript>();
    std::optional<ByteStreamOpenOptions> options;
    vfs::File file{AbsoluteIRI(u"mem:/f"), storage.reference};
};

constexpr auto in = ios_base::in;
constexpr auto out = ios_base::out;
constexpr auto app = ios_base::app;
constexpr auto trunc = ios_base::trunc;
constexpr auto none = ios_base::openmode{};

/// How a mode opens: for reading, with the four options, or not at all.
struct ModeCase {
    ios_base::openmode mode;
    enum { ReadOnly, Options, Refused } how;
    std::uint32_t access = 0;
    std::uint32_t creation = 0;
    std::uint32_t withoutTruncate = 0;
    std::uint32_t withoutAppend = 0;
};

class OpenModes : public FileStreams, public testing::WithParamInterface<ModeCase> {};

TEST_P(OpenModes, OfFstreamFollowTheTableWithAndWithoutAteAndBinary) {
    ModeCase const& c = GetParam();
    for (auto const extra : {none, ios_base::ate, ios_base::openmode(ios_base::binary),
                             ios_base::ate | ios_base::binary}) {
        options.reset();
        auto const callsBefore = storage.fake->calls().size();
        if (c.how == ModeCase::Refused) {
            try {
                vfs::fstream(file, c.mode | extra);
                ADD_FAILURE() << "the mode opens nothing";
            } catch (foundation::core::except::detail::AnonymousInternalException<
                     std::runtime_error> const& e) {
                EXPECT_STREQ(e.what(), "toByteStreamCreate called with bad openmode");
            }
            EXPECT_EQ(storage.fake->calls().size(), callsBefore);
            continue;
        }
        script->calls.clear();
        vfs::fstream const stream(file, c.mode | extra);
        EXPECT_EQ(script->count("seek 0 end"), (extra & ios_base::ate) != 0 ? 1 : 0);
        EXPECT_TRUE(stream.is_open());
        EXPECT_TRUE(stream.good());
        EXPECT_EQ(storage.fake->calls().back(),
                  c.how == ModeCase::ReadOnly ? "openReadOnlyStream" : "openStream");
        ASSERT_EQ(options.has_value(), c.how == ModeCase::Options);
        if (options) {
            EXPECT_EQ(static_cast<std::uint32_t>(options->access), c.access);
            EXPECT_EQ(static_cast<std::uint32_t>(options->creation), c.creation);
            EXPECT_EQ(options->withoutTruncate, c.withoutTruncate);
            EXPECT_EQ(options->withoutAppend, c.withoutAppend);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Table, OpenModes,
                         testing::Values(ModeCase{none, ModeCase::Refused},
                                         ModeCase{in, ModeCase::ReadOnly},
                                         ModeCase{out, ModeCase::Options, 0, 1, 1, 1},
                                         ModeCase{in | out, ModeCase::Options, 1, 1, 1, 1},
                                         ModeCase{app, ModeCase::Options, 0, 0, 1, 0},
                                         ModeCase{app | out, ModeCase::Options, 0, 0, 1, 0},
                                         ModeCase{app | in, ModeCase::Options, 1, 0, 1, 0},
                                         ModeCase{app | in | out, ModeCase::Options, 1, 0, 1, 0},
                                         ModeCase{out | trunc, ModeCase::Options, 0, 0, 0, 1},
                                         ModeCase{in | out | trunc, ModeCase::Options, 1, 0, 0, 1},
                                         ModeCase{in | trunc, ModeCase::ReadOnly},
                                         ModeCase{app | in | trunc, ModeCase::ReadOnly},
                                         ModeCase{trunc, ModeCase::Refused},
                                         ModeCase{app | trunc, ModeCase::Refused},
                                         ModeCase{app | out | trunc, ModeCase::Refused},
                                         ModeCase{app | in | out | trunc, ModeCase::Refused}));

TEST_F(FileStreams, IfstreamAlwaysReads) {
    vfs::ifstream(file, none);
    EXPECT_FALSE(options);
    vfs::ifstream(file, app);
    ASSERT_TRUE(options) << "appending is writing";
    EXPECT_EQ(options->access, provider::ByteStreamAccess::ReadWrite);
    EXPECT_EQ(options->withoutAppend, 0U);
}

TEST_F(FileStreams, OfstreamAlwaysWritesAndTruncatesUnlessTold) {
    vfs::ofstream(file, none);
    EXPECT_EQ(options->access, provider::ByteStreamAccess::WriteOnly);
    EXPECT_EQ(options->creation, provider::ByteStreamCreation::OpenOrCreate);
    EXPECT_EQ(options->withoutTruncate, 0U);
    EXPECT_EQ(options->withoutAppend, 1U);

    vfs::ofstream(file, in);
    EXPECT_EQ(options->access, provider::ByteStreamAccess::ReadWrite);
    EXPECT_EQ(options->creation, provider::ByteStreamCreation::OpenExisting);
    EXPECT_EQ(options->withoutTruncate, 1U);

    vfs::ofstream(file, app);
    EXPECT_EQ(options->withoutAppend, 0U);
    EXPECT_EQ(options->withoutTruncate, 1U);
}

TEST_F(FileStreams, DefaultModesAreThoseOfTheStandard) {
    vfs::ofstream{file};
    EXPECT_EQ(options->withoutTruncate, 0U);
    vfs::fstream{file};
    EXPECT_EQ(options->access, provider::ByteStreamAccess::ReadWrite);
    options.reset();
    vfs::ifstream{file};
    EXPECT_FALSE(options);
}

TEST_F(FileStreams, ReadWhatWasWritten) {
    {
        vfs::ofstream stream(file);
        stream << "one " << 2 << '\n';
    }
    EXPECT_EQ(script->content, "one 2\n");
    EXPECT_EQ(script->calls, (std::vector<std::string>{"write 6", "close"}));

    script->position = 0;
    vfs::ifstream stream(file);
    std::string word;
    int number = 0;
    stream >> word >> number;
    EXPECT_EQ(word, "one");
    EXPECT_EQ(number, 2);
    EXPECT_EQ(stream.tellg(), 5);
}

TEST_F(FileStreams, DeviceIsReadInLargePieces) {
    script->content.assign(300000, 'x');
    vfs::ifstream stream(file);
    char c;
    for (int i = 0; i < 200000; ++i) {
        stream.get(c);
    }
    EXPECT_EQ(script->calls, (std::vector<std::string>{"read 131072", "read 131072"}));
}

TEST_F(FileStreams, ClosedStreamIsGoodUntilItIsUsed) {
    vfs::ifstream stream;
    EXPECT_TRUE(stream.good());
    EXPECT_FALSE(stream.is_open());
    char c;
    EXPECT_FALSE(stream.get(c));
    vfs::ofstream output;
    output << "lost" << std::flush;
    EXPECT_FALSE(output);
    vfs::fstream both;
    both.seekg(0);
    EXPECT_TRUE(both.fail());
}

TEST_F(FileStreams, UseAfterCloseIsTheEndOfTheFile) {
    script->content.assign(1000, 'x');
    vfs::fstream stream(file, in | out);
    char c;
    ASSERT_TRUE(stream.get(c));
    stream.close();
    EXPECT_FALSE(stream.get(c)) << "nothing of the old buffer is left";
    stream.clear();
    stream.write("a", 1);
    stream.flush();
    EXPECT_TRUE(stream.bad());
    EXPECT_EQ(script->count("write"), 0);
}

TEST_F(FileStreams, FailureToOpenIsAnException) {
    storage.fake->onOpenReadOnlyStream =
        [](StorageIRI const& l) -> std::unique_ptr<provider::ByteStream> { fail(4, l); };
    EXPECT_EQ(codeOf([&] { vfs::ifstream{file}; }), ErrorCode::ResourceNotFound);
    vfs::ifstream stream;
    EXPECT_EQ(codeOf([&] { stream.open(file); }), ErrorCode::ResourceNotFound);
    EXPECT_FALSE(stream.is_open());
    EXPECT_TRUE(stream.good()) << "failbit is not set";
}

TEST_F(FileStreams, AtEndSeeksOnTheDeviceUntranslated) {
    script->content = "0123456789";
    vfs::ifstream stream(file, in | ios_base::ate);
    EXPECT_EQ(stream.tellg(), 10);
    EXPECT_EQ(script->calls.front(), "seek 0 end");

    script->onSeek = [] {
        throw provider::ByteStreamSeekFailure("no", provider::ErrorCode::IOError);
    };
    vfs::ifstream failing;
    EXPECT_THROW(failing.open(file, ios_base::ate), provider::ByteStreamSeekFailure);
    EXPECT_FALSE(failing.is_open());
    EXPECT_THROW(vfs::fstream(file, in | out | ios_base::ate), provider::ByteStreamSeekFailure);
}

TEST_F(FileStreams, OpeningAnOpenStreamSetsFailbitAndKeepsTheFirstFile) {
    script->content = "first";
    vfs::ifstream stream(file);
    vfs::File const other(AbsoluteIRI(u"mem:/other"), storage.reference);
    stream.open(other);
    EXPECT_EQ(stream.rdstate(), ios_base::failbit);
    EXPECT_TRUE(stream.is_open());
    EXPECT_EQ(storage.fake->calls().size(), 1U);
    stream.clear();
    std::string word;
    stream >> word;
    EXPECT_EQ(word, "first");
}

TEST_F(FileStreams, OpeningAnOpenStreamThatWritesSetsFailbitToo) {
    vfs::ofstream writes(file);
    vfs::fstream both(file);
    std::size_t const opened = storage.fake->calls().size();
    writes.open(file);
    both.open(file);
    EXPECT_EQ(writes.rdstate(), ios_base::failbit);
    EXPECT_EQ(both.rdstate(), ios_base::failbit);
    EXPECT_TRUE(writes.is_open() && both.is_open());
    EXPECT_EQ(storage.fake->calls().size(), opened);
}

TEST_F(FileStreams, TheBufferIsTheOneThatTheStreamWritesTo) {
    vfs::ofstream stream(file);
    EXPECT_EQ(stream.rdbuf(), static_cast<std::ostream&>(stream).rdbuf());
    stream.rdbuf()->sputn("text", 4);
    stream.close();
    EXPECT_EQ(script->content, "text");
}

TEST_F(FileStreams, OpeningAnOpenStreamThrowsWhereFailbitIsAskedFor) {
    vfs::ifstream stream(file);
    stream.exceptions(ios_base::failbit);
    EXPECT_THROW(stream.open(file), ios_base::failure);
    EXPECT_TRUE(stream.is_open());
}

TEST_F(FileStreams, ClosingTwiceSetsFailbitAndThrowsNothing) {
    vfs::ofstream stream(file);
    stream.close();
    EXPECT_TRUE(stream.good()) << "a successful close changes no state";
    stream.close();
    EXPECT_EQ(stream.rdstate(), ios_base::failbit);
}

/// What a stream is after another file was opened on it.
template<class Stream>
void expectFreshAfterReopening(vfs::File const& first, vfs::File const& second) {
    std::ostringstream tied;
    Stream stream(first);
    stream.setstate(ios_base::eofbit | ios_base::failbit);
    stream.setf(ios_base::hex, ios_base::basefield);
    stream.fill('*');
    stream.tie(&tied);
    stream.clear(ios_base::eofbit);
    stream.close();
    EXPECT_EQ(stream.rdstate(), ios_base::eofbit) << "a close changes no state";

    stream.open(second);

    EXPECT_TRUE(stream.is_open());
    EXPECT_TRUE(stream.good());
    EXPECT_EQ(stream.exceptions(), ios_base::goodbit);
    EXPECT_EQ(stream.flags(), ios_base::skipws | ios_base::dec);
    EXPECT_EQ(stream.fill(), ' ');
    EXPECT_EQ(stream.tie(), nullptr);
}

TEST_F(FileStreams, ReopeningOnAnotherFileForgetsTheOldState) {
    vfs::File const other(AbsoluteIRI(u"mem:/other"), storage.reference);
    expectFreshAfterReopening<vfs::ifstream>(file, other);
    EXPECT_EQ(storage.fake->log().back(), "openReadOnlyStream mem:/other");
    expectFreshAfterReopening<vfs::ofstream>(file, other);
    EXPECT_EQ(storage.fake->log().back(), "openStream mem:/other 0 0 0 1");
    expectFreshAfterReopening<vfs::fstream>(file, other);
    EXPECT_EQ(storage.fake->log().back(), "openStream mem:/other 1 1 1 1");
}

TEST_F(FileStreams, StateBecomesExactlyFailbitWhateverItWas) {
    vfs::ifstream open(file);
    open.setstate(ios_base::eofbit);
    open.open(file);
    EXPECT_EQ(open.rdstate(), ios_base::failbit);

    vfs::ofstream closed;
    closed.setstate(ios_base::badbit);
    closed.close();
    EXPECT_EQ(closed.rdstate(), ios_base::failbit);
}

TEST_F(FileStreams, ModeThatOpensNothingLeavesAStreamClosedAndGood) {
    vfs::fstream stream;
    EXPECT_THROW(stream.open(file, trunc), std::runtime_error);
    EXPECT_FALSE(stream.is_open());
    EXPECT_TRUE(stream.good());
    vfs::ofstream output;
    EXPECT_THROW(output.open(file, app | trunc), std::runtime_error);
    EXPECT_FALSE(output.is_open());
}

TEST_F(FileStreams, FailureToOpenForWritingIsAnException) {
    storage.fake->onOpenStream = [](StorageIRI const& l,
                                    auto const&) -> std::unique_ptr<provider::ByteStream> {
        fail(2, l);
    };
    EXPECT_EQ(codeOf([&] { vfs::ofstream{file}; }), ErrorCode::PermissionDenied);
    EXPECT_EQ(codeOf([&] { vfs::fstream{file}; }), ErrorCode::PermissionDenied);
}

TEST_F(FileStreams, WholeBufferIsWrittenAtOnce) {
    vfs::ofstream stream(file);
    std::string const data(131077, 'x');
    stream.write(data.data(), 131076);
    EXPECT_EQ(script->count("write"), 0);
    stream.write(data.data(), 1);
    EXPECT_EQ(script->calls, std::vector<std::string>{"write 131076"});
}

TEST_F(FileStreams, FailedWriteSetsBadbitAndIsRethrownUntranslatedOnRequest) {
    script->onWrite = [] {
        throw ByteStreamWriteFailure("full", provider::ErrorCode::NoSpaceLeft);
    };
    std::string const data(200000, 'x');
    vfs::ofstream quiet(file);
    quiet.write(data.data(), 200000);
    EXPECT_TRUE(quiet.bad());

    vfs::ofstream loud(file);
    loud.exceptions(ios_base::badbit);
    EXPECT_THROW(loud.write(data.data(), 200000), ByteStreamWriteFailure);
}

TEST_F(FileStreams, UseAfterAFailedCloseReachesNothing) {
    script->onClose = [] { throw ByteStreamCloseFailure("lost", provider::ErrorCode::IOError); };
    vfs::ofstream stream(file);
    stream << "abc";
    EXPECT_THROW(stream.close(), vfs::IOCloseException);
    auto const calls = script->calls.size();
    stream << "more" << std::flush;
    EXPECT_TRUE(stream.bad());
    stream.close();
    EXPECT_EQ(script->calls.size(), calls);
    EXPECT_FALSE(stream.is_open());
}

TEST_F(FileStreams, FailedDeviceCloseIsReportedOnceAndTheNextCloseFinishes) {
    vfs::ofstream stream(file);
    stream << "abc";
    script->onClose = [] {
        throw ByteStreamCloseFailure("lost", provider::ErrorCode::NoSpaceLeft);
    };
    try {
        stream.close();
        FAIL();
    } catch (vfs::IOCloseException const& e) {
        EXPECT_EQ(e.getErrorCode(), ErrorCode::NoSpaceLeft);
    }
    EXPECT_TRUE(stream.is_open());
    EXPECT_TRUE(stream.good()) << "a failed close sets no bit";
    stream.close();
    EXPECT_FALSE(stream.is_open());
    EXPECT_EQ(script->count("close"), 1);
}

TEST_F(FileStreams, AfterAFailedWriteAndCloseNothingIsWrittenAgain) {
    vfs::ofstream stream(file);
    stream << "abc";
    script->onWrite = [] {
        throw ByteStreamWriteFailure("full", provider::ErrorCode::NoSpaceLeft);
    };
    script->onClose = [] {
        throw ByteStreamCloseFailure("lost", provider::ErrorCode::NoSpaceLeft);
    };
    EXPECT_THROW(stream.close(), vfs::IOCloseException);
    long const writes = script->count("write");
    script->onWrite = nullptr;
    stream.close();
    EXPECT_EQ(script->count("write"), writes);
}

TEST_F(FileStreams, FailedFlushInCloseIsNotReported) {
    vfs::ofstream stream(file);
    stream << "abc";
    script->onWrite = [] {
        throw ByteStreamWriteFailure("full", provider::ErrorCode::NoSpaceLeft);
    };
    EXPECT_NO_THROW(stream.close());
    EXPECT_FALSE(stream.is_open());
}

TEST_F(FileStreams, DestructorDropsWhatFails) {
    script->onClose = [] { throw ByteStreamCloseFailure("lost", provider::ErrorCode::IOError); };
    { vfs::ofstream const stream(file); }
    EXPECT_EQ(script->count("close"), 1);
    EXPECT_TRUE(script->destroyed);
}

TEST_F(FileStreams, DeviceFailuresSetBadbitAndAreRethrownUntranslatedOnRequest) {
    script->onRead = [] {
        throw provider::ByteStreamReadFailure("bad sector", provider::ErrorCode::IOError);
    };
    char c;
    vfs::ifstream quiet(file);
    quiet.get(c);
    EXPECT_TRUE(quiet.bad());

    vfs::ifstream loud(file);
    loud.exceptions(ios_base::badbit);
    EXPECT_THROW(loud.get(c), provider::ByteStreamReadFailure);
}

TEST_F(FileStreams, PutbackIsLimitedToWhatTheBufferHolds) {
    script->content.assign(200000, 'x');
    vfs::ifstream stream(file);
    char c;
    stream.get(c);
    EXPECT_TRUE(stream.unget());
    EXPECT_FALSE(stream.unget()) << "nothing before the first byte";
    EXPECT_TRUE(stream.bad());
    stream.clear();
    try {
        stream.rdbuf()->sungetc();
        FAIL();
    } catch (ios_base::failure const& e) {
        EXPECT_EQ(std::string(e.what()).rfind("putback buffer full", 0), 0U) << e.what();
    }
}

TEST_F(FileStreams, FourBytesBeforeARefillCanBePutBack) {
    script->content.assign(200000, 'x');
    vfs::ifstream stream(file);
    char c;
    for (int i = 0; i < 131073; ++i) {
        stream.get(c);
    }
    for (int i = 0; i < 5; ++i) {
        EXPECT_TRUE(stream.unget()) << i;
    }
    EXPECT_FALSE(stream.unget());
}

TEST_F(FileStreams, RdbufIsTheChain) {
    vfs::fstream stream(file, in | out);
    vfs::FileStreambuf* const buffer = stream.rdbuf();
    EXPECT_TRUE(buffer->is_complete());
    EXPECT_EQ(static_cast<std::ios&>(stream).rdbuf(), buffer);
}

TEST_F(FileStreams, KeepNoHandleOnTheFile) {
    std::weak_ptr<FakeProvider> const fake = storage.fake;
    auto stream = std::make_unique<vfs::ifstream>(file);
    storage.fake->onOpenReadOnlyStream = nullptr;
    storage.fake->onOpenStream = nullptr;
    file = vfs::File(provider::StorageItem(nullptr, StorageIRI(u"mem:/")), storage.reference);
    storage.system.reset();
    storage.fake.reset();
    EXPECT_TRUE(fake.expired());
    EXPECT_TRUE(stream->is_open());
}

} // namespace
