#include <foundation/storage/conformance/read_only.hpp>

#include "recording_provider.hpp"

#include <foundation/storage/conformance/call_counter.hpp>
#include <foundation/storage/conformance/decorate.hpp>
#include <foundation/storage/provider/extensions/i_folder_attributes.hpp>
#include <foundation/storage/provider/extensions/i_small_file_copies.hpp>
#include <foundation/storage/provider/memory/memory_provider.hpp>

#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace {

using namespace conformance_test;

/// Where the refusal of a change is, by its path; nothing where it is not refused.
std::optional<ustring> refusalOf(std::function<void()> const& change) {
    try {
        change();
    } catch (Exception const& e) {
        EXPECT_EQ(e.getErrorCode(), ErrorCode::ReadOnlyProvider);
        return e.getStorageIRI().getPath();
    }
    return std::nullopt;
}

/// Has every extension.
class Everything : public RecordingProvider,
                   public extensions::ILinks,
                   public extensions::IReplacingStreams,
                   public extensions::IFolderAttributes,
                   public extensions::ISmallFileCopies,
                   public extensions::IFlushableFilesystem {
  public:
    ustring readLink(StorageIRI const&) const override { return u"target"; }
    void createLink(StorageIRI const& location, ustring const&) override {
        record(Operation::CreateLink, location);
    }
    std::unique_ptr<ByteStream> openReplacement(StorageIRI const& location,
                                                ReplacementPolicy const&) override {
        record(Operation::OpenReplacement, location);
        return nullptr;
    }
    void setFolderAttributes(StorageIRI const& location,
                             extensions::FolderAttributeChange const&) override {
        record(Operation::SetFolderAttributes, location);
    }
    void copySmallFiles(StorageIRI const& from, StorageIRI const&,
                        std::span<extensions::SmallFileCopy>) override {
        record(Operation::CopySmallFiles, from);
    }
    void flushFilesystem() override { record(Operation::FlushFilesystem, at(u"/flushed")); }
};

class ReadOnlyTest : public testing::Test {
  protected:
    std::shared_ptr<Everything> inner = std::make_shared<Everything>();
    std::shared_ptr<ReadOnly> readOnly = decorate<ReadOnly>(inner);
};

TEST_F(ReadOnlyTest, RefusesEveryChangeAndDoesNotAskForIt) {
    StorageIRI const x = at(u"/x");
    std::vector<std::function<void()>> const changes{
        [&] { readOnly->setLastModified(x, {}); },
        [&] { readOnly->setWritable(x, true); },
        [&] { readOnly->createFile(x); },
        [&] { readOnly->createFolder(x); },
        [&] { readOnly->createFolderRecursive(x); },
        [&] { readOnly->removeFile(x); },
        [&] { readOnly->removeFolder(x); },
        [&] { readOnly->removeFolderRecursively(x); },
        [&] { readOnly->moveFile(x, at(u"/y"), {}); },
        [&] { readOnly->moveFolder(x, at(u"/y"), {}); },
        [&] { readOnly->openStream(x, {}); },
        [&] { readOnly->copyFile(at(u"/source"), StorageItem(readOnly, x), {}); },
        [&] { dynamic_cast<extensions::ILinks&>(*readOnly).createLink(x, u"target"); },
    };
    for (std::size_t i = 0; i < changes.size(); ++i) {
        EXPECT_EQ(refusalOf(changes[i]), u"/x") << "change " << i;
    }
    EXPECT_TRUE(inner->calls.empty());
}

TEST_F(ReadOnlyTest, PassesWhatChangesNothing) {
    StorageIRI const x = at(u"/x");
    EXPECT_EQ(readOnly->exists(x), ExistsResult::Folder);
    EXPECT_EQ(readOnly->getExtendedAttributes(x).at("key"), "value");
    EXPECT_TRUE(readOnly->listAll(x, u"*")->hasNext());
    readOnly->openReadOnlyStream(x);
    readOnly->publishFileEvents(x, {}, {});
    EXPECT_EQ(dynamic_cast<extensions::ILinks&>(*readOnly).readLink(x), u"target");
    dynamic_cast<extensions::IFlushableFilesystem&>(*readOnly).flushFilesystem();
    EXPECT_EQ(inner->calls.size(), 6U);
}

TEST_F(ReadOnlyTest, OffersNoExtensionThatDoesNothingButChange) {
    EXPECT_EQ(dynamic_cast<extensions::IReplacingStreams*>(readOnly.get()), nullptr);
    EXPECT_EQ(dynamic_cast<extensions::IFolderAttributes*>(readOnly.get()), nullptr);
    EXPECT_EQ(dynamic_cast<extensions::ISmallFileCopies*>(readOnly.get()), nullptr);
}

TEST_F(ReadOnlyTest, HasEveryFeatureButTheRemovalOfTrees) {
    StorageIRI const x = at(u"/x");
    EXPECT_FALSE(readOnly->hasFeature(x, ExtendedFeature::RecursiveFolderRemoval));
    EXPECT_TRUE(readOnly->hasFeature(x, ExtendedFeature::RecursiveListing));
    EXPECT_TRUE(readOnly->hasFeature(x, ExtendedFeature::RecursiveChangeEvents));
}

TEST_F(ReadOnlyTest, RefusesAlsoBehindAnotherDecorator) {
    auto const counter = decorate<CallCounter>(readOnly);
    EXPECT_EQ(
        refusalOf([&] { counter->copyFile(at(u"/source"), StorageItem(counter, at(u"/x")), {}); }),
        u"/x");
    EXPECT_EQ(dynamic_cast<extensions::IReplacingStreams*>(counter.get()), nullptr);
}

TEST(ReadOnly, IsCopiedFromAndNotTo) {
    auto const store = std::make_shared<memory::MemoryProvider>();
    auto const other = std::make_shared<memory::MemoryProvider>();
    StorageIRI const file(u"mem:/file");
    StorageIRI const copy(u"mem:/copy");
    store->createFile(file);
    other->createFile(file);
    auto const readOnly = decorate<ReadOnly>(store);
    readOnly->copyFile(file, StorageItem(other, copy), {});
    EXPECT_EQ(other->exists(copy), ExistsResult::File);

    EXPECT_EQ(refusalOf([&] { other->copyFile(file, StorageItem(readOnly, copy), {}); }),
              copy.getPath());
    EXPECT_EQ(store->exists(copy), ExistsResult::Nothing);
}

} // namespace
