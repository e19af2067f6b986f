#pragma once

#include <foundation/storage/provider/storage_iri.hpp>

#include <optional>
#include <string>
#include <string_view>

namespace foundation::storage::provider::web {

/// Where a request goes: scheme http or https, host, port, path and query, in ASCII. Without user
/// information, which is never sent as a part of it. An immutable value.
class Url {
  public:
    /// Of a location of one of the two schemes. The path goes as it stands in the location, with
    /// empty segments and a slash at its end, but for `.` and `..`; without a path it is `/`.
    /// Throws provider::Exception, code InvalidLocation, where no request can be made of it.
    static Url of(StorageIRI const& location);

    /// Where a redirect leads: an absolute or relative reference (RFC 3986, section 5). What it
    /// says of a user is dropped. Nothing where it is malformed, or of another scheme.
    std::optional<Url> resolve(std::string_view reference) const;

    /// The same server, asked for a path and a query that are sent as they stand, `.` and `..`
    /// included. REQUIRES: a slash first, and nothing that must be encoded.
    Url withTarget(std::string_view target) const;

    bool isSecure() const noexcept;
    bool hasSameOrigin(Url const& other) const noexcept { return origin_ == other.origin_; }
    /// As it is sent.
    std::string const& text() const noexcept { return text_; }
    /// For people: without the query, which may hold a key.
    std::string redacted() const;

    friend bool operator==(Url const& a, Url const& b) noexcept { return a.text_ == b.text_; }

  private:
    Url(std::string text, std::string origin) noexcept
        : text_(std::move(text)),
          origin_(std::move(origin)) {}
    static std::optional<Url> parse(std::string const& base, std::string const& reference);

    std::string text_;
    std::string origin_; ///< scheme, host and port
};

/// What a location says of its user, decoded; empty where it says nothing.
std::string userOf(StorageIRI const& location);

} // namespace foundation::storage::provider::web
