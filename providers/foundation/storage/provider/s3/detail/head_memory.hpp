#pragma once

#include <foundation/storage/provider/s3/detail/bucket.hpp>

#include <chrono>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

namespace foundation::storage::provider::s3::detail {

/// What objects told of themselves a moment ago: who reads an archive asks for its size and time
/// again and again. Safe on any thread.
class HeadMemory {
  public:
    using Clock = std::chrono::steady_clock;

    explicit HeadMemory(std::chrono::milliseconds lifetime) : lifetime_(lifetime) {}

    std::optional<ObjectHead> find(std::string const& key) const;
    /// To be taken before a question is asked.
    std::uint64_t changes() const;
    /// Unless anything has changed here since the question was asked.
    void keep(std::string const& key, ObjectHead const& head, std::uint64_t changesBefore);
    void forget(std::string const& key);
    void forgetAll();

    /// What stands around each change of an object, or, with an empty key, of many.
    class Change {
      public:
        explicit Change(HeadMemory& memory, std::string key = {})
            : memory_(memory),
              key_(std::move(key)) {
            tell();
        }
        Change(Change const&) = delete;
        Change& operator=(Change const&) = delete;
        ~Change() { tell(); }

      private:
        void tell() { key_.empty() ? memory_.forgetAll() : memory_.forget(key_); }

        HeadMemory& memory_;
        std::string const key_;
    };

  private:
    struct Known {
        ObjectHead head;
        Clock::time_point since;
    };
    static constexpr std::size_t most = 256;

    std::chrono::milliseconds const lifetime_;
    mutable std::mutex mutex_;
    // guarded by the mutex:
    std::map<std::string, Known> heads_;
    std::uint64_t changes_ = 0;
};

} // namespace foundation::storage::provider::s3::detail
