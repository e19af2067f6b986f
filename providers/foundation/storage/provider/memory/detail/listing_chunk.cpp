#include <foundation/storage/provider/memory/detail/listing_chunk.hpp>

#include <foundation/storage/provider/wildcard.hpp>

#include <algorithm>
#include <iterator>

namespace foundation::storage::provider::memory::detail {

namespace {

AttributeValues attributesOf(Node const& node) {
    switch (node.kind()) {
    case Node::Kind::File:
        return static_cast<FileNode const&>(node).attributes();
    case Node::Kind::Link:
        return static_cast<LinkNode const&>(node).attributes();
    case Node::Kind::Folder:
        break;
    }
    return static_cast<FolderNode const&>(node).attributes();
}

} // namespace

bool Selection::shows(std::u16string_view name, Node const& node) const {
    return (kinds == ShownKinds::All || (kinds == ShownKinds::Folders) == node.isFolder()) &&
           (pattern.empty() || matchesWildcard(pattern, name));
}

ListingChunk::ListingChunk(FolderNode const& folder, ustring const* after,
                           Selection const& selection, Limits limits) {
    FolderNode::Children const& children = folder.children();
    entries_.reserve(std::min(children.size(), limits.entries));
    std::size_t looks = 0;
    auto child = after ? children.upper_bound(*after) : children.begin();
    for (; child != children.end(); ++child) {
        if (entries_.size() == limits.entries || names_.size() >= limits.nameUnits ||
            looks == limits.looks) {
            isLast_ = false;
            resumeBehind_ = std::prev(child)->first;
            break;
        }
        ++looks;
        bool const isShown = selection.shows(child->first, *child->second);
        if (isShown || selection.enters(*child->second)) {
            add(child->first, *child->second, isShown, selection);
        }
    }
    // A listing keeps chunks for as long as it lives, and deep ones many of them.
    names_.shrink_to_fit();
    entries_.shrink_to_fit();
    attributes_.shrink_to_fit();
}

void ListingChunk::add(std::u16string_view name, Node const& node, bool isShown,
                       Selection const& selection) {
    names_ += name;
    entries_.push_back({names_.size(), node.isFolder(), isShown});
    if (selection.detail == ShownDetail::Attributes) {
        attributes_.reserve(entries_.capacity());
        attributes_.push_back(isShown ? attributesOf(node) : AttributeValues{});
    }
}

} // namespace foundation::storage::provider::memory::detail
