#include <foundation/storage/provider/storage_iri.hpp>

#include <fl/i18n/conversion.hpp>
#include <foundation/storage/provider/detail/storage_iri_impl.hpp>
#include <foundation/storage/provider/malformed_iri_exception.hpp>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <ostream>
#include <utility>

namespace foundation::storage::provider {

namespace {

bool sameUnits(std::u16string_view a, std::u16string_view b) noexcept {
    return a.size() == b.size() &&
           (a.empty() || std::memcmp(a.data(), b.data(), a.size() * sizeof(char16_t)) == 0);
}

/// As a.compare(b), which goes unit by unit.
int compareUnits(std::u16string_view a, std::u16string_view b) noexcept {
    std::size_t const common = std::min(a.size(), b.size());
    std::size_t i = 0;
    for (std::uint64_t left = 0, right = 0; i + 4 <= common; i += 4) {
        std::memcpy(&left, a.data() + i, sizeof left);
        std::memcpy(&right, b.data() + i, sizeof right);
        if (left != right) {
            break;
        }
    }
    for (; i < common; ++i) {
        if (a[i] != b[i]) {
            return a[i] < b[i] ? -1 : 1;
        }
    }
    return a.size() == b.size() ? 0 : a.size() < b.size() ? -1 : 1;
}

} // namespace

StorageIRI::StorageIRI(std::shared_ptr<Impl const> impl) noexcept : impl_(std::move(impl)) {}

StorageIRI::StorageIRI(ustring const& text) : impl_(Impl::parse(text)) {}

StorageIRI::StorageIRI(foundation::network::IRI const& iri) : impl_(Impl::fromParts(iri)) {}

StorageIRI::StorageIRI(StorageIRI const& base, ustring const& name)
    : impl_(Impl::child(base, name)) {}

StorageIRI::StorageIRI(ustring const& scheme, StorageIRI const& inner, ustring const& path)
    : impl_(Impl::nested(scheme, inner.impl_, path)) {}

ustring StorageIRI::getScheme() const {
    return ustring(impl_->scheme());
}
std::u16string_view StorageIRI::getSchemeView() const noexcept {
    return impl_->scheme();
}
std::u16string_view StorageIRI::getAuthorityView() const noexcept {
    return impl_->authority();
}
bool StorageIRI::hasPath() const noexcept {
    return impl_->hasPath();
}
ustring const& StorageIRI::getPath() const noexcept {
    return impl_->path;
}
std::u16string_view StorageIRI::getPathView() const noexcept {
    return impl_->path;
}
ustring const& StorageIRI::getDecodedPath() const noexcept {
    return *impl_->identity;
}
ustring const& StorageIRI::getResolvedPath() const noexcept {
    return *impl_->resolved;
}
ustring const& StorageIRI::getName() const noexcept {
    return impl_->name;
}
bool StorageIRI::hasQuery() const noexcept {
    return impl_->layout.hasQuery;
}
bool StorageIRI::hasFragment() const noexcept {
    return impl_->layout.hasFragment;
}
bool StorageIRI::hasParent() const noexcept {
    return impl_->hasPath() && !impl_->isRoot();
}
StorageIRI StorageIRI::getParent() const {
    return StorageIRI(Impl::parent(impl_));
}
bool StorageIRI::hasInnerIRI() const noexcept {
    return impl_->inner != nullptr;
}
StorageIRI StorageIRI::getInnerIRI() const {
    if (!impl_->inner) {
        throw MalformedIRIException("the location has no inner one");
    }
    return StorageIRI(impl_->inner);
}
// The interface takes the other location by value.
bool StorageIRI::isAncestorOf(StorageIRI other) const { // NOLINT(performance-*)
    return Impl::isAncestor(*impl_, *other.impl_);
}

ustring StorageIRI::makePathRelativeTo(StorageIRI const& base) const {
    std::u16string_view const whole = *impl_->resolved;
    if (Impl::isAncestor(*base.impl_, *impl_)) {
        std::size_t const prefix = base.impl_->isRoot() ? 0 : base.impl_->resolved->size();
        return ustring(whole.substr(prefix + 1));
    }
    if (Impl::sameStem(*base.impl_, *impl_) && sameUnits(whole, *base.impl_->resolved)) {
        return ustring();
    }
    return ustring(whole);
}

StorageIRI StorageIRI::withResolvedPath() const {
    return StorageIRI(Impl::withResolvedPath(impl_));
}

ustring const& StorageIRI::toString() const noexcept {
    return impl_->text;
}
std::size_t StorageIRI::hash() const noexcept {
    return impl_->hash;
}

bool operator==(StorageIRI const& a, StorageIRI const& b) noexcept {
    return StorageIRI::Impl::equal(*a.impl_, *b.impl_);
}
bool operator<(StorageIRI const& a, StorageIRI const& b) noexcept {
    return StorageIRI::Impl::compare(*a.impl_, *b.impl_) < 0;
}

std::size_t hash_value(StorageIRI const& iri) noexcept {
    return iri.hash();
}

std::ostream& operator<<(std::ostream& out, StorageIRI const& iri) {
    return out << fl::i18n::toDisplayString(iri.toString());
}

bool StorageIRI::Impl::sameStem(Impl const& a, Impl const& b) noexcept {
    return a.stemHash == b.stemHash && sameUnits(a.scheme(), b.scheme()) &&
           sameUnits(a.authority(), b.authority()) &&
           (a.inner == nullptr) == (b.inner == nullptr) && (!a.inner || equal(*a.inner, *b.inner));
}

bool StorageIRI::Impl::equal(Impl const& a, Impl const& b) noexcept {
    if (&a == &b) {
        return true;
    }
    return a.hash == b.hash && sameUnits(*a.identity, *b.identity) &&
           a.layout.hasQuery == b.layout.hasQuery && sameUnits(a.query(), b.query()) &&
           a.layout.hasFragment == b.layout.hasFragment && sameUnits(a.fragment(), b.fragment()) &&
           sameStem(a, b);
}

int StorageIRI::Impl::compare(Impl const& a, Impl const& b) noexcept {
    if (&a == &b) {
        return 0;
    }
    if (int const order = compareUnits(a.scheme(), b.scheme())) {
        return order;
    }
    if (int const order = compareUnits(a.authority(), b.authority())) {
        return order;
    }
    if ((a.inner == nullptr) != (b.inner == nullptr)) {
        return a.inner ? 1 : -1;
    }
    if (a.inner) {
        if (int const order = compare(*a.inner, *b.inner)) {
            return order;
        }
    }
    // No path is the empty one, and comes before the root.
    if (int const order = compareUnits(*a.identity, *b.identity)) {
        return order;
    }
    if (a.layout.hasQuery != b.layout.hasQuery) {
        return a.layout.hasQuery ? 1 : -1;
    }
    if (int const order = compareUnits(a.query(), b.query())) {
        return order;
    }
    if (a.layout.hasFragment != b.layout.hasFragment) {
        return a.layout.hasFragment ? 1 : -1;
    }
    return compareUnits(a.fragment(), b.fragment());
}

bool StorageIRI::Impl::isAncestor(Impl const& a, Impl const& b) noexcept {
    if (!a.hasPath() || !b.hasPath() || a.resolved->size() >= b.resolved->size()) {
        return false;
    }
    std::u16string_view const below = *b.resolved;
    std::size_t const prefix = a.isRoot() ? 0 : a.resolved->size();
    return below[prefix] == u'/' &&
           sameUnits(below.substr(0, prefix), std::u16string_view(*a.resolved).substr(0, prefix)) &&
           sameStem(a, b);
}

} // namespace foundation::storage::provider
