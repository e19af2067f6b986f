// What takes a file or folder from one place of the archive to another.

#include <foundation/storage/provider/zip/zip_provider.hpp>

#include <foundation/storage/provider/streaming_copy.hpp>
#include <foundation/storage/provider/zip/zip_change.hpp>

#include <string_view>
#include <utility>
#include <vector>

namespace foundation::storage::provider::zip {

using detail::EntryKind;
using detail::LastLink;

namespace {

void refuseOtherArchive(StorageIRI const& source, StorageIRI const& destination) {
    if (source.getScheme() != destination.getScheme() || !source.hasInnerIRI() ||
        !destination.hasInnerIRI() || source.getInnerIRI() != destination.getInnerIRI()) {
        fail(ErrorCode::UnsupportedOperation, destination);
    }
}

/// What a path leads to in the end, links followed; a link that leads nowhere itself.
template<class Walk>
Node const* finalNode(Walk const& walkTo, StorageIRI const& location) {
    Tree::Place const followed = walkTo(location, LastLink::Followed);
    return followed.error ? walkTo(location, LastLink::Itself).entry : followed.entry;
}

/// Two names of one item: acting on the one would destroy what the other shows. Of two links, what
/// they lead to stays as it is.
template<class Walk>
void refuseSameItem(Walk const& walkTo, StorageIRI const& source, StorageIRI const& destination) {
    Node const* const from = walkTo(source, LastLink::Itself).entry;
    Node const* const to = walkTo(destination, LastLink::Itself).entry;
    if (from && to && from != to && from->kind == EntryKind::Link && to->kind == EntryKind::Link) {
        return;
    }
    Node const* const node = finalNode(walkTo, source);
    if (node && node == finalNode(walkTo, destination)) {
        fail(ErrorCode::InvalidLocation, source);
    }
}

/// Whether one of two folders lies in the other so that a copy of the tree, with links followed,
/// would write into what it copies: the destination lies in the source; or it is above the source,
/// and there is a folder in the source that the copy would take for the source itself, like a/b/b
/// where a/b is copied to a.
template<class Walk>
bool wouldCopyIntoItself(Walk const& walkTo, StorageIRI const& source,
                         StorageIRI const& destination) {
    Node const* const from = walkTo(source, LastLink::Itself).entry;
    if (!from || !from->isFolder()) {
        return false;
    }
    Tree::Place const followed = walkTo(destination, LastLink::Followed);
    Node const* const to = followed.entry && followed.entry->isFolder() ? followed.entry : nullptr;
    if (detail::isInside(to ? to : walkTo(destination, LastLink::Itself).folder, *from)) {
        return true;
    }
    if (!to || !detail::isInside(from, *to)) {
        return false;
    }
    std::vector<std::string_view> names;
    for (Node const* at = from; at != to; at = at->parent) {
        names.push_back(*at->name);
    }
    Node const* again = from;
    for (; again && again->isFolder() && !names.empty(); names.pop_back()) {
        auto const found = again->children.find(names.back());
        again = found == again->children.end() ? nullptr : found->second.get();
    }
    return again && again->isFolder();
}

/// Whether a caller may answer a refusal by copying the tree and removing the source.
bool invitesCopy(ErrorCode code) noexcept {
    return code == ErrorCode::UnsupportedOperation || code == ErrorCode::ResourceAlreadyExists ||
           code == ErrorCode::FolderNotEmpty || code == ErrorCode::PermissionDenied;
}

struct Transfer {
    Node& from;
    Tree::Place to;
};

/// A file or link that is to be taken elsewhere, and a place for it.
template<class Walk>
Transfer fileTransfer(Walk const& walkTo, StorageIRI const& source, StorageIRI const& destination,
                      ReplacementPolicy policy) {
    Node& from = existing(walkTo, source, LastLink::Itself);
    if (from.isFolder()) {
        fail(ErrorCode::InvalidLocation, source);
    }
    refuseSameItem(walkTo, source, destination);
    Tree::Place const to = walkTo(destination, LastLink::Itself);
    checkReplaceable(to, policy, destination);
    return {from, to};
}

/// A folder that is to be moved, and a place for it.
template<class Walk>
Transfer folderTransfer(Walk const& walkTo, StorageIRI const& source, StorageIRI const& destination,
                        ReplacementPolicy policy) {
    Node& from = existing(walkTo, source, LastLink::Itself);
    if (!from.isFolder()) {
        fail(ErrorCode::InvalidLocation, source);
    }
    refuseSameItem(walkTo, source, destination);
    Tree::Place const to = walkTo(destination, LastLink::Itself);
    if (to.error && !to.isFree()) {
        fail(*to.error, destination);
    }
    Node const* const old = to.entry;
    if (old) {
        if (!replaces(policy)) {
            fail(ErrorCode::ResourceAlreadyExists, destination);
        }
        if (!old->isFolder()) {
            fail(ErrorCode::InvalidLocation, destination);
        }
        detail::checkWritable(*old, destination);
    }
    if (!from.parent || !to.folder) { // the root stays
        fail(ErrorCode::ResourceInUse, destination);
    }
    if (detail::isInside(to.folder, from)) {
        fail(ErrorCode::InvalidLocation, destination);
    }
    detail::checkWritable(*from.parent, source);
    detail::checkWritable(*to.folder, destination);
    if (from.parent != to.folder) {
        detail::checkWritable(from, destination); // its `..` changes
    }
    if (old && !old->children.empty()) {
        fail(ErrorCode::FolderNotEmpty, destination);
    }
    return {from, to};
}

} // namespace

CopyStatus ZipProvider::copyFile(StorageIRI const& source, StorageItem const& destination,
                                 CopyFileOptions const& options) {
    if (destination.getProvider().get() != this) {
        return copyFileByStreams(*this, source, destination, options);
    }
    StorageIRI const target = destination.getLocation();
    std::uint64_t size = 0;
    bool isLink = false;
    auto const check = [&](Tree& tree, auto const& walkTo) {
        auto const transfer = fileTransfer(walkTo, source, target, options.policy);
        auto const& [from, to] = transfer;
        bool const isOntoOther = to.entry && to.entry->kind == EntryKind::Other;
        if (from.kind == EntryKind::Other || isOntoOther) {
            fail(ErrorCode::UnsupportedOperation, isOntoOther ? target : source);
        }
        detail::checkWritable(*to.folder, target);
        isLink = from.kind == EntryKind::Link;
        size = isLink ? 0 : tree.attributesOf(&from).size.value_or(0);
        return transfer;
    };
    change(source, check);
    if (options.progress && !options.progress(size, size)) { // nothing is locked
        fail(ErrorCode::IOError, target);
    }
    // All anew: with a flush in between, the members have other numbers.
    change(source, [&](Tree& tree, auto const& walkTo) {
        auto const [from, to] = check(tree, walkTo);
        tree.publish(to, tree.makeCopy(from), options.policy, target);
    });
    // Where the caller unlocked what stood there, it locks a copy that needs nothing more again,
    // and that would lock what a new link leads to.
    return isLink && options.policy == ReplacementPolicy::ReplaceReadOnly
               ? CopyStatus::Copied
               : CopyStatus::CopiedWithTimes;
}

void ZipProvider::moveFile(StorageIRI const& source, StorageIRI const& destination,
                           ReplacementPolicy const& policy) {
    refuseOtherArchive(source, destination);
    change(source, [&](Tree& tree, auto const& walkTo) {
        auto const [from, to] = fileTransfer(walkTo, source, destination, policy);
        tree.move(from, to, source, destination);
    });
}

void ZipProvider::moveFolder(StorageIRI const& source, StorageIRI const& destination,
                             ReplacementPolicy const& policy) {
    refuseOtherArchive(source, destination);
    change(source, [&](Tree& tree, auto const& walkTo) {
        try {
            auto const [from, to] = folderTransfer(walkTo, source, destination, policy);
            tree.move(from, to, source, destination);
        } catch (Exception const& e) {
            if (invitesCopy(e.getErrorCode()) && wouldCopyIntoItself(walkTo, source, destination)) {
                fail(ErrorCode::InvalidLocation, destination);
            }
            throw;
        }
    });
}

} // namespace foundation::storage::provider::zip
