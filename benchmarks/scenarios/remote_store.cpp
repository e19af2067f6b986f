#include "remote_store.hpp"

#include <fl/i18n/conversion.hpp>
#include <foundation/storage/provider/standard/standard_storage_system.hpp>
#include <foundation/storage/vfs/iri/absolute_iri.hpp>
#include <foundation/storage/vfs/storage_system/pluggable_storage_system.hpp>

#include <fl/filesystem/basic_path.hpp>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <curl/curl.h>
#include <exception>
#include <mutex>
#include <stdexcept>
#include <string_view>
#include <thread>
#include <unistd.h>
#include <vector>

namespace bench {

namespace provider = foundation::storage::provider;
namespace vfs = foundation::storage::vfs;

/// A handle that asks for one URL after the other over one connection.
class Handle {
  public:
    Handle() : curl_(curl_easy_init()) {
        if (!curl_) {
            throw std::runtime_error("libcurl does not start");
        }
        curl_easy_setopt(curl_, CURLOPT_PROXY, "");
        curl_easy_setopt(curl_, CURLOPT_FAILONERROR, 1L);
        curl_easy_setopt(curl_, CURLOPT_WRITEFUNCTION, &count);
        curl_easy_setopt(curl_, CURLOPT_WRITEDATA, this);
    }
    Handle(Handle const&) = delete;
    Handle& operator=(Handle const&) = delete;
    ~Handle() { curl_easy_cleanup(curl_); }

    CURL* get() const noexcept { return curl_; }
    /// Returns how many bytes came.
    std::size_t perform(std::string const& url) {
        received_ = 0;
        text.clear();
        curl_easy_setopt(curl_, CURLOPT_URL, url.c_str());
        CURLcode const result = curl_easy_perform(curl_);
        if (result != CURLE_OK) {
            throw std::runtime_error(url + ": " + curl_easy_strerror(result));
        }
        return received_;
    }

    bool keepsText = false;
    std::string text;

  private:
    static std::size_t count(char* bytes, std::size_t size, std::size_t items, void* of) {
        auto& handle = *static_cast<Handle*>(of);
        handle.received_ += size * items;
        if (handle.keepsText) {
            handle.text.append(bytes, size * items);
        }
        return size * items;
    }

