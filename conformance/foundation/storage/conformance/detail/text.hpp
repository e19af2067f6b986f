#pragma once

#include <foundation/storage/provider/error_code.hpp>
#include <foundation/storage/provider/exists_result.hpp>
#include <foundation/storage/provider/storage_iri.hpp>
#include <foundation/storage/provider/timestamp.hpp>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace foundation::storage::conformance::detail {

// Values as a remark shows them.
std::string textOf(bool value);
std::string textOf(int value);
std::string textOf(long value);
std::string textOf(unsigned value);
std::string textOf(unsigned long value);
std::string textOf(provider::ustring const& value);
/// Long content is shown by its size and its beginning.
std::string textOf(std::string const& value);
std::string textOf(provider::ErrorCode value);
std::string textOf(provider::ExistsResult value);
std::string textOf(provider::ExtendedExistsResult value);
std::string textOf(provider::StorageIRI const& value);
std::string textOf(provider::Timestamp value);

template<class Value>
std::string textOf(std::optional<Value> const& value) {
    return value ? textOf(*value) : "nothing";
}

template<class Value>
std::string textOf(std::vector<Value> const& values) {
    std::string text = "[";
    for (Value const& value : values) {
        text += (text.size() > 1 ? ", " : "") + textOf(value);
        if (text.size() > 400) {
            return text + ", ... " + std::to_string(values.size()) + " in all]";
        }
    }
    return text + "]";
}

/// What the exception being handled says.
std::string textOfCurrentException();

} // namespace foundation::storage::conformance::detail
