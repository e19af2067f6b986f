#pragma once

#include <foundation/export.hpp>

#include <cstdint>
#include <memory>
#include <string>

namespace foundation::network {

class IRIArgs;

/// An absolute IRI in parts (RFC 3987). An immutable value; a copy is one reference count.
class FOUNDATION_EXPORT IRI {
  public:
    explicit IRI(IRIArgs const& args);
    ~IRI();
    IRI(IRI const&) noexcept;
    IRI& operator=(IRI const&) noexcept;

    /// The parts; valid while a copy of this value lives.
    IRIArgs const& args() const noexcept;

  private:
    std::shared_ptr<IRIArgs const> args_;
};

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

} // namespace foundation::network
