#include "tree_removal.hpp"

#include "interruption.hpp"
#include "question.hpp"
#include "tree_walk.hpp"

#include <fl/i18n/conversion.hpp>
#include <foundation/storage/provider/extended_feature.hpp>
#include <foundation/storage/provider/i_provider.hpp>
#include <foundation/storage/vfs/errors/exception.hpp>
#include <foundation/storage/vfs/listing/folder_listing.hpp>
#include <foundation/storage/vfs/resources/file.hpp>
#include <foundation/storage/vfs/storage_system/exists.hpp>

#include <utility>

namespace cli {

namespace vfs = foundation::storage::vfs;

using foundation::storage::provider::ExtendedExistsResult;

namespace {

bool removesTrees(vfs::StorageSystemReference const& system, Location const& location) {
    using foundation::storage::provider::ExtendedFeature;
    auto const iri = location.iri.toStorageIRI();
    return system.buildProvider(iri)->hasFeature(iri, ExtendedFeature::RecursiveFolderRemoval);
}

std::string shownFolder(Location const& location) {
    return location.shown() + (location.wantsFolder() ? "" : "/");
}

bool isGone() {
    return codeOfCurrentFailure() == vfs::ErrorCode::ResourceNotFound;
}

} // namespace

bool ItemRemoval::isWanted(std::string const& verb, Location const& location) const {
    return !wishes_.ask || wishes_.dryRun ||
           askedAndAgreed(invocation_.command(), verb + " " + location.shown());
}

template<class Remove>
bool ItemRemoval::removeItem(Location const& location, std::string const& shown,
                             Remove const& remove) const {
    if (!isWanted("remove", location)) {
        return false;
    }
    if (!wishes_.dryRun) {
        remove();
    }
    if (wishes_.verbose || wishes_.dryRun) {
        invocation_.output().printLine((wishes_.dryRun ? "would remove " : "removed ") + shown);
        invocation_.output().flushBlock();
    }
    return true;
}

bool ItemRemoval::removeFile(Location const& location) const {
    return removeItem(location, location.shown(),
                      [&] { vfs::File(location.iri, invocation_.system()).removeFile(); });
}

bool ItemRemoval::removeEmptyFolder(Location const& location) const {
    return removeItem(location, shownFolder(location), [&] {
        vfs::Folder(location.iri, invocation_.system())
            .removeFolder(vfs::FolderRemovalPolicy::NonRecursive);
    });
}

bool ItemRemoval::removeTree(Location const& location) const {
    return removeItem(location, shownFolder(location), [&] {
        vfs::Folder(location.iri, invocation_.system())
            .removeFolder(vfs::FolderRemovalPolicy::Recursive);
    });
}

TreeRemoval::TreeRemoval(Invocation& invocation, RemovalWishes const& wishes, Location const& top)
    : invocation_(invocation),
      wishes_(wishes),
      items_(invocation, wishes),
      top_(top),
      byStorage_(!wishes.namesAlone() && removesTrees(invocation.system(), top)),
      path_(top) {}

bool TreeRemoval::remove(std::string const& interrupted) {
    interrupted_ = interrupted;
    if (removedByStorage(vfs::Folder(top_.iri, invocation_.system()))) {
        return true;
    }
    walkTree(
        path_, [this] { return enter(); }, [this] { leave(); });
    return !topStays_;
}

// Why it was not is found again by the walk, which then goes on.
bool TreeRemoval::removedByStorage(Folder const& folder) const {
    if (!byStorage_ || !wishes_.silent()) {
        return false;
    }
    EndingNotice const notice(interrupted_);
    try {
        folder.removeFolder(vfs::FolderRemovalPolicy::Recursive);
        return true;
    } catch (vfs::Exception const&) {
        return false;
    }
}

// Removes what is no folder, and gives the folders that are still to be entered.
std::vector<std::string> TreeRemoval::enter() {
    throwIfInterrupted();
    levels_.emplace_back();
    Location const location = path_.location();
    std::vector<std::string> entered;
    try {
        // Since it was listed, much may have been removed, and it may have been exchanged for a
        // link, which must not be followed.
        ExtendedExistsResult const kind = existsExtended(location.iri, invocation_.system());
        if (kind == ExtendedExistsResult::Nothing) {
            return {};
        }
        if (kind != ExtendedExistsResult::Folder) {
            throw Refusal("is not a folder any more");
        }
        vfs::Folder const folder(location.iri, invocation_.system());
        std::vector<std::string> inner = foldersIn(folder);
        auto const files = filesIn(folder);
        bool const empty = inner.empty() && files.empty();
        if (!empty && !items_.isWanted("enter", location)) {
            levels_.back().stays = true;
            return {};
        }
        entered = std::move(inner);
        removeFiles(location, files);
    } catch (Refusal const&) {
        report(location);
        return {};
    } catch (Interrupted const&) {
        throw;
    } catch (OutputFailure const&) {
        throw;
    } catch (...) {
        noteUnlisted();
    }
    return entered;
}

// The exception that is being handled. An empty folder that cannot be read can be removed all the
// same, and one with items that have no names, too, by some storages.
void TreeRemoval::noteUnlisted() {
    if (!isGone()) {
        Location const location = path_.location();
        levels_.back().unlisted =
            describeCurrentFailure(invocation_.system(), std::span(&location, 1));
    }
}

// Those that are still to be entered. A listing may fail behind some that it has told of.
std::vector<std::string> TreeRemoval::foldersIn(Folder const& folder) {
    std::vector<std::string> names;
    try {
        for (vfs::Folder const& inner : folder.listFolders()) {
            throwIfInterrupted();
            names.push_back(fl::i18n::toDisplayString(inner.getName()));
        }
    } catch (vfs::Exception const&) {
        noteUnlisted();
    }
    std::erase_if(names, [&](std::string const& name) {
        throwIfInterrupted();
        return removedByStorage(Folder(folder, fl::i18n::storageNameToUstring(name)));
    });
    return names;
}

// Where not even the first of them can be listed, there are none to be removed one by one.
vfs::FolderListing<vfs::File> TreeRemoval::filesIn(Folder const& folder) {
    try {
        return folder.listFiles();
    } catch (vfs::Exception const&) {
        noteUnlisted();
        return {};
    }
}

void TreeRemoval::removeFiles(Location const& location,
                              vfs::FolderListing<vfs::File> const& files) {
    for (vfs::File const& file : files) {
        throwIfInterrupted();
        Location const item = childLocation(location, file.getName());
        try {
            if (!items_.removeFile(item)) {
                levels_.back().stays = true;
            }
        } catch (...) {
            report(item);
        }
    }
}

void TreeRemoval::leave() {
    Location const location = path_.location();
    if (levels_.back().stays) {
        if (wishes_.namesAlone()) {
            reportUnlisted();
        }
    } else if (!removeEmptied(location)) {
        levels_.back().stays = true;
    }
    bool const stays = levels_.back().stays;
    levels_.pop_back();
    bool& above = levels_.empty() ? topStays_ : levels_.back().stays;
    above = above || stays;
}

bool TreeRemoval::removeEmptied(Location const& location) {
    Level& level = levels_.back();
    try {
        if (level.unlisted && wishes_.dryRun) {
            reportUnlisted();
            return false;
        }
        // What was not told of has no name to be asked by; the storage takes it along.
        if (level.unlisted && byStorage_) {
            EndingNotice const notice(interrupted_);
            return items_.removeTree(location);
        }
        if (items_.removeEmptyFolder(location)) {
            return true;
        }
        reportUnlisted();
    } catch (vfs::Exception const& failure) {
        if (failure.getErrorCode() == vfs::ErrorCode::ResourceNotFound) {
            return true;
        }
        if (level.unlisted) {
            reportUnlisted();
        } else {
            report(location);
        }
    } catch (...) {
        report(location);
    }
    return false;
}

void TreeRemoval::reportUnlisted() {
    if (auto const& unlisted = levels_.back().unlisted) {
        invocation_.fail(unlisted->subject, unlisted->reason);
    }
}

// The exception that is being handled; what is gone already is as it should be.
void TreeRemoval::report(Location const& location) {
    if (!isGone()) {
        invocation_.attempt(std::span(&location, 1), [] { throw; });
        levels_.back().stays = true;
    }
}

} // namespace cli
