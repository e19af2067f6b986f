#pragma once

#include <fl/i18n/ustring.hpp>

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace foundation::msg_svc::eventmgr {

class TypeInformation;

namespace detail {

class Subscription;

/// Who wants what. Finding the subscribers of an event costs the same however many others there
/// are. Safe on any number of threads.
class SubscriptionTable {
  public:
    using Tag = std::optional<fl::i18n::ustring>;

    void add(std::string const& typeName, Tag const& tag,
             std::shared_ptr<Subscription> const& subscription);
    void remove(std::string const& typeName, Tag const& tag, Subscription const& subscription);

    /// In the order of subscribing.
    std::vector<std::shared_ptr<Subscription>> find(TypeInformation const& type) const;

  private:
    using Subscriptions = std::vector<std::shared_ptr<Subscription>>;
    struct OfOneType {
        Subscriptions untagged;
        std::unordered_map<fl::i18n::ustring, Subscriptions> tagged;

        bool empty() const { return untagged.empty() && tagged.empty(); }
    };

    mutable std::mutex mutex_;
    std::unordered_map<std::string, OfOneType> types_; // guarded by mutex_
};

} // namespace detail
} // namespace foundation::msg_svc::eventmgr
