#include <foundation/network/iri.hpp>

namespace foundation::network {

IRI::IRI(IRIArgs const& args) : args_(std::make_shared<IRIArgs const>(args)) {}
IRI::~IRI() = default;
IRI::IRI(IRI const&) noexcept = default;
IRI& IRI::operator=(IRI const&) noexcept = default;

IRIArgs const& IRI::args() const noexcept {
    return *args_;
}

IRIArgs::IRIArgs(IRI const& iri) : IRIArgs(iri.args()) {}

} // namespace foundation::network
