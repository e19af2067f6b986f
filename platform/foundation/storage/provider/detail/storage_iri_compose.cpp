#include <foundation/storage/provider/detail/storage_iri_impl.hpp>

#include <foundation/network/iri.hpp>
#include <foundation/storage/provider/detail/location_hash.hpp>
#include <foundation/storage/provider/detail/location_text.hpp>
#include <foundation/storage/provider/detail/unit_copy.hpp>
#include <foundation/storage/provider/exception.hpp>

#include <algorithm>
#include <array>

namespace foundation::storage::provider {

using namespace detail;

namespace {

/// The text of an inner location with every `!/` from `begin` on encoded, so that none is taken for
/// a separator of the text around it.
ustring withoutSeparators(std::u16string_view text, std::size_t begin) {
    ustring out(text.substr(0, begin));
    std::size_t i = begin;
    for (std::size_t found = text.find(separator, i); found != std::u16string_view::npos;
         found = text.find(separator, i)) {
        out += text.substr(i, found - i);
        out += u"%21/";
        i = found + separator.size();
    }
    out += text.substr(i);
    return out;
}

/// Calls `visit` with each segment of a relative path that is not empty.
template<class Visit>
void forEachSegment(std::u16string_view relative, Visit const& visit) {
    std::size_t begin = 0;
    while (begin < relative.size()) {
        std::size_t const end = std::min(relative.find(u'/', begin), relative.size());
        if (end > begin) {
            visit(relative.substr(begin, end - begin));
        }
        begin = end + 1;
    }
}

bool hasEmptySegment(std::u16string_view relative) {
    return relative.back() == u'/' || relative.find(u"//") != std::u16string_view::npos;
}

} // namespace

void StorageIRI::Impl::takeStem(Impl const& other) {
    inner = other.inner;
    stemHash = other.stemHash;
    layout = other.layout;
    if (layout.derivedAuthority) {
        makeDerived().authority = other.derived->authority;
    }
}

std::shared_ptr<StorageIRI::Impl const>
StorageIRI::Impl::withPath(Impl const& base, std::u16string_view path, std::u16string_view suffix) {
    Layout const& from = base.layout;
    // Behind a separator, or with an authority, a path is free to begin with two slashes.
    bool const addAuthority =
        !base.inner && !from.hasAuthority && (path.empty() || path.starts_with(u"//"));
    if (base.inner && !path.empty() && base.inner->inner && !base.inner->hasPath()) {
        malformed("a path stands inside a nested location that has none");
    }
    std::size_t const stem = base.inner && base.hasPath() ? from.pathBegin - 1 : from.pathBegin;
    std::u16string_view const between = addAuthority                  ? u"//"
                                        : base.inner && !path.empty() ? u"!"
                                                                      : u"";
    std::size_t const length = stem + between.size() + path.size() + suffix.size();
    requireLength(length);
    auto impl = std::make_shared<Impl>();
    impl->text.reserve(length);
    impl->text.append(base.text, 0, stem).append(between).append(path).append(suffix);
    impl->takeStem(base);
    Layout& layout = impl->layout;
    if (addAuthority) {
        layout.hasAuthority = true;
        layout.hostBegin = layout.hostEnd = offset(stem + 2);
    }
    layout.pathBegin = offset(stem + between.size());
    layout.pathEnd = offset(layout.pathBegin + path.size());
    if (suffix.empty()) {
        layout.hasQuery = layout.hasFragment = false;
        layout.queryEnd = layout.pathEnd;
    } else {
        layout.queryEnd = layout.pathEnd + (from.queryEnd - from.pathEnd);
    }
    impl->finishPath();
    impl->finishSuffix();
    return impl;
}

std::shared_ptr<StorageIRI::Impl const> StorageIRI::Impl::plainChild(Impl const& base,
                                                                     ustring const& name) {
    // A root ends with a slash, and nothing else that is regular does.
    std::size_t const slash = base.path.size() > 1 ? 1 : 0;
    std::size_t const length = base.layout.pathEnd + slash + name.size();
    requireLength(length);
    std::array<char16_t, 256> small;
    ustring large;
    char16_t* text = small.data();
    if (length > small.size()) {
        large.resize(length);
        text = large.data();
    }
    char16_t* end = copyUnits(text, base.text.data(), base.layout.pathEnd);
    *end = u'/';
    copyUnits(end + slash, name.data(), name.size());

    std::size_t const pathBegin = base.layout.pathBegin;
    auto impl = std::make_shared<Impl>(std::u16string_view(text, length), pathBegin,
                                       length - pathBegin, std::u16string_view(name));
    impl->takeStem(base);
    Layout& layout = impl->layout;
    layout.hasQuery = layout.hasFragment = false;
    layout.pathEnd = layout.queryEnd = offset(length);
    impl->pathHash = hashSegment(base.pathHash, name);
    impl->hash = hashJoin(impl->stemHash, impl->pathHash);
    return impl;
}

std::shared_ptr<StorageIRI::Impl const> StorageIRI::Impl::child(StorageIRI const& baseLocation,
                                                                ustring const& name) {
    Impl const& base = *baseLocation.impl_;
    if (name.empty()) {
        return withoutSuffix(baseLocation.impl_);
    }
    NameScan const scan = scanName(name);
    bool const plain = scan.plain;
    if (plain && !scan.slash && base.isRegular() && base.hasPath() && !isDotSegment(name)) {
        return plainChild(base, name);
    }
    if (name.front() == u'/') {
        if (plain) {
            return withPath(base, name, {});
        }
        ustring path;
        appendEncoded(path, joinedName(name));
        return withPath(base, path, {});
    }
    if (base.inner && !base.hasPath() && base.inner->inner && !base.inner->hasPath()) {
        malformed("a path stands inside a nested location that has none");
    }
    forEachSegment(name, [&](std::u16string_view segment) {
        if (isDotSegment(segment)) {
            throw provider::Exception(ErrorCode::InvalidLocation, baseLocation);
        }
    });

    ustring joined;
    ustring encoded;
    std::u16string_view decodedName = name;
    std::u16string_view writtenName = name;
    if (!plain) {
        joined = joinedName(name);
        appendEncoded(encoded, joined);
        decodedName = joined;
        writtenName = encoded;
    }
    std::u16string_view const before = !base.hasPath()            ? (base.inner ? u"!/" : u"/")
                                       : base.path.back() == u'/' ? u""
                                                                  : u"/";
    std::size_t const length = base.layout.pathEnd + before.size() + writtenName.size();
    requireLength(length);
    auto impl = std::make_shared<Impl>();
    impl->text.reserve(length);
    impl->text.append(base.text, 0, base.layout.pathEnd).append(before).append(writtenName);
    impl->takeStem(base);
    Layout& layout = impl->layout;
    layout.hasQuery = layout.hasFragment = false;
    layout.pathEnd = layout.queryEnd = offset(length);
    if (base.inner && !base.hasPath()) {
        ++layout.pathBegin;
    }
    impl->path.assign(impl->text, layout.pathBegin, ustring::npos);

    bool const sameIdentity = base.identity == &base.path && plain && !hasEmptySegment(name);
    if (!sameIdentity) {
        ustring& identity = impl->makeDerived().identity;
        if (base.identity->size() > 1) {
            identity = *base.identity;
        }
        forEachSegment(decodedName, [&](std::u16string_view segment) {
            identity.append(1, u'/').append(segment);
        });
        impl->identity = impl->resolved = &identity;
    }
    if (base.resolved != base.identity) {
        ustring& resolved = impl->makeDerived().resolved;
        if (base.resolved->size() > 1) {
            resolved = *base.resolved;
        }
        forEachSegment(decodedName, [&](std::u16string_view segment) {
            resolved.append(1, u'/').append(segment);
        });
        impl->resolved = &resolved;
    }
    impl->name = lastSegment(*impl->resolved);
    impl->pathHash = base.hasPath() ? base.pathHash : rootHash;
    forEachSegment(decodedName, [&](std::u16string_view segment) {
        impl->pathHash = hashSegment(impl->pathHash, segment);
    });
    impl->hash = hashJoin(impl->stemHash, impl->pathHash);
    return impl;
}

std::shared_ptr<StorageIRI::Impl const>
StorageIRI::Impl::withoutSuffix(std::shared_ptr<Impl const> const& self) {
    return self->hasSuffix() ? withPath(*self, self->path, {}) : self;
}

std::shared_ptr<StorageIRI::Impl const>
StorageIRI::Impl::withResolvedPath(std::shared_ptr<Impl const> const& self) {
    if (self->resolved == &self->path) {
        return self;
    }
    ustring path;
    appendEncoded(path, *self->resolved);
    return withPath(*self, path, std::u16string_view(self->text).substr(self->layout.pathEnd));
}

std::shared_ptr<StorageIRI::Impl const>
StorageIRI::Impl::parent(std::shared_ptr<Impl const> const& self) {
    if (!self->hasPath()) {
        return withoutSuffix(self);
    }
    if (self->isRoot()) {
        return withPath(*self, {}, {});
    }
    std::u16string_view path = self->path;
    for (;;) {
        path = path.substr(0, path.find_last_not_of(u'/') + 1);
        std::u16string_view const last = path.substr(path.rfind(u'/') + 1);
        if (last == u"..") {
            return withPath(*self, ustring(path).append(u"/.."), {});
        }
        path.remove_suffix(last.size());
        if (last != u".") {
            break;
        }
    }
    std::size_t const end = path.find_last_not_of(u'/');
    return withPath(*self, path.substr(0, end == std::u16string_view::npos ? 1 : end + 1), {});
}

std::shared_ptr<StorageIRI::Impl const>
StorageIRI::Impl::nested(ustring const& scheme, std::shared_ptr<Impl const> const& inner,
                         ustring const& path) {
    if (requireScheme(scheme) != scheme.size()) {
        malformed("a scheme is a letter and at least one letter, digit, hyphen, dot or plus");
    }
    if (!path.empty() && path.front() != u'/') {
        malformed("a path begins with a slash");
    }
    if (!path.empty() && inner->inner && !inner->hasPath()) {
        malformed("a path stands inside a nested location that has none");
    }
    if (inner->layout.depth == maximalDepth) {
        malformed("a location is nested more than 32 levels deep");
    }
    std::size_t const begin = inner->inner ? inner->layout.pathBegin : 0;
    std::shared_ptr<Impl const> const written = inner->text.find(separator, begin) == ustring::npos
                                                    ? inner
                                                    : parse(withoutSeparators(inner->text, begin));

    auto impl = std::make_shared<Impl>();
    std::size_t const prefix = scheme.size() + 1 + written->text.size();
    std::size_t const length = prefix + (path.empty() ? 0 : 1 + path.size());
    requireLength(length);
    impl->text.reserve(length);
    impl->text.append(scheme).append(1, u':').append(written->text);
    if (!path.empty()) {
        impl->text.append(1, u'!').append(path);
    }
    impl->layout.schemeEnd = offset(scheme.size());
    impl->layout.pathBegin = offset(path.empty() ? prefix : prefix + 1);
    impl->layout.pathEnd = impl->layout.queryEnd = offset(length);
    impl->layout.depth = static_cast<std::uint16_t>(written->layout.depth + 1);
    impl->inner = written;
    impl->finishStem();
    impl->finishPath();
    impl->finishSuffix();
    return impl;
}

} // namespace foundation::storage::provider
