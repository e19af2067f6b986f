#pragma once

#include <foundation/storage/provider/byte_stream_failure.hpp>
#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/provider/memory/memory_provider.hpp>
#include <foundation/storage/provider/storage_item.hpp>

#include <algorithm>
#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace memory_test {

using namespace foundation::storage::provider;

inline StorageIRI at(ustring const& path) {
    return StorageIRI(u"mem:" + path);
}

/// A store, and short ways to look at it.
class Store {
  public:
    explicit Store(memory::MemoryOptions const& options = {})
        : provider_(std::make_shared<memory::MemoryProvider>(options)) {}

    memory::MemoryProvider* operator->() const { return provider_.get(); }
    StorageItem item(ustring const& path) const { return StorageItem(provider_, at(path)); }

    void put(ustring const& path, std::string const& bytes) const {
        auto const stream = provider_->openStream(at(path), {ByteStreamAccess::WriteOnly,
                                                             ByteStreamCreation::OpenOrCreate,
                                                             /*withoutTruncate=*/0,
                                                             /*withoutAppend=*/1});
        stream->write(bytes.data(), static_cast<long>(bytes.size()));
        stream->close();
    }
    std::string get(ustring const& path) const {
        return contentOf(*provider_->openReadOnlyStream(at(path)));
    }
    static std::string contentOf(ByteStream& stream) {
        std::string content(static_cast<std::size_t>(stream.seek(0, std::ios_base::end)), '\0');
        stream.seek(0, std::ios_base::beg);
        long const got = stream.read(content.data(), static_cast<long>(content.size()));
        content.resize(static_cast<std::size_t>(std::max(got, 0L)));
        return content;
    }
    bool isThere(ustring const& path) const {
        return provider_->exists(at(path)) != ExistsResult::Nothing;
    }
    CopyStatus copy(ustring const& from, ustring const& to,
                    ReplacementPolicy policy = ReplacementPolicy::FailIfExists) const {
        return provider_->copyFile(at(from), item(to), {policy, 0, {}});
    }

  private:
    std::shared_ptr<memory::MemoryProvider> provider_;
};

/// The code and path of the provider's failure; nothing where there is none.
template<class Call>
std::optional<std::pair<ErrorCode, ustring>> failureOf(Call const& call) {
    try {
        call();
    } catch (Exception const& e) {
        return std::pair(e.getErrorCode(), e.getStorageIRI().getPath());
    }
    return std::nullopt;
}

inline std::optional<std::pair<ErrorCode, ustring>> failure(ErrorCode code, ustring const& path) {
    return std::pair(code, path);
}

template<class Failure, class Call>
std::optional<ErrorCode> streamFailureOf(Call const& call) {
    try {
        call();
    } catch (Failure const& e) {
        return e.getErrorCode();
    }
    return std::nullopt;
}

} // namespace memory_test
