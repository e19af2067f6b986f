#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/provider/extensions/i_flushable_filesystem.hpp>
#include <foundation/storage/provider/malformed_iri_exception.hpp>
#include <foundation/storage/provider/storage_item.hpp>

#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <boost/property_tree/ptree.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <utility>

using namespace foundation::storage::provider;
using fl::i18n::ustring;
using testing::_;
using testing::Ref;
using testing::Return;

namespace {

using Cursor = std::unique_ptr<IFolderEntryIterator>;
using Stream = std::unique_ptr<ByteStream>;

class MockProvider : public IProvider {
  public:
    MOCK_METHOD(ExistsResult, exists, (StorageIRI const&), (const, override));
    MOCK_METHOD(bool, fileExists, (StorageIRI const&), (const, override));
    MOCK_METHOD(bool, folderExists, (StorageIRI const&), (const, override));
    MOCK_METHOD(bool, hasFeature, (StorageIRI const&, ExtendedFeature const&), (const, override));
    MOCK_METHOD(StorageIRI, getCanonicalLocation, (StorageIRI const&), (const, override));
    MOCK_METHOD(PathComparatorFunction, getPathComparator, (StorageIRI const&), (const, override));
    MOCK_METHOD(FilenameSensitivity, getFilenameSensitivity, (StorageIRI const&),
                (const, override));
    MOCK_METHOD(FileAttributes, getFileAttributes, (StorageIRI const&), (const, override));
    MOCK_METHOD(FolderAttributes, getFolderAttributes, (StorageIRI const&), (const, override));
    MOCK_METHOD(ExtendedAttributes, getExtendedAttributes, (StorageIRI const&), (const, override));
    MOCK_METHOD(void, setLastModified, (StorageIRI const&, boost::posix_time::ptime const&),
                (override));
    MOCK_METHOD(void, setWritable, (StorageIRI const&, bool), (override));
    MOCK_METHOD(void, createFile, (StorageIRI const&), (override));
    MOCK_METHOD(void, createFolder, (StorageIRI const&), (override));
    MOCK_METHOD(void, createFolderRecursive, (StorageIRI const&), (override));
    MOCK_METHOD(void, removeFile, (StorageIRI const&), (override));
    MOCK_METHOD(void, removeFolder, (StorageIRI const&), (override));
    MOCK_METHOD(void, removeFolderRecursively, (StorageIRI const&), (override));
    MOCK_METHOD(CopyStatus, copyFile,
                (StorageIRI const&, StorageItem const&, CopyFileOptions const&), (override));
    MOCK_METHOD(void, moveFile, (StorageIRI const&, StorageIRI const&, ReplacementPolicy const&),
                (override));
    MOCK_METHOD(void, moveFolder, (StorageIRI const&, StorageIRI const&, ReplacementPolicy const&),
                (override));
    MOCK_METHOD(Stream, openStream, (StorageIRI const&, ByteStreamOpenOptions const&), (override));
    MOCK_METHOD(Stream, openReadOnlyStream, (StorageIRI const&), (const, override));
    MOCK_METHOD(Cursor, listAll, (StorageIRI const&, ustring const&), (const, override));
    MOCK_METHOD(Cursor, listFiles, (StorageIRI const&, ustring const&), (const, override));
    MOCK_METHOD(Cursor, listFolders, (StorageIRI const&, ustring const&), (const, override));
    MOCK_METHOD(Cursor, listAllNamesOnly, (StorageIRI const&, ustring const&), (const, override));
    MOCK_METHOD(Cursor, listFilesNamesOnly, (StorageIRI const&, ustring const&), (const, override));
    MOCK_METHOD(Cursor, listFoldersNamesOnly, (StorageIRI const&, ustring const&),
                (const, override));
    MOCK_METHOD(Cursor, listAllRecursive, (StorageIRI const&, ustring const&), (const, override));
    MOCK_METHOD(Cursor, listAllRecursiveNamesOnly, (StorageIRI const&, ustring const&),
                (const, override));
    MOCK_METHOD(void, publishFileEvents, (StorageIRI const&, ChangeCallback, ChangeKinds const&),
                (override));
    MOCK_METHOD(void, publishFolderEvents,
                (StorageIRI const&, ChangeCallback, ChangeKinds const&, RecursiveFileWatching),
                (override));
    MOCK_METHOD(void, stopPublishingFileEvents, (StorageIRI const&), (override));
    MOCK_METHOD(void, stopPublishingFolderEvents, (StorageIRI const&), (override));
};

class FlushableProvider final : public testing::NiceMock<MockProvider>,
                                public extensions::IFlushableFilesystem {
  public:
    MOCK_METHOD(void, flushFilesystem, (), (override));
};

class StorageItemTest : public testing::Test {
  protected:
    StorageIRI const location_{u"mem:/folder/name"};
    std::shared_ptr<testing::StrictMock<MockProvider>> provider_ =
        std::make_shared<testing::StrictMock<MockProvider>>();
    StorageItem item_{provider_, location_};
};

} // namespace

