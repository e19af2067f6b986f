#include <foundation/storage/conformance/detail/text.hpp>

#include <foundation/storage/provider/byte_stream_failure.hpp>
#include <foundation/storage/provider/exception.hpp>

#include <fl/i18n/conversion.hpp>

#include <array>
#include <cstdio>
#include <sstream>

namespace foundation::storage::conformance::detail {

using namespace foundation::storage::provider;

namespace {

template<class Value>
std::string written(Value const& value) {
    std::ostringstream text;
    text << value;
    return std::move(text).str();
}

template<std::size_t Size>
std::string nameIn(std::array<char const*, Size> const& names, std::uint32_t number) {
    return number < Size ? names[number] : "the number " + std::to_string(number);
}

void appendByte(std::string& text, unsigned char byte) {
    if (byte >= 0x20 && byte < 0x7F) {
        text += static_cast<char>(byte);
        return;
    }
    char escaped[8];
    std::snprintf(escaped, sizeof escaped, "\\x%02X", byte);
    text += escaped;
}

} // namespace

std::string textOf(bool value) {
    return value ? "true" : "false";
}
std::string textOf(int value) {
    return std::to_string(value);
}
std::string textOf(long value) {
    return std::to_string(value);
}
std::string textOf(unsigned value) {
    return std::to_string(value);
}
std::string textOf(unsigned long value) {
    return std::to_string(value);
}

std::string textOf(ustring const& value) {
    std::string const text = '"' + fl::i18n::toDisplayString(value.substr(0, 120)) + '"';
    return value.size() <= 120 ? text : text + "... of " + std::to_string(value.size()) + " units";
}

std::string textOf(std::string const& value) {
    std::string text = "\"";
    for (char const c : value.substr(0, 60)) {
        appendByte(text, static_cast<unsigned char>(c));
    }
    text += '"';
    return value.size() <= 60 ? text : text + "... of " + std::to_string(value.size()) + " bytes";
}

std::string textOf(ErrorCode value) {
    return written(value);
}
std::string textOf(ExistsResult value) {
    static constexpr std::array names = {"File", "Folder", "Nothing"};
    return nameIn(names, static_cast<std::uint32_t>(value));
}
std::string textOf(ExtendedExistsResult value) {
    static constexpr std::array names = {"File",         "Folder", "LinkToFile", "LinkToFolder",
                                         "DanglingLink", "Other",  "Nothing"};
    return nameIn(names, static_cast<std::uint32_t>(value));
}
std::string textOf(StorageIRI const& value) {
    return written(value);
}
std::string textOf(Timestamp value) {
    char text[48];
    std::snprintf(text, sizeof text, "%lld.%09d s", static_cast<long long>(value.seconds),
                  value.nanoseconds);
    return text;
}

std::string textOfCurrentException() {
    try {
        throw;
    } catch (Exception const& e) {
        return textOf(e.getErrorCode()) + " about " + textOf(e.getStorageIRI());
    } catch (ChangeEventsNotSupportedException const& e) {
        return "ChangeEventsNotSupportedException about " + textOf(e.getStorageIRI());
    } catch (ChangeEventsSubscriptionException const& e) {
        return "ChangeEventsSubscriptionException about " + textOf(e.getStorageIRI());
    } catch (ByteStreamFailure const& e) {
        return "the stream's failure " + textOf(e.getErrorCode()) + " (" + e.what() + ")";
    } catch (std::exception const& e) {
        return std::string("the exception ") + e.what();
    } catch (...) {
        return "something that is no exception";
    }
}

} // namespace foundation::storage::conformance::detail
