#include <foundation/storage/provider/zip/detail/pending_tree.hpp>

#include <foundation/storage/provider/exception.hpp>

#include <algorithm>
#include <limits>
#include <utility>
#include <vector>

namespace foundation::storage::provider::zip::detail {

namespace {

using Number = ArchiveIndex::Number;

constexpr std::size_t longestPath = 0xFFFF;

[[noreturn]] void fail(ErrorCode code, StorageIRI const& location) {
    throw Exception(code, location);
}

/// The folders in a node, itself included, one in the other; and the longest path in it.
struct Extent {
    std::size_t levels = 0;
    std::size_t path = 0;
};

Extent extentOf(PendingNode const& node) {
    Extent extent{node.isFolder() ? std::size_t{1} : 0, node.isFolder() ? std::size_t{1} : 0};
    for (auto const& [name, child] : node.children) {
        Extent const inner = extentOf(*child);
        extent.levels = std::max(extent.levels, 1 + inner.levels);
        extent.path = std::max(extent.path, 1 + name.size() + inner.path);
    }
    return extent;
}

/// Whoever still holds one of them must not go up from it.
void letGo(PendingNode& node) noexcept {
    node.parent = nullptr;
    node.name = nullptr;
    for (auto const& child : node.children) {
        letGo(*child.second);
    }
}

} // namespace

std::int64_t storableTime(std::int64_t seconds) noexcept {
    return std::clamp<std::int64_t>(seconds, std::numeric_limits<std::int32_t>::min(),
                                    std::numeric_limits<std::uint32_t>::max());
}

bool isInside(PendingNode const* folder, PendingNode const& ancestor) noexcept {
    for (; folder != nullptr; folder = folder->parent) {
        if (folder == &ancestor) {
            return true;
        }
    }
    return false;
}

void checkReplaceable(PendingTree::Place const& place, ReplacementPolicy policy,
                      StorageIRI const& location) {
    if (place.isFree()) {
        return;
    }
    if (place.error) {
        fail(*place.error, location);
    }
    if (!replaces(policy)) {
        fail(ErrorCode::ResourceAlreadyExists, location);
    }
    switch (place.entry->kind) {
    case EntryKind::Folder:
        fail(ErrorCode::InvalidLocation, location);
    case EntryKind::File:
        if (!place.entry->isWritable()) {
            fail(ErrorCode::PermissionDenied, location);
        }
        break;
    case EntryKind::Link:
    case EntryKind::Other:
        break;
    }
}

void checkWritable(PendingNode const& folder, StorageIRI const& location) {
    if (!folder.isWritable()) {
        fail(ErrorCode::PermissionDenied, location);
    }
}

PendingTree::PendingTree(std::shared_ptr<ArchiveIndex const> index, StorageIRI location,
                         ZipOptions const& options, std::shared_ptr<PendingSpace> space)
    : index_(std::move(index)),
      location_(std::move(location)),
      options_(options),
      space_(std::move(space)),
      root_(std::make_shared<PendingNode>()),
      nextOrder_(index_->size()) {
    build();
}

PendingTree::~PendingTree() = default;

/// A folder has a smaller number than what is in it.
void PendingTree::build() {
    std::vector<PendingNode*> nodes(index_->size());
    for (Number number = 0; number < index_->size(); ++number) {
        std::shared_ptr<PendingNode> const node =
            number == ArchiveIndex::root ? root_ : std::make_shared<PendingNode>();
        node->kind = index_->kindOf(number);
        node->mode = index_->modeOf(number);
        node->isImplied = index_->isImplied(number);
        node->base = node->isImplied ? ArchiveIndex::none : number;
        node->order = number;
        nodes[number] = node.get();
        size_ += index_->sizeOf(number);
        if (number != ArchiveIndex::root) {
            node->parent = nodes[index_->parentOf(number)];
            PendingNode::Children& siblings = node->parent->children;
            auto const entered =
                siblings.emplace_hint(siblings.end(), index_->nameOf(number), node);
            node->name = &entered->first;
        }
    }
}

PendingTree::Handle PendingTree::child(Handle folder, std::string_view name) const {
    auto const found = folder->children.find(name);
    return found == folder->children.end() ? none : found->second.get();
}

AttributeValues PendingTree::attributesOf(Handle node) const {
    AttributeValues values;
    if (node->base != ArchiveIndex::none) {
        values = index_->attributesOf(node->base); // with its size
    }
    if (node->hasNewFacts) {
        values.lastModified = {node->lastModified, 0};
    }
    if (node->content) {
        values.size = node->content->size();
        values.lastModified = {node->content->lastModified(), 0};
    } else if (node->base == ArchiveIndex::none && node->kind == EntryKind::Link) {
        values.size = node->target.size();
    }
    values.mode = node->mode;
    values.writable = node->isWritable();
    return values;
}

std::string PendingTree::pathOf(PendingNode const& node) const {
    std::size_t size = 0;
    for (PendingNode const* at = &node; at->parent != nullptr; at = at->parent) {
        size += at->name->size() + 1;
    }
    std::string path(size == 0 ? 0 : size - 1, '/');
    std::size_t end = path.size();
    for (PendingNode const* at = &node; at->parent != nullptr; at = at->parent) {
        end -= at->name->size();
        path.replace(end, at->name->size(), *at->name);
        end -= end == 0 ? 0 : 1;
    }
    return path;
}

std::shared_ptr<PendingNode> PendingTree::share(Handle node) const {
    return node == root_.get() ? root_ : node->parent->children.find(*node->name)->second;
}

std::shared_ptr<PendingNode> PendingTree::makeFile() const {
    auto node = std::make_shared<PendingNode>();
    node->hasNewFacts = true;
    node->mode = newFileMode;
    node->content = std::make_shared<PendingContent>(space_);
    return node;
}

std::shared_ptr<PendingNode> PendingTree::makeFolder() const {
    auto node = std::make_shared<PendingNode>();
    node->kind = EntryKind::Folder;
    node->hasNewFacts = true;
    node->mode = newFolderMode;
    node->lastModified = secondsNow();
    return node;
}

std::shared_ptr<PendingNode> PendingTree::makeLink(std::string target) const {
    auto node = std::make_shared<PendingNode>();
    node->kind = EntryKind::Link;
    node->hasNewFacts = true;
    node->mode = linkMode;
    node->lastModified = secondsNow();
    node->target = std::move(target);
    return node;
}

std::shared_ptr<PendingNode> PendingTree::makeCopy(PendingNode const& source) const {
    auto node = std::make_shared<PendingNode>();
    node->kind = source.kind;
    node->hasNewFacts = source.hasNewFacts;
    node->hasNewName = true;
    node->mode = source.mode;
    node->lastModified = source.lastModified;
    node->base = source.base;
    node->target = source.target;
    if (source.content) {
        node->content = std::make_shared<PendingContent>(*source.content, space_);
        if (!source.content->isChanged()) {
            node->content->beAsInArchive(source.content->lastModified());
        }
    }
    return node;
}

void PendingTree::changed() {
    space_->countChange();
}

/// What a node adds to the directory under a name, without what is in it.
DirectorySize PendingTree::sizeOf(PendingNode const& node, std::size_t nameSize) const {
    bool const isLarge = node.base != ArchiveIndex::none && index_->sizeOf(node.base).large != 0;
    return {1, node.isImplied ? 0U : 1U, nameSize, isLarge ? 1U : 0U};
}

DirectorySize PendingTree::sizeOfAll(PendingNode const& node) const {
    DirectorySize size = sizeOf(node, node.name->size());
    for (auto const& child : node.children) {
        size += sizeOfAll(*child.second);
    }
    return size;
}

/// With the member that a folder gets when it is changed. The root gets none.
DirectorySize PendingTree::touched(DirectorySize size, PendingNode const& folder) const noexcept {
    if (folder.isImplied && &folder != root_.get()) {
        ++size.headers;
    }
    return size;
}

/// A reader of the new archive would refuse it. What makes nothing more may be done all the same.
void PendingTree::checkRoom(DirectorySize const& after, StorageIRI const& location) const {
    if (!after.fits(options_) && !after.isWithin(size_)) {
        fail(ErrorCode::NoSpaceLeft, location);
    }
}

void PendingTree::beMember(PendingNode& node) {
    size_ = touched(size_, node);
    node.isImplied = false;
}

/// That something in a folder has changed. It gets a member of its own, so that it keeps its time,
/// and stays where nothing is left in it.
void PendingTree::touch(PendingNode& folder) {
    folder.hasNewFacts = true;
    folder.lastModified = secondsNow();
    beMember(folder);
    changed();
}

void PendingTree::checkPath(PendingNode const& folder, std::string_view name,
                            PendingNode const& node, StorageIRI const& location) const {
    std::size_t levels = 0;
    for (PendingNode const* at = &folder; at->parent != nullptr; at = at->parent) {
        ++levels;
    }
    Extent const extent = extentOf(node);
    std::size_t const path = pathOf(folder).size() + 1 + name.size() + extent.path;
    if (name.empty() || name.find('\0') != std::string_view::npos || path > longestPath ||
        levels + extent.levels > options_.maximumDepth) {
        fail(ErrorCode::InvalidLocation, location);
    }
}

void PendingTree::checkNew(Place const& place, StorageIRI const& location) const {
    checkWritable(*place.folder, location);
    checkPath(*place.folder, place.name, PendingNode(), location);
}

PendingNode& PendingTree::add(Place const& place, std::shared_ptr<PendingNode> node,
                              StorageIRI const& location) {
    PendingNode& folder = *place.folder;
    checkWritable(folder, location);
    checkPath(folder, place.name, *node, location);
    DirectorySize const added = sizeOf(*node, place.name.size());
    checkRoom(touched(size_, folder) += added, location);
    auto const entered = folder.children.emplace(place.name, std::move(node)).first;
    PendingNode& made = *entered->second;
    made.parent = &folder;
    made.name = &entered->first;
    made.order = nextOrder_++;
    if (made.content) {
        made.content->beInTree();
    }
    size_ += added;
    touch(folder);
    return made;
}

void PendingTree::publish(Place const& place, std::shared_ptr<PendingNode> node,
                          ReplacementPolicy policy, StorageIRI const& location) {
    checkReplaceable(place, policy, location);
    if (place.error) {
        add(place, std::move(node), location);
        return;
    }
    PendingNode& old = *place.entry;
    PendingNode& folder = *place.folder;
    checkWritable(folder, location);
    DirectorySize after = size_;
    after -= sizeOf(old, old.name->size());
    after += sizeOf(*node, old.name->size());
    checkRoom(touched(after, folder), location);
    size_ = after;
    if (node->content) {
        node->content->beInTree();
    }
    node->order = old.order;
    node->parent = &folder;
    node->name = old.name;
    old.parent = nullptr;
    old.name = nullptr;
    folder.children.find(*node->name)->second = std::move(node); // the end of the old one
    touch(folder);
}

void PendingTree::detach(PendingNode& node) {
    PendingNode& folder = *node.parent;
    auto const place = folder.children.find(*node.name);
    std::shared_ptr<PendingNode> const kept = place->second;
    size_ -= sizeOfAll(node);
    folder.children.erase(place);
    letGo(node);
    touch(folder);
}

void PendingTree::remove(PendingNode& node, StorageIRI const& location) {
    checkWritable(*node.parent, location);
    detach(node);
}

void PendingTree::move(PendingNode& node, Place const& to, StorageIRI const& source,
                       StorageIRI const& destination) {
    PendingNode& from = *node.parent;
    PendingNode& folder = *to.folder;
    std::string const name = to.error ? to.name : *to.entry->name;
    checkWritable(from, source);
    checkWritable(folder, destination);
    checkPath(folder, name, node, destination);
    DirectorySize after = touched(size_, folder);
    if (&from != &folder) {
        after = touched(after, from);
    }
    after.nameBytes += name.size();
    after.nameBytes -= node.name->size();
    if (to.entry != none) {
        after -= sizeOfAll(*to.entry);
    }
    checkRoom(after, destination);
    if (to.entry != none) {
        detach(*to.entry);
    }
    size_.nameBytes += name.size();
    size_.nameBytes -= node.name->size();
    auto moved = from.children.extract(from.children.find(*node.name));
    moved.key() = name;
    auto const entered = folder.children.insert(std::move(moved)).position;
    node.parent = &folder;
    node.name = &entered->first;
    node.hasNewName = true;
    touch(from);
    touch(folder);
}

void PendingTree::setLastModified(PendingNode& node, std::int64_t time,
                                  StorageIRI const& location) {
    checkRoom(touched(size_, node), location);
    if (!node.isFolder() && !node.content && node.base != ArchiveIndex::none) {
        Member const member = index_->memberOf(node.base);
        if (member.isEncrypted && member.hasDescriptor) {
            fail(ErrorCode::UnsupportedOperation, location);
        }
    }
    node.lastModified = storableTime(time);
    node.hasNewFacts = true;
    beMember(node);
    if (node.content) {
        node.content->setLastModified(node.lastModified);
    }
    changed();
}

void PendingTree::setMode(PendingNode& node, std::uint16_t mode, StorageIRI const& location) {
    checkRoom(touched(size_, node), location);
    if (!node.hasNewFacts) {
        node.lastModified = attributesOf(&node).lastModified.seconds;
        node.hasNewFacts = true;
    }
    node.mode = mode;
    beMember(node);
    changed();
}

void PendingTree::setContent(PendingNode& node, std::shared_ptr<PendingContent> content) {
    content->beInTree();
    if (content->isChanged()) {
        changed();
    }
    node.content = std::move(content);
}

} // namespace foundation::storage::provider::zip::detail
