#include <foundation/storage/provider/local/local_watch.hpp>

#include <foundation/core/except/nested.hpp>
#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/provider/local/detail/failures.hpp>
#include <foundation/storage/provider/local/detail/kernel_path.hpp>
#include <foundation/storage/provider/local/detail/watcher.hpp>

#include <boost/exception/errinfo_nested_exception.hpp>
#include <boost/exception/info.hpp>

#include <sys/stat.h>
#include <system_error>
#include <utility>

namespace foundation::storage::provider::local {

namespace {

/// What the system has no more of, or not this: nothing is wrong with the location.
bool isLimit(int error) noexcept {
    return error == ENOSPC || error == ENOMEM || error == EMFILE || error == ENFILE ||
           error == ENOSYS;
}

void checkKind(StorageIRI const& location, bool isFolder, bool followLinks) {
    detail::KernelPath const path(location);
    struct stat item {};
    int error = statItem(path, isFolder || followLinks, item);
    if (error != 0 && error != EACCES && !isFolder) {
        error = statItem(path, false, item); // a link that leads nowhere
    }
    if (error != 0) {
        detail::throwErrno(error, location);
    }
    if (S_ISDIR(item.st_mode) != isFolder) {
        throw Exception(ErrorCode::InvalidLocation, location);
    }
}

} // namespace

LocalWatch::~LocalWatch() {
    shutDown();
}

void LocalWatch::publish(StorageIRI const& location, ChangeCallback callback,
                         ChangeKinds const& kinds, detail::WatchScope scope) {
    checkKind(location, scope != detail::WatchScope::File, followLinks_);
    // Where it fails, the callback goes behind the lock.
    auto const publication =
        std::make_shared<detail::WatchPublication>(location, std::move(callback), kinds, scope);
    std::lock_guard const lock(mutex_);
    if (isShutDown_) {
        throw ChangeEventsSubscriptionException(location);
    }
    try {
        int const error = begin(publication);
        if (isLimit(error)) {
            throw std::system_error(error, std::generic_category(), "inotify_add_watch");
        }
        if (error != 0) {
            detail::throwErrno(error, location);
        }
    } catch (std::system_error const&) {
        ChangeEventsSubscriptionException refusal(location);
        refusal << boost::errinfo_nested_exception(foundation::core::except::currentException());
        throw refusal;
    }
}

int LocalWatch::begin(std::shared_ptr<detail::WatchPublication> const& publication) {
    if (watcher_ == nullptr) {
        watcher_ = std::make_shared<detail::Watcher>();
    }
    try {
        int const error = watcher_->begin(publication);
        retireIfIdle();
        return error;
    } catch (...) {
        retireIfIdle();
        throw;
    }
}

void LocalWatch::stop(StorageIRI const& location, bool isFolder) {
    std::shared_ptr<detail::WatchPublication> ended; // its callback goes behind the lock
    std::lock_guard const lock(mutex_);
    if (watcher_ != nullptr) {
        ended = watcher_->end(location, isFolder);
        retireIfIdle();
    }
}

void LocalWatch::shutDown() {
    std::shared_ptr<detail::Watcher> watcher;
    {
        std::lock_guard const lock(mutex_);
        isShutDown_ = true;
        watcher.swap(watcher_);
    }
    if (watcher != nullptr) {
        watcher->retire();
    }
}

void LocalWatch::retireIfIdle() {
    if (watcher_->isIdle()) {
        std::exchange(watcher_, nullptr)->retire();
    }
}

} // namespace foundation::storage::provider::local
