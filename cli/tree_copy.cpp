#include "tree_copy.hpp"

#include "interruption.hpp"
#include "link_target.hpp"
#include "schemes.hpp"
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
using provider::extensions::ISmallFileCopies;
using provider::extensions::SmallFileCopy;

namespace {

// What is made with fewer bits than these is not to be looked into while it is filled either.
constexpr std::uint32_t usualMode = 0755;
constexpr std::uint32_t ownerMayFill = 0700;

// Files of some folders, so that each thread finds one of its own; and a bound for the memory,
// twice, as so many may be copied while others are gathered.
constexpr std::size_t waitingAtMost = 512;
// Where the walk is slow, files do not wait for it, and the progress is seen.
constexpr std::chrono::milliseconds waitingAtLongest{50};

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
        waitsForServers_ =
            namesServers(source_.iri.getScheme()) || namesServers(destination_.iri.getScheme());
        folderAttributes_ = dynamic_cast<IFolderAttributes*>(destinationProvider_.get());
        if (destinationProvider_ == run_.system().buildProvider(source_.iri.toStorageIRI())) {
            smallFileCopies_ = dynamic_cast<ISmallFileCopies*>(destinationProvider_.get());
        }
        if (run_.wishes().followLinks && sameScheme_) {
            destinationCanonical_ = placeOf(run_.system(), destination_);
        }
    });
    if (ready) {
        walkFolder(Folder(source_.iri, run_.system()), *this);
        catchUp();
        throwIfInterrupted();
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
    endIfInterrupted();
    if (!levels_.empty()) {
        levels_.back()->empty = false;
    }
    std::exception_ptr failure;
    try {
        levels_.push_back(enter(entry));
    } catch (...) {
        failure = std::current_exception();
    }
    linked_.reset();
    if (failure == nullptr) {
        add({Step::Kind::Entered, levels_.back().get()});
        return next();
    }
    catchUp();
    std::size_t const pathLength = sourcePath_.length();
    if (!levels_.empty()) {
        enterPath(entry);
    }
    run_.attempt(folderPlaces_, [&] { std::rethrow_exception(failure); });
    leaveBehind(sourcePath_.belowTop());
    returnTo(pathLength);
    return run_.isFull() ? Result::Stop : Result::Skip;
}

std::unique_ptr<TreeCopy::Level> TreeCopy::enter(FolderEntry const& entry) {
    Level* const above = levels_.empty() ? nullptr : levels_.back().get();
    auto level = std::make_unique<Level>(Level{entry,
                                               above == nullptr
                                                   ? Folder(destination_.iri, run_.system())
                                                   : Folder(above->destination, entry.getName()),
                                               above});
    if (run_.wishes().followLinks) {
        level->canonical = linked_ ? *linked_
                           : above == nullptr
                               ? entry.getFolder().getCanonicalLocation().toStorageIRI()
                               : StorageIRI(*above->canonical, entry.getName());
    }
    if (run_.wishes().dryRun) {
        level->made = (above != nullptr && above->made) || !isThere(level->destination);
    } else {
        make(*level, entry);
    }
    return level;
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
    endIfInterrupted();
    Level& level = *levels_.back();
    level.empty = false;
    if (run_.wishes().followLinks && sourceHasLinks_) {
        fileName_ = &entry.getName();
        return followEntry(entry);
    }
    add({isSmall(entry) ? Step::Kind::SmallFile : Step::Kind::File, &level, entry});
    return next();
}

bool TreeCopy::isSmall(FileEntry const& entry) const {
    try {
        std::optional<std::uint64_t> const size = entry.getAttributes().values().size;
        return size && run_.goesWithOthers(*size);
    } catch (vfs::Exception const&) {
        return false; // the copy will say what is wrong
    }
}

void TreeCopy::add(Step step) {
    bool const first = steps_.empty();
    if (first && batch_.steps.empty() && step.kind != Step::Kind::SmallFile) {
        take(step);
        return;
    }
    steps_.push_back(std::move(step));
    auto const now = std::chrono::steady_clock::now();
    if (first) {
        waitingSince_ = now;
    }
    if (steps_.size() >= waitingAtMost || now - waitingSince_ >= waitingAtLongest) {
        copyWaiting();
    }
}

