// What there is where the server speaks WebDAV: kinds of items, and listings.

#include <foundation/storage/provider/http/http_provider.hpp>

#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/provider/wildcard.hpp>

#include <fl/i18n/conversion.hpp>

#include <algorithm>
#include <utility>

namespace foundation::storage::provider::http {

namespace {

/// The server does not know the method.
bool isNoDav(int status) noexcept {
    return status == 405 || status == 501;
}

} // namespace

/// The names alone count: a slash more or less names the same item.
web::Url HttpProvider::itemUrl(StorageIRI const& location) const {
    ustring path = location.getResolvedPath();
    if (!path.starts_with(u'/')) {
        path.insert(path.begin(), u'/');
    }
    return web::Url::of(StorageIRI(home_, path));
}

web::Url HttpProvider::folderUrl(StorageIRI const& location) const {
    ustring path = location.getResolvedPath();
    if (!path.starts_with(u'/')) {
        path.insert(path.begin(), u'/');
    }
    if (!path.ends_with(u'/')) {
        path += u'/';
    }
    return web::Url::of(StorageIRI(home_, path));
}

bool HttpProvider::isKnownToSpeakDav(StorageIRI const& location) const {
    return !location.hasQuery() && spaces_.speaksDav(location.getResolvedPath());
}

/// Throws web::Failure where there is no answer.
detail::DavClient::Spoken HttpProvider::askSpeech(StorageIRI const& location, unsigned attempts,
                                                  web::Deadline const& deadline) const {
    using Speech = detail::DavClient::Speech;
    ustring const& path = location.getResolvedPath();
    auto spoken = dav_.speechAt(itemUrl(location), attempts, deadline);
    // Some tell it of nothing that is not there.
    ustring space(detail::DavSpaces::spaceOf(path));
    if (spoken.speech == Speech::Unknown && space.size() < path.size()) {
        spoken = dav_.speechAt(folderUrl(StorageIRI(home_, space)), attempts, deadline);
    }
    if (spoken.speech == Speech::Unknown) {
        space = u"/";
        spoken = dav_.speechAt(folderUrl(StorageIRI(home_, space)), attempts, deadline);
    }
    if (spoken.speech == Speech::Dav) {
        spaces_.keepDav(space);
    } else if (spoken.speech != Speech::Refused) {
        spaces_.keepPlain(path);
    }
    return spoken;
}

/// For a question, which the web answers too: what cannot be found out is no. Where nothing came of
/// asking as often as requests are sent, it is asked once the next time.
bool HttpProvider::speaksDav(StorageIRI const& location, web::Deadline const& deadline) const {
    if (location.hasQuery()) {
        return false;
    }
    if (spaces_.speaksDav(location.getResolvedPath())) {
        return true;
    }
    if (spaces_.isPlain(location.getResolvedPath())) {
        return false;
    }
    try {
        auto const spoken =
            askSpeech(location, isMuteToOptions_ ? 1 : client_->options().attempts, deadline);
        isMuteToOptions_ = spoken.refusal && spoken.refusal->mayPass();
        return spoken.speech == detail::DavClient::Speech::Dav;
    } catch (web::Failure const&) {
        isMuteToOptions_ = true;
        return false;
    }
}

void HttpProvider::requireDav(StorageIRI const& location, web::Deadline const& deadline,
                              ErrorCode without) const {
    urlOf(location); // is one of this server
    if (location.hasQuery()) {
        throw Exception(without, location);
    }
    if (spaces_.speaksDav(location.getResolvedPath())) {
        return;
    }
    auto const spoken = askSpeech(location, client_->options().attempts, deadline);
    if (spoken.refusal) {
        throw web::Failure(*spoken.refusal);
    }
    if (spoken.speech != detail::DavClient::Speech::Dav) {
        throw Exception(without, location);
    }
}

std::optional<HttpProvider::Description>
HttpProvider::describeByDav(StorageIRI const& location, web::Deadline const& deadline) const {
    detail::DavItem const item = dav_.find(itemUrl(location), deadline);
    Description result;
    if (isNoDav(item.status)) { // which says nothing of other items
        return std::nullopt;
    }
    if (web::isAbsence(item.status)) {
        result.status = item.status;
        return result;
    }
    if (!web::isSuccess(item.status)) {
        if (item.status != 401 && item.status != 407 && isBelowFile(location, deadline)) {
            result.status = 404;
            return result;
        }
        result.status = item.status;
        return result;
    }
    result.status = 200;
    result.isKindKnown = true;
    result.isFolder = item.isFolder;
    result.isKindTold = item.isKindTold;
    result.isWritable = true;
    result.created = item.properties.created;
    auto const tell = [&](char const* name, std::string const& value) {
        if (!value.empty()) {
            result.headers.add(name, value);
        }
    };
    tell("ETag", item.properties.etag);
    tell("Last-Modified", item.properties.lastModified);
    if (!item.isFolder) {
        result.size = item.properties.size;
        tell("Content-Type", item.properties.contentType);
    }
    return result;
}

HttpProvider::Description HttpProvider::lookAt(StorageIRI const& location,
                                               web::Deadline const& deadline) const {
    if (auto found = describeByDav(location, deadline)) {
        if (!found->isThere() && !found->isMissing()) {
            throw web::failureOfStatus(found->status);
        }
        // What would be removed or replaced as a file could be a whole tree.
        if (found->isThere() && !found->isKindTold) {
            throw web::Failure(ErrorCode::IOError, "the server does not tell what kind of item "
                                                   "is there");
        }
        return *std::move(found);
    }
    throw Exception(ErrorCode::ReadOnlyProvider, location);
}

/// Servers have many words for that.
bool HttpProvider::isBelowFile(StorageIRI const& location, web::Deadline const& deadline) const {
    for (StorageIRI above = location; above.hasParent();) {
        above = above.getParent();
        if (!above.hasPath()) {
            return false;
        }
        detail::DavItem const item = dav_.find(itemUrl(above), deadline);
        if (web::isSuccess(item.status)) {
            return !item.isFolder;
        }
        if (web::isAbsence(item.status)) {
            return false; // then the server would have said so
        }
    }
    return false;
}

bool HttpProvider::isFolder(StorageIRI const& location, web::Deadline const& deadline) const {
    Description const there = lookAt(location, deadline);
    return there.isThere() && there.isFolder;
}

void HttpProvider::requireFolderAbove(StorageIRI const& location,
                                      web::Deadline const& deadline) const {
    if (location.getResolvedPath().size() <= 1) {
        return;
    }
    StorageIRI const above = location.withResolvedPath().getParent();
    std::string const url = folderUrl(above).text();
    if (folders_.find(url)) {
        return;
    }
    auto const asked = folders_.now();
    Description const there = lookAt(above, deadline);
    if (!there.isThere() || !there.isFolder) {
        throw Exception(ErrorCode::ResourceNotFound, location);
    }
    folders_.keep(url, there, asked);
}

void HttpProvider::forget(Changed changed) const {
    known_.forgetAll();
    if (changed == Changed::Folders) {
        folders_.forgetAll();
    }
}

/// What there is where WebDAV is spoken; elsewhere the operations refuse. Nothing is asked for it.
bool HttpProvider::hasFeature(StorageIRI const&, ExtendedFeature const& feature) const {
    return feature == ExtendedFeature::RecursiveFolderRemoval ||
           feature == ExtendedFeature::FlatWildcardListing;
}

StorageIRI HttpProvider::getCanonicalLocation(StorageIRI const& location) const try {
    web::Deadline const deadline = client_->deadline();
    urlOf(location);
    if (speaksDav(location, deadline)) {
        auto const there = describeByDav(location, deadline);
        if (there && there->isMissing()) {
            requireFolderAbove(location, deadline);
        }
    }
    return location.withResolvedPath();
} catch (web::Failure const& failure) {
    throw Exception(failure.code(), location, failure.what());
}

detail::DavListing HttpProvider::membersOf(StorageIRI const& location,
                                           web::Deadline const& deadline) const {
    detail::DavListing listing = dav_.list(folderUrl(location), deadline);
    if (isNoDav(listing.status)) {
        throw Exception(ErrorCode::UnsupportedOperation, location);
    }
    if (web::isAbsence(listing.status)) {
        throw Exception(ErrorCode::ResourceNotFound, location);
    }
    if (!web::isSuccess(listing.status)) {
        // A file's location with a slash at its end is one below a file.
        if (listing.status != 401 && listing.status != 407 && !isFolder(location, deadline)) {
            throw Exception(ErrorCode::ResourceNotFound, location);
        }
        throw web::failureOfStatus(listing.status);
    }
    if (!listing.isFolder) {
        throw Exception(ErrorCode::ResourceNotFound, location);
    }
    return listing;
}

std::unique_ptr<IFolderEntryIterator> HttpProvider::list(StorageIRI const& location,
                                                         ustring const& filter,
                                                         HttpSelection const& selection) const try {
    web::Deadline const deadline = client_->deadline();
    requireDav(location, deadline, ErrorCode::UnsupportedOperation);
    HttpCursor::Members members = membersOf(location, deadline).members;
    std::erase_if(members, [&](detail::DavMember const& member) {
        return selection.kinds == (member.isFolder ? HttpSelection::Kinds::Files
                                                   : HttpSelection::Kinds::Folders) ||
               (!filter.empty() &&
                !matchesWildcard(filter, fl::i18n::storageNameToUstring(member.name)));
    });
    return std::make_unique<HttpCursor>(
        std::make_shared<HttpCursor::Members const>(std::move(members)), selection.told);
} catch (web::Failure const& failure) {
    throw Exception(failure.code(), location, failure.what());
}

using Kinds = HttpSelection::Kinds;
using Told = HttpSelection::Told;

std::unique_ptr<IFolderEntryIterator> HttpProvider::listAll(StorageIRI const& location,
                                                            ustring const& filter) const {
    return list(location, filter, {Kinds::All, Told::Attributes});
}
std::unique_ptr<IFolderEntryIterator> HttpProvider::listFiles(StorageIRI const& location,
                                                              ustring const& filter) const {
    return list(location, filter, {Kinds::Files, Told::Attributes});
}
std::unique_ptr<IFolderEntryIterator> HttpProvider::listFolders(StorageIRI const& location,
                                                                ustring const& filter) const {
    return list(location, filter, {Kinds::Folders, Told::Attributes});
}
std::unique_ptr<IFolderEntryIterator> HttpProvider::listAllNamesOnly(StorageIRI const& location,
                                                                     ustring const& filter) const {
    return list(location, filter, {Kinds::All, Told::Names});
}
std::unique_ptr<IFolderEntryIterator>
HttpProvider::listFilesNamesOnly(StorageIRI const& location, ustring const& filter) const {
    return list(location, filter, {Kinds::Files, Told::Names});
}
std::unique_ptr<IFolderEntryIterator>
HttpProvider::listFoldersNamesOnly(StorageIRI const& location, ustring const& filter) const {
    return list(location, filter, {Kinds::Folders, Told::Names});
}

} // namespace foundation::storage::provider::http
