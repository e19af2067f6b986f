#include <foundation/storage/provider/memory/detail/publications.hpp>

#include <fl/i18n/conversion.hpp>

#include <boost/property_tree/ptree.hpp>

#include <new>
#include <utility>

namespace foundation::storage::provider::memory::detail {

namespace {

std::size_t weightOf(Report const& report) noexcept {
    return sizeof(Report) + (report.path.size() + report.other.size()) * sizeof(char16_t);
}

struct Arguments {
    explicit Arguments(Report const& report)
        : watched(report.publication->location),
          entry(watched) {
        if (!report.path.empty()) {
            std::size_t const slash = report.path.rfind(u'/');
            if (slash != ustring::npos) {
                watched = StorageIRI(watched, report.path.substr(0, slash));
            }
            entry = StorageIRI(watched, report.path.substr(slash + 1)); // npos + 1 is 0
        }
        if (report.otherEnd != OtherEnd::None) {
            StorageIRI const other(report.publication->location, report.other);
            extended.put(report.otherEnd == OtherEnd::To ? "movedTo" : "movedFrom",
                         fl::i18n::toDisplayString(other.toString()));
        }
    }

    StorageIRI watched;
    StorageIRI entry;
    boost::property_tree::ptree extended;
};

/// False where memory did not suffice. Whatever else the callback throws is not this store's to
/// handle, and no other publication's trouble.
bool tell(Report const& report) noexcept {
    std::optional<Arguments> arguments;
    try {
        arguments.emplace(report);
    } catch (...) {
        return false;
    }
    try {
        report.publication->callback(report.kind, arguments->watched, arguments->entry, report.type,
                                     arguments->extended); // a copy, which may fail
    } catch (std::bad_alloc const&) {
        return false;
    } catch (...) {
        return true;
    }
    return true;
}

} // namespace

bool Publications::add(PublicationPtr const& publication, ustring const& key) {
    std::lock_guard const lock(mutex_);
    if (closed_) {
        return false;
    }
    table_.add(publication, key);
    ++count_;
    watched_.store(true, std::memory_order_relaxed);
    return true;
}

void Publications::stopOldest(EntryType type, ustring const& key) {
    PublicationPtr stopped; // destroyed behind the lock, as its callback may own anything
    std::lock_guard const lock(mutex_);
    stopped = table_.takeOldest(type, key);
    if (stopped) {
        stopped->stopped = true;
        watched_.store(--count_ != 0, std::memory_order_relaxed);
    }
}

void Publications::clear() noexcept {
    PublicationTable stopped; // as above
    std::lock_guard const lock(mutex_);
    std::swap(stopped, table_);
    stopped.forEach([](PublicationPtr const& publication) { publication->stopped = true; });
    count_ = 0;
    watched_.store(false, std::memory_order_relaxed);
}

void Publications::close() noexcept {
    {
        std::lock_guard const lock(mutex_);
        closed_ = true;
    }
    clear();
}

void Publications::lose(Publication& publication) noexcept {
    publication.lost = true;
    publication.isOverflowDue = true;
    overflowDue_ = overflowDue_ || publication.pending == 0;
}

void Publications::append(Report report) {
    Publication& publication = *report.publication;
    if (!publication.wants(report.kind)) {
        return;
    }
    if (publication.lost) {
        lose(publication);
        return;
    }
    if (report.kind == Kind::Modified && publication.last &&
        publication.last->kind == Kind::Modified && publication.last->path == report.path) {
        return; // who is told of the one has yet to look
    }
    std::size_t const weight = weightOf(report);
    if (weight > longestBacklog - publication.pending) {
        lose(publication);
        return;
    }
    publication.last = &due_.emplace_back(std::move(report));
    publication.pending += weight;
}

std::optional<Report> Publications::takeOverflow() noexcept {
    if (!overflowDue_) {
        return std::nullopt;
    }
    std::optional<Report> overflow;
    table_.forEach([&](PublicationPtr const& publication) {
        if (!overflow && publication->isOverflowDue && publication->pending == 0) {
            publication->isOverflowDue = false;
            publication->lost = false; // what happens from now on is reported again
            overflow = Report{publication,
                              Kind::Overflow,
                              publication->isOfFolder() ? EntryType::Folder : EntryType::File,
                              {}};
        }
    });
    overflowDue_ = overflow.has_value();
    return overflow;
}

std::optional<Report> Publications::takeNext() noexcept {
    if (std::optional<Report> overflow = takeOverflow(); overflow || due_.empty()) {
        return overflow;
    }
    Report& first = due_.front();
    Publication& publication = *first.publication;
    publication.pending -= weightOf(first);
    if (publication.last == &first) {
        publication.last = nullptr;
    }
    overflowDue_ = overflowDue_ || (publication.lost && publication.pending == 0);
    std::optional<Report> report(std::move(first));
    due_.pop_front();
    return report;
}

/// Whether the thread that delivers has let go of it for this one.
bool Publications::relieve(std::unique_lock<std::mutex>& lock) noexcept {
    if (delivered_ < longestShift || deliverer_ == std::this_thread::get_id()) {
        return false;
    }
    ++relief_;
    bool const isFree = relieved_.wait_for(lock, reliefPatience, [&] { return !delivering_; });
    --relief_;
    return isFree;
}

void Publications::deliver() noexcept {
    std::unique_lock lock(mutex_);
    if (delivering_ && !relieve(lock)) {
        return;
    }
    delivering_ = true;
    deliverer_ = std::this_thread::get_id();
    delivered_ = 0;
    while (delivered_ < longestShift || relief_ == 0) {
        std::optional<Report> report = takeNext();
        if (!report) {
            break;
        }

        bool const isStopped = report->publication->stopped;
        lock.unlock();
        if (!isStopped && !tell(*report)) {
            std::lock_guard const again(mutex_);
            lose(*report->publication);
            // What failed is tried again behind the next change that would be reported.
            report->publication->isOverflowDue = report->kind != Kind::Overflow;
        }
        report.reset(); // perhaps the last to hold the callback
        lock.lock();
        ++delivered_;
    }
    delivering_ = false;
    relieved_.notify_all();
}

} // namespace foundation::storage::provider::memory::detail
