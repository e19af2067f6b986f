#include <foundation/storage/vfs/events/event.hpp>

#include "watched_storage.hpp"

#include <gtest/gtest.h>

#include <stdexcept>
#include <type_traits>

namespace {

using namespace vfs_test;
using vfs::AbsoluteIRI;
using vfs::Event;
using vfs::EventData;
using vfs::ExtendedEventData;
using vfs::File;
using vfs::FileOrFolder;

ptree exampleTree() {
    ptree tree;
    tree.put("a.b", "deep");
    tree.put("c", "flat");
    return tree;
}

class EventTest : public WatchedStorage {
  protected:
    Event event{Kind::Modified, AbsoluteIRI(u"mem:/d"), file(), exampleTree()};
};

TEST_F(EventTest, TellsWhatHappenedToWhat) {
    EXPECT_EQ(event.getEventData().getKind(), Kind::Modified);
    EXPECT_EQ(getLocation(event.getEventData().getFileOrFolder()), AbsoluteIRI(u"mem:/d/f"));
    EXPECT_EQ(event.getSimpleEventData().getKind(), event.getEventData().getKind());
    EXPECT_EQ(event.getSimpleEventData().getLocation(), u"mem:/d/f");
    EXPECT_EQ(event.getSimpleEventData().getEntryType(), EntryType::File);
    EXPECT_TRUE(event.hasExtendedEventData());
    EXPECT_EQ(event.getExtendedEventData().getData(), exampleTree());
}

TEST_F(EventTest, OfAFolderSaysSo) {
    Event const ofFolder(Kind::Created, AbsoluteIRI(u"mem:/d"), folder(u"mem:/d/e"), {});
    EXPECT_EQ(ofFolder.getSimpleEventData().getEntryType(), EntryType::Folder);
    EXPECT_EQ(ofFolder.getEventData().getFileOrFolder().which(), 1);
    EXPECT_FALSE(ofFolder.hasExtendedEventData());
}

TEST_F(EventTest, IsTaggedWithTheWatchedLocationAndNotTheResource) {
    auto const& type = event.getTypeInformation();
    EXPECT_EQ(type.getUserTags(),
              std::vector<vfs::ustring>{createEventType(Kind::Modified, u"mem:/d")});
}

TEST_F(EventTest, HasThreeTypesAndNoMore) {
    auto const& type = event.getTypeInformation();
    EXPECT_EQ(Event::EventType(), "foundation::storage::vfs::Event");
    EXPECT_EQ(type.getTypeName(0), "foundation::storage::vfs::Event");
    EXPECT_EQ(type.getTypeName(1), "foundation::storage::events::Event");
    EXPECT_EQ(type.getTypeName(2), "foundation::msg_svc::eventmgr::BaseEvent");
    try {
        (void)type.getTypeName(3);
        FAIL() << "nothing was thrown";
    } catch (std::out_of_range const& e) {
        EXPECT_STREQ(e.what(), "eventmgr::BaseEvent has no base types.");
    }
}

TEST_F(EventTest, EachHasTypeInformationOfItsOwn) {
    Event const other(Kind::Modified, AbsoluteIRI(u"mem:/d"), file(), {});
    EXPECT_NE(&event.getTypeInformation(), &other.getTypeInformation());
}

TEST_F(EventTest, CloneIsWholeAndSharesTheProvider) {
    std::unique_ptr<Event> const clone(event.clone());
    EXPECT_NE(clone.get(), &event);
    EXPECT_EQ(text(*clone), text(event));
    EXPECT_EQ(clone->getExtendedEventData().getData(), exampleTree());
    EXPECT_EQ(clone->getTypeInformation().getUserTags(), event.getTypeInformation().getUserTags());
    mem->onFileExists = [](StorageIRI const&) { return true; };
    EXPECT_TRUE(exists(clone->getEventData().getFileOrFolder()));
}

TEST_F(EventTest, LocationThatCannotBeToldLeavesNoEvent) {
    File const pathless(provider::StorageItem(mem, StorageIRI(u"mem://h")), reference);
    EXPECT_THROW(Event(Kind::Created, AbsoluteIRI(u"mem:/d"), pathless, {}),
                 vfs::InvalidIRIException);
}

TEST_F(EventTest, PayloadsArePlainValues) {
    static_assert(!std::is_polymorphic_v<EventData>);
    static_assert(!std::is_polymorphic_v<ExtendedEventData>);
    static_assert(std::is_copy_assignable_v<EventData>);
    static_assert(std::is_copy_assignable_v<ExtendedEventData>);
    static_assert(sizeof(Kind) == 4 && sizeof(EntryType) == 4);
    EventData const data(Kind::Removed, folder());
    EXPECT_EQ(data.getKind(), Kind::Removed);
    EXPECT_EQ(getLocation(data.getFileOrFolder()), AbsoluteIRI(u"mem:/d"));
}

TEST(ExtendedEventData, IsEmptyWithoutKeysWhateverTheRootHolds) {
    EXPECT_TRUE(ExtendedEventData().empty());
    EXPECT_TRUE(ExtendedEventData(ptree("a value")).empty());
    EXPECT_FALSE(ExtendedEventData(exampleTree()).empty());
}

TEST(ExtendedEventData, GivesTheSubtreeOfAKey) {
    ExtendedEventData const data(exampleTree());
    EXPECT_EQ(data.getData(u""), exampleTree());
    EXPECT_EQ(data.getData(u"c").data(), "flat");
    EXPECT_EQ(data.getData(u"a").get<std::string>("b"), "deep");
    EXPECT_EQ(data.getData(u"a.b").data(), "deep") << "a dot goes a level down";
}

TEST(ExtendedEventData, CannotAddressADotInAName) {
    ptree tree;
    tree.push_back({"a.b", ptree("dotted")});
    EXPECT_THROW(ExtendedEventData(tree).getData(u"a.b"), std::runtime_error);
}

TEST(ExtendedEventData, NamesAMissingKeyInUtf8) {
    try {
        (void)ExtendedEventData(exampleTree()).getData(u"no.\u00FC");
        FAIL() << "nothing was thrown";
    } catch (std::runtime_error const& e) {
        EXPECT_STREQ(e.what(), "Unable to extract extended event data property no.\xC3\xBC");
        EXPECT_EQ(typeid(e), typeid(std::runtime_error));
    }
}

TEST(ExtendedEventData, LetsAKeyThatIsNotUtf16FailAsItDoes) {
    EXPECT_THROW((void)ExtendedEventData(exampleTree()).getData(u"\xD800"), std::range_error);
}

} // namespace