TEST_F(StorageItemTest, AnswersFromTheLocationAlone) {
    EXPECT_EQ(item_.getLocation(), location_);
    EXPECT_EQ(item_.getName(), u"name");
    EXPECT_EQ(item_.getScheme(), u"mem");
    EXPECT_TRUE(item_.hasParent());
    EXPECT_EQ(item_.getParent().getLocation(), StorageIRI(u"mem:/folder"));
    EXPECT_EQ(item_.getParent().getProvider(), item_.getProvider());
    EXPECT_FALSE(StorageItem(provider_, StorageIRI(u"mem:/")).hasParent());
}

TEST_F(StorageItemTest, AChildHasTheSameProvider) {
    StorageItem const child(item_, u"a b%");

    EXPECT_EQ(child.getLocation(), StorageIRI(u"mem:/folder/name/a b%25"));
    EXPECT_EQ(child.getProvider(), item_.getProvider());
    EXPECT_EQ(StorageItem(item_, u"x/y").getLocation(), StorageIRI(u"mem:/folder/name/x/y"));
}

TEST_F(StorageItemTest, ANameThatIsNoChildIsRefusedNamingTheParent) {
    for (char16_t const* name : {u"", u"/", u"/x", u".", u"..", u"../x", u"x/..", u"x/./y"}) {
        try {
            StorageItem const child(item_, name);
            ADD_FAILURE() << "accepted " << child.getLocation();
        } catch (Exception const& e) {
            EXPECT_EQ(e.getErrorCode(), ErrorCode::InvalidLocation);
            EXPECT_EQ(e.getStorageIRI(), location_);
        }
    }
    EXPECT_THROW(StorageItem(item_, u"\xD800"), MalformedIRIException);
}

TEST_F(StorageItemTest, KeepsItsProviderAlive) {
    std::weak_ptr<IProvider> const watched = provider_;
    provider_.reset();
    auto copy = std::make_unique<StorageItem>(item_);
    item_ = StorageItem(nullptr, location_);

    EXPECT_FALSE(watched.expired());
    copy.reset();
    EXPECT_TRUE(watched.expired());
}

TEST_F(StorageItemTest, AsksTheProviderAboutItsLocation) {
    EXPECT_CALL(*provider_, fileExists(location_)).WillOnce(Return(true));
    EXPECT_CALL(*provider_, folderExists(location_)).WillOnce(Return(false));
    EXPECT_CALL(*provider_, hasFeature(location_, ExtendedFeature::RecursiveListing))
        .WillOnce(Return(true));
    EXPECT_CALL(*provider_, getCanonicalLocation(location_))
        .WillOnce(Return(StorageIRI(u"mem:/c")));
    EXPECT_CALL(*provider_, getPathComparator(location_))
        .WillOnce(Return([](auto const&, auto const&, CaseModifier) { return true; }));
    EXPECT_CALL(*provider_, getFilenameSensitivity(location_))
        .WillOnce(Return(FilenameSensitivity::Preserving));
    AttributeValues values;
    values.size = 5;
    EXPECT_CALL(*provider_, getFileAttributes(location_)).WillOnce(Return(FileAttributes(values)));
    values.writable = true;
    EXPECT_CALL(*provider_, getFolderAttributes(location_))
        .WillOnce(Return(FolderAttributes(values)));
    EXPECT_CALL(*provider_, getExtendedAttributes(location_))
        .WillOnce(Return(ExtendedAttributes{{"a.b", "c"}}));

    EXPECT_TRUE(item_.fileExists());
    EXPECT_FALSE(item_.folderExists());
    EXPECT_TRUE(item_.hasFeature(ExtendedFeature::RecursiveListing));
    EXPECT_EQ(item_.getCanonicalLocation(), StorageIRI(u"mem:/c"));
    EXPECT_TRUE(item_.getPathComparator()(u"a", u"b", CaseModifier::Sensitive));
    EXPECT_EQ(item_.getFilenameSensitivity(), FilenameSensitivity::Preserving);
    EXPECT_EQ(item_.getFileAttributes().values().size, 5U);
    EXPECT_TRUE(item_.getFolderAttributes().isWritable());
    EXPECT_EQ(item_.getExtendedAttributes().at("a.b"), "c");
}

