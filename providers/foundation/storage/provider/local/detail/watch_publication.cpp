#include <foundation/storage/provider/local/detail/watch_publication.hpp>

#include <fl/i18n/conversion.hpp>

#include <algorithm>
#include <sys/inotify.h>

namespace foundation::storage::provider::local::detail {

namespace {

std::uint32_t bitsOf(ChangeKinds const& kinds) noexcept {
    std::uint32_t bits = 1U << static_cast<unsigned>(events::Kind::Overflow);
    for (events::Kind const kind : kinds) {
        bits |= 1U << (static_cast<unsigned>(kind) & 31U);
    }
    return bits;
}

/// More names than these are not remembered one by one.
constexpr std::size_t mostMissed = 50'000;

constexpr std::chrono::milliseconds firstRetry{50};
constexpr std::chrono::milliseconds longestRetry{60'000};

std::uint64_t nextSerial() noexcept {
    static std::atomic<std::uint64_t> last = 0;
    return ++last;
}

} // namespace

WatchPublication::WatchPublication(StorageIRI const& at, ChangeCallback&& callbackToCall,
                                   ChangeKinds const& kindsWanted, WatchScope scopeOfIt)
    : location(at),
      callback(std::move(callbackToCall)),
      scope(scopeOfIt),
      kinds(bitsOf(kindsWanted)),
      serial(nextSerial()),
      tree(*this),
      cached_(at) {
    anchor.owner = this;
}

std::uint32_t WatchPublication::events() const noexcept {
    std::uint32_t result =
        IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_DELETE_SELF | IN_MOVE_SELF;
    // Also a change of the modification time alone, of a folder too.
    if (wants(events::Kind::Modified) || wants(events::Kind::AttributesChanged)) {
        result |= IN_MODIFY;
    }
    // A folder below that could not be read becomes readable by a change of its attributes.
    if (wants(events::Kind::AttributesChanged) || scope == WatchScope::Tree) {
        result |= IN_ATTRIB;
    }
    return result;
}

void WatchPublication::miss(int watch, std::string_view name, Reported isReported) {
    if (missed.size() >= mostMissed) {
        isLost = true;
        missed.clear();
    }
    missed.insert_or_assign({watch, std::string(name)}, isReported);
}

void WatchPublication::limit() noexcept {
    if (isLimited) {
        return;
    }
    isLimited = true;
    // Told once, and again when there is an end to it.
    mustTellOverflow = mustTellOverflow || retryAfter.count() == 0;
    retryAfter = std::clamp(retryAfter * 2, firstRetry, longestRetry);
    retryAt = std::chrono::steady_clock::now() + retryAfter;
}

StorageIRI const& WatchPublication::locationOf(WatchNode const& node) {
    if (node.parent == nullptr) {
        return location;
    }
    if (cachedFor_ != &node || cachedShape_ != tree.shape()) {
        cached_ = StorageIRI(location, fl::i18n::storageNameToUstring(tree.pathOf(node)));
        cachedFor_ = &node;
        cachedShape_ = tree.shape();
    }
    return cached_;
}

} // namespace foundation::storage::provider::local::detail
