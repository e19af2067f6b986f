#include <foundation/storage/conformance/decorate.hpp>

#include "recording_provider.hpp"

#include <foundation/storage/conformance/call_counter.hpp>
#include <foundation/storage/conformance/call_delayer.hpp>
#include <foundation/storage/conformance/fault_injector.hpp>
#include <foundation/storage/provider/memory/memory_factory.hpp>

#include <gtest/gtest.h>

#include <functional>
#include <span>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace {

using namespace conformance_test;

/// What the hook was told, and how many calls the inner provider had had by then.
class Told : public ProviderDecorator {
  public:
    mutable std::vector<std::pair<Operation, ustring>> told;
    bool refuses = false;

  protected:
    explicit Told(std::shared_ptr<IProvider> inner) : ProviderDecorator(std::move(inner)) {}
    void before(Operation operation, StorageIRI const* location) const override {
        told.emplace_back(operation, location ? location->getPath() : ustring());
        if (refuses) {
            throw Exception(ErrorCode::IOError, location ? *location : at(u"/"));
        }
    }
};

using Call = std::function<void(IProvider&)>;

/// Every operation of a provider.
std::vector<std::pair<Operation, Call>> const& everyCall() {
    StorageIRI const x = at(u"/x");
    using enum Operation;
    static std::vector<std::pair<Operation, Call>> const calls{
        {Exists, [=](IProvider& p) { EXPECT_EQ(p.exists(x), ExistsResult::Folder); }},
        {ExistsExtended,
         [=](IProvider& p) { EXPECT_EQ(p.existsExtended(x), ExtendedExistsResult::Other); }},
        {FileExists, [=](IProvider& p) { EXPECT_TRUE(p.fileExists(x)); }},
        {FolderExists, [=](IProvider& p) { EXPECT_TRUE(p.folderExists(x)); }},
        {HasFeature,
         [=](IProvider& p) { EXPECT_TRUE(p.hasFeature(x, ExtendedFeature::RecursiveListing)); }},
        {GetCanonicalLocation,
         [=](IProvider& p) { EXPECT_EQ(p.getCanonicalLocation(x), at(u"/canonical")); }},
        {GetPathComparator, [=](IProvider& p) { EXPECT_FALSE(p.getPathComparator(x)); }},
        {GetFilenameSensitivity,
         [=](IProvider& p) {
             EXPECT_EQ(p.getFilenameSensitivity(x), FilenameSensitivity::Insensitive);
         }},
        {GetFileAttributes,
         [=](IProvider& p) { EXPECT_TRUE(p.getFileAttributes(x).isWritable()); }},
        {GetFolderAttributes,
         [=](IProvider& p) { EXPECT_TRUE(p.getFolderAttributes(x).isWritable()); }},
        {GetExtendedAttributes,
         [=](IProvider& p) { EXPECT_EQ(p.getExtendedAttributes(x).at("key"), "value"); }},
        {SetLastModified, [=](IProvider& p) { p.setLastModified(x, {}); }},
        {SetWritable, [=](IProvider& p) { p.setWritable(x, true); }},
        {CreateFile, [=](IProvider& p) { p.createFile(x); }},
        {CreateFolder, [=](IProvider& p) { p.createFolder(x); }},
        {CreateFolderRecursive, [=](IProvider& p) { p.createFolderRecursive(x); }},
        {RemoveFile, [=](IProvider& p) { p.removeFile(x); }},
        {RemoveFolder, [=](IProvider& p) { p.removeFolder(x); }},
        {RemoveFolderRecursively, [=](IProvider& p) { p.removeFolderRecursively(x); }},
        {CopyFile,
         [=](IProvider& p) {
             StorageItem const elsewhere(std::make_shared<RecordingProvider>(), at(u"/y"));
             EXPECT_EQ(p.copyFile(x, elsewhere, {}), CopyStatus::CopiedWithTimes);
         }},
        {MoveFile, [=](IProvider& p) { p.moveFile(x, at(u"/y"), {}); }},
        {MoveFolder, [=](IProvider& p) { p.moveFolder(x, at(u"/y"), {}); }},
        {OpenStream, [=](IProvider& p) { p.openStream(x, {}); }},
        {OpenReadOnlyStream, [=](IProvider& p) { p.openReadOnlyStream(x); }},
        {ListAll, [=](IProvider& p) { p.listAll(x, u"*"); }},
        {ListFiles, [=](IProvider& p) { p.listFiles(x, u"*"); }},
        {ListFolders, [=](IProvider& p) { p.listFolders(x, u"*"); }},
        {ListAllNamesOnly, [=](IProvider& p) { p.listAllNamesOnly(x, u"*"); }},
        {ListFilesNamesOnly, [=](IProvider& p) { p.listFilesNamesOnly(x, u"*"); }},
        {ListFoldersNamesOnly, [=](IProvider& p) { p.listFoldersNamesOnly(x, u"*"); }},
        {ListAllRecursive, [=](IProvider& p) { p.listAllRecursive(x, u"*"); }},
        {ListAllRecursiveNamesOnly, [=](IProvider& p) { p.listAllRecursiveNamesOnly(x, u"*"); }},
        {PublishFileEvents, [=](IProvider& p) { p.publishFileEvents(x, {}, {}); }},
        {PublishFolderEvents,
         [=](IProvider& p) { p.publishFolderEvents(x, {}, {}, RecursiveFileWatching::Recursive); }},
        {StopPublishingFileEvents, [=](IProvider& p) { p.stopPublishingFileEvents(x); }},
        {StopPublishingFolderEvents, [=](IProvider& p) { p.stopPublishingFolderEvents(x); }},
    };
    return calls;
}

