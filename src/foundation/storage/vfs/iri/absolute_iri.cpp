#include <foundation/storage/vfs/iri/absolute_iri.hpp>

#include <foundation/core/except/exception.hpp>
#include <foundation/core/except/nested.hpp>
#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/vfs/errors/detail/rethrow_as_vfs_exception.hpp>

#include <boost/exception/errinfo_nested_exception.hpp>
#include <boost/exception/info.hpp>

#include <ostream>
#include <utility>

namespace foundation::storage::vfs {

namespace {

using WrappedInvalidIRI =
    foundation::core::except::detail::AnonymousInternalException<InvalidIRIException>;

/// REQUIRES: an exception is being handled; it becomes the cause.
[[noreturn]] void throwInvalidIRI(ustring const& text) {
    WrappedInvalidIRI wrapped{InvalidIRIException(text)};
    wrapped << boost::errinfo_nested_exception(foundation::core::except::currentException());
    throw wrapped;
}

StorageIRI parse(ustring const& text) {
    try {
        return StorageIRI(text);
    } catch (...) {
        throwInvalidIRI(text);
    }
}

StorageIRI withPath(StorageIRI iri) {
    if (!iri.hasPath()) {
        throw WrappedInvalidIRI{InvalidIRIException(iri.toString())};
    }
    return iri;
}

} // namespace

AbsoluteIRI::AbsoluteIRI(ustring const& iri) : iri_(withPath(parse(iri))) {}

AbsoluteIRI::AbsoluteIRI(StorageIRI iri, bool requirePath)
    : iri_(requirePath ? withPath(std::move(iri)) : std::move(iri)) {}

AbsoluteIRI::AbsoluteIRI(AbsoluteIRI const& base, ustring const& name) : iri_(base.iri_, name) {}

AbsoluteIRI::AbsoluteIRI(ustring const& scheme, AbsoluteIRI const& inner, ustring path)
    : iri_(scheme, inner.iri_, path) {}

AbsoluteIRI AbsoluteIRI::getParent() const {
    return AbsoluteIRI(iri_.getParent(), false);
}

AbsoluteIRI AbsoluteIRI::getInnerIRI() const {
    return AbsoluteIRI(iri_.getInnerIRI(), true);
}

AbsoluteIRI AbsoluteIRI::getResolvedIRI() const {
    try {
        return AbsoluteIRI(*this, getResolvedPath());
    } catch (...) {
        throw InvalidIRIException(toString());
    }
}

bool AbsoluteIRI::isAncestorOf(AbsoluteIRI const& other) const {
    return iri_.isAncestorOf(other.iri_);
}

ustring AbsoluteIRI::makePathRelativeTo(AbsoluteIRI const& base) const {
    return iri_.makePathRelativeTo(base.iri_);
}

std::size_t AbsoluteIRI::hashValue() const noexcept {
    return provider::hash_value(iri_);
}

std::size_t hash_value(AbsoluteIRI const& iri) noexcept {
    return iri.hashValue();
}

std::ostream& operator<<(std::ostream& out, AbsoluteIRI const& iri) {
    return fl::i18n::operator<<(out, iri.toString());
}

CanonicalAbsoluteIRI::CanonicalAbsoluteIRI(ustring const& iri) : AbsoluteIRI(iri) {}

CanonicalAbsoluteIRI::CanonicalAbsoluteIRI(AbsoluteIRI const& base, ustring const& name)
    : AbsoluteIRI(base, name) {}

CanonicalAbsoluteIRI::CanonicalAbsoluteIRI(AbsoluteIRI iri) : AbsoluteIRI(std::move(iri)) {}

CanonicalAbsoluteIRI CanonicalAbsoluteIRI::getParent() const {
    return CanonicalAbsoluteIRI(AbsoluteIRI::getParent());
}

AbsoluteIRI toAbsoluteIRI(ustring const& text, fl::filesystem::path const& base) {
    try {
        return AbsoluteIRI(provider::toStorageIRI(text, base), true);
    } catch (...) {
        throwInvalidIRI(text);
    }
}

CanonicalAbsoluteIRI toCanonicalAbsoluteIRI(ustring const& text, fl::filesystem::path const& base) {
    try {
        return CanonicalAbsoluteIRI(
            AbsoluteIRI(provider::toCanonicalizedStorageIRI(text, base), true));
    } catch (provider::Exception const&) {
        rethrowAsVfsException();
    } catch (...) {
        throwInvalidIRI(text);
    }
}

ustring fromAbsoluteIRI(AbsoluteIRI const& iri) {
    return provider::fromStorageIRI(iri.toStorageIRI());
}

} // namespace foundation::storage::vfs
