#pragma once

#include "http_fixture.hpp"

#include <foundation/storage/provider/extensions/i_replacing_streams.hpp>
#include <foundation/storage/provider/i_folder_entry_iterator.hpp>
#include <foundation/storage/provider/storage_item.hpp>

#include <memory>
#include <string>
#include <vector>

namespace foundation::storage::provider::http::test {

/// With bounds that a small lie goes beyond.
inline HttpOptions boundedOptions() {
    HttpOptions options = quickOptions();
    options.largestListing = std::uint64_t{1024} * 1024;
    options.web.attempts = 3;
    return options;
}

/// The code of what closing a stream throws; -1 where it throws nothing.
inline int codeOfClose(ByteStream& stream) {
    try {
        stream.close();
    } catch (ByteStreamCloseFailure const& failure) {
        return static_cast<int>(failure.getErrorCode());
    }
    return -1;
}

class Dav : public Http {
  protected:
    explicit Dav(HttpOptions const& options = boundedOptions())
        : provider_(buildHttpProvider(at("/"), options)) {}

    /// The names in a folder in the order of the answer, folders with a slash; or "code CODE".
    std::vector<std::string> list(std::string const& path) const {
        std::vector<std::string> names;
        try {
            auto const entries = provider_->listAll(at(path), u"");
            while (entries->hasNext()) {
                entries->advance();
                FolderEntry const entry = entries->currentEntry();
                names.push_back(fl::i18n::toDisplayString(entry.getName()) +
                                (entry.isFile() ? "" : "/"));
            }
        } catch (Exception const& failure) {
            names = {"code " + std::to_string(static_cast<int>(failure.getErrorCode()))};
        }
        return names;
    }
    void write(std::string const& path, std::string const& bytes,
               ByteStreamOpenOptions const& options = {}) const {
        auto const stream = provider_->openStream(at(path), options);
        stream->write(bytes.data(), static_cast<long>(bytes.size()));
        stream->close();
    }
    std::unique_ptr<ByteStream> replacement(std::string const& path,
                                            ReplacementPolicy policy) const {
        return dynamic_cast<extensions::IReplacingStreams&>(*provider_)
            .openReplacement(at(path), policy);
    }
    void copy(std::string const& from, std::string const& to, ReplacementPolicy policy) const {
        provider_->copyFile(at(from), StorageItem(provider_, at(to)), {policy, 0, {}});
    }
    std::string bytesOf(std::string const& path) const {
        auto const stream = provider_->openReadOnlyStream(at(path));
        return readAt(*stream, 0, 1'000'000);
    }
    /// The requests of a kind.
    std::size_t asked(std::string const& method) const {
        return server_.countOf('\t' + method + '\t');
    }

    std::shared_ptr<IProvider> const provider_;
};

} // namespace foundation::storage::provider::http::test
