#include "tree_copy.hpp"

#include "interruption.hpp"
#include "link_target.hpp"
#include "transfer.hpp"

#include <fl/i18n/conversion.hpp>
#include <foundation/storage/provider/i_provider.hpp>
#include <foundation/storage/vfs/errors/exception.hpp>
#include <foundation/storage/vfs/storage_system/exists.hpp>
#include <foundation/storage/vfs/walking/walk_folder.hpp>

#include <exception>
#include <utility>

namespace cli {

namespace provider = foundation::storage::provider;
namespace vfs = foundation::storage::vfs;

using fl::i18n::ustring;
using provider::AttributeValues;
using provider::ExtendedExistsResult;
using provider::ReplacementPolicy;
using provider::extensions::IFolderAttributes;

namespace {

// What is made with fewer bits than these is not to be looked into while it is filled either.
constexpr std::uint32_t usualMode = 0755;
constexpr std::uint32_t ownerMayFill = 0700;

// Enough to keep some threads busy; and a bound for what waits in all the folders on the way down.
constexpr std::size_t copiedTogether = 256;
constexpr std::size_t waitingAtMost = 2048;

} // namespace

TreeCopy::TreeCopy(TransferRun& run, Location const& source, Location const& destination,
                   std::set<std::string>* leftBehind)
    : run_(run),
      source_(source),
      destination_(destination),
      sourcePath_(source),
      destinationPath_(destination),
      folderPlaces_([this] {
          return Places{sourcePath_.location(), destinationPath_.location()};
      }),
      filePlaces_([this] {
          std::string const path = sourcePath_.pathOf(fl::i18n::toDisplayString(*fileName_));
          ustring const below = fl::i18n::storageNameToUstring(path);
          return Places{childLocation(source_, below), childLocation(destination_, below)};
      }),
      leftBehind_(leftBehind) {}

void TreeCopy::copy() {
    bool const ready = run_.attempt(folderPlaces_, [&] {
        provider::StorageIRI const destination = destination_.iri.toStorageIRI();
        destinationProvider_ = run_.system().buildProvider(destination);
        sourceHasLinks_ = hasLinks(run_.system(), source_.iri);
        sameScheme_ = source_.iri.getScheme() == destination_.iri.getScheme();
        if (sameScheme_) {
            folderAttributes_ = dynamic_cast<IFolderAttributes*>(destinationProvider_.get());
        }
        if (run_.wishes().followLinks && sameScheme_) {
            destinationCanonical_ = placeOf(run_.system(), destination_);
        }
    });
    if (ready) {
        walkFolder(Folder(source_.iri, run_.system()), *this);
    } else {
        leaveBehind("");
    }
}

TreeCopy::Result TreeCopy::next() const {
    return run_.isFull() ? Result::Stop : Result::Continue;
}

void TreeCopy::leaveBehind(std::string const& path) {
    if (leftBehind_ != nullptr) {
        leftBehind_->insert(path);
    }
}

void TreeCopy::leaveFileBehind(FileEntry const& entry) {
    if (leftBehind_ != nullptr) {
        leaveBehind(sourcePath_.pathOf(fl::i18n::toDisplayString(entry.getName())));
    }
}

TreeCopy::Result TreeCopy::visitEntryBefore(FolderEntry const& entry) {
    throwIfInterrupted();
    std::size_t const pathLength = sourcePath_.length();
    if (!levels_.empty()) {
        levels_.back().empty = false;
        std::string const name = fl::i18n::toDisplayString(entry.getName());
        sourcePath_.enter(name);
        destinationPath_.enter(name);
    }
    bool const entered = run_.attempt(folderPlaces_, [&] { enter(entry, pathLength); });
    linked_.reset();
    if (entered) {
        return Result::Continue;
    }
    leaveBehind(sourcePath_.belowTop());
    sourcePath_.returnTo(pathLength);
    destinationPath_.returnTo(pathLength);
    return run_.isFull() ? Result::Stop : Result::Skip;
}

void TreeCopy::enter(FolderEntry const& entry, std::size_t pathLength) {
    Level level{levels_.empty() ? Folder(destination_.iri, run_.system())
                                : Folder(levels_.back().destination, entry.getName()),
                pathLength,
                false,
                false,
                true,
                std::nullopt};
    if (run_.wishes().followLinks) {
        level.canonical = linked_ ? *linked_
                          : levels_.empty()
                              ? entry.getFolder().getCanonicalLocation().toStorageIRI()
                              : StorageIRI(*levels_.back().canonical, entry.getName());
    }
    bool const aboveIsMade = !levels_.empty() && levels_.back().made;
    if (run_.wishes().dryRun) {
        level.made = aboveIsMade || !isThere(level.destination);
    } else {
        make(level, entry);
    }
    levels_.push_back(std::move(level));
    if (levels_.back().made) {
        ++run_.tally().folders;
        run_.transferred(folderPlaces_);
    }
}

// Whether there is a folder that the copy may go into; throws where there is anything else.
bool TreeCopy::isThere(Folder const& folder) const {
    switch (existsExtended(folder.getLocation(), run_.system())) {
    case ExtendedExistsResult::Nothing:
        return false;
    case ExtendedExistsResult::Folder:
        if (run_.wishes().policy == ReplacementPolicy::FailIfExists) {
            throw Refusal(wordsFor(vfs::ErrorCode::ResourceAlreadyExists));
        }
        return true;
    case ExtendedExistsResult::LinkToFolder:
        throw Refusal("is a link; nothing is copied through it");
    default:
        throw Refusal("is not a folder");
    }
}

void TreeCopy::make(Level& level, FolderEntry const& entry) {
    try {
        level.destination.createFolder();
        level.made = true;
    } catch (vfs::Exception const& failure) {
        vfs::ErrorCode const code = failure.getErrorCode();
        if (code != vfs::ErrorCode::ResourceAlreadyExists &&
            code != vfs::ErrorCode::UnsupportedOperation) {
            throw;
        }
        // A storage may have no folders but for those that its files' names imply.
        level.implied = !isThere(level.destination) && code == vfs::ErrorCode::UnsupportedOperation;
        return;
    }
    if (folderAttributes_ != nullptr) {
        std::optional<std::uint32_t> const mode = entry.getAttributes().values().mode;
        if (mode && (*mode & usualMode) != usualMode) {
            folderAttributes_->setFolderAttributes(level.destination.getLocation().toStorageIRI(),
                                                   {*mode | ownerMayFill, {}, {}});
        }
    }
}

TreeCopy::Result TreeCopy::visitEntry(FileEntry const& entry) {
    throwIfInterrupted();
    levels_.back().empty = false;
    fileName_ = &entry.getName();
    if (run_.wishes().followLinks && sourceHasLinks_) {
        return followEntry(entry);
    }
    if (putAside(entry)) {
        return next();
    }
    return copyEntry(entry, entry.getFile());
}

// Small files wait until there are enough of them to be copied on several threads.
bool TreeCopy::putAside(FileEntry const& entry) {
    try {
        std::optional<std::uint64_t> const size = entry.getAttributes().values().size;
        if (!size || !run_.goesWithOthers(*size)) {
            return false;
        }
    } catch (vfs::Exception const&) {
        return false; // the copy will say what is wrong
    }
    Level& level = levels_.back();
    level.waiting.push_back(entry);
    ++waiting_;
    if (level.waiting.size() >= copiedTogether || waiting_ >= waitingAtMost) {
        copyWaiting();
    }
    return true;
}

void TreeCopy::copyWaiting() {
    Level& level = levels_.back();
    std::vector<FileEntry> const waiting = std::exchange(level.waiting, {});
    waiting_ -= waiting.size();
    if (waiting.empty() || run_.isFull()) {
        return;
    }
    run_.copyTogether(
        waiting.size(),
        [&](std::size_t i) -> FileToCopy {
            FileEntry const& entry = waiting[i];
            return {entry.getFile(), File(level.destination, entry.getName()),
                    entry.getAttributes().values().size, level.made};
        },
        [&](std::size_t i) {
            fileName_ = &waiting[i].getName();
            return filePlaces_();
        },
        [&](std::size_t i, Transferred result) { filled(level, waiting[i], result); });
}

// A file came into the folder, or did not.
void TreeCopy::filled(Level& level, FileEntry const& entry, Transferred result) {
    if (result != Transferred::Done) {
        leaveFileBehind(entry);
        return;
    }
    if (level.implied) {
        for (Level& each : levels_) {
            each.implied = false;
        }
    }
}

TreeCopy::Result TreeCopy::copyEntry(FileEntry const& entry, File const& source) {
    Transferred result = Transferred::Failed;
    run_.attempt(filePlaces_, [&] {
        result = run_.copyFile({source, File(levels_.back().destination, entry.getName()),
                                entry.getAttributes().values().size, levels_.back().made},
                               filePlaces_);
    });
    filled(levels_.back(), entry, result);
    return next();
}

TreeCopy::Result TreeCopy::followEntry(FileEntry const& entry) {
    PlacesOf const about = [&] { return Places{filePlaces_()[0], filePlaces_()[0]}; };
    std::optional<File> target;
    std::optional<Folder> folder;
    bool const known = run_.attempt(about, [&] {
        switch (existsExtended(entry.getFile().getLocation(), run_.system())) {
        case ExtendedExistsResult::DanglingLink:
            throw Refusal("is a link that leads nowhere");
        case ExtendedExistsResult::LinkToFolder:
            folder.emplace(entry.getFile().getLocation(), run_.system());
            linked_ = folder->getCanonicalLocation().toStorageIRI();
            refuseLoop(*linked_);
            break;
        case ExtendedExistsResult::LinkToFile:
            target.emplace(entry.getFile().getCanonicalLocation(), run_.system());
            break;
        default:
            target = entry.getFile();
        }
    });
    if (folder && known) {
        vfs::FolderVisitResult const result = walkFolder(*folder, *this);
        return result == Result::Stop ? result : next();
    }
    linked_.reset();
    if (target) {
        return copyEntry(entry, *target);
    }
    leaveFileBehind(entry);
    return next();
}

void TreeCopy::refuseLoop(StorageIRI const& linked) const {
    for (Level const& level : levels_) {
        if (level.canonical == linked) {
            throw Refusal("is a link to a folder that it is in; it is not followed");
        }
    }
    if (destinationCanonical_) {
        ustring const below = fl::i18n::storageNameToUstring(destinationPath_.belowTop());
        StorageIRI const here(*destinationCanonical_, below);
        if (linked == here || linked.isAncestorOf(here)) {
            throw Refusal("is a link to a folder that holds the copy; it is not followed");
        }
    }
}

TreeCopy::Result TreeCopy::visitEntryAfter(FolderEntry const& entry) {
    copyWaiting();
    Level const& level = levels_.back();
    run_.attempt(folderPlaces_, [&] {
        // A folder that has vanished under the walk looks like one that is empty.
        if (level.empty && !entry.getFolder().folderExists()) {
            throw vfs::Exception(vfs::ErrorCode::ResourceNotFound, entry.getFolder().getLocation());
        }
        if (level.implied) {
            throw Refusal("the storage has no folders without files");
        }
    });
    leave(entry);
    return next();
}

TreeCopy::Result TreeCopy::visitFolderEntryFailed(FolderEntry const& entry,
                                                  vfs::Exception const& failure) {
    copyWaiting();
    run_.attempt(folderPlaces_, [&] { throw vfs::Exception(failure); });
    leaveBehind(sourcePath_.belowTop());
    leave(entry);
    return next();
}

void TreeCopy::leave(FolderEntry const& entry) {
    if (!run_.wishes().dryRun) {
        carryAttributesOver(entry, levels_.back());
    }
    std::size_t const pathLength = levels_.back().pathLength;
    levels_.pop_back();
    sourcePath_.returnTo(pathLength);
    destinationPath_.returnTo(pathLength);
}

// Behind the contents, since filling a folder changes its time. A folder that was there keeps its
// mode, as a file does that is replaced. What a storage does not keep is no failure of the copy.
void TreeCopy::carryAttributesOver(FolderEntry const& entry, Level const& level) {
    if (!sameScheme_) {
        return;
    }
    try {
        AttributeValues const& values = entry.getAttributes().values();
        if (folderAttributes_ != nullptr) {
            folderAttributes_->setFolderAttributes(level.destination.getLocation().toStorageIRI(),
                                                   {level.made ? values.mode : std::nullopt,
                                                    values.lastModified, values.lastAccessed});
        } else {
            level.destination.setLastModified(entry.getAttributes().getLastModified());
        }
    } catch (std::exception const&) { // NOLINT(bugprone-empty-catch)
    }
}

} // namespace cli
