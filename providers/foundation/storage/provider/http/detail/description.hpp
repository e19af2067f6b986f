#pragma once

#include <foundation/storage/provider/web/headers.hpp>

#include <chrono>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>

namespace foundation::storage::provider::http::detail {

/// What a server tells of an item.
struct Description {
    int status = 0;
    std::optional<std::uint64_t> size = std::nullopt;
    web::Headers headers = {};
    bool isKindKnown = false; ///< whether it was asked, else it counts as a file
    // By WebDAV alone:
    bool isFolder = false;
    bool isKindTold = false; ///< else it is a guess
    bool isWritable = false;
    std::optional<std::int64_t> created = std::nullopt; ///< in seconds from 1970
};

/// The last descriptions, for a short time: one operation of whoever reads a file often asks for
/// the same several times. Keeps a bounded number. Safe on any thread.
class DescriptionMemory {
  public:
    using Clock = std::chrono::steady_clock;

    explicit DescriptionMemory(std::chrono::milliseconds lifetime) : lifetime_(lifetime) {}

    std::optional<Description> find(std::string const& url) const;
    /// `asked` is when the request was sent; what was asked before forget() is not kept.
    void keep(std::string const& url, Description const& description, Clock::time_point asked);
    void forget();

  private:
    struct Entry {
        Description description;
        Clock::time_point asked;
    };

    std::chrono::milliseconds const lifetime_;
    mutable std::mutex mutex_;
    // guarded by the mutex:
    std::map<std::string, Entry> entries_;
    Clock::time_point forgotten_ = Clock::time_point::min();
};

} // namespace foundation::storage::provider::http::detail
