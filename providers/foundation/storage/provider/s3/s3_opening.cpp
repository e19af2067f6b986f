// The streams that write.

#include <foundation/storage/provider/s3/detail/likeness.hpp>
#include <foundation/storage/provider/s3/detail/translation.hpp>
#include <foundation/storage/provider/s3/s3_provider.hpp>
#include <foundation/storage/provider/s3/s3_stream.hpp>

#include <utility>

namespace foundation::storage::provider::s3 {

using detail::NewContent;
using detail::translated;
using Closing = S3WriteStream::Closing;

std::unique_ptr<detail::Upload> S3Provider::makeUpload(ItemKey const& key,
                                                       detail::PutConditions conditions) const {
    return std::make_unique<detail::Upload>(bucket_, threads_, key.file, std::move(conditions));
}

/// Where somebody else has changed the `old` object meanwhile, it stays as it is.
S3WriteStream::Publish S3Provider::publishAt(ItemKey const& key,
                                             std::optional<detail::ObjectHead> old) {
    return [self = shared_from_this(), key, old = std::move(old)](NewContent& content) {
        if (!content.isChanged()) {
            return;
        }
        Deadline const deadline = self->bucket_->deadline();
        auto const lock = self->locks_.lock(deadline, {key.file});
        if (old) {
            auto const head = self->bucket_->head(key.file, deadline);
            if (!head || !isSameVersion(*head, *old)) {
                throw web::Failure(ErrorCode::ResourceInUse,
                                   "somebody else has changed the file since it was opened");
            }
        }
        Change const change(self->heads_, key.file);
        std::uint64_t const before = self->folders_.changes();
        content.publish();
        self->folders_.keep(key.parent().file, before);
    };
}

std::unique_ptr<ByteStream> S3Provider::openStream(StorageIRI const& location,
                                                   ByteStreamOpenOptions const& options) {
    ItemKey const key = keyOf(location);
    return translated(location, [&] {
        Deadline const deadline = bucket_->deadline();
        Standing const standing = lookUp(key, deadline);
        if (standing.isNothing()) {
            if (options.creation == ByteStreamCreation::OpenExisting || key.isRoot()) {
                throw Exception(ErrorCode::ResourceNotFound, location);
            }
            requireFolderOf(key, location, deadline);
        } else if (!standing.file) {
            throw Exception(ErrorCode::InvalidLocation, location);
        }
        auto const access = options.access == ByteStreamAccess::ReadWrite ? StreamAccess::ReadWrite
                                                                          : StreamAccess::Write;
        auto const writing =
            options.withoutAppend == 0 ? StreamWriting::AtEnd : StreamWriting::AtPosition;
        bool const isNew = !standing.file || options.withoutTruncate == 0;
        std::unique_ptr<NewContent> content;
        std::optional<detail::ObjectHead> old; // what the content was made of
        if (isNew && access == StreamAccess::Write) {
            content = std::make_unique<detail::SentContent>(makeUpload(key, {}));
        } else if (access == StreamAccess::Write && writing == StreamWriting::AtEnd) {
            content = std::make_unique<detail::AppendedContent>(
                bucket_, threads_, name_, key.file, standing.file->size, spool::Content(space_));
        } else {
            spool::Content spool(space_);
            if (!isNew) {
                detail::ObjectReader reader(bucket_, threads_, key.file);
                old = reader.open(deadline);
                load(reader, spool);
            }
            content = std::make_unique<detail::SpooledContent>(
                std::move(spool), isNew, [self = shared_from_this(), key, old] {
                    return self->makeUpload(key, old ? detail::likenessOf(*old).conditions
                                                     : detail::PutConditions());
                });
        }
        return std::make_unique<S3WriteStream>(std::move(content), access, writing, Closing::Once,
                                               publishAt(key, std::move(old)));
    });
}

std::unique_ptr<ByteStream> S3Provider::openReplacement(StorageIRI const& location,
                                                        ReplacementPolicy const& policy) {
    ItemKey const key = keyOf(location);
    return translated(location, [&] {
        placeForFile(key, location, policy, bucket_->deadline());
        return std::make_unique<S3WriteStream>(std::make_unique<detail::SentContent>(makeUpload(
                                                   key, {.onlyIfMissing = !replaces(policy)})),
                                               StreamAccess::Write, StreamWriting::AtPosition,
                                               Closing::UntilDone, publishAt(key));
    });
}

} // namespace foundation::storage::provider::s3
