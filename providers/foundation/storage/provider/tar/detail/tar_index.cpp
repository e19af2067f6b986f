#include <foundation/storage/provider/tar/detail/tar_index.hpp>

#include <foundation/storage/provider/container/member_path.hpp>
#include <foundation/storage/provider/container/name_hash.hpp>

#include <algorithm>
#include <limits>
#include <utility>

namespace foundation::storage::provider::tar::detail {

using container::EntryKind;
using container::hashOfChild;

namespace {

constexpr std::uint16_t usualFolderMode = 0755;

} // namespace

TarIndex::TarIndex(TarOptions const& options) : options_(options) {
    members_.push_back({.mode = usualFolderMode, .kind = EntryKind::Folder});
    entries_.emplace_back();
    makeTable(16);
}

/// What is not used is never touched, and takes no memory; growing would take twice as much.
void TarIndex::reserve(std::uint64_t members) {
    auto const most =
        static_cast<std::size_t>(std::min<std::uint64_t>(members, options_.maximumEntries) + 1);
    entries_.reserve(most);
    members_.reserve(most);
}

std::uint64_t TarIndex::memory() const noexcept {
    return entries_.size() * sizeof(Entry) + members_.size() * sizeof(Member) + names_.size() +
           table_.size() * sizeof(Number);
}

bool TarIndex::hasRoomFor(std::size_t bytes) const noexcept {
    return names_.size() + bytes <= std::numeric_limits<std::uint32_t>::max() &&
           memory() + bytes <= options_.maximumDirectoryMemory;
}

void TarIndex::makeTable(std::size_t slots) {
    table_ = {}; // so that the old one and the new one are not there at once
    table_.assign(slots, none);
    for (Number entry = 1; entry < entries_.size(); ++entry) {
        std::uint64_t slot = hashOfChild(entries_[entry].parent, nameOf(entry));
        while (table_[slot & (slots - 1)] != none) {
            ++slot;
        }
        table_[slot & (slots - 1)] = entry;
    }
}

TarIndex::Number TarIndex::child(Number folder, std::string_view name) const noexcept {
    for (std::uint64_t slot = hashOfChild(folder, name);; ++slot) {
        Number const entry = table_[slot & (table_.size() - 1)];
        if (entry == none || (entries_[entry].parent == folder && nameOf(entry) == name)) {
            return entry;
        }
    }
}

/// A folder that is implied, until it is told what it is. REQUIRES: there is no such child.
TarIndex::Number TarIndex::enter(Number folder, std::string_view name) {
    if (entries_.size() > options_.maximumEntries || !hasRoomFor(name.size())) {
        return none;
    }
    if ((entries_.size() + 1) * 5 / 4 > table_.size()) {
        makeTable(table_.size() * 2);
    }
    auto const number = static_cast<Number>(entries_.size());
    Entry& entry = entries_.emplace_back();
    entry.name = static_cast<std::uint32_t>(names_.size());
    entry.nameSize = static_cast<std::uint16_t>(name.size());
    entry.parent = folder;
    names_ += name;
    // In reverse, until finish() turns them round: so there is no last child to remember.
    entry.next = std::exchange(entries_[folder].firstChild, number);
    std::uint64_t slot = hashOfChild(folder, name);
    while (table_[slot & (table_.size() - 1)] != none) {
        ++slot;
    }
    table_[slot & (table_.size() - 1)] = number;
    return number;
}

TarIndex::Number TarIndex::folderFor(std::string_view path, Added& result) {
    if (path == lastFolder_) {
        return lastFolderNumber_;
    }
    // Before any folder of it is entered.
    if (!container::isMemberPath(path, options_.maximumDepth)) {
        result = Added::LeftOut;
        return none;
    }
    Number folder = root;
    for (std::string_view rest = path; !rest.empty();) {
        std::size_t const slash = rest.find('/');
        std::string_view const name = rest.substr(0, slash);
        rest = slash == std::string_view::npos ? std::string_view() : rest.substr(slash + 1);
        Number next = child(folder, name);
        if (next == none) {
            next = enter(folder, name);
        }
        if (next == none || !isFolder(next)) {
            result = next == none ? Added::TooMany : Added::LeftOut;
            return none;
        }
        folder = next;
    }
    lastFolder_ = path;
    lastFolderNumber_ = folder;
    return folder;
}

/// The entry for a member, new or not; none where there can be none.
TarIndex::Number TarIndex::place(std::string_view path, bool isFolder, Added& result) {
    if (path.empty() && isFolder) {
        return root;
    }
    if (path.ends_with('/')) {
        path.remove_suffix(1);
    }
    std::size_t const slash = path.rfind('/');
    bool const isAtTop = slash == std::string_view::npos;
    std::string_view const name = isAtTop ? path : path.substr(slash + 1);
    if (!container::isMemberName(name) || slash == 0) {
        result = Added::LeftOut;
        return none;
    }
    Number const folder = isAtTop ? root : folderFor(path.substr(0, slash), result);
    if (folder == none) {
        return none;
    }
    Number number = child(folder, name);
    if (number == none) {
        number = enter(folder, name);
        if (number == none) {
            result = Added::TooMany;
        }
    } else if (this->isFolder(number) != isFolder) {
        result = Added::LeftOut;
        return none;
    }
    return number;
}

TarIndex::Added TarIndex::add(std::string_view path, Member const& member,
                              std::string_view target) {
    lastMember_ = none;
    Added result = Added::Yes;
    Number const entry = place(path, member.kind == EntryKind::Folder, result);
    if (entry == none) {
        return result;
    }
    if (!hasRoomFor(target.size())) {
        return Added::TooMany;
    }
    lastMember_ = static_cast<std::uint32_t>(members_.size());
    Member& entered = members_.emplace_back(member);
    entered.target = static_cast<std::uint32_t>(names_.size());
    entered.targetSize = static_cast<std::uint32_t>(target.size());
    names_ += target;
    entries_[entry].member = lastMember_;
    return Added::Yes;
}

/// Without going by links.
TarIndex::Number TarIndex::find(std::string_view path) const {
    if (path.ends_with('/')) {
        path.remove_suffix(1);
    }
    Number entry = root;
    while (entry != none) {
        std::size_t const slash = path.find('/');
        entry = child(entry, path.substr(0, slash));
        if (slash == std::string_view::npos) {
            break;
        }
        path.remove_prefix(slash + 1);
    }
    return entry;
}

TarIndex::Added TarIndex::addHardLink(std::string_view path, std::string_view to,
                                      Member const& member) {
    lastMember_ = none;
    Number const target = find(to);
    if (target != none && isFolder(target)) {
        return Added::LeftOut;
    }
    if (target == none && member.size != 0) { // what it leads to was left out
        return add(path, member, {});
    }
    if (target == none) {
        Member missing = member;
        missing.access = Access::Missing;
        missing.size = 0;
        return add(path, missing, {});
    }
    Added result = Added::Yes;
    Number const entry = place(path, false, result);
    if (entry == none) {
        return result;
    }
    std::uint32_t const shared = entries_[target].member;
    entries_[entry].member = shared;
    Member& common = members_[shared];
    if (member.size != 0 && common.kind == EntryKind::File) {
        common.size = member.size;
        common.place = member.place;
        common.access = member.access;
        lastMember_ = shared;
    }
    return Added::Yes;
}

void TarIndex::changeLast(Access access, std::uint64_t place) noexcept {
    if (lastMember_ != none) {
        members_[lastMember_].access = access;
        members_[lastMember_].place = place;
    }
}

void TarIndex::finish() {
    for (Entry& entry : entries_) {
        Number reversed = none;
        for (Number child = entry.firstChild; child != none;) {
            Number const next = std::exchange(entries_[child].next, reversed);
            reversed = std::exchange(child, next);
        }
        entry.firstChild = reversed;
    }
    // Of a large one, the end was never touched, and so takes no memory.
    constexpr std::size_t small = 16'384;
    if (entries_.size() < small) {
        entries_.shrink_to_fit();
        members_.shrink_to_fit();
        names_.shrink_to_fit();
    }
}

AttributeValues TarIndex::attributesOf(Number entry) const {
    Member const& member = memberOf(entry);
    AttributeValues values;
    if (member.kind != EntryKind::Folder) {
        values.size = member.size;
    }
    values.mode = member.mode;
    values.writable = (member.mode & 0200) != 0;
    values.lastModified = member.lastModified;
    return values;
}

} // namespace foundation::storage::provider::tar::detail
