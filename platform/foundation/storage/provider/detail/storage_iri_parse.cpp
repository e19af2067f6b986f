#include <foundation/storage/provider/detail/storage_iri_impl.hpp>

#include <foundation/storage/provider/detail/location_hash.hpp>
#include <foundation/storage/provider/detail/location_text.hpp>

#include <algorithm>
#include <array>

namespace foundation::storage::provider {

using namespace detail;

StorageIRI::Impl::Derived& StorageIRI::Impl::makeDerived() {
    if (!derived) {
        derived = std::make_unique<Derived>();
    }
    return *derived;
}

void StorageIRI::Impl::finishStem() {
    std::u16string_view const all = text;
    stemHash = hashUnits(hashSeed, scheme());
    if (inner) {
        stemHash = hashJoin(stemHash, inner->hash);
        return;
    }
    if (!layout.hasAuthority) {
        return;
    }
    std::size_t const begin = layout.schemeEnd + 3;
    std::u16string_view const raw = all.substr(begin, layout.pathBegin - begin);
    if (raw.empty()) {
        return;
    }
    Authority const parts = splitAuthority(raw);
    layout.hostBegin = offset(static_cast<std::size_t>(parts.host.data() - all.data()));
    layout.hostEnd = offset(layout.hostBegin + parts.host.size());
    layout.port = parts.port;
    Derived canonical;
    appendCanonicalAuthority(canonical.authority, parts);
    if (canonical.authority == raw) {
        authority = raw;
    } else {
        authority = makeDerived().authority = std::move(canonical.authority);
    }
    if (!authority.empty()) {
        stemHash = hashJoin(stemHash, hashUnits(hashSeed, authority));
    }
}

void StorageIRI::Impl::finishPath() {
    path.assign(text, layout.pathBegin, layout.pathEnd - layout.pathBegin);
    pathHash = stemHash;
    if (path.empty()) {
        return;
    }
    ustring decoded;
    appendIdentity(decoded, path);
    if (decoded != path) {
        Derived& forms = makeDerived();
        forms.identity = std::move(decoded);
        identity = resolved = &forms.identity;
    }
    if (hasDotSegments(*identity)) {
        Derived& forms = makeDerived();
        appendResolved(forms.resolved, *identity);
        resolved = &forms.resolved;
    }
    name = lastSegment(*resolved);
    pathHash = hashPath(stemHash, *identity);
}

void StorageIRI::Impl::finishSuffix() {
    hash = pathHash;
    std::u16string_view const all = text;
    auto const canonical = [](std::u16string_view raw, ustring Derived::*form, Impl& self) {
        if (isDecoded(raw)) {
            return raw;
        }
        ustring& decoded = self.makeDerived().*form;
        appendDecoded(decoded, raw, Part::Query);
        return std::u16string_view(decoded);
    };
    if (layout.hasQuery) {
        query = canonical(all.substr(layout.pathEnd + 1, layout.queryEnd - layout.pathEnd - 1),
                          &Derived::query, *this);
        hash = hashJoin(hash, hashUnits(hashSeed, query));
    }
    if (layout.hasFragment) {
        fragment = canonical(all.substr(layout.queryEnd + 1), &Derived::fragment, *this);
        hash = hashJoin(hash, ~hashUnits(hashSeed, fragment));
    }
}

StorageIRI::Impl::Layout StorageIRI::Impl::flatLayout(std::u16string_view text, std::size_t colon) {
    Layout layout;
    layout.schemeEnd = offset(colon);
    std::size_t pathBegin = colon + 1;
    if (text.substr(pathBegin).starts_with(u"//")) {
        layout.hasAuthority = true;
        layout.hostBegin = layout.hostEnd = offset(pathBegin + 2);
        pathBegin = std::min(text.find_first_of(u"/?#", pathBegin + 2), text.size());
    }
    layout.pathBegin = offset(pathBegin);
    std::size_t const pathEnd = std::min(text.find_first_of(u"?#", pathBegin), text.size());
    std::size_t const queryEnd = std::min(text.find(u'#', pathEnd), text.size());
    layout.pathEnd = offset(pathEnd);
    layout.hasQuery = queryEnd > pathEnd;
    layout.queryEnd = offset(queryEnd);
    layout.hasFragment = queryEnd < text.size();
    return layout;
}

std::shared_ptr<StorageIRI::Impl const> StorageIRI::Impl::parse(std::u16string_view text) {
    requireLength(text.size());
    // Strip the chain of schemes down to the innermost location.
    std::array<std::size_t, maximalDepth + 1> begins;
    std::array<std::size_t, maximalDepth + 1> colons;
    std::size_t depth = 0;
    for (std::size_t begin = 0;;) {
        std::size_t const colon = begin + requireScheme(text.substr(begin));
        if (colon == text.size() || text[colon] != u':') {
            malformed("a location begins with a scheme and a colon");
        }
        begins[depth] = begin;
        colons[depth] = colon;
        if (colon + 1 == text.size()) {
            malformed("behind the scheme stands neither a slash nor a further location");
        }
        if (text[colon + 1] == u'/') {
            break;
        }
        if (depth == maximalDepth) {
            malformed("a location is nested more than 32 levels deep");
        }
        ++depth;
        begin = colon + 1;
    }

    // The innermost text ends at the first separator, the next level at the next one.
    std::size_t end =
        depth == 0 ? text.size() : std::min(text.find(separator, colons[depth]), text.size());
    auto impl = std::make_shared<Impl>();
    impl->text = text.substr(begins[depth], end - begins[depth]);
    impl->layout = flatLayout(impl->text, colons[depth] - begins[depth]);
    impl->finishStem();
    impl->finishPath();
    impl->finishSuffix();
    for (std::size_t level = depth; level-- > 0;) {
        std::size_t const begin = begins[level];
        std::size_t const pathBegin = std::min(end + 1, text.size());
        end = level == 0 ? text.size() : std::min(text.find(separator, pathBegin), text.size());
        auto outer = std::make_shared<Impl>();
        outer->text = text.substr(begin, end - begin);
        outer->layout.schemeEnd = offset(colons[level] - begin);
        outer->layout.pathBegin = offset(pathBegin - begin);
        outer->layout.pathEnd = outer->layout.queryEnd = offset(end - begin);
        outer->layout.depth = static_cast<std::uint16_t>(depth - level);
        outer->inner = std::move(impl);
        outer->finishStem();
        outer->finishPath();
        outer->finishSuffix();
        impl = std::move(outer);
    }
    return impl;
}

} // namespace foundation::storage::provider
