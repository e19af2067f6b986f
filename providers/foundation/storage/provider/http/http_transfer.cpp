// Copying and moving on a server that speaks WebDAV.

#include <foundation/storage/provider/http/http_provider.hpp>

#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/provider/storage_item.hpp>
#include <foundation/storage/provider/streaming_copy.hpp>

#include <random>
#include <utility>

namespace foundation::storage::provider::http {

using detail::DavOutcome;
using Transfer = detail::DavClient::Transfer;
using Overwriting = detail::DavClient::Overwriting;

namespace {

[[noreturn]] void fail(ErrorCode code, StorageIRI const& location) {
    throw Exception(code, location);
}

bool isSuccess(int status) noexcept {
    return status >= 200 && status < 300;
}

bool replaces(ReplacementPolicy policy) noexcept {
    return policy != ReplacementPolicy::FailIfExists && policy != ReplacementPolicy::KeepExisting;
}

/// Whether a caller may answer a refusal by copying the tree and removing the source.
bool invitesCopy(ErrorCode code) noexcept {
    return code == ErrorCode::UnsupportedOperation || code == ErrorCode::ResourceAlreadyExists ||
           code == ErrorCode::FolderNotEmpty || code == ErrorCode::PermissionDenied;
}

bool isOneServer(StorageIRI const& a, StorageIRI const& b) {
    return a.getSchemeView() == b.getSchemeView() && a.getAuthorityView() == b.getAuthorityView() &&
           !a.hasInnerIRI() && !b.hasInnerIRI();
}

bool isOneItem(StorageIRI const& a, StorageIRI const& b) {
    return a.getResolvedPath() == b.getResolvedPath();
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

/// REQUIRES: what is replaced was seen to be a file, or an empty folder. Where nothing was, nothing
/// is replaced, so that what comes between stays.
void HttpProvider::move(Way const& way, bool isReplacing, Changed changed) {
    detail::NamesInWork::Hold const hold(inWork_, way.to.text());
    DavOutcome const outcome = change(
        Sending::Once, changed,
        [&] {
            return dav_.transfer(Transfer::Move, way.from, way.to,
                                 isReplacing ? Overwriting::Allowed : Overwriting::Refused,
                                 client_->deadline());
        },
        [&] {
            return isSuccess(lookAt(way.destination).status) &&
                   !isSuccess(lookAt(way.source).status);
        });
    if (outcome.isSuccess()) {
        return;
    }
    if (outcome.status == 404 && !isSuccess(lookAt(way.source).status)) {
        fail(ErrorCode::ResourceNotFound, way.source);
    }
    failChange(outcome, way.destination);
}

/// To a name of its own, and from there to the one that was asked for: servers copy byte by byte,
/// and what they replace they take away first.
void HttpProvider::copy(Way const& way, bool isReplacing, std::optional<std::uint64_t> size) {
    StorageIRI const beside(way.destination.getParent(), temporaryName());
    Way const there{beside, itemUrl(beside), way.destination, way.to};
    DavOutcome const outcome = change(
        Sending::UntilDone, Changed::Files,
        [&] {
            return dav_.transfer(Transfer::Copy, way.from, there.from, Overwriting::Allowed,
                                 client_->deadline());
        },
        [&] {
            Description const copied = lookAt(beside);
            return isSuccess(copied.status) && copied.size == size;
        });
    try {
        if (!outcome.isSuccess()) {
            if (outcome.status == 404 && !isSuccess(lookAt(way.source).status)) {
                fail(ErrorCode::ResourceNotFound, way.source);
            }
            failChange(outcome, way.destination);
        }
        move(there, isReplacing, Changed::Files);
    } catch (...) {
        try {
            remove(beside, there.from, Changed::Files);
        } catch (...) {
            // The failure of the copy is on its way out, and is the one to report.
        }
        throw;
    }
}

CopyStatus HttpProvider::copyFile(StorageIRI const& source, StorageItem const& destination,
                                  CopyFileOptions const& options) try {
    if (destination.getProvider().get() != this) {
        return copyFileByStreams(*this, source, destination, options);
    }
    StorageIRI const target = destination.getLocation();
    requireDav(target);
    urlOf(source);
    if (!speaksDav(source)) {
        return copyFileByStreams(*this, source, destination, options);
    }
    Description const from = lookAt(source);
    if (!isSuccess(from.status)) {
        fail(ErrorCode::ResourceNotFound, source);
    }
    if (from.isFolder || isOneItem(source, target)) {
        fail(ErrorCode::InvalidLocation, source);
    }
    Description const there = lookAt(target);
    bool const isReplacing = checkReplaceable(target, there, options.policy);
    std::uint64_t const size = from.size.value_or(0);
    if (!isReplacing) {
        requireFolderAbove(target);
    }
    if (options.progress && !options.progress(size, size)) {
        fail(ErrorCode::IOError, target);
    }
    copy({source, itemUrl(source), target, itemUrl(target)}, isReplacing, from.size);
    return CopyStatus::Copied;
} catch (web::Failure const& failure) {
    fail(failure.code(), source);
}

void HttpProvider::moveFile(StorageIRI const& source, StorageIRI const& destination,
                            ReplacementPolicy const& policy) try {
    requireDav(source);
    if (!isOneServer(source, destination)) {
        fail(ErrorCode::UnsupportedOperation, destination);
    }
    requireDav(destination);
    Description const from = lookAt(source);
    if (!isSuccess(from.status)) {
        fail(ErrorCode::ResourceNotFound, source);
    }
    if (from.isFolder || isOneItem(source, destination)) {
        fail(ErrorCode::InvalidLocation, source);
    }
    bool const isReplacing = checkReplaceable(destination, lookAt(destination), policy);
    if (!isReplacing) {
        requireFolderAbove(destination); // some servers make it
    }
    move({source, itemUrl(source), destination, itemUrl(destination)}, isReplacing, Changed::Files);
} catch (web::Failure const& failure) {
    fail(failure.code(), source);
}

/// Whether one of two folders lies in the other so that a copy of the tree would write into what it
/// copies: the destination lies in the source; or it is above the source, and there is a folder in
/// the source that the copy would take for the source itself, like a/b/b where a/b is copied to a.
bool HttpProvider::wouldCopyIntoItself(StorageIRI const& source,
                                       StorageIRI const& destination) const {
    if (source.isAncestorOf(destination)) {
        return true;
    }
    if (!destination.isAncestorOf(source)) {
        return false;
    }
    return isFolder(StorageIRI(source, source.makePathRelativeTo(destination)));
}

void HttpProvider::refuseFolderMove(StorageIRI const& source, StorageIRI const& destination,
                                    ReplacementPolicy policy, Description const& there) const {
    if (isSuccess(there.status)) {
        if (!replaces(policy)) {
            fail(ErrorCode::ResourceAlreadyExists, destination);
        }
        if (!there.isFolder) {
            fail(ErrorCode::InvalidLocation, destination);
        }
    } else {
        requireFolderAbove(destination);
    }
    if (source.getResolvedPath().size() <= 1 || destination.getResolvedPath().size() <= 1) {
        fail(ErrorCode::ResourceInUse, destination); // the root stays
    }
    if (source.isAncestorOf(destination)) {
        fail(ErrorCode::InvalidLocation, destination);
    }
    if (isSuccess(there.status)) {
        detail::DavListing const listing = membersOf(destination);
        if (!listing.members.empty() || listing.leftOut != 0) {
            fail(ErrorCode::FolderNotEmpty, destination);
        }
    }
}

void HttpProvider::moveFolder(StorageIRI const& source, StorageIRI const& destination,
                              ReplacementPolicy const& policy) try {
    requireDav(source);
    if (!isOneServer(source, destination)) {
        fail(ErrorCode::UnsupportedOperation, destination);
    }
    requireDav(destination);
    Description const from = lookAt(source);
    if (!isSuccess(from.status)) {
        fail(ErrorCode::ResourceNotFound, source);
    }
    if (!from.isFolder || isOneItem(source, destination)) {
        fail(ErrorCode::InvalidLocation, source);
    }
    try {
        Description const there = lookAt(destination);
        refuseFolderMove(source, destination, policy, there);
        move({source, folderUrl(source), destination, folderUrl(destination)},
             isSuccess(there.status), Changed::Folders);
    } catch (Exception const& e) {
        if (invitesCopy(e.getErrorCode()) && wouldCopyIntoItself(source, destination)) {
            fail(ErrorCode::InvalidLocation, destination);
        }
        throw;
    }
} catch (web::Failure const& failure) {
    fail(failure.code(), source);
}

} // namespace foundation::storage::provider::http
