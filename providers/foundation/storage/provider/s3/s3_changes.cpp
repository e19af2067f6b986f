// What makes and removes files and folders.

#include <foundation/storage/provider/s3/detail/key_pages.hpp>
#include <foundation/storage/provider/s3/detail/key_removal.hpp>
#include <foundation/storage/provider/s3/detail/translation.hpp>
#include <foundation/storage/provider/s3/s3_provider.hpp>

#include <utility>
#include <vector>

namespace foundation::storage::provider::s3 {

using detail::FolderMemory;
using detail::translated;

/// Throws where there is no folder to make something in.
void S3Provider::requireFolderOf(ItemKey const& key, StorageIRI const& location,
                                 Deadline const& deadline) const {
    ItemKey const parent = key.parent();
    // A bucket that is missing shows when something is put into it.
    if (parent.isRoot() || folders_.has(parent.file)) {
        return;
    }
    std::uint64_t const before = folders_.changes();
    if (!isFolder(parent, deadline)) {
        throw Exception(ErrorCode::ResourceNotFound, location);
    }
    folders_.keep(parent.file, before);
}

S3Provider::Standing S3Provider::placeForFile(ItemKey const& key, StorageIRI const& location,
                                              ReplacementPolicy policy,
                                              Deadline const& deadline) const {
    Standing standing = lookUp(key, deadline);
    if (standing.isNothing()) {
        if (key.isRoot()) {
            throw Exception(ErrorCode::ResourceNotFound, location);
        }
        requireFolderOf(key, location, deadline);
        return standing;
    }
    if (!replaces(policy)) {
        throw Exception(ErrorCode::ResourceAlreadyExists, location);
    }
    if (!standing.file) {
        throw Exception(ErrorCode::InvalidLocation, location);
    }
    return standing;
}

void S3Provider::createFile(StorageIRI const& location) {
    ItemKey const key = keyOf(location);
    translated(location, [&] {
        Deadline const deadline = bucket_->deadline();
        auto const lock = locks_.lock(deadline, {key.file});
        placeForFile(key, location, ReplacementPolicy::FailIfExists, deadline);
        Change const change(heads_, key.file);
        bucket_->put(key.file, {}, {.onlyIfMissing = true}, deadline);
    });
}

void S3Provider::putMarker(ItemKey const& key, Deadline const& deadline) {
    Change const change(heads_, key.folder());
    std::uint64_t const before = folders_.changes();
    bucket_->put(key.folder(), {}, {.onlyIfMissing = true}, deadline);
    folders_.keep(key.file, before);
}

void S3Provider::createFolder(StorageIRI const& location) {
    ItemKey const key = keyOf(location);
    translated(location, [&] {
        Deadline const deadline = bucket_->deadline();
        auto const lock = locks_.lock(deadline, {key.file, key.folder()});
        placeForFile(key, location, ReplacementPolicy::FailIfExists, deadline);
        if (!key.canBeFolder()) {
            throw Exception(ErrorCode::InvalidLocation, location);
        }
        putMarker(key, deadline);
    });
}

void S3Provider::createFolderRecursive(StorageIRI const& location) {
    ItemKey const key = keyOf(location);
    translated(location, [&] {
        Deadline const deadline = bucket_->deadline();
        std::vector<ItemKey> missing;
        // What is asked for itself is asked of the store.
        for (ItemKey level = key; level == key || !folders_.has(level.file);
             level = level.parent()) {
            Standing const standing = lookUp(level, deadline);
            if (standing.isFolder) {
                break;
            }
            if (standing.file || level.isRoot()) {
                throw Exception(standing.file && level == key ? ErrorCode::ResourceAlreadyExists
                                                              : ErrorCode::ResourceNotFound,
                                location);
            }
            missing.push_back(level);
        }
        if (!missing.empty() && !key.canBeFolder()) {
            throw Exception(ErrorCode::InvalidLocation, location);
        }
        for (auto level = missing.rbegin(); level != missing.rend(); ++level) {
            auto const lock = locks_.lock(deadline, {level->file, level->folder()});
            try {
                putMarker(*level, deadline);
            } catch (web::Failure const& failure) {
                if (failure.code() != ErrorCode::ResourceAlreadyExists) { // somebody else made it
                    throw;
                }
            }
        }
    });
}

void S3Provider::removeFile(StorageIRI const& location) {
    ItemKey const key = keyOf(location);
    translated(location, [&] {
        Deadline const deadline = bucket_->deadline();
        auto const lock = locks_.lock(deadline, {key.file});
        headOf(key, location, deadline);
        Change const change(heads_, key.file);
        FolderMemory::Removal const removal(folders_, key.parent().file);
        bucket_->remove(key.file, deadline);
    });
}

void S3Provider::removeFolder(StorageIRI const& location) {
    ItemKey const key = keyOf(location);
    if (key.isRoot()) {
        throw Exception(ErrorCode::ResourceInUse, location);
    }
    translated(location, [&] {
        std::string const folder = key.folder();
        Deadline const deadline = bucket_->deadline();
        auto const lock = locks_.lock(deadline, {folder});
        auto const first = key.canBeFolder() ? detail::firstKeys(*bucket_, folder, 2, deadline)
                                             : std::vector<detail::ListedObject>();
        if (first.empty()) {
            throw Exception(ErrorCode::ResourceNotFound, location);
        }
        if (first.size() > 1 || first.front().key != folder) {
            throw Exception(ErrorCode::FolderNotEmpty, location);
        }
        Change const change(heads_, folder);
        FolderMemory::Removal const removal(folders_, key.file);
        bucket_->remove(folder, deadline);
    });
}

void S3Provider::removeFolderRecursively(StorageIRI const& location) {
    ItemKey const key = keyOf(location);
    if (key.isRoot()) {
        throw Exception(ErrorCode::ResourceInUse, location);
    }
    if (!key.canBeFolder()) {
        throw Exception(ErrorCode::ResourceNotFound, location);
    }
    translated(location, [&] {
        std::string const folder = key.folder();
        Change const change(heads_);
        FolderMemory::Removal const forgetting(folders_, key.file);
        detail::KeyRemoval removal(bucket_, *threads_);
        detail::KeyPages pages(*bucket_, folder, bucket_->options().pageSize);
        bool isThere = false;
        while (!pages.isAtEnd() && !removal.hasFailed()) {
            std::vector<std::string> keys;
            for (detail::ListedObject& object : pages.next(bucket_->deadline())) {
                keys.push_back(std::move(object.key));
            }
            if (!keys.empty()) {
                isThere = true;
                removal.remove(std::move(keys));
            }
        }
        auto const failed = removal.finish();
        if (!isThere) {
            throw Exception(ErrorCode::ResourceNotFound, location);
        }
        if (failed) {
            throw Exception(failed->code, detail::itemBelow(location, folder, failed->key),
                            failed->text);
        }
    });
}

} // namespace foundation::storage::provider::s3