// Has what waits copied while what was copied before is told, and the walk goes on. A few files are
// sooner done than handed over.
void TreeCopy::copyWaiting() {
    background_.wait();
    Batch const done = std::exchange(batch_, {});
    batch_.steps = std::exchange(steps_, {});
    for (Step const& step : batch_.steps) {
        if (step.kind == Step::Kind::SmallFile) {
            batch_.small.push_back(&step);
        }
    }
    batch_.results.resize(batch_.small.size());
    if (run_.isFull() || done.full) {
        tell(done);
        tellBatch();
    } else if (batch_.small.size() < TransferRun::worthOtherThreads) {
        tell(done);
        copyTogether();
        tellBatch();
    } else {
        background_.begin([this] { copyTogether(); });
        tell(done);
    }
}

// Everything that waits is copied and told behind this.
void TreeCopy::catchUp() {
    if (!steps_.empty()) {
        copyWaiting();
    }
    tellBatch();
}

void TreeCopy::copyTogether() {
    FilesToCopy files{[this](std::size_t i) -> FileToCopy {
        FileEntry const& entry = *batch_.small[i]->file;
        Level const& level = *batch_.small[i]->level;
        return {entry.getFile(), File(level.destination, entry.getName()),
                entry.getAttributes().values().size, level.made};
    }};
    if (smallFileCopies_ != nullptr) {
        files.copyMany = [this](std::size_t begin, std::size_t end,
                                std::vector<CopyResult>& results) {
            copyMany(begin, end, results);
        };
    }
    files.waitsForServers = waitsForServers_;
    batch_.full = run_.copyTogether(batch_.results, files, folderPlaces_);
}

// Has the storage copy the files of each folder at once; those that it leaves, and the empty ones,
// are copied one by one.
void TreeCopy::copyMany(std::size_t begin, std::size_t end, std::vector<CopyResult>& results) {
    std::vector<SmallFileCopy> copies;
    std::vector<CopyResult*> wanted;
    while (begin != end) {
        Level const& level = *batch_.small[begin]->level;
        copies.clear();
        wanted.clear();
        for (; begin != end && batch_.small[begin]->level == &level; ++begin) {
            FileEntry const& entry = *batch_.small[begin]->file;
            if (entry.getAttributes().values().size.value_or(0) != 0) {
                copies.push_back({&entry.getName()});
                wanted.push_back(&results[begin]);
            }
        }
        smallFileCopies_->copySmallFiles(level.entry.getFolder().getLocation().toStorageIRI(),
                                         level.destination.getLocation().toStorageIRI(), copies);
        for (std::size_t i = 0; i != copies.size(); ++i) {
            if (copies[i].isCopied) {
                wanted[i]->tried = true;
                wanted[i]->transferred = Transferred::Done;
                wanted[i]->bytes = copies[i].size;
            }
        }
    }
}

void TreeCopy::tellBatch() {
    background_.wait();
    tell(std::exchange(batch_, {}));
}

// Takes the steps of a batch that was copied. Where the copy ends before its time, what was done is
// told all the same.
void TreeCopy::tell(Batch const& batch) {
    bool ended = false;
    auto result = batch.results.begin();
    for (Step const& step : batch.steps) {
        try {
            if (step.kind == Step::Kind::Entered) {
                take(step);
            } else if (step.kind == Step::Kind::SmallFile) {
                CopyResult const& here = *result++;
                ended = ended || !here.tried;
                if (here.tried) {
                    fileName_ = &step.file->getName();
                    run_.tell(here, filePlaces_);
                    filled(*step.level, *step.file, here.transferred);
                }
            } else {
                ended = ended || run_.isFull() || interruptingSignal() != 0;
                if (!ended) {
                    take(step);
                }
            }
        } catch (Interrupted const&) {
            ended = true;
        }
        if (ended && step.kind == Step::Kind::Left) {
            returnTo(step.level->pathLength);
        }
    }
}

void TreeCopy::take(Step const& step) {
    switch (step.kind) {
    case Step::Kind::Entered:
        entered(*step.level);
        break;
    case Step::Kind::SmallFile:
    case Step::Kind::File:
        fileName_ = &step.file->getName();
        copyEntry(*step.level, *step.file, std::nullopt);
        break;
    case Step::Kind::Left:
        left(*step.level);
        break;
    }
}

