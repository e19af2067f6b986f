#include <foundation/storage/provider/memory/detail/tree.hpp>

#include <array>
#include <utility>

namespace foundation::storage::provider::memory::detail {

namespace {

constexpr std::size_t maximumLinks = 40;

/// Takes the first segment off `rest`; empty at the end. What is left of a text that ends in a
/// slash is a `.`: what came before must be a folder.
std::u16string_view takeSegment(std::u16string_view& rest) {
    std::size_t const begin = rest.find_first_not_of(u'/');
    if (begin == std::u16string_view::npos) {
        bool const slash = !rest.empty();
        rest = {};
        return slash ? std::u16string_view(u".") : std::u16string_view();
    }
    std::size_t const end = rest.find(u'/', begin);
    std::u16string_view const segment = rest.substr(begin, end - begin);
    rest = end == std::u16string_view::npos ? std::u16string_view() : rest.substr(end);
    return segment;
}

Place failed(ErrorCode code) {
    Place place;
    place.error = code;
    return place;
}

Place folderItself(FolderNode& folder) {
    Place place;
    place.node = &folder;
    return place;
}

} // namespace

std::u16string_view pathOf(StorageIRI const& location) {
    if (!location.hasPath() || location.hasInnerIRI() || !location.getAuthorityView().empty() ||
        location.hasQuery() || location.hasFragment()) {
        throw Exception(ErrorCode::InvalidLocation, location);
    }
    std::u16string_view path = location.getResolvedPath();
    while (path.ends_with(u'/')) {
        path.remove_suffix(1);
    }
    return path;
}

Tree::Tree(MemoryOptions const& options)
    : publications(std::make_shared<Publications>()),
      space_(std::make_shared<Space>(options)),
      root_([] {
          // The root counts as no entry: it is there before anything is created.
          auto unlimited = std::make_shared<Space>(MemoryOptions{});
          return std::make_shared<FolderNode>(std::move(unlimited), newFolderMode);
      }()) {}

Place Tree::walk(FolderNode& start, std::u16string_view path, LastLink last) const {
    // What is still to be followed, the innermost link's target last.
    std::array<std::u16string_view, maximumLinks + 1> rests;
    rests[0] = path;
    std::size_t depth = 0;
    std::size_t links = 0;
    Place place = folderItself(start);
    for (;;) {
        std::u16string_view const segment = takeSegment(rests[depth]);
        if (segment.empty()) {
            if (depth == 0) {
                return place;
            }
            --depth;
            continue;
        }
        FolderNode* const folder = place.asFolder();
        if (!folder) {
            return failed(ErrorCode::ResourceNotFound);
        }
        if (segment == u".") {
            place = folderItself(*folder);
            continue;
        }
        if (segment == u"..") {
            place = folderItself(folder->parent() ? *folder->parent() : *folder);
            continue;
        }
        place.folder = folder;
        place.name = segment;
        place.node = folder->find(segment);
        LinkNode const* const link = place.link();
        if (!link) {
            continue;
        }
        while (depth > 0 && rests[depth].empty()) {
            --depth;
        }
        bool const isLast = depth == 0 && rests[0].empty();
        if (isLast && last == LastLink::Keep) {
            return place;
        }
        if (++links > maximumLinks) {
            return failed(ErrorCode::InvalidLocation);
        }
        place = folderItself(link->target().starts_with(u'/') ? *root_ : *folder);
        if (!rests[depth].empty()) {
            ++depth;
        }
        rests[depth] = link->target();
    }
}

bool isInside(FolderNode const* folder, FolderNode const& ancestor) noexcept {
    for (; folder; folder = folder->parent()) {
        if (folder == &ancestor) {
            return true;
        }
    }
    return false;
}

Place existing(Tree const& tree, StorageIRI const& location, LastLink last) {
    Place const place = tree.walk(pathOf(location), last);
    if (place.error || !place.node) {
        throw Exception(place.error.value_or(ErrorCode::ResourceNotFound), location);
    }
    return place;
}

void checkWritable(StorageIRI const& location, FolderNode const& folder) {
    if (!folder.isWritable()) {
        throw Exception(ErrorCode::PermissionDenied, location);
    }
}

void checkReplaceable(StorageIRI const& location, Place const& place, ReplacementPolicy policy) {
    if (place.error) {
        throw Exception(*place.error, location);
    }
    if (!place.node) {
        return;
    }
    if (!replaces(policy)) {
        throw Exception(ErrorCode::ResourceAlreadyExists, location);
    }
    if (place.node->isFolder()) {
        throw Exception(ErrorCode::InvalidLocation, location);
    }
    if (place.file() && !place.file()->isWritable()) {
        throw Exception(ErrorCode::PermissionDenied, location);
    }
}

Place Tree::placeIn(Slot const& slot) const {
    for (FolderNode* at = slot.folder.get(); at != root_.get(); at = at->parent()) {
        if (!at) {
            return failed(ErrorCode::ResourceNotFound);
        }
    }
    Place place;
    place.folder = slot.folder.get();
    place.name = slot.name;
    place.node = slot.folder->find(slot.name);
    return place;
}

std::shared_ptr<Node> Tree::publish(StorageIRI const& location, Slot const& slot,
                                    std::shared_ptr<Node> item, ReplacementPolicy policy) {
    Place const place = placeIn(slot);
    checkReplaceable(location, place, policy);
    checkWritable(location, *slot.folder);
    if (!place.node) {
        slot.folder->add(slot.name, std::move(item));
        return nullptr;
    }
    return slot.folder->replace(slot.name, std::move(item));
}

} // namespace foundation::storage::provider::memory::detail
