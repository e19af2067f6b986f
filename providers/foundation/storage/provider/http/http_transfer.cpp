// Copying and moving on a server that speaks WebDAV.

#include <foundation/storage/provider/http/http_provider.hpp>

#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/provider/storage_item.hpp>
#include <foundation/storage/provider/streaming_copy.hpp>

#include <algorithm>
#include <random>
#include <utility>

namespace foundation::storage::provider::http {

using detail::DavOutcome;
using Transfer = detail::DavClient::Transfer;
using Overwriting = detail::DavClient::Overwriting;

namespace {

/// Whether a caller may answer a refusal by copying the tree and removing the source.
bool invitesCopy(ErrorCode code) noexcept {
    return code == ErrorCode::UnsupportedOperation || code == ErrorCode::ResourceAlreadyExists ||
           code == ErrorCode::FolderNotEmpty || code == ErrorCode::PermissionDenied;
}

ustring temporaryName() {
    static constexpr char16_t digits[] = u"0123456789abcdefghijklmnopqrstuv";
    std::random_device random;
    ustring name = u".copy-";
    for (int i = 0; i < 16; ++i) {
        name += digits[random() % 32];
    }
    return name;
}

} // namespace

struct HttpProvider::Way {
    StorageIRI const& source;
    web::Url from;
    StorageIRI const& destination;
    web::Url to;
};

void HttpProvider::requireOneDavServer(StorageIRI const& source, StorageIRI const& destination,
                                       web::Deadline const& deadline) const {
    requireDav(source, deadline);
    if (!isOwn(destination)) {
        throw Exception(ErrorCode::UnsupportedOperation, destination);
    }
    requireDav(destination, deadline);
}

HttpProvider::Description HttpProvider::lookAtSource(Way const& way, Kind kind,
                                                     web::Deadline const& deadline) const {
    Description from = lookAt(way.source, deadline);
    if (!from.isThere()) {
        throw Exception(ErrorCode::ResourceNotFound, way.source);
    }
    if (from.isFolder != (kind == Kind::Folder) ||
        way.source.getResolvedPath() == way.destination.getResolvedPath()) {
        throw Exception(ErrorCode::InvalidLocation, way.source);
    }
    return from;
}

bool HttpProvider::checkPlace(Way const& way, Description const& from, ReplacementPolicy policy,
                              web::Deadline const& deadline) const {
    Description const there = lookAt(way.destination, deadline);
    bool const isReplacing = checkReplaceable(way.destination, there, policy);
    refuseOneItem(way, from, there);
    if (!isReplacing) {
        requireFolderAbove(way.destination, deadline); // some servers make it
    }
    return isReplacing;
}

/// A server that knows no case has one item by two names, and what is replaced it takes away first.
void HttpProvider::refuseOneItem(Way const& way, Description const& from,
                                 Description const& there) const {
    auto const source = detail::DavPath::of(way.from);
    auto const destination = detail::DavPath::of(way.to);
    if (!source || !destination || !source->isLike(*destination)) {
        return;
    }
    auto const tag = from.headers.find("ETag");
    if (tag && there.headers.find("ETag") == tag && there.size == from.size &&
        there.headers.find("Last-Modified") == from.headers.find("Last-Modified")) {
        throw Exception(ErrorCode::InvalidLocation, way.source);
    }
}

/// REQUIRES: what is replaced was seen to be a file, or an empty folder. Where nothing was, nothing
/// is replaced, so that what comes between stays.
void HttpProvider::move(Way const& way, bool isReplacing, Changed changed,
                        web::Deadline const& deadline) {
    detail::NamesInWork::Hold const hold(inWork_, way.to.text(), deadline);
    DavOutcome const outcome = change(
        Sending::Once, changed, deadline,
        [&] {
            return dav_.transfer(Transfer::Move, way.from, way.to,
                                 isReplacing ? Overwriting::Allowed : Overwriting::Refused,
                                 deadline);
        },
        [&] {
            return lookAt(way.destination, deadline).isThere() &&
                   !lookAt(way.source, deadline).isThere();
        });
    if (outcome.isSuccess()) {
        return;
    }
    failTransfer(outcome, way, deadline);
}

void HttpProvider::failTransfer(DavOutcome const& outcome, Way const& way,
                                web::Deadline const& deadline) const {
    if (outcome.status == 404 && !lookAt(way.source, deadline).isThere()) {
        throw Exception(ErrorCode::ResourceNotFound, way.source);
    }
    // The server takes the destination for another one's (RFC 4918, sections 9.8.5 and 9.9.4), as
    // one behind a proxy may, which does not know by what name it is called.
    if (outcome.status == 502) {
        throw Exception(ErrorCode::UnsupportedOperation, way.destination);
    }
    failChange(outcome, way.destination, deadline);
}

/// To a name of its own, and from there to the one that was asked for: servers copy byte by byte,
/// and what they replace they take away first. Each sending has another name: one whose answer is
/// lost may be at work still, and whatever its file looks like, nobody knows when it is complete.
void HttpProvider::copy(Way const& way, bool isReplacing, web::Deadline const& deadline) {
    for (unsigned attempt = 1;; ++attempt) {
        StorageIRI const beside(way.destination.getParent(), temporaryName());
        Way const there{beside, itemUrl(beside), way.destination, way.to};
        std::optional<web::Failure> lost;
        try {
            DavOutcome const outcome = change(
                Sending::Once, Changed::Files, deadline,
                [&] {
                    DavOutcome copied = dav_.transfer(Transfer::Copy, way.from, there.from,
                                                      Overwriting::Allowed, deadline);
                    if (copied.status == DavOutcome::accepted) {
                        copied.status = 501; // nobody would know when it is complete
                    }
                    return copied;
                },
                [] { return false; });
            if (outcome.status == 504) {
                lost = web::failureOfStatus(outcome.status);
            } else if (!outcome.isSuccess()) {
                removeTrace(there);
                failTransfer(outcome, way, deadline);
            }
        } catch (web::Failure const& failure) {
            if (failure.cannotHaveCome()) {
                throw;
            }
            if (!failure.mayPass()) { // as where the time is over before an answer came
                removeTrace(there);
                throw;
            }
            lost = failure;
        }
        if (!lost) {
            try {
                move(there, isReplacing, Changed::Files, deadline);
                return;
            } catch (...) {
                removeTrace(there);
                throw;
            }
        }
        removeTrace(there);
        if (attempt >= client_->options().attempts) {
            throw *lost;
        }
        client_->pauseBefore(attempt + 1, std::chrono::milliseconds(0), deadline, *lost);
    }
}

/// What a failed copy may have left. The failure is the one to report, and does not wait long.
void HttpProvider::removeTrace(Way const& copied) noexcept {
    try {
        web::Deadline const deadline(
            std::min(client_->options().operationTimeout, std::chrono::milliseconds(10'000)));
        remove(copied.source, copied.from, {}, Changed::Files, deadline);
    } catch (...) {
    }
}

CopyStatus HttpProvider::copyFile(StorageIRI const& source, StorageItem const& destination,
                                  CopyFileOptions const& options) try {
    web::Deadline const deadline = client_->deadline();
    if (destination.getProvider().get() != this) {
        return copyFileByStreams(*this, source, destination, options);
    }
    StorageIRI const target = destination.getLocation();
    requireDav(target, deadline);
    urlOf(source);
    if (!speaksDav(source, deadline)) {
        return copyFileByStreams(*this, source, destination, options);
    }
    Way const way{source, itemUrl(source), target, itemUrl(target)};
    Description const from = lookAtSource(way, Kind::File, deadline);
    bool const isReplacing = checkPlace(way, from, options.policy, deadline);
    std::uint64_t const size = from.size.value_or(0);
    if (options.progress && !options.progress(size, size)) {
        throw Exception(ErrorCode::IOError, target);
    }
    copy(way, isReplacing, deadline.after(timeToStore(size)));
    return CopyStatus::Copied;
} catch (web::Failure const& failure) {
    throw Exception(failure.code(), source, failure.what());
}

void HttpProvider::moveFile(StorageIRI const& source, StorageIRI const& destination,
                            ReplacementPolicy const& policy) try {
    web::Deadline const deadline = client_->deadline();
    requireOneDavServer(source, destination, deadline);
    Way const way{source, itemUrl(source), destination, itemUrl(destination)};
    Description const from = lookAtSource(way, Kind::File, deadline);
    move(way, checkPlace(way, from, policy, deadline), Changed::Files, deadline);
} catch (web::Failure const& failure) {
    throw Exception(failure.code(), source, failure.what());
}

/// Whether one of two folders lies in the other so that a copy of the tree would write into what it
/// copies: the destination lies in the source; or it is above the source, and there is a folder in
/// the source that the copy would take for the source itself, like a/b/b where a/b is copied to a.
bool HttpProvider::wouldCopyIntoItself(StorageIRI const& source, StorageIRI const& destination,
                                       web::Deadline const& deadline) const {
    if (source.isAncestorOf(destination)) {
        return true;
    }
    if (!destination.isAncestorOf(source)) {
        return false;
    }
    return isFolder(StorageIRI(source, source.makePathRelativeTo(destination)), deadline);
}

void HttpProvider::refuseFolderMove(StorageIRI const& source, StorageIRI const& destination,
                                    ReplacementPolicy policy, Description const& there,
                                    web::Deadline const& deadline) const {
    if (there.isThere()) {
        if (!replaces(policy)) {
            throw Exception(ErrorCode::ResourceAlreadyExists, destination);
        }
        if (!there.isFolder) {
            throw Exception(ErrorCode::InvalidLocation, destination);
        }
    } else {
        requireFolderAbove(destination, deadline);
    }
    if (source.getResolvedPath().size() <= 1 || destination.getResolvedPath().size() <= 1) {
        throw Exception(ErrorCode::ResourceInUse, destination); // the root stays
    }
    if (source.isAncestorOf(destination)) {
        throw Exception(ErrorCode::InvalidLocation, destination);
    }
    if (there.isThere()) {
        detail::DavListing const listing = membersOf(destination, deadline);
        if (!listing.members.empty() || listing.leftOut != 0) {
            throw Exception(ErrorCode::FolderNotEmpty, destination);
        }
    }
}

void HttpProvider::moveFolder(StorageIRI const& source, StorageIRI const& destination,
                              ReplacementPolicy const& policy) try {
    web::Deadline const deadline = client_->deadline();
    requireOneDavServer(source, destination, deadline);
    Way const way{source, folderUrl(source), destination, folderUrl(destination)};
    Description const from = lookAtSource(way, Kind::Folder, deadline);
    try {
        Description const there = lookAt(destination, deadline);
        refuseFolderMove(source, destination, policy, there, deadline);
        refuseOneItem(way, from, there);
        move(way, there.isThere(), Changed::Folders, deadline);
    } catch (Exception const& e) {
        if (invitesCopy(e.getErrorCode()) && wouldCopyIntoItself(source, destination, deadline)) {
            throw Exception(ErrorCode::InvalidLocation, destination);
        }
        throw;
    }
} catch (web::Failure const& failure) {
    throw Exception(failure.code(), source, failure.what());
}

} // namespace foundation::storage::provider::http
