#include <foundation/storage/provider/zip/detail/archive_index.hpp>

#include <foundation/storage/provider/container/member_path.hpp>
#include <foundation/storage/provider/container/name_hash.hpp>
#include <foundation/storage/provider/zip/detail/dos_time.hpp>
#include <foundation/storage/provider/zip/detail/member_headers.hpp>

#include <algorithm>
#include <bit>
#include <utility>

namespace foundation::storage::provider::zip::detail {

namespace {

/// Of a small one; the end of a large one was never touched, and so takes no memory.
template<class Container>
void freeSlack(Container& container) {
    constexpr std::size_t small = 16'384;
    if (container.size() < small) {
        container.shrink_to_fit();
    }
}

constexpr std::uint16_t usualFolderMode = 0755;
constexpr std::uint64_t in32Bits = 0xFFFFFFFF;
/// Of a central header without a name.
constexpr std::uint64_t leastHeaderSize = 46;

} // namespace

std::uint32_t hashOfName(unsigned char const* bytes, std::size_t size) noexcept {
    std::uint32_t hash = 2166136261U; // FNV-1a; equal archives are to have equal ones
    for (std::size_t i = 0; i < size; ++i) {
        hash = (hash ^ bytes[i]) * 16777619U;
    }
    return hash;
}

DirectorySize& DirectorySize::operator+=(DirectorySize const& more) noexcept {
    entries += more.entries;
    headers += more.headers;
    nameBytes += more.nameBytes;
    large += more.large;
    return *this;
}

DirectorySize& DirectorySize::operator-=(DirectorySize const& less) noexcept {
    entries -= less.entries;
    headers -= less.headers;
    nameBytes -= less.nameBytes;
    large -= less.large;
    return *this;
}

bool DirectorySize::fits(ZipOptions const& options) const noexcept {
    std::size_t const slots = ArchiveIndex::slotsFor(std::max(entries, headers));
    return std::max(entries, headers) <= options.maximumEntries && nameBytes <= in32Bits &&
           ArchiveIndex::memoryOf(*this, slots) <= options.maximumDirectoryMemory;
}

bool DirectorySize::isWithin(DirectorySize const& other) const noexcept {
    return entries <= other.entries && headers <= other.headers && nameBytes <= other.nameBytes &&
           large <= other.large;
}

ArchiveIndex::ArchiveIndex(ZipOptions const& options) : options_(options) {
    entries_.emplace_back();
    entries_[root].isImplied = true;
    entries_[root].mode = usualFolderMode;
    makeTable(slotsFor(0));
}

void ArchiveIndex::reserve(std::uint64_t directorySize, std::uint64_t told) {
    std::uint64_t const most =
        std::min<std::uint64_t>(directorySize / leastHeaderSize, options_.maximumEntries);
    entries_.reserve(static_cast<std::size_t>(most + 1));
    names_.reserve(
        static_cast<std::size_t>(std::min(directorySize, options_.maximumDirectoryMemory)));
    makeTable(slotsFor(std::min(told, most))); // it grows where too few are told
}

/// At most two thirds of them are taken. `entries` without the root.
std::size_t ArchiveIndex::slotsFor(std::uint64_t entries) noexcept {
    constexpr std::uint64_t least = 16;
    return static_cast<std::size_t>(std::max(least, std::bit_ceil((entries + 1) * 3 / 2)));
}

std::uint64_t ArchiveIndex::memoryOf(DirectorySize const& size, std::size_t slots) noexcept {
    return (size.entries + 1) * sizeof(Entry) + size.nameBytes + size.large * sizeof(Large) +
           slots * sizeof(Number);
}

void ArchiveIndex::makeTable(std::size_t slots) {
    table_ = {}; // so that the old one and the new one are not there at once
    table_.assign(slots, none);
    for (Number entry = 1; entry < entries_.size(); ++entry) {
        std::uint64_t slot = container::hashOfChild(entries_[entry].parent, nameOf(entry));
        while (table_[slot & (slots - 1)] != none) {
            ++slot;
        }
        table_[slot & (slots - 1)] = entry;
    }
}

ArchiveIndex::Number ArchiveIndex::child(Number folder, std::string_view name) const noexcept {
    std::uint64_t slot = container::hashOfChild(folder, name);
    for (;; ++slot) {
        Number const entry = table_[slot & (table_.size() - 1)];
        if (entry == none || (entries_[entry].parent == folder && nameOf(entry) == name)) {
            return entry;
        }
    }
}

/// REQUIRES: there is no such child.
ArchiveIndex::Number ArchiveIndex::enter(Number folder, std::string_view name) {
    // The root is one of them now, and none of them then.
    DirectorySize const size{entries_.size(), 0, names_.size() + name.size(), large_.size()};
    std::size_t const slots = std::max(table_.size(), slotsFor(size.entries));
    if (size.entries > options_.maximumEntries || size.nameBytes > in32Bits ||
        memoryOf(size, slots) > options_.maximumDirectoryMemory) {
        return none;
    }
    if (slots > table_.size()) {
        makeTable(slots);
    }
    auto const number = static_cast<Number>(entries_.size());
    Entry& entry = entries_.emplace_back();
    entry.name = static_cast<std::uint32_t>(names_.size());
    entry.nameSize = static_cast<std::uint16_t>(name.size());
    entry.parent = folder;
    entry.isImplied = true;
    entry.mode = usualFolderMode;
    names_ += name;
    // In reverse, until finish() turns them round: so there is no last child to remember.
    entry.next = std::exchange(entries_[folder].firstChildOrCrc, number);
    std::uint64_t slot = container::hashOfChild(folder, name);
    while (table_[slot & (table_.size() - 1)] != none) {
        ++slot;
    }
    table_[slot & (table_.size() - 1)] = number;
    return number;
}

ArchiveIndex::Number ArchiveIndex::folderFor(std::string_view path, Added& result) {
    if (path == lastFolder_) {
        return lastFolderNumber_;
    }
    if (!container::isMemberPath(path,
                                 options_.maximumDepth)) { // before any folder of it is entered
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

ArchiveIndex::Added ArchiveIndex::add(std::string_view path, MemberFacts const& facts) {
    bool const isFolder = facts.kind == EntryKind::Folder;
    if (path.empty() && isFolder) {
        describe(entries_[root], facts);
        return Added::Yes;
    }
    if (path.ends_with('/')) {
        path.remove_suffix(1);
    }
    std::size_t const slash = path.rfind('/');
    bool const isAtTop = slash == std::string_view::npos;
    std::string_view const name = isAtTop ? path : path.substr(slash + 1);
    if (!container::isMemberName(name) || slash == 0) {
        return Added::LeftOut;
    }
    Added result = Added::Yes;
    Number const folder = isAtTop ? root : folderFor(path.substr(0, slash), result);
    if (folder == none) {
        return result;
    }
    Number number = child(folder, name);
    if (number == none) {
        number = enter(folder, name);
        if (number == none) {
            return Added::TooMany;
        }
    } else if (this->isFolder(number) != isFolder) {
        return Added::LeftOut;
    }
    describe(entries_[number], facts);
    bool const isTooMuch =
        entries_[number].isLarge && memoryOf({entries_.size() - 1, 0, names_.size(), large_.size()},
                                             table_.size()) > options_.maximumDirectoryMemory;
    return isTooMuch ? Added::TooMany : Added::Yes;
}

void ArchiveIndex::describe(Entry& entry, MemberFacts const& facts) {
    Member const& member = facts.member;
    std::size_t const place = entry.isLarge ? entry.headerOffset : large_.size();
    entry.kind = facts.kind;
    entry.mode = facts.mode;
    entry.time = facts.time.value;
    entry.isDosTime = facts.time.isDos;
    entry.isLateTime = facts.time.isLate;
    entry.isImplied = false;
    entry.isLonger = facts.isLonger;
    if (facts.kind != EntryKind::Folder) {
        entry.firstChildOrCrc = member.crc;
    }
    entry.nameHash = member.nameHash;
    entry.method = member.method;
    entry.isEncrypted = member.isEncrypted;
    entry.hasDescriptor = member.hasDescriptor;
    entry.isLarge = std::max({member.headerOffset, member.compressedSize, member.size}) > in32Bits;
    if (entry.isLarge) {
        large_.resize(std::max(large_.size(), place + 1)); // what the path had before is used again
        large_[place] = {member.headerOffset, member.compressedSize, member.size};
        entry.headerOffset = static_cast<std::uint32_t>(place);
    } else {
        entry.headerOffset = static_cast<std::uint32_t>(member.headerOffset);
        entry.compressedSize = static_cast<std::uint32_t>(member.compressedSize);
        entry.size = static_cast<std::uint32_t>(member.size);
    }
}

bool ArchiveIndex::finish() {
    bool isOrdered = true;
    std::uint64_t end = 0;
    for (Number entry = 0; entry < entries_.size(); ++entry) {
        if (isFolder(entry)) {
            Number reversed = none;
            for (Number child = firstChildOf(entry); child != none;) {
                Number const next = std::exchange(entries_[child].next, reversed);
                reversed = std::exchange(child, next);
            }
            entries_[entry].firstChildOrCrc = reversed;
        }
        if (!entries_[entry].isImplied) {
            isOrdered = isOrdered && memberOf(entry).headerOffset >= end;
            end = endOf(entry);
        }
    }
    freeSlack(entries_);
    freeSlack(names_);
    return isOrdered || !hasOverlap();
}

/// Where a member ends at the earliest: its header has the whole path, and perhaps more, unless
/// that is longer in our spelling.
std::uint64_t ArchiveIndex::endOf(Number number) const noexcept {
    Entry const& entry = entries_[number];
    Member const member = memberOf(number);
    return member.headerOffset + localHeaderSize + (entry.isLonger ? 0U : entry.nameSize) +
           member.compressedSize;
}

bool ArchiveIndex::hasOverlap() {
    // What needs more than 32 bits is behind everything else.
    auto const keyOf = [&](Number entry) {
        return std::min(memberOf(entry).headerOffset, in32Bits) << 32 | entry;
    };
    auto const numberIn = [](std::uint64_t key) { return static_cast<Number>(key); };
    auto const isBefore = [&](std::uint64_t a, std::uint64_t b) {
        return (a & b) >> 32 != in32Bits
                   ? a < b
                   : memberOf(numberIn(a)).headerOffset < memberOf(numberIn(b)).headerOffset;
    };
    std::size_t const slots = table_.size();
    table_ = {}; // room for the order
    std::vector<std::uint64_t> order;
    order.reserve(entries_.size());
    for (Number entry = 0; entry < entries_.size(); ++entry) {
        if (!entries_[entry].isImplied) {
            order.push_back(keyOf(entry));
        }
    }
    std::sort(order.begin(), order.end(), isBefore);
    bool const result =
        std::adjacent_find(order.begin(), order.end(), [&](std::uint64_t a, std::uint64_t b) {
            return endOf(numberIn(a)) > memberOf(numberIn(b)).headerOffset;
        }) != order.end();
    order = {};
    makeTable(slots);
    return result;
}

Member ArchiveIndex::memberOf(Number file) const noexcept {
    Entry const& entry = entries_[file];
    Member member{entry.headerOffset,    entry.compressedSize, entry.size,
                  entry.firstChildOrCrc, entry.nameHash,       entry.method,
                  entry.isEncrypted,     entry.hasDescriptor};
    if (entry.isLarge) {
        Large const& large = large_[entry.headerOffset];
        member.headerOffset = large.headerOffset;
        member.compressedSize = large.compressedSize;
        member.size = large.size;
    }
    return member;
}

DirectorySize ArchiveIndex::sizeOf(Number number) const noexcept {
    Entry const& entry = entries_[number];
    DirectorySize size{1, 1, entry.nameSize, 0};
    if (number == root) {
        size.entries = 0;
    }
    if (entry.isImplied) {
        size.headers = 0;
    }
    if (entry.isLarge) {
        size.large = 1;
    }
    return size;
}

AttributeValues ArchiveIndex::attributesOf(Number number) const {
    Entry const& entry = entries_[number];
    AttributeValues values;
    if (entry.kind != EntryKind::Folder) {
        values.size = entry.isLarge ? large_[entry.headerOffset].size : entry.size;
    }
    values.mode = entry.mode;
    values.writable = (entry.mode & 0200) != 0;
    values.lastModified.seconds =
        entry.isDosTime    ? secondsOfDosTime(entry.time)
        : entry.isLateTime ? static_cast<std::int64_t>(entry.time)
                           : static_cast<std::int64_t>(static_cast<std::int32_t>(entry.time));
    return values;
}

} // namespace foundation::storage::provider::zip::detail
