#include <foundation/storage/provider/local/detail/watch_translator.hpp>

#include <utility>
#include <vector>

namespace foundation::storage::provider::local::detail {

namespace {

/// In a row, of a publication whose folders do not stay where they are meanwhile.
constexpr unsigned mostRenewals = 8;

} // namespace

void WatchTranslator::settleAll() {
    reports_.forgetFound();
    settling_.swap(concerned_);
    for (auto* const publication : settling_) {
        publication->isConcerned = false;
        lookForMissed(*publication);
        finish(*publication);
    }
    settling_.clear();
    closeParent();
}

void WatchTranslator::renewLost() {
    settling_.swap(concerned_);
    for (auto* const publication : settling_) {
        publication->isConcerned = false;
        if (publication->isLost) {
            finish(*publication);
        } else {
            concern(*publication);
        }
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

void WatchTranslator::lookForMissed(WatchPublication& publication) {
    for (auto const& [watch, name] : std::exchange(publication.missed, {})) {
        if (auto* const node = folderOf(watch, publication)) {
            enter(*node, name);
        }
    }
    if (!publication.missed.empty()) {
        publication.isLost = true;
    }
}

void WatchTranslator::finish(WatchPublication& publication) {
    if (publication.isLimited && std::exchange(publication.hasChangedFolders, false)) {
        publication.isLost = true;
    }
    if (publication.isUnsettled) {
        place_.settle(publication);
    }
    if (publication.isLost) {
        place_.renew(publication);
    }
    publication.hasChangedFolders = false;
    if (std::exchange(publication.mustTellOverflow, false)) {
        reports_.addSelf(publication, Kind::Overflow);
    }
    // Where the disk changed during that as well, it is looked at once more, though not for ever.
    if (publication.isLost || publication.isUnsettled) {
        if (++publication.renewals < mostRenewals) {
            concern(publication);
            return;
        }
        publication.isLost = publication.isUnsettled = false;
        publication.isLimited = true;
        reports_.addSelf(publication, Kind::Overflow);
    }
    publication.renewals = 0;
}

} // namespace foundation::storage::provider::local::detail
