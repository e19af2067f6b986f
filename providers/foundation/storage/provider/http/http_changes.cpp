// What changes the files and folders of a server that speaks WebDAV.

#include <foundation/storage/provider/http/http_provider.hpp>

#include <foundation/storage/provider/exception.hpp>

#include <fl/i18n/conversion.hpp>

#include <algorithm>
#include <utility>
#include <vector>

namespace foundation::storage::provider::http {

using detail::DavExpected;
using detail::DavOutcome;

namespace {

bool isRoot(StorageIRI const& location) {
    return location.getResolvedPath().size() <= 1;
}

} // namespace

DavOutcome HttpProvider::change(Sending sending, Changed changed, web::Deadline const& deadline,
                                std::function<DavOutcome()> const& send,
                                std::function<bool()> const& isDone) const {
    // Whether an earlier sending may have done it, and is what a later one fails for.
    bool mayBeDone = false;
    for (unsigned attempt = 1;; ++attempt) {
        std::optional<DavOutcome> outcome;
        std::optional<web::Failure> lost;
        try {
            outcome = send();
            forget(outcome->isSuccess() ? changed : Changed::Folders);
        } catch (web::Failure const& failure) {
            forget(Changed::Folders);
            mayBeDone = mayBeDone || (failure.mayPass() && !failure.cannotHaveCome());
            if (!failure.mayPass() || !mayBeDone) {
                throw;
            }
            lost = failure;
        } catch (...) {
            forget(Changed::Folders);
            throw;
        }
        // From here on it is a failure to look that is thrown, for which nothing is sent again.
        if (outcome) {
            if (outcome->isSuccess()) {
                return *outcome;
            }
            if (outcome->status == DavOutcome::accepted) {
                awaitDone(isDone, deadline);
                forget(changed);
                return {200};
            }
            // Of what a server behind another one has done, the first one may know nothing.
            mayBeDone = mayBeDone || outcome->sendings > 1 || web::mayPass(outcome->status);
            return mayBeDone && isDone() ? DavOutcome{200} : *outcome;
        }
        if (isDone()) {
            return {200};
        }
        if (sending == Sending::Once || attempt >= client_->options().attempts) {
            throw *lost;
        }
        client_->pauseBefore(attempt + 1, std::chrono::milliseconds(0), deadline, *lost);
    }
}

/// For a change of which the server has taken note, and which it does later.
void HttpProvider::awaitDone(std::function<bool()> const& isDone,
                             web::Deadline const& deadline) const {
    web::Failure const late(ErrorCode::IOError, "the server has not done yet what it accepted");
    for (unsigned attempt = 2;; ++attempt) {
        try {
            if (isDone()) {
                return;
            }
        } catch (web::Failure const& failure) {
            if (!failure.mayPass()) {
                throw;
            }
        }
        client_->pauseBefore(attempt, std::chrono::milliseconds(0), deadline, late);
    }
}

/// The item below a location that a change failed for.
std::optional<StorageIRI> HttpProvider::failedItem(DavOutcome const& outcome,
                                                   StorageIRI const& location) const {
    if (!outcome.failed || outcome.failed->names.empty()) {
        return std::nullopt;
    }
    std::string path;
    for (std::string const& name : outcome.failed->names) {
        path += '/' + name;
    }
    StorageIRI const failed(home_, fl::i18n::storageNameToUstring(path));
    return location.isAncestorOf(failed) ? std::optional(failed) : std::nullopt;
}

void HttpProvider::failChange(DavOutcome const& outcome, StorageIRI const& location,
                              web::Deadline const& deadline) const {
    int const status = outcome.status;
    if (auto const failed = failedItem(outcome, location)) {
        throw Exception(web::errorCodeOfStatus(status), *failed);
    }
    if (status == 412) {
        throw Exception(ErrorCode::ResourceAlreadyExists, location);
    }
    // Servers have many words for a folder that is missing: 403, 404, 405, 409 and 500 among them.
    if (status == 400 || status == 403 || status == 404 || status == 405 || status == 409 ||
        status == 500) {
        requireFolderAbove(location, deadline);
    }
    throw Exception(web::errorCodeOfStatus(status), location);
}

void HttpProvider::createFile(StorageIRI const& location) try {
    web::Deadline const deadline = client_->deadline();
    requireDav(location, deadline);
    web::Url const url = itemUrl(location);
    detail::NamesInWork::Hold const hold(inWork_, url.text(), deadline);
    // Not every server looks at the condition of the request.
    if (lookAt(location, deadline).isThere()) {
        throw Exception(ErrorCode::ResourceAlreadyExists, location);
    }
    requireFolderAbove(location, deadline); // some servers make it
    DavOutcome const outcome = change(
        Sending::UntilDone, Changed::Files, deadline,
        [&] {
            return dav_.put(url, web::Body::of({}), {DavExpected::State::Nothing}, timeToWork(0),
                            deadline);
        },
        [&] {
            Description const there = lookAt(location, deadline);
            return there.isThere() && there.size == 0U;
        });
    if (!outcome.isSuccess()) {
        failChange(outcome, location, deadline);
    }
} catch (web::Failure const& failure) {
    throw Exception(failure.code(), location, failure.what());
}

/// REQUIRES: there was nothing.
void HttpProvider::makeFolder(StorageIRI const& location, web::Deadline const& deadline) {
    auto const asked = folders_.now();
    DavOutcome const outcome = change(
        Sending::UntilDone, Changed::Files, deadline,
        [&] { return dav_.makeFolder(folderUrl(location), deadline); },
        [&] { return isFolder(location, deadline); });
    if (outcome.isSuccess()) { // and what it is made for mostly follows
        folders_.keep(folderUrl(location).text(), {.status = outcome.status, .isFolder = true},
                      asked);
        return;
    }
    if (lookAt(location, deadline).isThere()) { // by now
        throw Exception(ErrorCode::ResourceAlreadyExists, location);
    }
    failChange(outcome, location, deadline);
}

void HttpProvider::createFolder(StorageIRI const& location) try {
    web::Deadline const deadline = client_->deadline();
    requireDav(location, deadline);
    if (lookAt(location, deadline).isThere()) {
        throw Exception(ErrorCode::ResourceAlreadyExists, location);
    }
    requireFolderAbove(location, deadline); // some servers make it
    makeFolder(location, deadline);
} catch (web::Failure const& failure) {
    throw Exception(failure.code(), location, failure.what());
}

void HttpProvider::createFolderRecursive(StorageIRI const& location) try {
    web::Deadline const deadline = client_->deadline();
    requireDav(location, deadline);
    std::vector<StorageIRI> missing;
    StorageIRI at = location.withResolvedPath();
    for (; !isRoot(at); at = at.getParent()) {
        Description const there = lookAt(at, deadline);
        if (there.isThere()) {
            if (!there.isFolder) {
                throw Exception(missing.empty() ? ErrorCode::ResourceAlreadyExists
                                                : ErrorCode::ResourceNotFound,
                                location);
            }
            break;
        }
        missing.push_back(at);
    }
    for (; !missing.empty(); missing.pop_back()) {
        try {
            makeFolder(missing.back(), deadline);
        } catch (Exception const& e) {
            // Somebody else may be making the same way.
            if (e.getErrorCode() != ErrorCode::ResourceAlreadyExists) {
                throw;
            }
            if (!isFolder(missing.back(), deadline)) {
                throw Exception(missing.size() == 1 ? ErrorCode::ResourceAlreadyExists
                                                    : ErrorCode::ResourceNotFound,
                                location);
            }
        }
    }
} catch (web::Failure const& failure) {
    throw Exception(failure.code(), location, failure.what());
}

/// Removing is done again where its answer was lost, and there is something still.
DavOutcome HttpProvider::remove(StorageIRI const& location, web::Url const& url,
                                std::string const& tag, Changed changed,
                                web::Deadline const& deadline) {
    return change(
        Sending::UntilDone, changed, deadline, [&] { return dav_.remove(url, tag, deadline); },
        [&] { return !lookAt(location, deadline).isThere(); });
}

void HttpProvider::removeFile(StorageIRI const& location) try {
    web::Deadline const deadline = client_->deadline();
    requireDav(location, deadline);
    std::string refused;
    for (unsigned attempt = 1;; ++attempt) {
        Description const there = lookAt(location, deadline);
        if (!there.isThere()) {
            throw Exception(ErrorCode::ResourceNotFound, location);
        }
        if (there.isFolder) {
            throw Exception(ErrorCode::InvalidLocation, location);
        }
        // A folder that has come in its place would go with all that is in it.
        std::string tag = tagOf(there);
        if (tag == refused) {
            tag.clear(); // the server's conditions are not about the tags that it tells
        }
        DavOutcome const outcome =
            remove(location, itemUrl(location), tag, Changed::Files, deadline);
        if (outcome.isSuccess()) {
            return;
        }
        if (outcome.status != 412) {
            failChange(outcome, location, deadline);
        }
        if (tag.empty() || attempt >= client_->options().attempts) {
            throw Exception(ErrorCode::ResourceInUse, location);
        }
        refused = tag;
    }
} catch (web::Failure const& failure) {
    throw Exception(failure.code(), location, failure.what());
}

void HttpProvider::removeFolder(StorageIRI const& location) try {
    web::Deadline const deadline = client_->deadline();
    requireDav(location, deadline);
    // The server would remove it with all that is in it, so what comes between goes too.
    detail::DavListing const listing = membersOf(location, deadline);
    if (!listing.members.empty() || listing.leftOut != 0) {
        throw Exception(ErrorCode::FolderNotEmpty, location);
    }
    if (isRoot(location)) {
        throw Exception(ErrorCode::ResourceInUse, location);
    }
    DavOutcome const outcome =
        remove(location, folderUrl(location), {}, Changed::Folders, deadline);
    if (!outcome.isSuccess()) {
        failChange(outcome, location, deadline);
    }
} catch (web::Failure const& failure) {
    throw Exception(failure.code(), location, failure.what());
}

void HttpProvider::removeFolderRecursively(StorageIRI const& location) try {
    web::Deadline const deadline = client_->deadline();
    requireDav(location, deadline);
    if (!isFolder(location, deadline)) {
        throw Exception(ErrorCode::ResourceNotFound, location);
    }
    if (isRoot(location)) {
        throw Exception(ErrorCode::ResourceInUse, location);
    }
    for (unsigned attempt = 1;; ++attempt) {
        DavOutcome const outcome =
            remove(location, folderUrl(location), {}, Changed::Folders, deadline);
        if (outcome.isSuccess()) {
            return;
        }
        if (!lookAt(location, deadline).isThere()) {
            throw Exception(ErrorCode::ResourceNotFound, location); // somebody else has removed it
        }
        // What somebody else has removed from it meanwhile is no failure.
        auto const failed = failedItem(outcome, location);
        if (!failed || attempt >= client_->options().attempts ||
            lookAt(*failed, deadline).isThere()) {
            failChange(outcome, location, deadline);
        }
    }
} catch (web::Failure const& failure) {
    throw Exception(failure.code(), location, failure.what());
}

void HttpProvider::setLastModified(StorageIRI const& location,
                                   boost::posix_time::ptime const& time) try {
    web::Deadline const deadline = client_->deadline();
    Timestamp const wanted = toTimestamp(time);
    requireDav(location, deadline);
    Description const there = lookAt(location, deadline);
    if (!there.isThere()) {
        throw Exception(ErrorCode::ResourceNotFound, location);
    }
    DavOutcome const outcome = dav_.setLastModified(
        there.isFolder ? folderUrl(location) : itemUrl(location), wanted.seconds, deadline);
    forget(Changed::Files);
    if (outcome.status == 401 || outcome.status == 423) {
        failChange(outcome, location, deadline);
    }
    // The time is the server's own business (RFC 4918, section 15.7), unless it has taken it.
    if (outcome.isSuccess()) {
        Description const now = lookAt(location, deadline);
        auto const told = now.headers.find("Last-Modified");
        if (told && web::parseHttpDate(*told) == wanted.seconds) {
            return;
        }
    }
    throw Exception(ErrorCode::UnsupportedOperation, location);
} catch (web::Failure const& failure) {
    throw Exception(failure.code(), location, failure.what());
}

void HttpProvider::setWritable(StorageIRI const& location, bool) try {
    web::Deadline const deadline = client_->deadline();
    requireDav(location, deadline);
    throw Exception(ErrorCode::UnsupportedOperation, location);
} catch (web::Failure const& failure) {
    throw Exception(failure.code(), location, failure.what());
}

bool HttpProvider::checkReplaceable(StorageIRI const& destination, Description const& there,
                                    ReplacementPolicy policy) const {
    if (!there.isThere()) {
        return false;
    }
    if (!replaces(policy)) {
        throw Exception(ErrorCode::ResourceAlreadyExists, destination);
    }
    if (there.isFolder) {
        throw Exception(ErrorCode::InvalidLocation, destination);
    }
    return true;
}

} // namespace foundation::storage::provider::http
