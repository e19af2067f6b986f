#include <foundation/storage/vfs/events/event_data.hpp>

#include <fl/i18n/conversion.hpp>

#include <stdexcept>
#include <string>

namespace foundation::storage::vfs {

using boost::property_tree::ptree;

EventData::EventData(Kind const& kind, FileOrFolder const& resource)
    : kind_(kind),
      resource_(resource) {}

Kind EventData::getKind() const {
    return kind_;
}

FileOrFolder EventData::getFileOrFolder() const {
    return resource_;
}

ExtendedEventData::ExtendedEventData() = default;

ExtendedEventData::ExtendedEventData(ptree data) {
    data_.swap(data);
}

bool ExtendedEventData::empty() const {
    return data_.empty();
}

ptree ExtendedEventData::getData() const {
    return data_;
}

ptree ExtendedEventData::getData(ustring const& key) const {
    std::string const narrow = fl::i18n::codecvt_ustring_to_string("UTF-8")(key);
    try {
        return data_.get_child(ptree::path_type(narrow, '.'));
    } catch (...) {
        throw std::runtime_error("Unable to extract extended event data property " + narrow);
    }
}

} // namespace foundation::storage::vfs
