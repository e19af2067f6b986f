#pragma once

#include <foundation/storage/provider/change_events.hpp>
#include <foundation/storage/provider/storage_iri.hpp>

#include <memory>
#include <mutex>

namespace foundation::storage::provider::local {

namespace detail {
class Watcher;
struct WatchPublication;
enum class WatchScope;
} // namespace detail

/// The change events of a provider. What watches, a descriptor and a thread, is there as long as
/// something is published. Safe on any thread, callbacks included.
class LocalWatch {
  public:
    explicit LocalWatch(bool followLinks) noexcept : followLinks_(followLinks) {}
    LocalWatch(LocalWatch const&) = delete;
    LocalWatch& operator=(LocalWatch const&) = delete;
    /// Ends all publications; waits for no callback.
    ~LocalWatch();

    void publish(StorageIRI const& location, ChangeCallback callback, ChangeKinds const& kinds,
                 detail::WatchScope scope);
    void stop(StorageIRI const& location, bool isFolder);
    /// Ends all publications for good.
    void shutDown();

  private:
    int begin(std::shared_ptr<detail::WatchPublication> const& publication);
    void retireIfIdle();

    bool const followLinks_;
    std::mutex mutex_; ///< guards the rest; never held by a callback's caller
    std::shared_ptr<detail::Watcher> watcher_;
    bool isShutDown_ = false;
};

} // namespace foundation::storage::provider::local
