#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

namespace foundation::storage::provider::web {

/// What a server told of its items a moment ago, by name: one operation of whoever reads a file
/// often asks for the same several times. Keeps a bounded number. Safe on any thread.
template<class Value>
class ShortMemory {
  public:
    using Clock = std::chrono::steady_clock;

    explicit ShortMemory(std::chrono::milliseconds lifetime) : lifetime_(lifetime) {}

    std::optional<Value> find(std::string const& name) const {
        std::lock_guard const lock(mutex_);
        auto const found = entries_.find(name);
        return found == entries_.end() || isOver(found->second)
                   ? std::nullopt
                   : std::optional(found->second.value);
    }
    /// When a question was asked.
    struct Moment {
        std::uint64_t changes;
        Clock::time_point time;
    };
    /// To be taken before a question is asked.
    Moment now() const {
        std::lock_guard const lock(mutex_);
        return {changes_, Clock::now()};
    }
    /// For so long since it was asked for, as it may have been looked up then; unless anything was
    /// forgotten since.
    void keep(std::string const& name, Value const& value, Moment const& asked) {
        std::lock_guard const lock(mutex_);
        Entry kept{value, asked.time};
        if (changes_ != asked.changes || isOver(kept)) {
            return;
        }
        if (entries_.size() >= most) {
            std::erase_if(entries_, [&](auto const& entry) { return isOver(entry.second); });
        }
        if (entries_.size() >= most) {
            entries_.clear(); // they are asked for again, once each
        }
        entries_.insert_or_assign(name, std::move(kept));
    }
    void forget(std::string const& name) {
        std::lock_guard const lock(mutex_);
        ++changes_;
        entries_.erase(name);
    }
    void forgetAll() {
        std::lock_guard const lock(mutex_);
        ++changes_;
        entries_.clear();
    }

    /// What stands around each change of an item, or, with an empty name, of many.
    class Change {
      public:
        explicit Change(ShortMemory& memory, std::string name = {})
            : memory_(memory),
              name_(std::move(name)) {
            tell();
        }
        Change(Change const&) = delete;
        Change& operator=(Change const&) = delete;
        ~Change() { tell(); }

      private:
        void tell() { name_.empty() ? memory_.forgetAll() : memory_.forget(name_); }

        ShortMemory& memory_;
        std::string const name_;
    };

  private:
    struct Entry {
        Value value;
        Clock::time_point since;
    };
    static constexpr std::size_t most = 256;

    bool isOver(Entry const& entry) const { return Clock::now() - entry.since >= lifetime_; }

    std::chrono::milliseconds const lifetime_;
    mutable std::mutex mutex_;
    // guarded by the mutex:
    std::map<std::string, Entry> entries_;
    std::uint64_t changes_ = 0;
};

} // namespace foundation::storage::provider::web
