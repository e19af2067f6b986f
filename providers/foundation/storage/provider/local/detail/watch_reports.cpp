#include <foundation/storage/provider/local/detail/watch_reports.hpp>

#include <fl/i18n/conversion.hpp>

#include <boost/property_tree/ptree.hpp>

#include <new>
#include <utility>

namespace foundation::storage::provider::local::detail {

bool WatchReport::deliver() const noexcept {
    std::optional<StorageIRI> entry;
    std::optional<boost::property_tree::ptree> extended;
    try {
        extended.emplace();
        entry = name.empty() ? watched : StorageIRI(watched, fl::i18n::storageNameToUstring(name));
        if (otherEnd) {
            extended->put(kind == events::Kind::Created ? "movedFrom" : "movedTo",
                          fl::i18n::toDisplayString(otherEnd->toString()));
        }
    } catch (...) {
        return false;
    }
    if (publication->isStopped.load(std::memory_order_acquire)) {
        return true;
    }
    try {
        publication->callback(kind, watched, *entry, type, *extended);
    } catch (std::bad_alloc const&) {
        // Perhaps before the handler was reached. Whoever has no memory for an overflow has been
        // told of it once, or it would go on for ever.
        return kind == events::Kind::Overflow;
    } catch (...) {
        return true; // A handler's failure is its own: there is nobody here to tell.
    }
    return true;
}

void WatchReports::add(WatchPublication& publication, Kind kind, WatchNode const& folder,
                       std::string_view name, Type type, std::optional<StorageIRI> otherEnd) {
    if (publication.wants(kind)) {
        queue_.push_back({&publication, kind, type, publication.locationOf(folder),
                          std::string(name), std::move(otherEnd)});
    }
}

void WatchReports::addSelf(WatchPublication& publication, Kind kind) {
    if (publication.wants(kind)) {
        queue_.push_back({&publication,
                          kind,
                          publication.isFolder() ? Type::Folder : Type::File,
                          publication.location,
                          {},
                          {}});
    }
}

void WatchReports::addFound(WatchPublication& publication, WatchNode const& folder,
                            std::string_view name, Type type) {
    found_.insert(keyOf(publication, folder.watch, name));
    add(publication, Kind::Created, folder, name, type);
}

bool WatchReports::wasFound(WatchPublication const& publication, int watch, std::string_view name) {
    if (!remembersFound()) {
        return false;
    }
    std::string const key = keyOf(publication, watch, name);
    return found_.erase(key) + foundBefore_.erase(key) != 0;
}

std::string WatchReports::keyOf(WatchPublication const& publication, int watch,
                                std::string_view name) {
    std::string key(sizeof publication.serial + sizeof watch, '\0');
    key.replace(0, sizeof publication.serial, reinterpret_cast<char const*>(&publication.serial),
                sizeof publication.serial);
    key.replace(sizeof publication.serial, sizeof watch, reinterpret_cast<char const*>(&watch),
                sizeof watch);
    key += name;
    return key;
}

} // namespace foundation::storage::provider::local::detail