TEST(ProviderDecorator, TellsEveryOperationAndHandsItOn) {
    auto const inner = std::make_shared<RecordingProvider>();
    inner->values.writable = true;
    auto const decorated = decorate<Told>(inner);
    for (auto const& [operation, call] : everyCall()) {
        inner->calls.clear();
        decorated->told.clear();
        call(*decorated);
        ASSERT_EQ(decorated->told.size(), 1U) << operation;
        EXPECT_EQ(decorated->told[0], std::pair(operation, ustring(u"/x")));
        ASSERT_EQ(inner->calls.size(), 1U) << operation;
        EXPECT_EQ(inner->calls[0].operation, operation);
        EXPECT_EQ(inner->calls[0].location, at(u"/x"));
    }
    EXPECT_EQ(inner->lastFilter, u"*");
    EXPECT_EQ(everyCall().size(), static_cast<std::size_t>(Operation::HasNext));
}

TEST(ProviderDecorator, DoesNotAskTheInnerProviderWhatTheHookRefuses) {
    auto const inner = std::make_shared<RecordingProvider>();
    auto const decorated = decorate<Told>(inner);
    decorated->refuses = true;
    for (auto const& [operation, call] : everyCall()) {
        EXPECT_THROW(call(*decorated), Exception) << operation;
    }
    EXPECT_TRUE(inner->calls.empty());
}

TEST(ProviderDecorator, TellsEveryStepOfACursorAndOfItsClones) {
    auto const decorated = decorate<Told>(std::make_shared<RecordingProvider>());
    auto const cursor = decorated->listAll(at(u"/x"), u"");
    decorated->told.clear();
    EXPECT_TRUE(cursor->hasNext());
    cursor->advance();
    EXPECT_EQ(cursor->currentEntry().getName(), u"entry");
    std::unique_ptr<IFolderEntryIterator> const clone(cursor->cloneIterator());
    clone->advance();
    clone->advance();
    EXPECT_FALSE(clone->hasNext());
    EXPECT_TRUE(cursor->hasNext());
    std::vector<Operation> operations;
    for (auto const& [operation, path] : decorated->told) {
        operations.push_back(operation);
        EXPECT_EQ(path, u"/x");
    }
    using enum Operation;
    EXPECT_EQ(operations, (std::vector{HasNext, Advance, CurrentEntry, CloneIterator, Advance,
                                       Advance, HasNext, HasNext}));
}

TEST(ProviderDecorator, ACursorKeepsTheDecorator) {
    auto decorated = decorate<Told>(std::make_shared<RecordingProvider>());
    std::weak_ptr<Told> const weak = decorated;
    auto cursor = decorated->listAll(at(u"/x"), u"");
    decorated.reset();
    EXPECT_TRUE(cursor->hasNext());
    EXPECT_FALSE(weak.expired());
    cursor.reset();
    EXPECT_TRUE(weak.expired());
}

TEST(ProviderDecorator, ACopyToAnItemOfItsOwnIsOneOfTheInnerProvider) {
    auto const inner = std::make_shared<RecordingProvider>();
    auto const decorated = decorate<Told>(decorate<Told>(inner));
    decorated->copyFile(at(u"/x"), StorageItem(decorated, at(u"/y")), {});
    EXPECT_EQ(inner->copiedTo.lock(), inner);
}

