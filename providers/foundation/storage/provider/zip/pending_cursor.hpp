#pragma once

#include <foundation/storage/provider/i_folder_entry_iterator.hpp>
#include <foundation/storage/provider/storage_iri.hpp>
#include <foundation/storage/provider/zip/detail/pending_tree.hpp>
#include <foundation/storage/provider/zip/zip_cursor.hpp>

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace foundation::storage::provider::zip {

/// What all cursors of one listing have in common.
struct PendingListing {
    std::shared_ptr<detail::PendingTree> tree;
    std::shared_ptr<detail::PendingNode> folder;
    StorageIRI location; ///< as it was asked for; failures name it
    ZipSelection selection;
};

/// A cursor over one folder of an archive with changes that were not flushed yet, or over
/// everything below it: depth first, each folder before its contents, siblings in the order of
/// their bytes. It stands in a chunk of some hundred entries, and fetches the next by the last name
/// of the one before; what is there throughout is delivered once, whatever else changes.
///
/// hasNext() throws no failure of the storage: it answers true, and advance() throws. The listed
/// folder removed meanwhile (ResourceNotFound) ends the listing; a removed folder below it just
/// ends where it was. Throws std::logic_error from advance() behind the last entry, and from
/// currentEntry() before the first.
class PendingCursor final : public IFolderEntryIterator {
  public:
    explicit PendingCursor(std::shared_ptr<PendingListing const> listing);

    FolderEntry currentEntry() const override;
    bool hasNext() const override;
    void advance() override;
    PendingCursor* cloneIterator() const override { return new PendingCursor(*this); }

  private:
    struct Shown {
        std::string name;
        bool isFolder;
        bool isShown;
        AttributeValues attributes;
    };
    struct Chunk {
        std::vector<Shown> entries;
        bool isLast = true;
    };
    /// A folder that is being listed, and where in it.
    struct Level {
        std::shared_ptr<detail::PendingNode> folder;
        std::shared_ptr<Chunk const> chunk;
        std::size_t index = 0;

        Shown const& entry() const { return chunk->entries[index]; }
    };
    using Position = std::vector<Level>; // the listed folder first
    enum class Next { Unknown, Entry, End, Failure };

    PendingCursor(PendingCursor const& other) = default;

    Next moveOn(Position& position) const;
    void look() const;
    bool enter(Position& position) const;
    bool fetch(Level& level) const;

    std::shared_ptr<PendingListing const> listing_;
    Position position_;
    mutable Next next_ = Next::Unknown;
    mutable Position nextPosition_;
};

} // namespace foundation::storage::provider::zip
