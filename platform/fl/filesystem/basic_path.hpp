#pragma once

#include <fl/i18n/conversion.hpp>

#include <string>
#include <utility>

namespace fl::filesystem {

namespace detail {

/// How a path converts between the storage's narrow form and the external wide one.
template<class Internal, class External>
struct path_traits;

template<>
struct path_traits<char, char16_t> {
    static std::string to_internal(std::u16string const& text) {
        return fl::i18n::ustringToStorageName(text);
    }
    static std::u16string to_external(std::string const& text) {
        return fl::i18n::storageNameToUstring(text);
    }
};

} // namespace detail

/// A path of the local file system, held as the bytes that the kernel takes. A value; it says
/// nothing about whether anything is there.
template<class Internal, class External, class Traits>
class basic_path {
  public:
    using string_type = std::basic_string<Internal>;
    using external_string_type = std::basic_string<External>;

    basic_path() = default;
    basic_path(string_type internal) : internal_(std::move(internal)) {}
    basic_path(Internal const* internal) : internal_(internal) {}
    basic_path(external_string_type const& external) : internal_(Traits::to_internal(external)) {}

    /// The path as the kernel takes it.
    string_type const& native() const noexcept { return internal_; }
    /// The path as text; bytes that are not UTF-8 become lone units (storageNameToUstring).
    external_string_type external_string() const { return Traits::to_external(internal_); }
    bool empty() const noexcept { return internal_.empty(); }

    friend bool operator==(basic_path const&, basic_path const&) = default;

  private:
    string_type internal_;
};

using path = basic_path<char, char16_t, detail::path_traits<char, char16_t>>;

/// The working directory of the process. Throws std::system_error where the kernel gives none.
FOUNDATION_EXPORT path current_path();

} // namespace fl::filesystem
