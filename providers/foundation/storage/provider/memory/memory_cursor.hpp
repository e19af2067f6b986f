#pragma once

#include <foundation/storage/provider/i_folder_entry_iterator.hpp>
#include <foundation/storage/provider/memory/detail/level.hpp>
#include <foundation/storage/provider/memory/detail/listing_chunk.hpp>
#include <foundation/storage/provider/memory/detail/tree.hpp>
#include <foundation/storage/provider/storage_iri.hpp>

#include <cstddef>
#include <memory>

namespace foundation::storage::provider::memory {

/// What all cursors of one listing have in common.
struct MemoryListing {
    std::shared_ptr<detail::Tree> tree;
    std::shared_ptr<detail::FolderNode> root;
    StorageIRI location; ///< as it was asked for; failures name it
    detail::Selection selection;
};

/// A cursor over one folder, or over everything below it: depth first, each folder before its
/// contents, siblings in the order of their names' UTF-16 units. Entries that are there throughout
/// are delivered once, whatever else changes meanwhile.
///
/// It stands in a chunk of some hundred entries and fetches the next one, under the shared lock of
/// the tree, by the last name of the one before. A clone takes constant time and no lock, whatever
/// the number of entries and levels.
///
/// hasNext() throws no failure of the storage: it answers true, and advance() throws. The one
/// failure that there is, the listed folder removed meanwhile (ResourceNotFound, naming the listed
/// location), ends the listing; a removed folder below it just ends where it was. Throws
/// std::logic_error from advance() behind the last entry, and from currentEntry() before the first.
class MemoryCursor final : public IFolderEntryIterator {
  public:
    explicit MemoryCursor(std::shared_ptr<MemoryListing const> listing);
    ~MemoryCursor() override;

    FolderEntry currentEntry() const override;
    bool hasNext() const override;
    void advance() override;
    MemoryCursor* cloneIterator() const override;

  private:
    struct Position {
        detail::Level level;
        detail::OuterLevelPtr outer;
    };
    enum class Found { Entry, End, Failure };
    /// What comes behind the current entry. Near: an entry of the same chunk.
    enum class Next { Unknown, Near, Far, End, Failure };

    MemoryCursor(MemoryCursor const& other);

    void look() const;
    bool lookInChunk() const noexcept;
    Found moveOn(Position& position) const;
    bool enterFolder(Position& position) const;
    bool fetch(detail::Level& level, std::size_t depth) const;

    std::shared_ptr<MemoryListing const> listing_; // first, since the tree is to go last
    Position position_;
    mutable Next next_ = Next::Unknown;
    mutable std::size_t nextIndex_ = 0; // where it is near
    mutable Position nextPosition_;     // where it is far
    mutable detail::LevelPath path_;
};

} // namespace foundation::storage::provider::memory
