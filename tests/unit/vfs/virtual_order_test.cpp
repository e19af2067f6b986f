// The order of virtual operations is part of the binary interface. In the Itanium C++ ABI a pointer
// to a virtual member function holds 1 plus the offset of its slot in the table.

#include <foundation/storage/provider/i_folder_entry_iterator.hpp>
#include <foundation/storage/vfs/errors/exception.hpp>
#include <foundation/storage/vfs/events/event.hpp>
#include <foundation/storage/vfs/iri/invalid_iri_exception.hpp>
#include <foundation/storage/vfs/listing/detail/i_folder_iterator_impl.hpp>
#include <foundation/storage/vfs/listing/file_or_folder_entry.hpp>
#include <foundation/storage/vfs/listing/list_entry.hpp>
#include <foundation/storage/vfs/resources/file.hpp>
#include <foundation/storage/vfs/storage_system/factory_backed_storage_system.hpp>
#include <foundation/storage/vfs/storage_system/pluggable_storage_system.hpp>
#include <foundation/storage/vfs/storage_system/storage_system_reference.hpp>
#include <foundation/storage/vfs/storage_system/unsupported_iri_scheme_exception.hpp>
#include <foundation/storage/vfs/streams/io_exception.hpp>
#include <foundation/storage/vfs/walking/folder_visitor.hpp>

#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <type_traits>

namespace {

namespace vfs = foundation::storage::vfs;
namespace provider = foundation::storage::provider;
using fl::i18n::ustring;
using foundation::core::except::IException;

template<class Member>
std::size_t slotOf(Member member) {
    std::size_t word = 0;
    std::memcpy(&word, &member, sizeof word);
    return (word - 1) / sizeof(void*);
}

// A destructor takes two slots.
constexpr std::size_t destructor = 2;

template<class E>
void expectExceptionOrder() {
    EXPECT_EQ(slotOf(&E::clone), 0U);
    EXPECT_EQ(slotOf(&E::rethrow), 1U);
    EXPECT_EQ(slotOf(&E::what), 2 + destructor);
    EXPECT_EQ(slotOf(static_cast<ustring (E::*)(ustring const&) const>(&E::convert_str)),
              3 + destructor);
    EXPECT_EQ(slotOf(static_cast<ustring (E::*)(std::string const&) const>(&E::convert_str)),
              4 + destructor);
    EXPECT_EQ(slotOf(&E::ToUstringImpl), 5 + destructor);
}

TEST(VirtualOrder, OfExceptionsWithALocation) {
    expectExceptionOrder<IException>();
    expectExceptionOrder<vfs::Exception>();
    expectExceptionOrder<vfs::ChangeEventsNotSupportedException>();
    expectExceptionOrder<vfs::ChangeEventsSubscriptionException>();
}

TEST(VirtualOrder, OfStreamExceptions) {
    expectExceptionOrder<vfs::IOException>();
    EXPECT_EQ(slotOf(&vfs::IOException::getErrorCode), 6 + destructor);
}

TEST(VirtualOrder, OfExceptionsOfNaming) {
    EXPECT_EQ(slotOf(&vfs::InvalidIRIException::what), destructor);
    EXPECT_EQ(slotOf(&vfs::UnsupportedIRISchemeException::what), destructor);
}

template<class System>
void expectSystemOrder() {
    EXPECT_EQ(slotOf(&System::buildProvider), destructor);
    EXPECT_EQ(slotOf(&System::getEventMgr), 1 + destructor);
}

TEST(VirtualOrder, OfStorageSystems) {
    expectSystemOrder<vfs::StorageSystem>();
    expectSystemOrder<vfs::StorageSystemReference>();
    expectSystemOrder<vfs::PluggableStorageSystem>();
    expectSystemOrder<vfs::ProviderFactoryBackedStorageSystem>();
}

TEST(VirtualOrder, OfResourcesBeginsWithTheLocation) {
    EXPECT_EQ(slotOf(&vfs::Resource::getLocation), 0U);
    EXPECT_EQ(slotOf(&vfs::File::getLocation), 0U);
}

TEST(VirtualOrder, OfCursors) {
    using Cursor = provider::IFolderEntryIterator;
    EXPECT_EQ(slotOf(&Cursor::currentEntry), 0U);
    EXPECT_EQ(slotOf(&Cursor::hasNext), 1U);
    EXPECT_EQ(slotOf(&Cursor::advance), 2U);
    EXPECT_EQ(slotOf(&Cursor::cloneIterator), 3U);
}

template<class T>
void expectIteratorOrder() {
    using Iterator = vfs::detail::IFolderIteratorImpl<T>;
    EXPECT_EQ(slotOf(&Iterator::increment), 0U);
    EXPECT_EQ(slotOf(&Iterator::equal), 1U);
    EXPECT_EQ(slotOf(&Iterator::dereference), 2U);
    EXPECT_EQ(slotOf(&Iterator::cloneImpl), 3U);
    EXPECT_EQ(slotOf(&Iterator::buildEndIterator), 4U);
    static_assert(std::has_virtual_destructor_v<Iterator>);
}

TEST(VirtualOrder, OfWhatMovesAListing) {
    expectIteratorOrder<vfs::File>();
    expectIteratorOrder<vfs::Folder>();
    expectIteratorOrder<vfs::FileOrFolder>();
    expectIteratorOrder<vfs::FileEntry>();
    expectIteratorOrder<vfs::FolderEntry>();
    expectIteratorOrder<vfs::FileOrFolderEntry>();
    expectIteratorOrder<vfs::ListEntry>();
}

TEST(VirtualOrder, OfVisitors) {
    using Visitor = vfs::FolderVisitor;
    EXPECT_EQ(slotOf(&Visitor::visitBefore), 0U);
    EXPECT_EQ(slotOf(&Visitor::visitEntryBefore), 1U);
    EXPECT_EQ(slotOf(&Visitor::visit), 2U);
    EXPECT_EQ(slotOf(&Visitor::visitEntry), 3U);
    EXPECT_EQ(slotOf(&Visitor::visitAfter), 4U);
    EXPECT_EQ(slotOf(&Visitor::visitEntryAfter), 5U);
    EXPECT_EQ(slotOf(&Visitor::visitFolderFailed), 6U);
    EXPECT_EQ(slotOf(&Visitor::visitFolderEntryFailed), 7U);
    static_assert(std::has_virtual_destructor_v<Visitor>);
}

TEST(VirtualOrder, OfEvents) {
    EXPECT_EQ(slotOf(&vfs::Event::clone), destructor);
    EXPECT_EQ(slotOf(&vfs::Event::canBeSerialized), 1 + destructor);
    EXPECT_EQ(slotOf(&vfs::Event::fillStream), 2 + destructor);
    EXPECT_EQ(slotOf(&vfs::Event::isQuillonClientsAllowed), 3 + destructor);
    EXPECT_EQ(slotOf(&vfs::Event::getSimpleEventData), 4 + destructor);
}

} // namespace
