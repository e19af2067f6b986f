#pragma once

#include <foundation/export.hpp>

#include <cstdint>
#include <string>

namespace foundation::network {

class IRI;

namespace iri::detail {

/// The parts of an IRI, open to the caller. A part set by hand has its flag set by hand. Text is as
/// it stands in the IRI, percent-encoded where it must be.
template<class String>
class ArgsBase {
  public:
    String scheme;
    String userInformation;
    String host;
    std::uint16_t port = 0;
    String path;
    String query;
    String fragment;

    bool hasScheme = false;
    bool hasUserInformation = false;
    bool hasHost = false;
    bool hasPort = false;
    bool hasPath = false;
    bool hasQuery = false;
    bool hasFragment = false;
};

} // namespace iri::detail

/// What an IRI is built from. A presence flag without a value (an empty scheme, a zero port) is for
/// the caller to clear.
class FOUNDATION_EXPORT IRIArgs : public iri::detail::ArgsBase<std::wstring> {
  public:
    IRIArgs() = default;
    explicit IRIArgs(IRI const& iri);
};

/// An absolute IRI in parts (RFC 3987). An immutable value, made on the way to a location or from
/// one, so it holds its parts itself. Values may be read from any number of threads.
class FOUNDATION_EXPORT IRI {
  public:
    explicit IRI(IRIArgs const& args);
    /// Takes the parts over.
    explicit IRI(IRIArgs&& args) noexcept;
    ~IRI();
    IRI(IRI const&);
    IRI(IRI&&) noexcept;
    IRI& operator=(IRI const&);
    IRI& operator=(IRI&&) noexcept;

    /// The parts; valid while this value lives.
    IRIArgs const& args() const noexcept { return args_; }

  private:
    IRIArgs args_;
};

} // namespace foundation::network
