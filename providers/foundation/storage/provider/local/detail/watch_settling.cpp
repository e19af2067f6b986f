#include <foundation/storage/provider/local/detail/watch_translator.hpp>

#include <algorithm>
#include <utility>
#include <vector>

namespace foundation::storage::provider::local::detail {

namespace {

/// In a row, of a publication whose folders do not stay where they are meanwhile.
constexpr unsigned mostRenewals = 8;

} // namespace

void WatchTranslator::settleAll() {
    reports_.forgetFound();
    settle(Queue::Empty);
}

void WatchTranslator::settleBehindMany() {
    reports_.forgetFoundLongAgo();
    settle(Queue::Busy);
}

void WatchTranslator::settle(Queue queue) {
    isWaiting_ = false;
    settling_.swap(concerned_);
    for (auto* const publication : settling_) {
        publication->isConcerned = false;
        if (publication->isUnsettled) {
            place_.settle(*publication);
        }
        lookForMissed(*publication, queue);
        finish(*publication);
    }
    settling_.clear();
    closeParent();
}

void WatchTranslator::expect(std::size_t publications) {
    // More than are needed each time, so that many publications do not move the rest as often.
    if (concerned_.capacity() < publications || settling_.capacity() < publications) {
        concerned_.reserve(publications * 2);
        settling_.reserve(publications * 2);
    }
}

void WatchTranslator::abandon() noexcept {
    for (auto* const list : {&concerned_, &settling_}) {
        for (auto* const publication : *list) {
            publication->isConcerned = false;
        }
        list->clear();
    }
    closeParent();
}

void WatchTranslator::concern(WatchPublication& publication) noexcept {
    if (!publication.isConcerned) {
        concerned_.push_back(&publication);
        publication.isConcerned = true;
    }
}

void WatchTranslator::forget(WatchPublication const& publication) noexcept {
    std::erase(concerned_, &publication);
}

/// What is missed comes with an event that was not read yet. Where there is none, though the queue
/// was found empty twice with some time between, the disk is believed.
void WatchTranslator::lookForMissed(WatchPublication& publication, Queue queue) {
    if (publication.missed.empty()) {
        return;
    }
    bool const isQuiet = queue == Queue::Empty && publication.lookedAt == batches_;
    publication.looks = isQuiet ? publication.looks + 1 : 0;
    publication.lookedAt = batches_;
    Attempt const attempt = publication.looks == 0 ? Attempt::First : Attempt::Last;
    for (bool goesOn = true; goesOn && !publication.missed.empty();) {
        goesOn = false; // what is found can open the way to what is not yet
        for (auto& [place, isReported] : std::exchange(publication.missed, {})) {
            auto* const node = folderOf(place.first, publication);
            if (node != nullptr && !look(*node, place.second, isReported, attempt)) {
                publication.missed.insert({place, isReported});
            } else {
                goesOn = true;
            }
        }
    }
    if (publication.missed.empty() || publication.isLost) {
        return;
    }
    if (publication.looks > 1) {
        publication.isLost = true; // which no order of events can lead to
        return;
    }
    isWaiting_ = true;
    concern(publication);
}

/// Looks at one name. False where that has to be done again.
bool WatchTranslator::look(WatchNode& node, std::string_view name, Reported isReported,
                           Attempt attempt) {
    WatchPublication& publication = *node.owner;
    FileDescriptor folder;
    int const error = openEntry(node, name, folder);
    if (error == 0) {
        return enter(node, name, std::move(folder), isReported, attempt);
    }
    auto* const child = publication.tree.child(node, name);
    if (isGone(error) && child != nullptr) {
        if (attempt == Attempt::First) {
            return false;
        }
        publication.tree.drop(*child, table_);
    } else if (error != notNow && !isPassedOver(error)) {
        limit(publication);
    }
    return error != notNow;
}

void WatchTranslator::finish(WatchPublication& publication) {
    bool const isRetry =
        publication.isLimited && publication.retryAt <= std::chrono::steady_clock::now();
    if (isRetry) {
        publication.isLimited = false;
        if (!table_.hasRoom()) {
            publication.limit();
        }
    }
    if (publication.isUnsettled) {
        place_.settle(publication);
    }
    if (publication.isLost || (isRetry && !publication.isLimited)) {
        publication.mustTellOverflow = publication.mustTellOverflow || publication.isLost;
        place_.renew(publication);
    }
    if (isRetry && !publication.isLimited) {
        publication.retryAfter = {};
        publication.mustTellOverflow = true;
    }
    if (std::exchange(publication.mustTellOverflow, false)) {
        reports_.addSelf(publication, Kind::Overflow);
    }
    // Where the disk changed during that as well, it is looked at once more, though not for ever.
    bool const isOpen = publication.isLost || publication.isUnsettled;
    if (isOpen && ++publication.renewals < mostRenewals) {
        concern(publication);
    } else if (isOpen) {
        publication.isLost = publication.isUnsettled = false;
        publication.limit();
        publication.mustTellOverflow = false;
        reports_.addSelf(publication, Kind::Overflow);
    }
    publication.renewals = isOpen ? publication.renewals % mostRenewals : 0;
    if (publication.isLimited) {
        retryAt_ = std::min(retryAt_.value_or(publication.retryAt), publication.retryAt);
    }
    if (!publication.missed.empty()) {
        concern(publication);
    }
}

} // namespace foundation::storage::provider::local::detail
