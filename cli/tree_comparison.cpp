#include "tree_comparison.hpp"

#include "entry_facts.hpp"
#include "interruption.hpp"
#include "link_target.hpp"
#include "tree_walk.hpp"

#include <fl/i18n/conversion.hpp>
#include <foundation/storage/vfs/listing/folder_listing.hpp>
#include <foundation/storage/vfs/resources/folder.hpp>
#include <foundation/storage/vfs/storage_system/exists.hpp>

#include <algorithm>
#include <string_view>
#include <utility>

namespace cli {

namespace vfs = foundation::storage::vfs;

using foundation::storage::provider::ExtendedExistsResult;
using foundation::storage::provider::Timestamp;
using vfs::FileOrFolderEntry;

namespace {

// Of a link, where it leads says nothing about what it is.
ExtendedExistsResult kindToCompare(ExtendedExistsResult kind) {
    return isLink(kind) ? ExtendedExistsResult::LinkToFile : kind;
}

bool isIn(std::string_view path, std::string_view folder) {
    return folder.empty() ? !path.empty()
                          : path.size() > folder.size() && path.starts_with(folder) &&
                                path[folder.size()] == '/';
}

} // namespace

bool isSameTime(Timestamp first, Timestamp second, bool oneKindOfStorage) noexcept {
    if (oneKindOfStorage || first.seconds != second.seconds) {
        return first == second;
    }
    std::int32_t unit = 1;
    for (std::int32_t const coarser : {1'000, 1'000'000, 1'000'000'000}) {
        if (first.nanoseconds % coarser == 0 || second.nanoseconds % coarser == 0) {
            unit = coarser;
        }
    }
    return first.nanoseconds / unit == second.nanoseconds / unit;
}

void TreeComparison::TwinPath::enter(std::string const& name) {
    for (WalkedPath& side : sides) {
        side.enter(name);
    }
}

void TreeComparison::TwinPath::returnTo(std::size_t length) {
    for (WalkedPath& side : sides) {
        side.returnTo(length);
    }
}

TreeComparison::TreeComparison(Invocation& invocation, std::array<Location, 2> const& tops,
                               CompareBy by, LinksBelow links, Found found)
    : invocation_(invocation),
      tops_(tops),
      by_(by),
      followsLinks_(links == LinksBelow::Followed),
      found_(std::move(found)),
      path_{{WalkedPath(tops[0]), WalkedPath(tops[1])}},
      hasLinks_{hasLinks(invocation.system(), tops[0].iri),
                hasLinks(invocation.system(), tops[1].iri)},
      oneKindOfStorage_(tops[0].iri.getScheme() == tops[1].iri.getScheme()) {}

void TreeComparison::compare(Kinds const& kinds) {
    if (kinds[0] != kinds[1]) {
        tell({Difference::Kind, "", false, {kinds[0], kinds[1]}});
    } else if (kinds[0] == ExtendedExistsResult::File) {
        compareTopFiles();
    } else {
        walkTree(
            path_, [this] { return compareFolder(); }, [] {});
    }
    progress_.wipe();
}

void TreeComparison::compareTopFiles() {
    std::array<Entry, 2> entries;
    for (std::size_t side = 0; side < 2; ++side) {
        bool const read = invocation_.attempt(std::span(&tops_[side], 1), [&] {
            auto const attributes =
                vfs::File(tops_[side].iri, invocation_.system()).getAttributes();
            auto const& values = attributes.values();
            entries[side].size = values.size;
            entries[side].modified = values.lastModified;
        });
        if (!read) {
            return;
        }
    }
    compareFiles("", tops_, entries[0], entries[1]);
}

// Gives the folders that both sides have.
std::vector<std::string> TreeComparison::compareFolder() {
    throwIfInterrupted();
    Locations const at{path_.sides[0].location(), path_.sides[1].location()};
    if (followsLinks_ && !noteLevel(at)) {
        return {};
    }
    std::array<std::vector<Entry>, 2> entries;
    // Where one side cannot be read, all of the other would seem to be missing.
    if (!list(0, at[0], entries[0]) || !list(1, at[1], entries[1])) {
        return {};
    }
    ++done_.folders;
    std::vector<std::string> inner;
    auto first = entries[0].cbegin();
    auto second = entries[1].cbegin();
    while (first != entries[0].cend() || second != entries[1].cend()) {
        throwIfInterrupted();
        if (second == entries[1].cend() ||
            (first != entries[0].cend() && first->name < second->name)) {
            tellOnlyIn(0, *first++);
        } else if (first == entries[0].cend() || second->name < first->name) {
            tellOnlyIn(1, *second++);
        } else {
            if (!first->known || !second->known) {
                // was reported
            } else if (first->folder && second->folder) {
                inner.push_back(first->name);
            } else {
                compareItems(at, *first, *second);
            }
            ++first;
            ++second;
        }
    }
    return inner;
}

// What leads back to one of these folders is not followed.
bool TreeComparison::noteLevel(Locations const& at) {
    std::string const& path = path_.sides[0].belowTop();
    while (!levels_.empty() && !isIn(path, levels_.back().path)) {
        levels_.pop_back();
    }
    Level level{path, {}};
    for (std::size_t side = 0; side < 2; ++side) {
        if (!hasLinks_[side]) {
            continue;
        }
        try {
            level.canonical[side] = vfs::Folder(at[side].iri, invocation_.system())
                                        .getCanonicalLocation()
                                        .toStorageIRI();
        } catch (...) {
            report(at[side]);
            return false;
        }
    }
    levels_.push_back(std::move(level));
    return true;
}

bool TreeComparison::list(std::size_t side, Location const& location, std::vector<Entry>& entries) {
    try {
        vfs::Folder const folder(location.iri, invocation_.system());
        for (FileOrFolderEntry const& entry : folder.listAllEntries()) {
            throwIfInterrupted();
            if (std::optional<Entry> taken = entryOf(side, location, entry)) {
                entries.push_back(std::move(*taken));
            }
        }
    } catch (...) {
        report(location);
        return false;
    }
    std::sort(entries.begin(), entries.end(),
              [](Entry const& a, Entry const& b) { return a.name < b.name; });
    return true;
}

// Empty where it is gone since it was listed.
std::optional<TreeComparison::Entry>
TreeComparison::entryOf(std::size_t side, Location const& folder, FileOrFolderEntry const& entry) {
    Entry taken{fl::i18n::toDisplayString(nameOf(entry)), isFolder(entry), true, {}, {}};
    auto const* const file = boost::get<vfs::FileEntry>(&entry);
    if (file == nullptr) {
        return taken;
    }
    try {
        if (followsLinks_ && hasLinks_[side]) {
            follow(side, childLocation(folder, nameOf(entry)), taken);
            return taken;
        }
        // Attributes that the listing did not bring are asked for here.
        auto const& values = file->getAttributes().values();
        taken.size = values.size;
        taken.modified = values.lastModified;
    } catch (...) {
        if (codeOfCurrentFailure() == vfs::ErrorCode::ResourceNotFound) {
            return std::nullopt;
        }
        report(childLocation(folder, nameOf(entry)));
        taken.known = false;
    }
    return taken;
}

void TreeComparison::follow(std::size_t side, Location const& location, Entry& entry) {
    switch (existsExtended(location.iri, invocation_.system())) {
    case ExtendedExistsResult::DanglingLink:
        throw Refusal("is a link that leads nowhere");
    case ExtendedExistsResult::LinkToFolder: {
        auto const linked =
            vfs::Folder(location.iri, invocation_.system()).getCanonicalLocation().toStorageIRI();
        for (Level const& level : levels_) {
            if (level.canonical[side] == linked) {
                throw Refusal("is a link to a folder that it is in; it is not followed");
            }
        }
        entry.folder = true;
        return;
    }
    default:
        auto const attributes = vfs::File(location.iri, invocation_.system()).getAttributes();
        entry.size = attributes.values().size;
        entry.modified = attributes.values().lastModified;
    }
}

void TreeComparison::tellOnlyIn(std::size_t side, Entry const& entry) {
    tell({side == 0 ? Difference::OnlyInFirst : Difference::OnlyInSecond,
          path_.sides[0].pathOf(entry.name),
          entry.folder,
          {}});
}

// Of two items of one name, at most one is a folder.
void TreeComparison::compareItems(Locations const& folder, Entry const& first,
                                  Entry const& second) {
    fl::i18n::ustring const name = fl::i18n::storageNameToUstring(first.name);
    Locations const at{childLocation(folder[0], name), childLocation(folder[1], name)};
    std::string const path = path_.sides[0].pathOf(first.name);
    Kinds kinds{ExtendedExistsResult::File, ExtendedExistsResult::File};
    std::array const folders{first.folder, second.folder};
    for (std::size_t side = 0; side < 2; ++side) {
        try {
            if (folders[side]) {
                kinds[side] = ExtendedExistsResult::Folder;
            } else if (hasLinks_[side]) {
                kinds[side] = existsExtended(at[side].iri, invocation_.system());
                if (followsLinks_ && kinds[side] == ExtendedExistsResult::LinkToFile) {
                    kinds[side] = ExtendedExistsResult::File;
                }
            }
        } catch (...) {
            report(at[side]);
            return;
        }
    }
    if (kindToCompare(kinds[0]) != kindToCompare(kinds[1])) {
        tell({Difference::Kind, path, false, {kinds[0], kinds[1]}});
    } else if (isLink(kinds[0])) {
        compareLinks(path, at);
    } else if (kinds[0] == ExtendedExistsResult::File) {
        compareFiles(path, at, first, second);
    } else if (kinds[0] == ExtendedExistsResult::Other) {
        progress_.wipe();
        invocation_.fail(at[0].shown(), "is not a regular file, and so cannot be compared");
    }
}

void TreeComparison::compareLinks(std::string const& path, Locations const& at) {
    std::array<std::string, 2> targets;
    for (std::size_t side = 0; side < 2; ++side) {
        try {
            targets[side] = linkTarget(invocation_.system(), at[side].iri).value_or("");
        } catch (...) {
            report(at[side]);
            return;
        }
    }
    ++done_.files;
    if (targets[0] != targets[1]) {
        tell({Difference::Target, path, false, {targets[0], targets[1]}});
    }
}

void TreeComparison::compareFiles(std::string const& path, Locations const& at, Entry const& first,
                                  Entry const& second) {
    bool const sized = first.size && second.size;
    if (!sized && by_ != CompareBy::Content) {
        progress_.wipe();
        invocation_.fail(at[first.size ? 1 : 0].shown(), "the storage does not tell the size");
        return;
    }
    if (sized && *first.size != *second.size) {
        tell({Difference::Size, path, false, {*first.size, *second.size}});
    } else if (by_ == CompareBy::Time &&
               !isSameTime(first.modified, second.modified, oneKindOfStorage_)) {
        tell({Difference::Time, path, false, {first.modified, second.modified}});
    } else if (by_ == CompareBy::Content) {
        std::optional<bool> const same = isSameContent(at);
        if (!same) {
            return;
        }
        if (!*same) {
            tell({Difference::Content, path, false, {}});
        }
    }
    ++done_.files;
}

// Empty where that cannot be told, which is reported.
std::optional<bool> TreeComparison::isSameContent(Locations const& at) {
    try {
        return contents_.isSame(vfs::File(at[0].iri, invocation_.system()),
                                vfs::File(at[1].iri, invocation_.system()),
                                [&](std::uint64_t count) {
                                    throwIfInterrupted();
                                    done_.bytes += count;
                                    progress_.update({done_.files, done_.bytes}, std::nullopt,
                                                     [&] { return "checking " + at[0].shown(); });
                                });
    } catch (...) {
        report(at[contents_.failedSide()]);
        return std::nullopt;
    }
}

void TreeComparison::tell(FoundDifference const& difference) {
    ++differences_;
    progress_.wipe();
    found_(difference);
}

// The exception that is being handled.
void TreeComparison::report(Location const& location) {
    progress_.wipe();
    invocation_.attempt(std::span(&location, 1), [] { throw; });
}

} // namespace cli
