#include <foundation/network/iri.hpp>

#include <utility>

namespace foundation::network {

IRIArgs::IRIArgs(IRI const& iri) : IRIArgs(iri.args()) {}

IRI::IRI(IRIArgs const& args) : args_(args) {}
IRI::IRI(IRIArgs&& args) noexcept : args_(std::move(args)) {}
IRI::~IRI() = default;
IRI::IRI(IRI const&) = default;
IRI::IRI(IRI&&) noexcept = default;
IRI& IRI::operator=(IRI const&) = default;
IRI& IRI::operator=(IRI&&) noexcept = default;

} // namespace foundation::network
