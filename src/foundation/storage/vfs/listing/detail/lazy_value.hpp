#pragma once

#include <boost/variant/get.hpp>
#include <boost/variant/variant.hpp>

#include <atomic>
#include <functional>
#include <mutex>
#include <type_traits>
#include <utility>

namespace foundation::storage::vfs::detail {

/// A value that is there already, or is made when somebody first asks for it: then once, by
/// whichever thread asks first while the others wait. A producer that throws is asked again by the
/// next caller. Never copied or moved, since addresses of the value are handed out.
template<class T>
class LazyValue {
  public:
    using Producer = std::function<T()>;

    // A move that threw would leave the variant with neither the producer nor the value.
    static_assert(std::is_nothrow_move_constructible_v<T>);

    explicit LazyValue(T finished) : value_(std::move(finished)), ready_(boost::get<T>(&value_)) {}
    explicit LazyValue(Producer producer) : value_(std::move(producer)) {}
    LazyValue(LazyValue const&) = delete;
    LazyValue& operator=(LazyValue const&) = delete;
    ~LazyValue() = default;

    /// Safe on any number of threads. Without a lock once the value is known to be there; before
    /// that the lock is held while the producer works. The reference lives as long as this.
    T const& get() const {
        if (T const* const finished = ready_.load()) {
            return *finished;
        }
        std::lock_guard const lock(mutex_);
        if (T const* const finished = boost::get<T>(&value_)) {
            return *finished;
        }
        value_ = boost::get<Producer>(value_)();
        T const* const finished = boost::get<T>(&value_);
        ready_.store(finished);
        return *finished;
    }

  private:
    mutable boost::variant<T, Producer> value_;
    mutable std::atomic<T const*> ready_ = nullptr; ///< into value_, when it is finished
    mutable std::mutex mutex_;                      ///< guards value_ until then
};

} // namespace foundation::storage::vfs::detail
