#include <foundation/msg_svc/eventmgr/detail/subscription_table.hpp>

#include <foundation/msg_svc/eventmgr/detail/subscription.hpp>
#include <foundation/msg_svc/eventmgr/type_information.hpp>

#include <algorithm>

namespace foundation::msg_svc::eventmgr::detail {

void SubscriptionTable::add(std::string const& typeName, Tag const& tag,
                            std::shared_ptr<Subscription> const& subscription) {
    std::lock_guard const lock(mutex_);
    OfOneType& type = types_[typeName];
    (tag ? type.tagged[*tag] : type.untagged).push_back(subscription);
}

void SubscriptionTable::remove(std::string const& typeName, Tag const& tag,
                               Subscription const& subscription) {
    auto const isIt = [&](auto const& held) { return held.get() == &subscription; };
    std::lock_guard const lock(mutex_);
    auto const type = types_.find(typeName);
    if (type == types_.end()) {
        return;
    }
    if (!tag) {
        std::erase_if(type->second.untagged, isIt);
    } else if (auto const tagged = type->second.tagged.find(*tag);
               tagged != type->second.tagged.end()) {
        std::erase_if(tagged->second, isIt);
        if (tagged->second.empty()) {
            type->second.tagged.erase(tagged);
        }
    }
    if (type->second.empty()) {
        types_.erase(type);
    }
}

std::vector<std::shared_ptr<Subscription>>
SubscriptionTable::find(TypeInformation const& type) const {
    Subscriptions found;
    int sources = 0;
    auto const append = [&](Subscriptions const& more) {
        found.insert(found.end(), more.begin(), more.end());
        sources += more.empty() ? 0 : 1;
    };
    {
        std::lock_guard const lock(mutex_);
        for (std::size_t i = 0; i < type.getTypeCount(); ++i) {
            auto const of = types_.find(type.getTypeName(i));
            if (of == types_.end()) {
                continue;
            }
            append(of->second.untagged);
            for (fl::i18n::ustring const& tag : type.getUserTags()) {
                if (auto const tagged = of->second.tagged.find(tag);
                    tagged != of->second.tagged.end()) {
                    append(tagged->second);
                }
            }
        }
    }
    if (sources > 1) {
        auto const earlier = [](auto const& a, auto const& b) { return a->number() < b->number(); };
        std::sort(found.begin(), found.end(), earlier);
        // A tag that stands twice with an event finds its subscribers twice.
        found.erase(std::unique(found.begin(), found.end()), found.end());
    }
    return found;
}

} // namespace foundation::msg_svc::eventmgr::detail
