#pragma once

#include <foundation/storage/provider/attributes.hpp>
#include <foundation/storage/provider/memory/detail/nodes.hpp>

#include <boost/smart_ptr/intrusive_ptr.hpp>
#include <boost/smart_ptr/intrusive_ref_counter.hpp>

#include <cstddef>
#include <string_view>
#include <vector>

namespace foundation::storage::provider::memory::detail {

enum class ShownKinds { All, Files, Folders };
enum class ShownDetail { NamesOnly, Attributes };
enum class Depth { Flat, Recursive };

/// What a listing is to deliver.
struct Selection {
    ShownKinds kinds = ShownKinds::All;
    ShownDetail detail = ShownDetail::NamesOnly;
    Depth depth = Depth::Flat;
    ustring pattern; ///< empty for all

    bool shows(std::u16string_view name, Node const& node) const;
    /// Whether an entry has to be met, although it may not be shown.
    bool enters(Node const& node) const noexcept {
        return depth == Depth::Recursive && node.isFolder();
    }
};

/// Some entries of a folder that stand side by side, as they were at one moment. Immutable, and
/// shared by all cursors that stand in it.
class ListingChunk : public boost::intrusive_ref_counter<ListingChunk, boost::thread_safe_counter> {
  public:
    /// Where taking one stops.
    struct Limits {
        std::size_t entries;
        std::size_t nameUnits = 16 * 1024; ///< reached, not kept to: names have no greatest length
        /// Entries looked at, shown or not: nobody is to wait long for the tree.
        std::size_t looks = 4096;
    };

    /// Takes the entries of `folder` that come behind `after` (from the first one on where `after`
    /// is null) and belong to the selection. May be empty without being the last one.
    /// REQUIRES: the lock of the tree is held.
    ListingChunk(FolderNode const& folder, ustring const* after, Selection const& selection,
                 Limits limits);

    std::size_t size() const noexcept { return entries_.size(); }
    /// REQUIRES, for this and the next four: index < size().
    std::u16string_view name(std::size_t index) const noexcept {
        std::size_t const begin = index == 0 ? 0 : entries_[index - 1].nameEnd;
        return std::u16string_view(names_).substr(begin, entries_[index].nameEnd - begin);
    }
    bool isFolder(std::size_t index) const noexcept { return entries_[index].isFolder; }
    bool isShown(std::size_t index) const noexcept { return entries_[index].isShown; }
    /// Null in a listing of names only, and for what is not shown.
    AttributeValues const* attributes(std::size_t index) const noexcept {
        return attributes_.empty() || !isShown(index) ? nullptr : &attributes_[index];
    }

    /// Whether nothing came behind it.
    bool isLast() const noexcept { return isLast_; }
    /// The last name looked at. REQUIRES: !isLast().
    ustring const& resumeBehind() const noexcept { return resumeBehind_; }

  private:
    struct Entry {
        std::size_t nameEnd;
        bool isFolder;
        bool isShown;
    };

    void add(std::u16string_view name, Node const& node, bool isShown, Selection const& selection);

    ustring names_; // of all entries, one behind the other
    std::vector<Entry> entries_;
    std::vector<AttributeValues> attributes_;
    bool isLast_ = true;
    ustring resumeBehind_;
};

using ListingChunkPtr = boost::intrusive_ptr<ListingChunk const>;

} // namespace foundation::storage::provider::memory::detail