void TreeCopy::endIfInterrupted() {
    if (interruptingSignal() != 0) {
        catchUp();
        throwIfInterrupted();
    }
}

void TreeCopy::enterPath(FolderEntry const& entry) {
    std::string const name = fl::i18n::toDisplayString(entry.getName());
    sourcePath_.enter(name);
    destinationPath_.enter(name);
}

void TreeCopy::returnTo(std::size_t pathLength) {
    sourcePath_.returnTo(pathLength);
    destinationPath_.returnTo(pathLength);
}

void TreeCopy::entered(Level& level) {
    level.pathLength = sourcePath_.length();
    if (level.above != nullptr) {
        enterPath(level.entry);
    }
    if (level.made) {
        ++run_.tally().folders;
        run_.transferred(folderPlaces_);
    }
}

// A file came into the folder, or did not.
void TreeCopy::filled(Level& level, FileEntry const& entry, Transferred result) {
    if (result != Transferred::Done) {
        leaveFileBehind(entry);
        return;
    }
    if (level.implied) {
        for (Level* each = &level; each != nullptr; each = each->above) {
            each->implied = false;
        }
    }
}

void TreeCopy::copyEntry(Level& level, FileEntry const& entry, std::optional<File> const& source) {
    Transferred result = Transferred::Failed;
    run_.attempt(filePlaces_, [&] {
        result = run_.copyFile({source ? *source : entry.getFile(),
                                File(level.destination, entry.getName()),
                                entry.getAttributes().values().size, level.made},
                               filePlaces_);
    });
    filled(level, entry, result);
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
        copyEntry(*levels_.back(), entry, *target);
    } else {
        leaveFileBehind(entry);
    }
    return next();
}

void TreeCopy::refuseLoop(StorageIRI const& linked) const {
    for (std::unique_ptr<Level> const& level : levels_) {
        if (level->canonical == linked) {
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
    Level& level = *levels_.back();
    try {
        // A folder that has vanished under the walk looks like one that is empty.
        if (level.empty && !entry.getFolder().folderExists()) {
            throw vfs::Exception(vfs::ErrorCode::ResourceNotFound, entry.getFolder().getLocation());
        }
    } catch (...) {
        level.failure = std::current_exception();
    }
    leave();
    return next();
}

TreeCopy::Result TreeCopy::visitFolderEntryFailed(FolderEntry const&,
                                                  vfs::Exception const& failure) {
    Level& level = *levels_.back();
    level.failure = std::make_exception_ptr(failure);
    level.unlisted = true;
    leave();
    return next();
}

void TreeCopy::leave() {
    std::unique_ptr<Level> level = std::move(levels_.back());
    levels_.pop_back();
    Level* const address = level.get();
    add({Step::Kind::Left, address, std::nullopt, std::move(level)});
}

void TreeCopy::left(Level const& level) {
    bool const whole = run_.attempt(folderPlaces_, [&] {
        if (level.failure != nullptr) {
            std::rethrow_exception(level.failure);
        }
        if (level.implied) {
            throw Refusal("the storage has no folders without files");
        }
    });
    if (!whole) {
        leaveBehind(sourcePath_.belowTop());
    }
    if (!run_.wishes().dryRun) {
        carryAttributesOver(level);
    }
    returnTo(level.pathLength);
}

// Behind the contents, since filling a folder changes its time. A folder that was there keeps its
// mode, as a file does that is replaced. What a storage does not keep is no failure of the copy.
void TreeCopy::carryAttributesOver(Level const& level) {
    if (!sameScheme_ && folderAttributes_ == nullptr) {
        return;
    }
    try {
        AttributeValues const& values = level.entry.getAttributes().values();
        if (folderAttributes_ != nullptr) {
            folderAttributes_->setFolderAttributes(level.destination.getLocation().toStorageIRI(),
                                                   {level.made ? values.mode : std::nullopt,
                                                    values.lastModified, values.lastAccessed});
        } else {
            level.destination.setLastModified(level.entry.getAttributes().getLastModified());
        }
    } catch (std::exception const&) { // NOLINT(bugprone-empty-catch)
    }
}

} // namespace cli
