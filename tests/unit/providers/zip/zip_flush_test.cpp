// What a flush does to archives in archives, to what is copied or read meanwhile, and to the item.

#include "new_archive.hpp"

#include <foundation/storage/conformance/decorate.hpp>
#include <foundation/storage/provider/byte_stream.hpp>
#include <foundation/storage/provider/byte_stream_open_options.hpp>
#include <foundation/storage/provider/copy_file_options.hpp>
#include <foundation/storage/provider/extensions/i_links.hpp>
#include <foundation/storage/provider/memory/memory_factory.hpp>
#include <foundation/storage/provider/zip/zip_factory.hpp>

#include <fl/i18n/conversion.hpp>
#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <thread>
#include <utility>

namespace foundation::storage::provider::zip::test {
namespace {

namespace fs = std::filesystem;

using conformance::Operation;
using ::testing::Contains;
using ::testing::ElementsAre;

/// A storage that does something else before a file is opened to be read.
class Interrupted : public conformance::ProviderDecorator {
  public:
    /// Before the next one.
    std::function<void()> doBefore;

  protected:
    using ProviderDecorator::ProviderDecorator;

    void before(Operation operation, StorageIRI const*) const override {
        if (operation == Operation::OpenReadOnlyStream) {
            auto& next = const_cast<Interrupted&>(*this).doBefore; // NOLINT: a test's own
            if (auto const what = std::exchange(next, nullptr)) {
                what();
            }
        }
    }
};

StorageIRI in(StorageIRI const& archive, ustring const& path) {
    return StorageIRI(u"zip", archive, u"/" + path);
}

TEST(ZipFlush, AFolderThatOnlyItsMembersTellOfGetsAMemberBehindAStubToo) {
    NewArchive const archive("links"); // d/ has none
    std::string const bytes = archive.bytes();
    std::ofstream(archive.path(), std::ios::binary) << "#!/bin/sh\nexit\n" << bytes;
    auto const provider = archive.open();
    write(*provider, archive.at("d/more"), "of it");
    flush(*provider);
    EXPECT_THAT(contentsOf(*archive.open(), archive.at("")), Contains("d/more: of it"));
}

class ZipFlushOfAnInnerArchive : public ::testing::Test {
  protected:
    ZipFlushOfAnInnerArchive() {
        outer->createFile(item);
        inner = buildZipProvider(StorageItem(outer, item));
        write(*inner, in(item, u"x"), "1");
        flush(*inner);
        write(*outer, archive.at("other"), "2");
    }

    std::vector<std::string> onDisk() const { return contentsOf(*archive.open(), archive.at("")); }

    NewArchive const archive;
    std::shared_ptr<IProvider> const outer = archive.open();
    StorageIRI const item = archive.at("b.zip");
    std::shared_ptr<IProvider> inner;
};

TEST_F(ZipFlushOfAnInnerArchive, GoesOnWithoutOneThatIsGone) {
    outer->removeFile(item);
    flush(*outer);
    EXPECT_THAT(onDisk(), ElementsAre("other: 2"));
}

TEST_F(ZipFlushOfAnInnerArchive, GoesOnWithoutWhatIsPendingInOneThatIsGone) {
    write(*inner, in(item, u"y"), "pending");
    outer->moveFile(item, archive.at("elsewhere"), ReplacementPolicy::FailIfExists);
    flush(*outer);
    EXPECT_EQ(onDisk().size(), 2U);
    EXPECT_EQ(codeOf([&] { flush(*inner); }), 4);
    outer->moveFile(archive.at("elsewhere"), item, ReplacementPolicy::FailIfExists);
    EXPECT_EQ(read(*inner, in(item, u"y")), "pending"); // it is still there
}

TEST_F(ZipFlushOfAnInnerArchive, GoesOnWhereItIsNoArchiveAnyMore) {
    write(*outer, item, "no archive");
    flush(*outer);
    EXPECT_THAT(onDisk(), ElementsAre("b.zip: no archive", "other: 2"));
}

TEST_F(ZipFlushOfAnInnerArchive, TellsOfAFailureWhenAllTheRestIsWritten) {
    write(*inner, in(item, u"y"), "pending");
    StorageIRI const second = archive.at("c.zip");
    outer->createFile(second);
    auto const other = buildZipProvider(StorageItem(outer, second));
    write(*other, in(second, u"z"), "3");
    write(*outer, item, "what is pending is for another archive");
    EXPECT_EQ(codeOf([&] { flush(*outer); }), 6);
    EXPECT_THAT(onDisk(), Contains("other: 2"));
    auto const again = buildZipProvider(StorageItem(archive.open(), second));
    EXPECT_EQ(read(*again, in(second, u"z")), "3");
}

/// Four members, the first of which a flush takes away: so all others stand elsewhere behind it.
class ZipFlushBeside : public ::testing::Test {
  protected:
    ZipFlushBeside() {
        store->createFile(item);
        provider = buildZipProvider(StorageItem(store, item));
        write(*provider, at("a"), "content of a");
        for (char const* const name : {"b", "c", "d"}) {
            write(*provider, at(name), std::string("content of ") + name);
        }
        provider->createFolder(at("folder"));
        dynamic_cast<extensions::ILinks&>(*provider).createLink(at("link"), u"folder");
        write(*provider, at("folder/e"), "content of e");
        flush(*provider);
        provider = buildZipProvider(StorageItem(store, item));
        provider->removeFile(at("a"));
    }