TEST(ProviderDecorator, ACopyElsewhereGoesWhereItIsSent) {
    auto const inner = std::make_shared<RecordingProvider>();
    auto const decorated = decorate<Told>(inner);
    auto const other = decorate<Told>(inner);
    decorated->copyFile(at(u"/x"), StorageItem(other, at(u"/y")), {});
    EXPECT_EQ(inner->copiedTo.lock(), other);
}

TEST(ProviderDecorator, NeedsAProvider) {
    EXPECT_THROW(decorate<Told>(nullptr), std::invalid_argument);
}

class Linking : public RecordingProvider, public extensions::ILinks {
  public:
    ustring readLink(StorageIRI const&) const override { return u"target"; }
    void createLink(StorageIRI const& location, ustring const&) override {
        record(Operation::CreateLink, location);
    }
};

template<bool hasLinks>
using Plain = std::conditional_t<hasLinks, Linking, RecordingProvider>;

template<bool hasLinks>
class Replacing : public Plain<hasLinks>, public extensions::IReplacingStreams {
  public:
    std::unique_ptr<ByteStream> openReplacement(StorageIRI const& location,
                                                ReplacementPolicy const&) override {
        this->record(Operation::OpenReplacement, location);
        return nullptr;
    }
};

template<class Base>
class Flushing : public Base, public extensions::IFlushableFilesystem {
  public:
    void flushFilesystem() override { this->record(Operation::FlushFilesystem, at(u"/flushed")); }
};

template<class Provider>
void expectSameExtensions() {
    auto const inner = std::make_shared<Provider>();
    auto const decorated = decorate<Told>(inner);
    auto* const links = dynamic_cast<extensions::ILinks*>(decorated.get());
    auto* const replacing = dynamic_cast<extensions::IReplacingStreams*>(decorated.get());
    auto* const flushing = dynamic_cast<extensions::IFlushableFilesystem*>(decorated.get());
    ASSERT_EQ(links != nullptr, (std::is_base_of_v<extensions::ILinks, Provider>));
    ASSERT_EQ(replacing != nullptr, (std::is_base_of_v<extensions::IReplacingStreams, Provider>));
    ASSERT_EQ(flushing != nullptr, (std::is_base_of_v<extensions::IFlushableFilesystem, Provider>));
    ASSERT_EQ(dynamic_cast<extensions::IFolderAttributes*>(decorated.get()), nullptr);

    std::vector<std::pair<Operation, ustring>> expected;
    if (links) {
        EXPECT_EQ(links->readLink(at(u"/x")), u"target");
        links->createLink(at(u"/y"), u"target");
        expected.emplace_back(Operation::ReadLink, u"/x");
        expected.emplace_back(Operation::CreateLink, u"/y");
    }
    if (replacing) {
        replacing->openReplacement(at(u"/z"), ReplacementPolicy::ReplaceExisting);
        expected.emplace_back(Operation::OpenReplacement, u"/z");
    }
    if (flushing) {
        flushing->flushFilesystem();
        expected.emplace_back(Operation::FlushFilesystem, u"");
    }
    EXPECT_EQ(decorated->told, expected);
    EXPECT_EQ(inner->calls.size(), expected.size() - (links ? 1 : 0));

    decorated->refuses = true;
    if (links) {
        EXPECT_THROW(links->createLink(at(u"/y"), u"target"), Exception);
    }
    if (flushing) {
        EXPECT_THROW(flushing->flushFilesystem(), Exception);
    }
    EXPECT_EQ(inner->calls.size(), expected.size() - (links ? 1 : 0));
}

TEST(ProviderDecorator, HasTheExtensionsOfTheInnerProviderAndNoOthers) {
    expectSameExtensions<RecordingProvider>();
    expectSameExtensions<Linking>();
    expectSameExtensions<Replacing<false>>();
    expectSameExtensions<Replacing<true>>();
    expectSameExtensions<Flushing<RecordingProvider>>();
    expectSameExtensions<Flushing<Linking>>();
    expectSameExtensions<Flushing<Replacing<false>>>();
    expectSameExtensions<Flushing<Replacing<true>>>();
}

