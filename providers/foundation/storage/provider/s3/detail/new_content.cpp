#include <foundation/storage/provider/s3/detail/new_content.hpp>

#include <algorithm>
#include <utility>
#include <vector>

namespace foundation::storage::provider::s3::detail {

NewContent::~NewContent() = default;

SentContent::SentContent(std::unique_ptr<Upload> upload) : upload_(std::move(upload)) {}

std::uint64_t SentContent::size() const {
    return upload_->size();
}

std::size_t SentContent::read(std::uint64_t, std::span<char>) {
    throw web::Failure(ErrorCode::PermissionDenied, "the stream is open for writing only");
}

void SentContent::write(std::uint64_t position, std::span<char const> bytes) {
    if (position < upload_->sent()) {
        throw web::Failure(ErrorCode::UnsupportedOperation,
                           "what stood there is on its way to the store already");
    }
    if (position > upload_->size()) {
        upload_->appendZeros(position - upload_->size());
    }
    auto const old =
        static_cast<std::size_t>(std::min<std::uint64_t>(bytes.size(), upload_->size() - position));
    upload_->overwrite(position, bytes.first(old));
    upload_->append(bytes.subspan(old));
}

void SentContent::publish(PutConditions const& conditions) {
    upload_->setConditions(conditions);
    upload_->finish();
}

SpooledContent::SpooledContent(std::unique_ptr<Spool> spool, MakeUpload makeUpload)
    : spool_(std::move(spool)),
      makeUpload_(std::move(makeUpload)) {}

std::uint64_t SpooledContent::size() const {
    return spool_->size();
}

std::size_t SpooledContent::read(std::uint64_t position, std::span<char> buffer) {
    return spool_->read(position, buffer);
}

void SpooledContent::write(std::uint64_t position, std::span<char const> bytes) {
    spool_->write(position, bytes);
}

void SpooledContent::publish(PutConditions const& conditions) {
    constexpr std::size_t pieceSize = std::size_t{1024} * 1024;
    auto const upload = makeUpload_();
    upload->setConditions(conditions);
    std::vector<char> buffer(
        static_cast<std::size_t>(std::min<std::uint64_t>(pieceSize, spool_->size())));
    for (std::uint64_t position = 0; position < spool_->size();) {
        std::size_t const got = spool_->read(position, buffer);
        upload->append({buffer.data(), got});
        position += got;
    }
    upload->finish();
}

} // namespace foundation::storage::provider::s3::detail
