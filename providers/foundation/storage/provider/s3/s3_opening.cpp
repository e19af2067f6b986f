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

namespace {

bool replaces(ReplacementPolicy policy) noexcept {
    return policy != ReplacementPolicy::FailIfExists && policy != ReplacementPolicy::KeepExisting;
}

} // namespace

std::unique_ptr<detail::Upload> S3Provider::makeUpload(ItemKey const& key,
                                                       detail::PutConditions conditions) const {
    return std::make_unique<detail::Upload>(bucket_, threads_, key.file, std::move(conditions));
}

std::unique_ptr<ByteStream> S3Provider::openStream(StorageIRI const& location,
                                                   ByteStreamOpenOptions const& options) {
    ItemKey const key = keyOf(location);
    return translated(location, [&]() -> std::unique_ptr<ByteStream> {
        Deadline const deadline = bucket_->deadline();
        Standing standing = lookUp(key, deadline);
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
        auto const self = shared_from_this();
        if (isNew && access == StreamAccess::Write) {
            return std::make_unique<S3WriteStream>(
                std::make_unique<detail::SentContent>(makeUpload(key, {})), access, writing,
                Closing::Once, [self, key](NewContent& content) {
                    auto const lock = self->locks_.lock(self->bucket_->deadline(), {key.file});
                    Change const change(self->heads_, key.file);
                    std::uint64_t const before = self->folders_.changes();
                    content.publish();
                    self->folders_.keep(key.parent().file, before);
                });
        }
        auto spool = std::make_unique<detail::Spool>(space_);
        if (!isNew && access == StreamAccess::Write && writing == StreamWriting::AtEnd) {
            return std::make_unique<S3WriteStream>(
                std::make_unique<detail::AppendedContent>(bucket_, threads_, name_, key.file,
                                                          standing.file->size, std::move(spool)),
                access, writing, Closing::Once, [self, key](NewContent& content) {
                    auto const lock = self->locks_.lock(self->bucket_->deadline(), {key.file});
                    Change const change(self->heads_, key.file);
                    content.publish();
                });
        }
        std::optional<detail::ObjectHead> before;
        if (!isNew) {
            detail::ObjectReader reader(bucket_, threads_, key.file);
            before = reader.open(deadline);
            load(reader, *spool);
        }
        auto content =
            std::make_unique<detail::SpooledContent>(std::move(spool), isNew, [self, key, before] {
                return self->makeUpload(key, before ? detail::likenessOf(*before).conditions
                                                    : detail::PutConditions());
            });
        return std::make_unique<S3WriteStream>(
            std::move(content), access, writing, Closing::Once,
            [self, key, before](NewContent& changed) {
                Deadline const atClose = self->bucket_->deadline();
                auto const lock = self->locks_.lock(atClose, {key.file});
                if (before && changed.isChanged()) {
                    auto const head = self->bucket_->head(key.file, atClose);
                    if (!head || !isSameVersion(*head, *before)) {
                        throw web::Failure(
                            ErrorCode::ResourceInUse,
                            "somebody else has changed the file since it was opened");
                    }
                }
                Change const change(self->heads_, key.file);
                changed.publish();
            });
    });
}

std::unique_ptr<ByteStream> S3Provider::openReplacement(StorageIRI const& location,
                                                        ReplacementPolicy const& policy) {
    ItemKey const key = keyOf(location);
    return translated(location, [&] {
        placeForFile(key, location, policy, bucket_->deadline());
        bool const onlyIfMissing = !replaces(policy);
        auto const self = shared_from_this();
        return std::make_unique<S3WriteStream>(
            std::make_unique<detail::SentContent>(
                makeUpload(key, {.onlyIfMissing = onlyIfMissing})),
            StreamAccess::Write, StreamWriting::AtPosition, Closing::UntilDone,
            [self, key](NewContent& content) {
                auto const lock = self->locks_.lock(self->bucket_->deadline(), {key.file});
                Change const change(self->heads_, key.file);
                std::uint64_t const before = self->folders_.changes();
                content.publish();
                self->folders_.keep(key.parent().file, before);
            });
    });
}

} // namespace foundation::storage::provider::s3