TEST(ProviderDecorator, AttributesOfAFolderAreSetInTheInnerProvider) {
    auto const decorated = decorate<Told>(memory::buildMemoryProvider());
    auto& folders = dynamic_cast<extensions::IFolderAttributes&>(*decorated);
    StorageIRI const root(u"mem:/");
    folders.setFolderAttributes(root, {0700, {}, {}});
    EXPECT_EQ(decorated->told,
              (std::vector{std::pair(Operation::SetFolderAttributes, ustring(u"/"))}));
    EXPECT_EQ(decorated->getFolderAttributes(root).values().mode, 0700U);

    decorated->refuses = true;
    EXPECT_THROW(folders.setFolderAttributes(root, {0755, {}, {}}), Exception);
}

/// Says of every small file that it was copied.
class SmallFileCopying : public RecordingProvider, public extensions::ISmallFileCopies {
  public:
    void copySmallFiles(StorageIRI const& from, StorageIRI const&,
                        std::span<extensions::SmallFileCopy> files) override {
        record(Operation::CopySmallFiles, from);
        for (auto& file : files) {
            file.isCopied = true;
        }
    }
};

/// Whether the small file of a folder was copied.
bool copiesSmallFiles(IProvider& provider) {
    ustring const name(u"file");
    extensions::SmallFileCopy file{&name};
    dynamic_cast<extensions::ISmallFileCopies&>(provider).copySmallFiles(at(u"/x"), at(u"/y"),
                                                                         {&file, 1});
    return file.isCopied;
}

TEST(ProviderDecorator, SmallFilesOfAFolderAreCopiedByTheInnerProvider) {
    auto const inner = std::make_shared<SmallFileCopying>();
    auto const decorated = decorate<Told>(decorate<Told>(inner));
    EXPECT_TRUE(copiesSmallFiles(*decorated));
    EXPECT_EQ(decorated->told, (std::vector{std::pair(Operation::CopySmallFiles, ustring(u"/x"))}));
    EXPECT_EQ(inner->calls.size(), 1U);
    EXPECT_EQ(dynamic_cast<extensions::IFolderAttributes*>(decorated.get()), nullptr);
}

TEST(ProviderDecorator, OffersNoCopiesOfSmallFilesThatTheInnerProviderDoesNotOffer) {
    auto const decorated = decorate<Told>(std::make_shared<Flushing<Linking>>());
    EXPECT_EQ(dynamic_cast<extensions::ISmallFileCopies*>(decorated.get()), nullptr);
}

TEST(ProviderDecorator, SmallFilesAreLeftWhereTheHookRefusesAsTheExtensionGivesNoReasons) {
    auto const inner = std::make_shared<SmallFileCopying>();
    auto const injector = decorate<FaultInjector>(inner);
    injector->failAt(Operation::CopySmallFiles, 1, ErrorCode::IOError);
    EXPECT_FALSE(copiesSmallFiles(*injector));
    EXPECT_EQ(injector->countOfFaults(), 1U);
    EXPECT_TRUE(inner->calls.empty());
    EXPECT_TRUE(copiesSmallFiles(*injector));
}

TEST(ProviderDecorator, CopiesOfSmallFilesAreCountedAndDelayed) {
    int delays = 0;
    auto const counter = decorate<CallCounter>(std::make_shared<SmallFileCopying>());
    auto const delayer = decorate<CallDelayer>(
        counter, [&](Operation, StorageIRI const*) { ++delays; },
        CallDelayer::Operations{Operation::CopySmallFiles});
    EXPECT_TRUE(copiesSmallFiles(*delayer));
    EXPECT_EQ(delays, 1);
    EXPECT_EQ(counter->countOf(Operation::CopySmallFiles), 1U);
}

TEST(ProviderDecorator, ALinkIsCopiedAsOneFromAStoreToADecoratedStore) {
    auto const store = memory::buildMemoryProvider();
    auto const decorated = decorate<Told>(memory::buildMemoryProvider());
    dynamic_cast<extensions::ILinks&>(*store).createLink(StorageIRI(u"mem:/link"), u"target");
    store->copyFile(StorageIRI(u"mem:/link"), StorageItem(decorated, StorageIRI(u"mem:/copy")), {});
    EXPECT_EQ(decorated->existsExtended(StorageIRI(u"mem:/copy")),
              ExtendedExistsResult::DanglingLink);
}

TEST(Operation, IsWrittenByName) {
    std::ostringstream out;
    out << Operation::Exists << ' ' << Operation::ListAllRecursiveNamesOnly << ' '
        << Operation::FlushFilesystem << ' ' << static_cast<Operation>(operationCount);
    EXPECT_EQ(out.str(), "Exists ListAllRecursiveNamesOnly FlushFilesystem unknown operation");
}

} // namespace
