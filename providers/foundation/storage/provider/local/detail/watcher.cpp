#include <foundation/storage/provider/local/detail/watcher.hpp>

#include <foundation/core/threads/service_thread.hpp>

#include <algorithm>
#include <cerrno>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <system_error>
#include <utility>

namespace foundation::storage::provider::local::detail {

namespace {

using std::chrono::milliseconds;

/// Reads that follow each other this closely are counted,
constexpr milliseconds closely{1};
/// and from this number on events are gathered before they are read: a thread that is woken for
/// each one takes the time of those who make them.
constexpr unsigned burstBegins = 32;
constexpr int gatherFor = 1; // milliseconds
/// Fewer bytes of events than this were not worth waiting for.
constexpr std::size_t burstEnds = 1024;
/// After as many batches it is done as far as it can what waits for the queue to be empty.
constexpr unsigned mostBatches = 64;
constexpr milliseconds waitForMemory{10};
/// For events that must be about to come: their changes can be seen.
constexpr int waitForEvents = 2; // milliseconds
/// The room for reports that is kept between batches.
constexpr std::size_t reportsKept = 4096;

} // namespace

Watcher::Watcher()
    : translator_(table_, reports_),
      wakeUp_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (!wakeUp_) {
        throw std::system_error(errno, std::generic_category(), "eventfd");
    }
}

int Watcher::begin(std::shared_ptr<WatchPublication> const& publication) {
    std::lock_guard const lock(mutex_);
    auto& publications = publication->isFolder() ? folders_ : files_;
    ++expected_;
    auto const undo = [&]() noexcept {
        --expected_;
        translator_.place().leave(*publication);
        translator_.forget(*publication);
        auto const row = publications.find(publication->location);
        if (row == publications.end()) {
            return;
        }
        if (!row->second.empty() && row->second.back() == publication) {
            row->second.pop_back();
        }
        if (row->second.empty()) {
            publications.erase(row);
        }
    };
    try {
        translator_.expect(expected_);
        readWhatWasBefore();
        publications[publication->location].push_back(publication);
        if (int const error = translator_.place().begin(*publication)) {
            undo();
            return error;
        }
        if (!thread_.joinable()) {
            thread_ = foundation::core::threads::startServiceThread(
                "vfs-watch", [self = shared_from_this()] { self->run(); });
        }
        if (publication->isLost || !publication->missed.empty()) {
            translator_.concern(*publication);
            wake();
        }
    } catch (...) {
        undo();
        throw;
    }
    return 0;
}

/// What is in the queue is none of a new publication's business, though it may share watches with
/// the others.
void Watcher::readWhatWasBefore() {
    if (isIdle()) {
        return;
    }
    int left = 0;
    ::ioctl(table_.descriptor(), FIONREAD, &left);
    try {
        for (; left > 0 && batch_.read(table_.descriptor());
             left -= static_cast<int>(batch_.bytes())) {
            if (!translator_.translate(batch_)) {
                loseAll();
            }
        }
    } catch (...) {
        abandon();
    }
    if (!reports_.queue().empty() || translator_.hasOpenEnds()) {
        wake();
    }
}

std::shared_ptr<WatchPublication> Watcher::end(StorageIRI const& location, bool isFolder) {
    std::lock_guard const lock(mutex_);
    auto& publications = isFolder ? folders_ : files_;
    auto const row = publications.find(location);
    if (row == publications.end()) {
        return nullptr;
    }
    auto ended = std::move(row->second.front());
    row->second.pop_front();
    if (row->second.empty()) {
        publications.erase(row);
    }
    --expected_;
    ended->isStopped.store(true, std::memory_order_release);
    translator_.forget(*ended);
    std::erase_if(reports_.queue(),
                  [&](WatchReport const& report) { return report.publication == ended.get(); });
    if (!isIdle()) {
        translator_.place().leave(*ended); // else all watches end together
    }
    return ended;
}

void Watcher::retire() {
    Publications files;
    Publications folders;
    bool isDelivering = false;
    {
        std::lock_guard const lock(mutex_);
        isRetired_ = true;
        isDelivering = isDelivering_;
        for (auto* const publications : {&files_, &folders_}) {
            for (auto const& [location, row] : *publications) {
                for (auto const& publication : row) {
                    publication->isStopped.store(true, std::memory_order_release);
                }
            }
        }
        files.swap(files_);
        folders.swap(folders_);
    }
    if (!thread_.joinable()) {
        return;
    }
    wake();
    if (isDelivering) {
        thread_.detach(); // it may be this very thread, or wait for it
    } else {
        thread_.join();
    }
}

void Watcher::wake() noexcept {
    ::eventfd_write(wakeUp_.get(), 1);
}