    StorageIRI at(std::string const& path) const {
        return in(item, fl::i18n::storageNameToUstring(path));
    }

    StorageIRI const item{u"mem:/a.zip"};
    std::shared_ptr<Interrupted> const store =
        conformance::decorate<Interrupted>(memory::buildMemoryProvider());
    std::shared_ptr<IProvider> provider;
};

TEST_F(ZipFlushBeside, ACopyTakesTheFileThatItWasAskedFor) {
    CopyFileOptions options;
    options.progress = [&](auto, auto) {
        flush(*provider);
        return true;
    };
    provider->copyFile(at("b"), StorageItem(provider, at("copy")), options);
    EXPECT_EQ(read(*provider, at("copy")), "content of b");
    flush(*provider);
    EXPECT_EQ(read(*buildZipProvider(StorageItem(store, item)), at("copy")), "content of b");
}

TEST_F(ZipFlushBeside, AReaderFindsTheFileThatItOpens) {
    store->doBefore = [&] { flush(*provider); };
    EXPECT_EQ(read(*provider, at("b")), "content of b");
    EXPECT_FALSE(store->doBefore);
}

TEST_F(ZipFlushBeside, APathGoesWhereItsLinksLead) {
    // By another thread, as this one is in the midst of what has pending changes.
    store->doBefore = [&] { std::thread([&] { flush(*provider); }).join(); };
    EXPECT_EQ(read(*provider, at("link/e")), "content of e");
    EXPECT_FALSE(store->doBefore);
}

/// A reader finds that another has changed the item, between the look of who makes a change and
/// that change: so that is for an archive which is not there any more.
TEST_F(ZipFlushBeside, AChangeOfAnArchiveThatSomebodyElseHasReplacedIsRefused) {
    auto const changer = buildZipProvider(StorageItem(store, item));
    store->doBefore = [&] {
        flush(*provider);
        EXPECT_FALSE(changer->fileExists(at("a")));
    };
    EXPECT_EQ(codeOf([&] { changer->createFile(at("link/new")); }), 6);
    EXPECT_FALSE(store->doBefore);
}

TEST(ZipFlush, TakesTheNearestLevelThatThereIs) {
    for (int const level : {-5, 0, 10, 99}) {
        NewArchive const archive;
        ZipOptions options;
        options.compressionLevel = level;
        options.wholeMemberSize = 1000;
        auto const provider = archive.open(options);
        write(*provider, archive.at("small"), std::string(900, 'a'));
        write(*provider, archive.at("large"), std::string(90'000, 'a'));
        flush(*provider);
        EXPECT_EQ(archive.open()->getExtendedAttributes(archive.at("small")).at("zip.method"),
                  "deflate");
        EXPECT_EQ(read(*archive.open(), archive.at("large")), std::string(90'000, 'a'));
    }
}

TEST(ZipFlush, ReplacesWhatALinkLeadsToAndNotTheLink) {
    NewArchive const archive("links");
    std::string const link = archive.folder() + "/link";
    fs::create_symlink("archive.zip", link + ".zip");
    auto const provider = open(link);
    write(*provider, inside(link, "d/new"), "of it");
    flush(*provider);
    EXPECT_TRUE(fs::is_symlink(link + ".zip"));
    EXPECT_EQ(read(*archive.open(), archive.at("d/new")), "of it");
}

TEST(ZipFlush, ReplacesWhatALinkInAnArchiveLeadsTo) {
    NewArchive const archive;
    auto const outer = archive.open();
    outer->createFile(archive.at("b.zip"));
    auto& links = dynamic_cast<extensions::ILinks&>(*outer);
    links.createLink(archive.at("link.zip"), u"b.zip");
    StorageIRI const link = archive.at("link.zip");
    auto const inner = buildZipProvider(StorageItem(outer, link));
    write(*inner, in(link, u"x"), "1");
    flush(*inner);
    auto const again = archive.open();
    EXPECT_EQ(again->existsExtended(link), ExtendedExistsResult::LinkToFile);
    auto const target = buildZipProvider(StorageItem(again, archive.at("b.zip")));
    EXPECT_EQ(read(*target, in(archive.at("b.zip"), u"x")), "1");
}

} // namespace
} // namespace foundation::storage::provider::zip::test
