#include <foundation/storage/provider/tar/detail/tar_index.hpp>

#include <foundation/storage/provider/container/member_path.hpp>
#include <foundation/storage/provider/container/name_hash.hpp>

#include <algorithm>
#include <bit>
#include <limits>
#include <utility>

namespace foundation::storage::provider::tar::detail {

using container::EntryKind;
using container::hashOfChild;

namespace {

constexpr std::size_t smallestTable = 16;
/// What a folder is that only the paths of others tell of.
constexpr Member impliedFolder = {.place = TarIndex::none, .mode = 0755, .kind = EntryKind::Folder};

} // namespace

TarIndex::TarIndex(TarOptions const& options)
    : options_(options),
      table_(smallestTable, none),
      hashBits_(~static_cast<std::uint32_t>(
          std::bit_ceil(std::uint64_t{options.maximumEntries} + 2) - 1)) {
    names_.append("");
    entries_.append({.member = append(impliedFolder)});
}

std::uint32_t TarIndex::append(Member const& member) {
    members_.append(member);
    return static_cast<std::uint32_t>(members_.size() - 1);
}

std::uint64_t TarIndex::memory() const noexcept {
    return entries_.size() * sizeof(Entry) + members_.size() * sizeof(Member) + names_.size() +
           table_.size() * sizeof(Number);
}

bool TarIndex::hasRoomFor(std::uint64_t bytes) const noexcept {
    return names_.size() + bytes <= std::numeric_limits<std::uint32_t>::max() &&
           memory() + bytes <= options_.maximumDirectoryMemory;
}

std::size_t TarIndex::slotOf(std::uint64_t hash) const noexcept {
    return static_cast<std::size_t>((hash >> 32) * table_.size() >> 32);
}

/// REQUIRES: it is not there.
void TarIndex::enterInTable(Number entry, std::string_view name) {
    std::uint64_t const hash = hashOfChild(entries_[entry].parent, name);
    std::size_t slot = slotOf(hash);
    while (table_[slot] != none) {
        slot = behind(slot);
    }
    table_[slot] = entry | (static_cast<std::uint32_t>(hash) & hashBits_);
}

/// Twice as large, or as large as it can ever have to be. False where there is no room for that.
bool TarIndex::growTable() {
    std::uint64_t const most = std::uint64_t{options_.maximumEntries} * 5 / 4 + smallestTable;
    auto const slots = static_cast<std::size_t>(std::min<std::uint64_t>(table_.size() * 2, most));
    if (!hasRoomFor((slots - table_.size()) * sizeof(Number))) {
        return false;
    }
    table_ = {}; // so that the old one and the new one are not there at once
    table_.assign(slots, none);
    for (Number entry = 1; entry < entries_.size(); ++entry) {
        enterInTable(entry, nameOf(entry));
    }
    return true;
}

TarIndex::Number TarIndex::child(Number folder, std::string_view name) const noexcept {
    std::uint64_t const hash = hashOfChild(folder, name);
    for (std::size_t slot = slotOf(hash); table_[slot] != none; slot = behind(slot)) {
        Number const entry = table_[slot] & ~hashBits_;
        bool const isLike = ((table_[slot] ^ hash) & hashBits_) == 0;
        if (isLike && entries_[entry].parent == folder && nameOf(entry) == name) {
            return entry;
        }
    }
    return none;
}

/// REQUIRES: the spot is free.
TarIndex::Added TarIndex::enter(Spot const& spot, std::uint32_t member) {
    if (entries_.size() > options_.maximumEntries ||
        !hasRoomFor(spot.name.size() + 1 + sizeof(Entry)) ||
        (entries_.size() * 5 / 4 >= table_.size() && !growTable())) {
        return Added::TooMany;
    }
    auto const number = static_cast<Number>(entries_.size());
    // In reverse, until finish() turns them round: so there is no last child to remember.
    std::uint64_t& firstChild = members_[entries_[spot.folder].member].place;
    auto const next = static_cast<Number>(std::exchange(firstChild, number));
    entries_.append({names_.append(spot.name), spot.folder, next, member});
    enterInTable(number, spot.name);
    return Added::Yes;
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
            next = static_cast<Number>(entries_.size());
            result = enter({folder, name}, append(impliedFolder));
        } else if (!isFolder(next)) {
            result = Added::LeftOut;
        }
        if (result != Added::Yes) {
            return none;
        }
        folder = next;
    }
    lastFolder_ = path;
    lastFolderNumber_ = folder;
    return folder;
}

