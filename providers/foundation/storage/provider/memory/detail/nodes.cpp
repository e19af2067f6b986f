#include <foundation/storage/provider/memory/detail/nodes.hpp>

#include <fl/i18n/conversion.hpp>

#include <algorithm>
#include <bit>
#include <cassert>
#include <ctime>
#include <iterator>
#include <mutex>
#include <new>
#include <shared_mutex>

namespace foundation::storage::provider::memory::detail {

namespace {

/// Bytes that one write puts down without letting others at the file.
constexpr std::size_t longestHold = 1024 * 1024;

// A block starts small, since most files are; behind a full one a large file is being written.
constexpr std::size_t smallestBlock = 64;

AttributeValues valuesOf(Timestamp lastModified, Timestamp created, std::uint32_t mode) {
    AttributeValues values;
    values.lastModified = lastModified;
    values.created = created;
    values.mode = mode;
    values.writable = (mode & ownerMayWrite) != 0;
    return values;
}

std::uint32_t withWritable(std::uint32_t mode, bool writable) noexcept {
    return writable ? mode | ownerMayWrite : mode & ~anybodyMayWrite;
}

} // namespace

Timestamp now() noexcept {
    timespec time{};
    ::clock_gettime(CLOCK_REALTIME, &time);
    return {time.tv_sec, static_cast<std::int32_t>(time.tv_nsec)};
}

Node::Node(Kind kind, std::shared_ptr<Space> space) : kind_(kind), space_(std::move(space)) {
    if (!space_->entries.take(1)) {
        throw OutOfSpace();
    }
}

FileNode::FileNode(std::shared_ptr<Space> space, std::uint32_t mode)
    : Node(Kind::File, std::move(space)),
      lastModified_(now()),
      created_(lastModified_),
      mode_(mode) {}

FileNode::FileNode(std::shared_ptr<Space> space, FileNode const& source)
    : Node(Kind::File, std::move(space)),
      created_(now()) {
    std::shared_lock const lock(source.mutex_);
    blocks_ = source.blocks_;
    size_ = source.size_;
    lastModified_ = source.lastModified_;
    mode_ = source.mode_;
}

std::size_t FileNode::read(std::uint64_t position, char* buffer, std::size_t count) const {
    std::shared_lock const lock(mutex_);
    if (position >= size_) {
        return 0;
    }
    count = static_cast<std::size_t>(std::min<std::uint64_t>(count, size_ - position));
    auto block = blocks_.lower_bound(position / Block::fullSize);
    for (std::size_t done = 0; done < count;) {
        std::uint64_t const index = (position + done) / Block::fullSize;
        std::size_t const offset = (position + done) % Block::fullSize;
        std::size_t const piece = std::min(count - done, Block::fullSize - offset);
        if (block != blocks_.end() && block->first == index) {
            block->second->read(offset, buffer + done, piece);
            ++block;
        } else {
            std::fill_n(buffer + done, piece, '\0');
        }
        done += piece;
    }
    return count;
}

std::size_t FileNode::capacityFor(Blocks::iterator block, std::size_t end) const {
    if (block != blocks_.begin()) {
        auto const before = std::prev(block);
        if (before->first + 1 == block->first && before->second->filled() == Block::fullSize) {
            return Block::fullSize;
        }
    }
    return std::bit_ceil(std::max(end, smallestBlock));
}

bool FileNode::writeBlock(Blocks::iterator block, std::size_t offset, char const* data,
                          std::size_t count) {
    BlockPtr& current = block->second;
    std::size_t const end = offset + count;
    if (!current) {
        current = Block::make(*space(), capacityFor(block, end));
    } else if (current->isShared()) {
        BlockPtr own = Block::make(*space(), capacityFor(block, std::max(end, current->filled())));
        if (!own->copyFrom(*current)) {
            return false;
        }
        current = std::move(own);
    } else if (end > current->capacity()) {
        BlockPtr larger = Block::make(*space(), capacityFor(block, end));
        larger->takeFrom(*current);
        current = std::move(larger);
    }
    return current->write(offset, data, count);
}

bool FileNode::writeLocked(std::uint64_t position, char const* data, std::size_t count) {
    for (std::size_t done = 0; done < count;) {
        std::uint64_t const index = (position + done) / Block::fullSize;
        std::size_t const offset = (position + done) % Block::fullSize;
        std::size_t const piece = std::min(count - done, Block::fullSize - offset);
        auto block = blocks_.end();
        bool written = false;
        try {
            block = blocks_.try_emplace(blocks_.end(), index);
            written = writeBlock(block, offset, data + done, piece);
        } catch (std::bad_alloc const&) {
            // The machine's memory is this storage's medium: it is full, and the file unchanged.
        }
        if (!written) {
            if (block != blocks_.end() && (!block->second || block->second->filled() == 0)) {
                blocks_.erase(block);
            }
            return false;
        }
        done += piece;
        size_ = std::max(size_, position + done);
        lastModified_ = now();
    }
    return true;
}

bool FileNode::write(std::uint64_t position, char const* data, std::size_t count) {
    // A piece at a time: whoever waits for this file may hold the whole tree meanwhile.
    for (std::size_t done = 0; done < count;) {
        std::size_t const piece = std::min(count - done, longestHold);
        std::unique_lock const lock(mutex_);
        if (!writeLocked(position + done, data + done, piece)) {
            return false;
        }
        done += piece;
    }
    return true;
}

bool FileNode::append(char const* data, std::size_t count, std::uint64_t& end) {
    std::unique_lock const lock(mutex_);
    bool const written = writeLocked(size_, data, count);
    end = size_;
    return written;
}

Truncation FileNode::truncateIfWritable() {
    Blocks dropped; // freed behind the lock
    std::unique_lock const lock(mutex_);
    if ((mode_ & ownerMayWrite) == 0) {
        return Truncation::Refused;
    }
    if (size_ == 0) {
        return Truncation::WasEmpty; // and keeps its time
    }
    dropped.swap(blocks_);
    size_ = 0;
    lastModified_ = now();
    return Truncation::Done;
}

std::uint64_t FileNode::size() const {
    std::shared_lock const lock(mutex_);
    return size_;
}

bool FileNode::isWritable() const {
    std::shared_lock const lock(mutex_);
    return (mode_ & ownerMayWrite) != 0;
}

AttributeValues FileNode::attributes() const {
    std::shared_lock const lock(mutex_);
    AttributeValues values = valuesOf(lastModified_, created_, mode_);
    values.size = size_;
    return values;
}

void FileNode::setLastModified(Timestamp time) {
    std::unique_lock const lock(mutex_);
    lastModified_ = time;
}

void FileNode::setWritable(bool writable) {
    std::unique_lock const lock(mutex_);
    mode_ = withWritable(mode_, writable);
}

void FileNode::takeModeOf(FileNode const& other) {
    std::uint32_t const mode = *other.attributes().mode;
    std::unique_lock const lock(mutex_);
    mode_ = mode;
}

LinkNode::LinkNode(std::shared_ptr<Space> space, ustring target)
    : Node(Kind::Link, std::move(space)),
      target_(std::move(target)),
      created_(now()),
      lastModified_(created_) {}

LinkNode::LinkNode(std::shared_ptr<Space> space, LinkNode const& source)
    : Node(Kind::Link, std::move(space)),
      target_(source.target_),
      created_(now()),
      lastModified_(source.lastModified_) {}

AttributeValues LinkNode::attributes() const {
    AttributeValues values = valuesOf(lastModified_, created_, 0777);
    values.size = fl::i18n::toDisplayString(target_).size();
    return values;
}

FolderNode::FolderNode(std::shared_ptr<Space> space, std::uint32_t mode)
    : Node(Kind::Folder, std::move(space)),
      lastModified_(now()),
      created_(lastModified_),
      mode_(mode) {}

FolderNode::~FolderNode() {
    // Always the first child: down while it is a folder with content of its own, and up again when
    // nothing is left there. No stack, and no allocation that could fail.
    FolderNode* at = this;
    for (;;) {
        if (at->children_.empty()) {
            if (at == this) {
                return;
            }
            at = at->parent();
            at->children_.erase(at->children_.begin());
            continue;
        }
        auto const first = at->children_.begin();
        if (first->second->isFolder()) {
            auto& folder = static_cast<FolderNode&>(*first->second);
            if (first->second.use_count() == 1) {
                at = &folder;
                continue;
            }
        }
        detach(*first->second);
        at->children_.erase(first);
    }
}

Node* FolderNode::find(std::u16string_view name) const {
    auto const found = children_.find(name);
    return found == children_.end() ? nullptr : found->second.get();
}

Node& FolderNode::add(ustring name, std::shared_ptr<Node> node) {
    auto const& child = *children_.emplace(std::move(name), std::move(node)).first;
    attach(child);
    lastModified_ = now();
    return *child.second;
}

std::shared_ptr<Node> FolderNode::share(std::u16string_view name) const {
    return children_.find(name)->second;
}

std::shared_ptr<Node> FolderNode::remove(std::u16string_view name) {
    auto const found = children_.find(name);
    std::shared_ptr<Node> node = std::move(found->second);
    children_.erase(found);
    detach(*node);
    assert(!node->isFolder() || static_cast<FolderNode&>(*node).children_.empty());
    lastModified_ = now();
    return node;
}

std::shared_ptr<Node> FolderNode::replace(std::u16string_view name, std::shared_ptr<Node> node) {
    auto const found = children_.find(name);
    found->second.swap(node);
    detach(*node);
    attach(*found);
    lastModified_ = now();
    return node;
}

std::shared_ptr<Node> FolderNode::moveTo(FolderNode& folder, std::u16string_view oldName,
                                         ustring newName) {
    std::shared_ptr<Node> replaced;
    if (auto const there = folder.children_.find(newName); there != folder.children_.end()) {
        replaced = std::move(there->second);
        folder.children_.erase(there);
        detach(*replaced);
    }
    auto entry = children_.extract(children_.find(oldName));
    entry.key().swap(newName);
    folder.attach(*folder.children_.insert(std::move(entry)).position);
    lastModified_ = folder.lastModified_ = now();
    return replaced;
}

void FolderNode::attach(Children::value_type const& child) noexcept {
    child.second->parent_ = this;
    child.second->name_ = &child.first;
}

void FolderNode::detach(Node& node) noexcept {
    node.parent_ = nullptr;
    node.name_ = nullptr;
}

AttributeValues FolderNode::attributes() const {
    return valuesOf(lastModified_, created_, mode_);
}

void FolderNode::setWritable(bool writable) noexcept {
    mode_ = withWritable(mode_, writable);
}

} // namespace foundation::storage::provider::memory::detail