    CURL* const curl_;
    std::size_t received_ = 0;
};

namespace {

std::size_t take(char* buffer, std::size_t size, std::size_t items, void* from) {
    auto& left = *static_cast<std::string_view*>(from);
    std::size_t const taken = std::min(size * items, left.size());
    std::memcpy(buffer, left.data(), taken);
    left.remove_prefix(taken);
    return taken;
}

void set(char const* variable, std::string const& value) {
    ::setenv(variable, value.c_str(), 1);
}

/// Whatever a developer has set for a store of his own.
void unsetAllOfStores() {
    std::vector<std::string> names;
    for (char** variable = environ; *variable != nullptr; ++variable) {
        std::string_view const text = *variable;
        if (text.starts_with("AWS_") || text.starts_with("RCLONE_")) {
            names.emplace_back(text.substr(0, text.find('=')));
        }
    }
    for (std::string const& name : names) {
        ::unsetenv(name.c_str());
    }
}

} // namespace

std::string told(char const* variable) {
    char const* const value = std::getenv(variable);
    if (!value) {
        throw std::runtime_error(std::string(variable) +
                                 " is not set; tests/remote/with-servers starts the store");
    }
    return value;
}

std::string bucketName() {
    return told("VFS_TEST_S3_OPEN_BUCKET");
}

std::string endpoint(Way way) {
    return told(way == Way::Direct    ? "VFS_TEST_S3_ENDPOINT"
                : way == Way::Delayed ? "VFS_TEST_S3_DELAY_ENDPOINT"
                                      : "VFS_TEST_S3_FAULT_ENDPOINT");
}

provider::s3::S3Options storeOptions(Way way) {
    provider::s3::S3Options options;
    options.web.proxy = "";
    options.endpoint = endpoint(way);
    options.region = told("VFS_TEST_S3_REGION");
    options.credentials = {told("VFS_TEST_S3_ACCESS_KEY"), told("VFS_TEST_S3_SECRET_KEY"), {}};
    options.addressing = provider::s3::AddressingStyle::Path;
    return options;
}

std::shared_ptr<vfs::StorageSystem> makeStoreSystem(Way way) {
    provider::standard::StandardOptions options;
    options.s3 = storeOptions(way);
    return provider::standard::makeStandardStorageSystem(options);
}

vfs::Folder storeFolder(std::shared_ptr<vfs::StorageSystem> const& system,
                        std::string const& path) {
    return vfs::Folder(vfs::toAbsoluteIRI(fl::i18n::to_ustring("s3://" + bucketName() + '/' + path),
                                          fl::filesystem::path()),
                       vfs::StorageSystemReference(std::weak_ptr<vfs::StorageSystem>(system)));
}

void tellPrograms() {
    std::string const store = endpoint(Way::Delayed);
    std::string const access = told("VFS_TEST_S3_ACCESS_KEY");
    std::string const secret = told("VFS_TEST_S3_SECRET_KEY");
    std::string const region = told("VFS_TEST_S3_REGION");
    unsetAllOfStores();
    set("AWS_ENDPOINT_URL", store);
    set("AWS_ACCESS_KEY_ID", access);
    set("AWS_SECRET_ACCESS_KEY", secret);
    set("AWS_REGION", region);
    set("AWS_CONFIG_FILE", "/dev/null");
    set("AWS_SHARED_CREDENTIALS_FILE", "/dev/null");
    set("RCLONE_CONFIG", "/dev/null");
    set("RCLONE_CONFIG_STORE_TYPE", "s3");
    set("RCLONE_CONFIG_STORE_PROVIDER", "Ceph");
    set("RCLONE_CONFIG_STORE_ENDPOINT", store);
    set("RCLONE_CONFIG_STORE_ACCESS_KEY_ID", access);
    set("RCLONE_CONFIG_STORE_SECRET_ACCESS_KEY", secret);
    set("RCLONE_CONFIG_STORE_REGION", region);
}

void putObjects(std::size_t count,
                std::function<std::pair<std::string, std::string>(std::size_t)> const& object) {
    static constexpr std::size_t connections = 16;
    std::string const url = endpoint(Way::Direct) + '/' + bucketName() + '/';
    std::atomic<std::size_t> next{0};
    std::exception_ptr failure;
    std::mutex mutex;
    auto const put = [&] {
        try {
            Handle handle;
            curl_easy_setopt(handle.get(), CURLOPT_UPLOAD, 1L);
            curl_easy_setopt(handle.get(), CURLOPT_READFUNCTION, &take);
            for (std::size_t i = next++; i < count; i = next++) {
                auto const [name, content] = object(i);
                std::string_view left = content;
                curl_easy_setopt(handle.get(), CURLOPT_READDATA, &left);
                curl_easy_setopt(handle.get(), CURLOPT_INFILESIZE_LARGE,
                                 static_cast<curl_off_t>(content.size()));
                handle.perform(url + name);
            }
        } catch (...) {
            std::lock_guard const lock(mutex);
            failure = std::current_exception();
        }
    };
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < connections; ++i) {
        threads.emplace_back(put);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    if (failure) {
        std::rethrow_exception(failure);
    }
}

std::size_t takeRequestCount() {
    Handle handle;
    handle.keepsText = true;
    handle.perform(endpoint(Way::Counted) + "/__fault");
    static constexpr std::string_view key = "\"requests\": ";
    std::size_t const found = handle.text.find(key);
    if (found == std::string::npos) {
        throw std::runtime_error("the proxy counts no requests");
    }
    return std::stoul(handle.text.substr(found + key.size()));
}

PlainConnection::PlainConnection(std::string const& url) : url_(url), handle_(new Handle) {}

PlainConnection::~PlainConnection() = default;

std::size_t PlainConnection::read(std::size_t offset, std::size_t count) {
    std::string const range = std::to_string(offset) + '-' + std::to_string(offset + count - 1);
    curl_easy_setopt(handle_->get(), CURLOPT_RANGE, range.c_str());
    return handle_->perform(url_);
}

} // namespace bench