/// For a member whose path is not that of the root. Nothing, where `result` is not Yes.
TarIndex::Spot TarIndex::spotFor(std::string_view path, bool isFolder, Added& result) {
    if (path.ends_with('/')) {
        path.remove_suffix(1);
    }
    std::size_t const slash = path.rfind('/');
    bool const isAtTop = slash == std::string_view::npos;
    std::string_view const name = isAtTop ? path : path.substr(slash + 1);
    if (!container::isMemberName(name) || slash == 0) {
        result = Added::LeftOut;
        return {};
    }
    Number const folder = isAtTop ? root : folderFor(path.substr(0, slash), result);
    if (folder == none) {
        return {};
    }
    Number const entry = child(folder, name);
    if (entry != none && this->isFolder(entry) != isFolder) {
        result = Added::LeftOut;
    }
    return {folder, name, entry};
}

TarIndex::Added TarIndex::add(std::string_view path, Member const& member,
                              std::string_view target) {
    lastMember_ = none;
    bool const isFolder = member.kind == EntryKind::Folder;
    Added result = Added::Yes;
    Spot const spot =
        path.empty() && isFolder ? Spot{.entry = root} : spotFor(path, isFolder, result);
    if (result != Added::Yes) {
        return result;
    }
    Member entered = member;
    if (isFolder && spot.entry != none) { // told of once more, or not only implied
        Member& told = members_[entries_[spot.entry].member];
        entered.place = told.place;
        told = entered;
        return Added::Yes;
    }
    if (!hasRoomFor(sizeof(Member) + target.size() + 1)) {
        return Added::TooMany;
    }
    if (isFolder) {
        entered.place = none;
    } else if (member.kind == EntryKind::Link) {
        entered.place = names_.append(target);
    }
    std::uint32_t const number = append(entered);
    lastMember_ = member.kind == EntryKind::File ? number : none;
    return putAt(spot, number);
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
    Spot const spot = spotFor(path, false, result);
    if (result != Added::Yes) {
        return result;
    }
    std::uint32_t const shared = entries_[target].member;
    Member& common = members_[shared];
    if (member.size != 0 && common.kind == EntryKind::File) {
        common.size = member.size;
        common.place = member.place;
        common.access = member.access;
        lastMember_ = shared;
    }
    return putAt(spot, shared);
}

/// No folder, which is told of elsewhere.
TarIndex::Added TarIndex::putAt(Spot const& spot, std::uint32_t member) {
    if (spot.entry == none) {
        return enter(spot, member);
    }
    replaced_ += entries_[spot.entry].member != member ? 1 : 0;
    entries_[spot.entry].member = member;
    return Added::Yes;
}

void TarIndex::changeLast(Access access, std::uint64_t place) noexcept {
    if (lastMember_ != none) {
        members_[lastMember_].access = access;
        members_[lastMember_].place = place;
    }
}

void TarIndex::finish() {
    for (Number folder = 0; folder < entries_.size(); ++folder) {
        if (!isFolder(folder)) {
            continue;
        }
        std::uint64_t& firstChild = members_[entries_[folder].member].place;
        Number reversed = none;
        for (auto child = static_cast<Number>(firstChild); child != none;) {
            Number const next = std::exchange(entries_[child].next, reversed);
            reversed = std::exchange(child, next);
        }
        firstChild = reversed;
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
    values.lastModified = {member.seconds, member.nanoseconds};
    return values;
}

} // namespace foundation::storage::provider::tar::detail
