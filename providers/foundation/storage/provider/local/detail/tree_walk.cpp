#include <foundation/storage/provider/local/detail/tree_walk.hpp>

#include <foundation/storage/provider/local/detail/failures.hpp>

#include <fl/i18n/conversion.hpp>

#include <algorithm>
#include <climits>
#include <linux/magic.h>
#include <string>
#include <sys/vfs.h>
#include <unistd.h>
#include <vector>

namespace foundation::storage::provider::local::detail {

namespace {

constexpr int searchFlags = O_PATH | O_DIRECTORY | O_CLOEXEC;

/// How much of a long path one call is given, so that a name more always fits.
constexpr std::size_t longestPiece = PATH_MAX / 2;

int openBelow(int folder, char const* path, int flags, FileDescriptor& result) noexcept {
    result = FileDescriptor(uninterrupted([&] { return ::openat(folder, path, flags); }));
    return result ? 0 : errno;
}

/// Whether a folder below the listed one that fails so is passed over: it refuses access, or is no
/// more what it was when its name was read. The folders of a process that has ended answer ESRCH,
/// and one of them EINVAL.
bool isPassedOver(int error, int folder) noexcept {
    switch (error) {
    case EACCES:
    case EPERM:
    case ENOENT:
    case ENOTDIR:
    case ELOOP:
    case ESRCH:
        return true;
    case EINVAL: {
        struct statfs system {};
        return ::fstatfs(folder, &system) == 0 && system.f_type == PROC_SUPER_MAGIC;
    }
    default:
        return false;
    }
}

/// The path that a trail leads along, with a slash behind it where it is not empty.
fl::i18n::ustring pathOf(TrailPtr const& trail) {
    if (!trail) {
        return {};
    }
    std::vector<TrailNode const*> way(trail->depth() + 1);
    for (TrailNode const* node = trail.get(); node != nullptr; node = node->parent().get()) {
        way[node->depth()] = node;
    }
    fl::i18n::ustring result;
    for (TrailNode const* const node : way) {
        fl::i18n::appendStorageName(result, node->enteredName());
        result += u'/';
    }
    return result;
}

FolderEntry entryBelow(fl::i18n::ustring const& prefix, FolderChunk::Entry const& entry) {
    fl::i18n::ustring name;
    name.reserve(prefix.size() + entry.name.size());
    name += prefix;
    fl::i18n::appendStorageName(name, entry.name);
    return entry.toFolderEntry(std::move(name));
}

} // namespace

TreeWalk::TreeWalk(std::shared_ptr<ListedTree const> tree)
    : tree_(std::move(tree)),
      prefixKnown_(true) {
    FileDescriptor folder = openListedFolder(tree_->location);
    int error = readFolderChunk(folder.get(), tree_->query, level_.chunk);
    if (error == 0 && (level_.needsDescriptor() || tree_->query.followLinks)) {
        error = identify(folder.get(), level_.identity);
    }
    if (error != 0) {
        throwErrno(error, tree_->location);
    }
    if (level_.needsDescriptor()) {
        window_.push(0, std::move(folder));
    }
}

TreeWalk::TreeWalk(TreeWalk const& other)
    : tree_(other.tree_),
      trail_(other.trail_),
      level_(other.level_),
      here_(other.here_),
      shown_(other.shown_),
      pending_(other.pending_),
      pendingFolder_(other.pendingFolder_),
      away_(other.away_),
      failure_(other.failure_),
      prefixKnown_(!other.trail_) {}

bool TreeWalk::advance() {
    if (pending_ || failure_ || level_.next == level_.chunk->size() ||
        !level_.chunk->isShown(level_.next)) {
        leaveShown();
        if (!find()) {
            return false;
        }
        if (failure_) {
            Exception const failure = *failure_;
            failure_.reset();
            throw failure;
        }
    }
    if (away_.chunk) {
        away_ = {};
    }
    here_ = true;
    shown_ = level_.next;
    level_.next = level_.chunk->next(shown_);
    pending_ = level_.chunk->isFolder(shown_);
    pendingFolder_ = shown_;
    return true;
}

FolderEntry TreeWalk::entry() {
    if (!here_) {
        return entryBelow(pathOf(away_.trail), away_.chunk->at(away_.offset));
    }
    if (!prefixKnown_) {
        prefix_ = pathOf(trail_);
        prefixKnown_ = true;
    }
    return entryBelow(prefix_, level_.chunk->at(shown_));
}

/// Goes to where level_.next is to be shown next, or a failure is met; false at the end.
bool TreeWalk::find() {
    for (;;) {
        if (failure_) {
            return true;
        }
        if (pending_) {
            enter(pendingFolder_);
            pending_ = false;
        } else if (level_.next != level_.chunk->size()) {
            if (level_.chunk->isShown(level_.next)) {
                return true;
            }
            pending_ = true;
            pendingFolder_ = level_.next;
            level_.next = level_.chunk->next(level_.next);
        } else if (!level_.chunk->isLast() && !level_.abandoned) {
            readOn();
        } else if (trail_) {
            goUp();
        } else {
            return false;
        }
    }
}

void TreeWalk::leaveShown() {
    if (here_) {
        away_ = {trail_, level_.chunk, shown_};
        here_ = false;
    }
}

void TreeWalk::enter(std::uint32_t folder) {
    FolderChunk::Entry const entry = level_.chunk->at(folder);
    bool const followLinks = tree_->query.followLinks;
    int const parent = descriptor();
    if (parent < 0) {
        return;
    }
    int const flags = followLinks ? readFolderFlags : readFolderFlags | O_NOFOLLOW;
    FileDescriptor opened;
    int error = openBelow(parent, entry.name.data(), flags, opened);
    if ((error == EMFILE || error == ENFILE) && window_.keepInnermost()) {
        error = openBelow(parent, entry.name.data(), flags, opened);
    }
    Level below;
    bool goesRound = false;
    if (error == 0 && followLinks) {
        error = identify(opened.get(), below.identity);
        goesRound = error == 0 && entry.isLink && isAbove(below.identity);
    }
    if (error == 0 && !goesRound) {
        error = readFolderChunk(opened.get(), tree_->query, below.chunk);
    }
    if (error == 0 && !goesRound && !followLinks && below.needsDescriptor()) {
        error = identify(opened.get(), below.identity);
    }
    if (error == 0 && !goesRound) {
        goDown(folder, std::move(below), std::move(opened));
        return;
    }
    if (error != 0 && !isPassedOver(error, opened ? opened.get() : parent)) {
        fail(errorCodeOfErrno(error), entry.name);
    }
    release();
}

void TreeWalk::goDown(std::uint32_t folder, Level below, FileDescriptor descriptor) {
    // A failing allocation leaves the walk where it is, without a path.
    bool const known = std::exchange(prefixKnown_, false);
    if (known) {
        fl::i18n::appendStorageName(prefix_, level_.chunk->at(folder).name);
        prefix_ += u'/';
    }
    std::uint32_t const depth = this->depth();
    trail_ = TrailPtr(new TrailNode(trail_, level_, folder));
    prefixKnown_ = known;
    FileDescriptor parent;
    if (!level_.needsDescriptor()) {
        parent = window_.take(depth);
    }
    level_ = std::move(below);
    if (level_.needsDescriptor()) {
        window_.push(depth + 1, std::move(descriptor));
    } else {
        descriptor.close(); // makes room
        climbFrom(parent, depth);
    }
}

void TreeWalk::goUp() noexcept {
    TrailPtr const above = std::move(trail_);
    level_ = above->level();
    trail_ = above->parent();
    if (prefixKnown_) {
        prefix_.pop_back();
        prefix_.resize(prefix_.rfind(u'/') + 1); // npos + 1 is 0
    }
}

void TreeWalk::readOn() {
    if (descriptor() < 0) {
        return;
    }
    FileDescriptor folder = window_.take(depth());
    FolderChunkPtr chunk;
    if (int const error = readFolderChunk(folder.get(), tree_->query, chunk)) {
        if (!trail_ || !isPassedOver(error, folder.get())) {
            fail(errorCodeOfErrno(error));
        }
        level_.abandoned = true; // only now: what cannot be kept as a failure is met again
    } else {
        level_.chunk = std::move(chunk);
        level_.next = 0;
    }
    if (level_.needsDescriptor()) {
        window_.push(depth(), std::move(folder));
    } else {
        climbFrom(folder, depth());
    }
}

bool TreeWalk::isAbove(FolderIdentity const& identity) const noexcept {
    if (level_.identity.looksLike(identity)) {
        return true;
    }
    for (TrailNode const* node = trail_.get(); node != nullptr; node = node->parent().get()) {
        if (node->level().identity.looksLike(identity)) {
            return true;
        }
    }
    return false;
}

/// The descriptor of the current folder; -1 where it cannot be had, and then the rest of the folder
/// is given up, or that of the tree where the listed one is the reason.
int TreeWalk::descriptor() {
    if (int const held = window_.at(depth()); held >= 0 || level_.abandoned) {
        return held;
    }
    FileDescriptor folder;
    if (std::optional<ErrorCode> const failure = reopenListed(folder)) {
        endWith(*failure);
        return -1;
    }
    if (std::optional<ErrorCode> const failure = trail_ ? reopenBelow(folder) : std::nullopt) {
        if (*failure != ErrorCode::PermissionDenied && *failure != ErrorCode::ResourceNotFound) {
            fail(*failure);
        }
        level_.abandoned = true; // only now: what cannot be kept as a failure is met again
        return -1;
    }
    window_.push(depth(), std::move(folder));
    return window_.at(depth());
}

/// Opens the listed folder again: to read on in it where it is the current one, else to go down.
std::optional<ErrorCode> TreeWalk::reopenListed(FileDescriptor& result) const {
    if (!trail_) {
        auto const failure = reopenListedFolder(tree_->location, readFolderFlags, result);
        return failure ? failure : resumeFolder(result.get(), level_.identity, *level_.chunk);
    }
    FileDescriptor listed;
    if (auto const failure = reopenListedFolder(tree_->location, searchFlags, listed)) {
        return failure;
    }
    // Whether anything in it may be opened at all.
    if (int const error = openBelow(listed.get(), ".", searchFlags, result)) {
        return errorCodeOfErrno(error);
    }
    TrailNode const* outermost = trail_.get();
    while (outermost->parent()) {
        outermost = outermost->parent().get();
    }
    return checkIdentity(result.get(), outermost->level().identity);
}

/// Opens the current folder again, from the listed one down, which `result` is before.
std::optional<ErrorCode> TreeWalk::reopenBelow(FileDescriptor& result) const {
    // Links on the way do no harm: what is found is looked at.
    std::vector<TrailNode const*> way(depth());
    for (TrailNode const* node = trail_.get(); node != nullptr; node = node->parent().get()) {
        way[node->depth()] = node;
    }
    std::string path;
    for (TrailNode const* const node : way) {
        path += node->enteredName();
        bool const isLast = node == trail_.get();
        if (!isLast && path.size() < longestPiece) {
            path += '/';
            continue;
        }
        FileDescriptor const folder = std::move(result);
        int const error =
            openBelow(folder.get(), path.c_str(), isLast ? readFolderFlags : searchFlags, result);
        if (error != 0) {
            return isPassedOver(error, folder.get()) ? ErrorCode::ResourceNotFound
                                                     : errorCodeOfErrno(error);
        }
        path.clear();
    }
    return resumeFolder(result.get(), level_.identity, *level_.chunk);
}

/// Closes the current folder as soon as nothing more is to be read or opened in it.
void TreeWalk::release() noexcept {
    if (!level_.needsDescriptor()) {
        FileDescriptor const folder = window_.take(depth());
        climbFrom(folder, depth());
    }
}

/// Before the last descriptor is closed, that of `folder` at `depth`, opens the next folder above
/// that will be needed from there: that is cheaper than from the top. Where it fails, the way from
/// the top remains.
void TreeWalk::climbFrom(FileDescriptor const& folder, std::uint32_t depth) noexcept {
    TrailNode const* const goal = trail_ ? trail_->nearestOpen() : nullptr;
    if (!folder || !window_.empty() || goal == nullptr) {
        return;
    }
    constexpr std::string_view step = "../";
    constexpr std::uint32_t stepsInOneCall = longestPiece / step.size();
    char path[stepsInOneCall * step.size() + 1];
    FileDescriptor reached;
    for (std::uint32_t left = depth - goal->depth(); left != 0;) {
        std::uint32_t const steps = std::min(left, stepsInOneCall);
        char* end = path;
        for (std::uint32_t i = 0; i < steps; ++i) {
            end = std::copy(step.begin(), step.end(), end);
        }
        *end = '\0';
        left -= steps;
        FileDescriptor const from = std::move(reached);
        if (openBelow(from ? from.get() : folder.get(), path,
                      left == 0 ? readFolderFlags : searchFlags, reached) != 0) {
            return;
        }
    }
    Level const& level = goal->level();
    if (!resumeFolder(reached.get(), level.identity, *level.chunk)) {
        window_.push(goal->depth(), std::move(reached));
    }
}

/// Keeps the failure of the current folder, or of `name` in it, until the next advance().
void TreeWalk::fail(ErrorCode code, std::string_view name) {
    fl::i18n::ustring path = pathOf(trail_);
    if (!name.empty()) {
        fl::i18n::appendStorageName(path, name);
    } else if (!path.empty()) {
        path.pop_back();
    }
    failure_.emplace(code, StorageIRI(tree_->location, path));
}

/// Keeps a failure of the listed folder until the next advance(), and makes it the last.
void TreeWalk::endWith(ErrorCode code) {
    failure_.emplace(code, tree_->location);
    window_ = {};
    trail_.reset();
    level_.next = level_.chunk->size();
    level_.abandoned = true;
    prefix_.clear();
    prefixKnown_ = true;
}

} // namespace foundation::storage::provider::local::detail