TEST_F(StorageItemTest, ChangesGoToTheProvider) {
    StorageIRI const destination(u"mem:/other");
    StorageItem const destinationItem(provider_, destination);
    boost::posix_time::ptime const time(boost::gregorian::date(2024, 5, 1));
    CopyFileOptions const options;
    EXPECT_CALL(*provider_, createFile(location_));
    EXPECT_CALL(*provider_, createFolder(location_));
    EXPECT_CALL(*provider_, createFolderRecursive(location_));
    EXPECT_CALL(*provider_, removeFile(location_));
    EXPECT_CALL(*provider_, removeFolder(location_));
    EXPECT_CALL(*provider_, removeFolderRecursively(location_));
    EXPECT_CALL(*provider_, setLastModified(location_, time));
    EXPECT_CALL(*provider_, setWritable(location_, true));
    EXPECT_CALL(*provider_, copyFile(location_, Ref(destinationItem), Ref(options)))
        .WillOnce(Return(CopyStatus::CopiedWithTimes));
    EXPECT_CALL(*provider_, moveFile(location_, destination, ReplacementPolicy::ReplaceExisting));
    EXPECT_CALL(*provider_, moveFolder(location_, destination, ReplacementPolicy::KeepExisting));

    item_.createFile();
    item_.createFolder();
    item_.createFolderRecursive();
    item_.removeFile();
    item_.removeFolder();
    item_.removeFolderRecursively();
    item_.setLastModified(time);
    item_.setWritable(true);
    EXPECT_EQ(item_.copyFile(destinationItem, options), CopyStatus::CopiedWithTimes);
    item_.moveFile(destination, ReplacementPolicy::ReplaceExisting);
    item_.moveFolder(destination, ReplacementPolicy::KeepExisting);
}

TEST_F(StorageItemTest, ListingsAndStreamsComeFromTheProvider) {
    ByteStreamOpenOptions const options;
    ustring const filter = u"*.txt";
    EXPECT_CALL(*provider_, openStream(location_, Ref(options)));
    EXPECT_CALL(*provider_, openReadOnlyStream(location_));
    EXPECT_CALL(*provider_, listAll(location_, filter));
    EXPECT_CALL(*provider_, listFiles(location_, filter));
    EXPECT_CALL(*provider_, listFolders(location_, filter));
    EXPECT_CALL(*provider_, listAllNamesOnly(location_, filter));
    EXPECT_CALL(*provider_, listFilesNamesOnly(location_, filter));
    EXPECT_CALL(*provider_, listFoldersNamesOnly(location_, filter));
    EXPECT_CALL(*provider_, listAllRecursive(location_, filter));
    EXPECT_CALL(*provider_, listAllRecursiveNamesOnly(location_, filter));

    item_.openStream(options);
    item_.openReadOnlyStream();
    item_.listAll(filter);
    item_.listFiles(filter);
    item_.listFolders(filter);
    item_.listAllNamesOnly(filter);
    item_.listFilesNamesOnly(filter);
    item_.listFoldersNamesOnly(filter);
    item_.listAllRecursive(filter);
    item_.listAllRecursiveNamesOnly(filter);
}

TEST_F(StorageItemTest, EventsComeFromTheProvider) {
    ChangeKinds const kinds;
    EXPECT_CALL(*provider_, publishFileEvents(location_, _, Ref(kinds)));
    EXPECT_CALL(*provider_,
                publishFolderEvents(location_, _, Ref(kinds), RecursiveFileWatching::Recursive));
    EXPECT_CALL(*provider_, stopPublishingFileEvents(location_));
    EXPECT_CALL(*provider_, stopPublishingFolderEvents(location_));

    item_.publishFileEvents({}, kinds);
    item_.publishFolderEvents({}, kinds, RecursiveFileWatching::Recursive);
    item_.stopPublishingFileEvents();
    item_.stopPublishingFolderEvents();
}

TEST_F(StorageItemTest, OnlyAProviderThatCanIsFlushed) {
    item_.flushFilesystem();

    auto const flushable = std::make_shared<FlushableProvider>();
    EXPECT_CALL(*flushable, flushFilesystem());
    StorageItem(flushable, location_).flushFilesystem();
}
