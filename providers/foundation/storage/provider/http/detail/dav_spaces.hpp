#pragma once

#include <fl/i18n/ustring.hpp>

#include <chrono>
#include <map>
#include <mutex>
#include <set>
#include <string_view>

namespace foundation::storage::provider::http::detail {

/// In which parts of a server WebDAV is spoken, as far as that was asked. That it is spoken holds
/// for all below the first name of a path, and below the root where it is spoken there. That it is
/// not holds for the items of one folder, and for a minute: a server may have pages and folders
/// side by side. Keeps a bounded number. Safe on any thread.
class DavSpaces {
  public:
    // All paths are resolved: they start with a slash, and have no `.` and `..`.

    bool speaksDav(std::u16string_view path) const;
    bool isPlain(std::u16string_view path) const;
    void keepDav(std::u16string_view path);
    void keepPlain(std::u16string_view path);
    /// "/name", or "/" of the root.
    static std::u16string_view spaceOf(std::u16string_view path) noexcept;

  private:
    using Clock = std::chrono::steady_clock;

    mutable std::mutex mutex_;
    // guarded by the mutex:
    std::set<fl::i18n::ustring, std::less<>> dav_;
    std::map<fl::i18n::ustring, Clock::time_point, std::less<>>
        plain_; ///< by folder, and since when
};

} // namespace foundation::storage::provider::http::detail