void Watcher::run() noexcept {
    for (;;) {
        if (!hasOpenEnds_) {
            wait();
        } else if (isWaiting_) {
            pollfd more{table_.descriptor(), POLLIN, 0};
            ::poll(&more, 1, waitForEvents);
        }
        if (!work()) {
            return;
        }
        deliver();
        if (std::exchange(hasFailed_, false)) {
            std::this_thread::sleep_for(waitForMemory);
        }
    }
}

/// Sleeps until there is something to do, and in a burst of events a little longer.
void Watcher::wait() {
    pollfd sources[] = {{table_.descriptor(), POLLIN, 0}, {wakeUp_.get(), POLLIN, 0}};
    while (::poll(sources, 2, timeUntilRetry()) < 0) {
        if (errno != EINTR) {
            std::this_thread::sleep_for(waitForMemory);
        }
    }
    eventfd_t count = 0;
    if (sources[1].revents != 0) {
        ::eventfd_read(wakeUp_.get(), &count);
    } else if (isBurst()) {
        ::poll(&sources[1], 1, gatherFor);
    }
    lastRead_ = std::chrono::steady_clock::now();
}

/// In milliseconds, -1 for never.
int Watcher::timeUntilRetry() const noexcept {
    if (!retryAt_) {
        return -1;
    }
    auto const left = *retryAt_ - std::chrono::steady_clock::now();
    return std::max(0, static_cast<int>(std::chrono::ceil<milliseconds>(left).count()));
}

/// Has those looked at again whose time it is.
void Watcher::retry() noexcept {
    if (!retryAt_ || *retryAt_ > std::chrono::steady_clock::now()) {
        return;
    }
    retryAt_.reset();
    for (auto* const publications : {&files_, &folders_}) {
        for (auto const& [location, row] : *publications) {
            for (auto const& publication : row) {
                if (publication->isLimited) {
                    translator_.concern(*publication);
                }
            }
        }
    }
}

bool Watcher::isBurst() noexcept {
    bool const wasWorthIt = readsInARow_ <= burstBegins || bytesRead_ >= burstEnds;
    bool const isClose = std::chrono::steady_clock::now() - lastRead_ < closely;
    readsInARow_ = wasWorthIt && isClose ? readsInARow_ + 1 : 0;
    return readsInARow_ > burstBegins;
}

/// Turns the batch into reports. False where the watcher has ended.
bool Watcher::work() {
    std::lock_guard const lock(mutex_);
    if (isRetired_) {
        return false;
    }
    batch_.read(table_.descriptor());
    bytesRead_ = batch_.bytes();
    try {
        retry();
        translate();
        takeReports();
    } catch (...) {
        abandon();
        hasFailed_ = true;
    }
    hasOpenEnds_ = translator_.hasOpenEnds();
    isWaiting_ = translator_.isWaiting();
    if (auto const retry = translator_.takeRetry()) {
        retryAt_ = std::min(retryAt_.value_or(*retry), *retry);
    }
    return true;
}

/// There is no memory, that is: everything is looked at again when there is some.
void Watcher::abandon() noexcept {
    translator_.abandon();
    reports_.queue().clear();
    loseAll();
}

void Watcher::translate() {
    if (batch_.bytes() != 0 && !translator_.translate(batch_)) {
        loseAll();
    }
    if (batch_.bytes() == 0) {
        translator_.settleAll();
        batchesInARow_ = 0;
    } else if (++batchesInARow_ >= mostBatches) {
        translator_.settleBehindMany();
        batchesInARow_ = 0;
    }
}

void Watcher::loseAll() noexcept {
    for (auto* const publications : {&files_, &folders_}) {
        for (auto const& [location, row] : *publications) {
            for (auto const& publication : row) {
                publication->isLost = true;
                translator_.concern(*publication);
            }
        }
    }
}

void Watcher::takeReports() {
    for (auto const& report : reports_.queue()) {
        if (kept_.empty() || kept_.back().get() != report.publication) {
            kept_.push_back(report.publication->shared_from_this());
        }
    }
    reportsToDeliver_.swap(reports_.queue());
    isDelivering_ = !reportsToDeliver_.empty();
}

void Watcher::deliver() {
    if (reportsToDeliver_.empty()) {
        return;
    }
    for (auto const& report : reportsToDeliver_) {
        if (!report.deliver()) {
            std::lock_guard const lock(mutex_);
            if (!report.publication->isStopped) {
                report.publication->isLost = true;
                translator_.concern(*report.publication);
                hasOpenEnds_ = hasFailed_ = true;
            }
        }
    }
    reportsToDeliver_.clear();
    if (reportsToDeliver_.capacity() > reportsKept) {
        reportsToDeliver_.shrink_to_fit();
    }
    kept_.clear(); // here a callback can end, with what it holds
    std::lock_guard const lock(mutex_);
    isDelivering_ = false;
}

} // namespace foundation::storage::provider::local::detail
