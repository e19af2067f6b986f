#pragma once

#include <foundation/storage/provider/web/headers.hpp>

#include <chrono>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>

namespace foundation::storage::provider::http::detail {

/// What a server tells of a file.
struct Description {
    int status = 0;
    std::optional<std::uint64_t> size;
    web::Headers headers;
};

/// The last descriptions, for a short time: one operation of whoever reads a file often asks for
/// the same several times. Keeps a bounded number. Safe on any thread.
class DescriptionMemory {
  public:
    using Clock = std::chrono::steady_clock;

    explicit DescriptionMemory(std::chrono::milliseconds lifetime) : lifetime_(lifetime) {}

    std::optional<Description> find(std::string const& url) const;
    /// `asked` is when the request was sent.
    void keep(std::string const& url, Description const& description, Clock::time_point asked);

  private:
    struct Entry {
        Description description;
        Clock::time_point asked;
    };

    std::chrono::milliseconds const lifetime_;
    mutable std::mutex mutex_;
    std::map<std::string, Entry> entries_; ///< guarded by the mutex
};

} // namespace foundation::storage::provider::http::detail
