#include <foundation/storage/conformance/detail/foreign_storage.hpp>

#include <foundation/storage/provider/byte_stream.hpp>
#include <foundation/storage/provider/exception.hpp>

#include <algorithm>
#include <utility>

namespace foundation::storage::conformance::detail {

using namespace foundation::storage::provider;

namespace {

class Bytes final : public ByteStream {
  public:
    explicit Bytes(std::shared_ptr<std::string> bytes) : bytes_(std::move(bytes)) {}

    long read(char* buffer, long count) override {
        std::size_t const got =
            position_ < bytes_->size()
                ? bytes_->copy(buffer, static_cast<std::size_t>(count), position_)
                : 0;
        position_ += got;
        return got == 0 && count > 0 ? -1 : static_cast<long>(got);
    }
    long write(char const* buffer, long count) override {
        auto const size = static_cast<std::size_t>(count);
        bytes_->resize(std::max(bytes_->size(), position_ + size));
        bytes_->replace(position_, size, buffer, size);
        position_ += size;
        return count;
    }
    long seek(long offset, std::ios_base::seekdir way) override {
        long const base = way == std::ios_base::beg   ? 0
                          : way == std::ios_base::cur ? static_cast<long>(position_)
                                                      : static_cast<long>(bytes_->size());
        position_ = static_cast<std::size_t>(base + offset);
        return base + offset;
    }
    void close() override {}

  private:
    std::shared_ptr<std::string> const bytes_;
    std::size_t position_ = 0;
};

} // namespace

StorageIRI ForeignStorage::at(ustring const& name) {
    return StorageIRI(StorageIRI(u"elsewhere:/"), name);
}

std::shared_ptr<std::string> ForeignStorage::find(StorageIRI const& location) const {
    std::lock_guard const lock(mutex_);
    auto const found = files_.find(location.getResolvedPath());
    return found != files_.end() ? found->second : nullptr;
}

std::string ForeignStorage::get(ustring const& name) const {
    auto const bytes = find(at(name));
    return bytes ? *bytes : "there is no such file";
}

void ForeignStorage::put(ustring const& name, std::string bytes) {
    std::lock_guard const lock(mutex_);
    files_[at(name).getResolvedPath()] = std::make_shared<std::string>(std::move(bytes));
}

ExistsResult ForeignStorage::exists(StorageIRI const& location) const {
    if (location.getName().empty()) {
        return ExistsResult::Folder;
    }
    return find(location) ? ExistsResult::File : ExistsResult::Nothing;
}

void ForeignStorage::removeFile(StorageIRI const& location) {
    std::lock_guard const lock(mutex_);
    if (files_.erase(location.getResolvedPath()) == 0) {
        throw Exception(ErrorCode::ResourceNotFound, location);
    }
}

std::unique_ptr<ByteStream> ForeignStorage::openStream(StorageIRI const& location,
                                                       ByteStreamOpenOptions const& options) {
    auto bytes = find(location);
    if (!bytes && options.creation == ByteStreamCreation::OpenExisting) {
        throw Exception(ErrorCode::ResourceNotFound, location);
    }
    if (!bytes || !options.withoutTruncate) {
        bytes = std::make_shared<std::string>();
        std::lock_guard const lock(mutex_);
        files_[location.getResolvedPath()] = bytes;
    }
    return std::make_unique<Bytes>(std::move(bytes));
}

std::unique_ptr<ByteStream> ForeignStorage::openReadOnlyStream(StorageIRI const& location) const {
    auto bytes = find(location);
    if (!bytes) {
        throw Exception(ErrorCode::ResourceNotFound, location);
    }
    return std::make_unique<Bytes>(std::move(bytes));
}

} // namespace foundation::storage::conformance::detail
