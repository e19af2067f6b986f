#pragma once

#include "bucket_fixture.hpp"

#include <foundation/storage/provider/byte_stream.hpp>
#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/provider/s3/s3_provider.hpp>
#include <foundation/storage/provider/storage_item.hpp>

#include <fl/i18n/conversion.hpp>

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace foundation::storage::provider::s3 {

/// A provider over a bucket of a store in a process of its own, which notes what it is asked.
class ProviderOfBucket : public detail::LyingStore {
  protected:
    static StorageIRI at(ustring const& path) { return StorageIRI(u"s3://good/" + path); }

    void use(S3Options const& options, std::string const& bucket = "good") {
        provider_ = std::make_shared<S3Provider>(
            StorageIRI(fl::i18n::to_ustring("s3://" + bucket + '/')), options);
        bucket_ = std::make_unique<detail::Bucket>(bucket, options);
    }
    void SetUp() override { use(options()); }

    void put(std::string const& key, std::string const& bytes = {}) const {
        bucket_->put(key, bytes, {}, bucket_->deadline());
    }
    std::vector<std::string> keys() const {
        std::vector<std::string> keys;
        for (auto const& object : bucket_->list({}, bucket_->deadline()).objects) {
            keys.push_back(object.key);
        }
        return keys;
    }

    void write(ustring const& path, std::string const& bytes) const {
        auto const stream = provider_->openStream(at(path), {});
        stream->write(bytes.data(), static_cast<long>(bytes.size()));
        stream->close();
    }
    static std::string readAll(ByteStream& stream, std::size_t piece = 100'000) {
        std::string all;
        std::string buffer(piece, '\0');
        for (long got = 0;
             (got = stream.read(buffer.data(), static_cast<long>(buffer.size()))) > 0;) {
            all.append(buffer, 0, static_cast<std::size_t>(got));
        }
        return all;
    }
    std::string read(ustring const& path) const {
        return readAll(*provider_->openReadOnlyStream(at(path)));
    }

    /// The names in their order, those of folders with a slash behind them.
    static std::vector<std::string> namesOf(IFolderEntryIterator& cursor) {
        std::vector<std::string> names;
        while (cursor.hasNext()) {
            cursor.advance();
            FolderEntry const entry = cursor.currentEntry();
            names.push_back(fl::i18n::to_string(entry.getName()) + (entry.isFile() ? "" : "/"));
        }
        return names;
    }
    /// What a listing delivers, and how it ends.
    struct Listed {
        std::vector<std::string> names;
        int code = -1; ///< -1 where it comes to its end
        std::string reason;
    };
    static Listed listed(std::unique_ptr<IFolderEntryIterator> const& cursor) {
        Listed result;
        try {
            while (cursor->hasNext()) {
                cursor->advance();
                FolderEntry const entry = cursor->currentEntry();
                result.names.push_back(fl::i18n::to_string(entry.getName()) +
                                       (entry.isFile() ? "" : "/"));
            }
        } catch (Exception const& failure) {
            result.code = static_cast<int>(failure.getErrorCode());
            result.reason = failure.getReason();
            EXPECT_FALSE(cursor->hasNext());
        }
        return result;
    }
    std::vector<std::string> tree(ustring const& path = {}) const {
        return namesOf(*provider_->listAllRecursive(at(path), {}));
    }
    std::vector<std::string> folder(ustring const& path = {}) const {
        return namesOf(*provider_->listAll(at(path), {}));
    }

    /// What the store is asked meanwhile, one word for each request: a method, or LIST.
    std::string asked(std::function<void()> const& call) const {
        std::size_t const before = server_.requests().size();
        call();
        std::vector<std::string> const requests = server_.requests();
        std::string words;
        for (std::size_t i = before; i < requests.size(); ++i) {
            std::size_t const method = requests[i].find('\t') + 1;
            std::size_t const target = requests[i].find('\t', method) + 1;
            std::string const line = requests[i].substr(target, requests[i].find('\t', target));
            words += (words.empty() ? "" : " ") +
                     (line.find("list-type=2") != std::string::npos
                          ? "LIST"
                          : requests[i].substr(method, target - 1 - method));
        }
        return words;
    }
    std::size_t countAsked(std::string const& word, std::function<void()> const& call) const {
        std::string const words = ' ' + asked(call) + ' ';
        std::size_t count = 0;
        for (std::size_t i = 0; (i = words.find(' ' + word + ' ', i)) != std::string::npos; ++i) {
            ++count;
        }
        return count;
    }

    std::shared_ptr<S3Provider> provider_;
    std::unique_ptr<detail::Bucket> bucket_;
};

/// The code with which something is refused; -1 where it is done.
template<class Call>
int codeOf(Call const& call) {
    try {
        call();
        return -1;
    } catch (Exception const& e) {
        return static_cast<int>(e.getErrorCode());
    }
}
inline constexpr int refused(ErrorCode code) {
    return static_cast<int>(code);
}

} // namespace foundation::storage::provider::s3
