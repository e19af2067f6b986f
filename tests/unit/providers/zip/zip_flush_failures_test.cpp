// A flush that fails leaves the old archive, and what is pending pending.

#include "new_archive.hpp"

#include <foundation/storage/conformance/decorate.hpp>
#include <foundation/storage/conformance/fault_injector.hpp>
#include <foundation/storage/provider/memory/memory_factory.hpp>
#include <foundation/storage/provider/zip/zip_factory.hpp>

#include <gmock/gmock.h>

#include <functional>
#include <type_traits>

namespace foundation::storage::provider::zip::test {
namespace {

using conformance::decorate;
using conformance::FaultInjector;
using conformance::Operation;
using ::testing::ElementsAre;

/// A storage that writes files in place.
class WritingInPlace : public conformance::ProviderDecorator {
  public:
    template<class Extension>
    static constexpr bool handsOn = !std::is_same_v<Extension, extensions::IReplacingStreams>;

  protected:
    using ProviderDecorator::ProviderDecorator;
};

struct Store {
    std::shared_ptr<IProvider> provider;
    StorageIRI file;
};

Store inMemory() {
    return {memory::buildMemoryProvider(), StorageIRI(u"mem:/a.zip")};
}
Store inPlace() {
    return {decorate<WritingInPlace>(memory::buildMemoryProvider()), StorageIRI(u"mem:/a.zip")};
}
Store inArchive() {
    auto const store = memory::buildMemoryProvider();
    StorageIRI const outer(u"mem:/outer.zip");
    store->createFile(outer);
    return {buildZipProvider(StorageItem(store, outer)), StorageIRI(u"zip", outer, u"/a.zip")};
}

StorageIRI at(Store const& store, ustring const& path) {
    return StorageIRI(u"zip", store.file, u"/" + path);
}

/// Two members, one of which is large enough to be copied in pieces.
void fill(Store const& store) {
    store.provider->createFile(store.file);
    auto const archive = buildZipProvider(StorageItem(store.provider, store.file));
    write(*archive, at(store, u"kept"), someBytes(600'000, 1));
    write(*archive, at(store, u"changed"), "old");
    flush(*archive);
}

std::string const largeBytes = someBytes(400'000, 2);
std::vector<std::string> const newContents{"kept: " + someBytes(600'000, 1), "changed: new",
                                           "large: " + largeBytes};

/// With members that are deflated piece by piece.
ZipOptions smallPieces() {
    ZipOptions options;
    options.wholeMemberSize = 50'000;
    return options;
}

/// Lets one thing after another fail during a flush, until nothing does.
void failEach(Store (*makeStore)(),
              std::function<void(FaultInjector&, std::uint64_t)> const& failAt) {
    for (std::uint64_t call = 1;; ++call) {
        ASSERT_LT(call, 200U);
        SCOPED_TRACE(call);
        Store const store = makeStore();
        fill(store);
        auto const faults = decorate<FaultInjector>(store.provider);
        auto const archive = buildZipProvider(StorageItem(faults, store.file), smallPieces());
        write(*archive, at(store, u"changed"), "new");
        write(*archive, at(store, u"large"), largeBytes);
        std::string const old = read(*store.provider, store.file);

        failAt(*faults, call);
        int const code = codeOf([&] { flush(*archive); });
        bool const struck = faults->countOfFaults() != 0;
        faults->clear();
        if (code >= 0) {
            EXPECT_EQ(code, static_cast<int>(ErrorCode::NoSpaceLeft));
            EXPECT_EQ(archive->fileExists(at(store, u"large")), true);
            if (read(*store.provider, store.file) == old) {
                flush(*archive); // it is all still there
            }
        }
        auto const again = buildZipProvider(StorageItem(store.provider, store.file));
        EXPECT_EQ(contentsOf(*again, at(store, u"")), newContents);
        EXPECT_EQ(contentsOf(*archive, at(store, u"")), newContents);
        if (!struck) {
            EXPECT_EQ(code, -1);
            EXPECT_GT(call, 1U);
            return;
        }
    }
}

void failAnything(FaultInjector& faults, std::uint64_t call) {
    faults.failAtAny(call, ErrorCode::NoSpaceLeft);
}
template<Operation operation>
void failOf(FaultInjector& faults, std::uint64_t call) {
    faults.failAt(operation, call, ErrorCode::NoSpaceLeft);
}
void shortenWrite(FaultInjector& faults, std::uint64_t call) {
    faults.shortenWriteAt(call, ErrorCode::NoSpaceLeft);
}

class ZipFlushFailures : public ::testing::TestWithParam<Store (*)()> {};

TEST_P(ZipFlushFailures, OfTheStorageLeaveTheOldArchive) {
    failEach(GetParam(), failAnything);
}
TEST_P(ZipFlushFailures, OfReadsLeaveTheOldArchive) {
    failEach(GetParam(), failOf<Operation::Read>);
}
TEST_P(ZipFlushFailures, OfSeeksLeaveTheOldArchive) {
    failEach(GetParam(), failOf<Operation::Seek>);
}
TEST_P(ZipFlushFailures, OfWritesLeaveTheOldArchive) {
    failEach(GetParam(), failOf<Operation::Write>);
}
TEST_P(ZipFlushFailures, OfHalfAWriteLeaveTheOldArchive) {
    failEach(GetParam(), shortenWrite);
}
TEST_P(ZipFlushFailures, OfClosingLeaveTheOldArchive) {
    failEach(GetParam(), failOf<Operation::Close>);
}

std::string nameOf(::testing::TestParamInfo<Store (*)()> const& store) {
    return store.param == inMemory ? "InMemory" : store.param == inPlace ? "InPlace" : "InArchive";
}

INSTANTIATE_TEST_SUITE_P(Of, ZipFlushFailures, ::testing::Values(inMemory, inPlace, inArchive),
                         nameOf);

TEST(ZipWriting, AFailureOfTheTemporaryFileLeavesTheOldArchive) {
    Store const store = inMemory();
    fill(store);
    ZipOptions options = smallPieces();
    options.maximumPendingMemory = 500'000; // not for what it is deflated into
    options.temporaryFolder = "/nowhere";
    auto const archive = buildZipProvider(StorageItem(store.provider, store.file), options);
    write(*archive, at(store, u"large"), largeBytes);
    std::string const old = read(*store.provider, store.file);
    EXPECT_EQ(codeOf([&] { flush(*archive); }), 4);
    EXPECT_EQ(read(*store.provider, store.file), old);
    EXPECT_EQ(read(*archive, at(store, u"large")), largeBytes);
}

/// A flush into a storage that takes nothing any more, neither what is new nor what was there.
void flushIntoNothing(Store const& store, FaultInjector& faults, IProvider& archive) {
    faults.failAt(Operation::Write, 1, ErrorCode::NoSpaceLeft, conformance::Faulty::FromThenOn);
    EXPECT_EQ(codeOf([&] { flush(archive); }), static_cast<int>(ErrorCode::NoSpaceLeft));
    EXPECT_EQ(codeOf([&] { flush(archive); }), static_cast<int>(ErrorCode::NoSpaceLeft));
    faults.clear();
    EXPECT_EQ(read(*store.provider, store.file), "");
}

TEST(ZipFlushInPlace, GoesOnWhenTheStorageTakesSomethingAgain) {
    Store const store = inPlace();
    fill(store);
    auto const faults = decorate<FaultInjector>(store.provider);
    auto const archive = buildZipProvider(StorageItem(faults, store.file));
    write(*archive, at(store, u"changed"), "new");
    write(*archive, at(store, u"large"), largeBytes);
    flushIntoNothing(store, *faults, *archive);
    flush(*archive);
    auto const again = buildZipProvider(StorageItem(store.provider, store.file));
    EXPECT_EQ(contentsOf(*again, at(store, u"")), newContents);
}

TEST(ZipFlushInPlace, LeavesTheOldArchiveAtTheLatestWhenTheProviderGoes) {
    Store const store = inPlace();
    fill(store);
    std::string const old = read(*store.provider, store.file);
    auto const faults = decorate<FaultInjector>(store.provider);
    {
        auto const archive = buildZipProvider(StorageItem(faults, store.file));
        write(*archive, at(store, u"changed"), "new");
        flushIntoNothing(store, *faults, *archive);
    }
    EXPECT_EQ(read(*store.provider, store.file), old);
}

TEST(ZipFlush, KeepsWhoWritesWhateverFailsWhenItIsPublished) {
    bool struck = true;
    for (std::uint64_t call = 1; struck; ++call) {
        ASSERT_LT(call, 200U);
        SCOPED_TRACE(call);
        Store const store = inMemory();
        fill(store);
        auto const faults = decorate<FaultInjector>(store.provider);
        auto const archive = buildZipProvider(StorageItem(faults, store.file));
        auto const stream = archive->openStream(at(store, u"changed"), {});
        stream->write("n", 1);
        faults->failAtAny(call, ErrorCode::NoSpaceLeft);
        codeOf([&] { flush(*archive); });
        struck = faults->countOfFaults() != 0;
        faults->clear();
        stream->write("ew", 2);
        stream->close();
        flush(*archive);
        auto const again = buildZipProvider(StorageItem(store.provider, store.file));
        EXPECT_EQ(read(*again, at(store, u"changed")), "new");
    }
}

} // namespace
} // namespace foundation::storage::provider::zip::test
