#include <foundation/storage/provider/s3/detail/key_locks.hpp>

#include <foundation/storage/provider/web/failure.hpp>

#include <algorithm>
#include <utility>

namespace foundation::storage::provider::s3::detail {

namespace {

bool hasOneWith(std::set<std::string> const& names, std::string const& prefix) {
    auto const first = names.lower_bound(prefix);
    return first != names.end() && first->starts_with(prefix);
}

bool isBelowOne(std::string const& name, std::set<std::string> const& prefixes) {
    return std::any_of(prefixes.begin(), prefixes.end(),
                       [&](std::string const& prefix) { return name.starts_with(prefix); });
}

/// Whether nothing is in both.
bool areApart(KeyLocks::Names const& one, KeyLocks::Names const& other) {
    return std::none_of(one.keys.begin(), one.keys.end(),
                        [&](std::string const& key) {
                            return other.keys.contains(key) || isBelowOne(key, other.prefixes);
                        }) &&
           std::none_of(one.prefixes.begin(), one.prefixes.end(), [&](std::string const& prefix) {
               return hasOneWith(other.keys, prefix) || hasOneWith(other.prefixes, prefix) ||
                      isBelowOne(prefix, other.prefixes);
           });
}

} // namespace

KeyLocks::Held::Held(KeyLocks& locks, Names names, web::Deadline const& deadline)
    : locks_(locks),
      names_(std::move(names)) {
    Names added = names_; // nothing can fail once some of it is held
    std::unique_lock lock(locks_.mutex_);
    auto const place = locks_.waiting_.insert(locks_.waiting_.end(), &names_);
    bool const isFree =
        locks_.released_.wait_for(lock, deadline.left(), [&] { return locks_.isTurnOf(place); });
    locks_.waiting_.erase(place);
    if (!isFree) {
        lock.unlock();
        locks_.released_.notify_all(); // it is in nobody's way any more
        throw web::Failure(ErrorCode::ResourceInUse, "it is being changed for too long");
    }
    locks_.held_.keys.merge(added.keys);
    locks_.held_.prefixes.merge(added.prefixes);
}

KeyLocks::Held::~Held() {
    {
        std::lock_guard const lock(locks_.mutex_);
        for (std::string const& key : names_.keys) {
            locks_.held_.keys.erase(key);
        }
        for (std::string const& prefix : names_.prefixes) {
            locks_.held_.prefixes.erase(prefix);
        }
    }
    locks_.released_.notify_all();
}

KeyLocks::Held KeyLocks::lock(web::Deadline const& deadline, std::set<std::string> keys,
                              std::set<std::string> prefixes) {
    return Held(*this, {std::move(keys), std::move(prefixes)}, deadline);
}

bool KeyLocks::isTurnOf(Waiting::const_iterator place) const {
    return areApart(**place, held_) &&
           std::all_of(waiting_.begin(), place,
                       [&](Names const* earlier) { return areApart(**place, *earlier); });
}

} // namespace foundation::storage::provider::s3::detail
