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
    stemHash = hashUnits(scheme());
    if (inner) {
        stemHash = hashJoin(stemHash, inner->hash);
        return;
    }
    std::size_t const begin = layout.schemeEnd + 3;
    if (!layout.hasAuthority || layout.pathBegin == begin) {
        return;
    }
    std::u16string_view const raw = part(begin, layout.pathBegin);
    if (isPlainHost(raw)) {
        layout.hostBegin = offset(begin);
        layout.hostEnd = layout.pathBegin;
    } else {
        Authority const parts = splitAuthority(raw);
        layout.hostBegin = offset(static_cast<std::size_t>(parts.host.data() - text.data()));
        layout.hostEnd = offset(layout.hostBegin + parts.host.size());
        layout.port = parts.port;
        ustring canonical;
        appendCanonicalAuthority(canonical, parts);
        if (canonical != raw) {
            layout.derivedAuthority = true;
            makeDerived().authority = std::move(canonical);
        }
    }
    if (std::u16string_view const compared = authority(); !compared.empty()) {
        stemHash = hashJoin(stemHash, hashUnits(compared));
    }
}

void StorageIRI::Impl::finishPath() {
    if (layout.pathBegin == layout.pathEnd) {
        return;
    }
    path.assign(text, layout.pathBegin, layout.pathEnd - layout.pathBegin);
    PathScan const scan = scanPath(path, PathEnd::Text);
    if (scan.regular) {
        name.assign(path, scan.lastSegment);
        pathHash = scan.hash;
    } else {
        finishIrregularPath();
    }
}

void StorageIRI::Impl::finishIrregularPath() {
    ustring decoded;
    decoded.reserve(path.size());
    bool const dots = appendIdentity(decoded, path);
    if (decoded != path) {
        Derived& forms = makeDerived();
        forms.identity = std::move(decoded);
        identity = resolved = &forms.identity;
    }
    if (dots) {
        Derived& forms = makeDerived();
        appendResolved(forms.resolved, *identity);
        resolved = &forms.resolved;
    }
    name = lastSegment(*resolved);
    pathHash = hashPath(*identity);
}

void StorageIRI::Impl::finishSuffix() {
    hash = path.empty() ? stemHash : hashJoin(stemHash, pathHash);
    if (layout.hasQuery) {
        if (!isDecoded(query())) {
            ustring canonical;
            appendDecoded(canonical, query(), Part::Query);
            makeDerived().query = std::move(canonical);
        }
        hash = hashJoin(hash, hashUnits(query()));
    }
    if (layout.hasFragment) {
        if (!isDecoded(fragment())) {
            ustring canonical;
            appendDecoded(canonical, fragment(), Part::Query);
            makeDerived().fragment = std::move(canonical);
        }
        hash = hashJoin(hash, ~hashUnits(fragment()));
    }
}

std::shared_ptr<StorageIRI::Impl const> StorageIRI::Impl::parseFlat(std::u16string_view text,
                                                                    std::size_t colon) {
    Layout layout;
    layout.schemeEnd = offset(colon);
    std::size_t at = colon + 1;
    if (text.size() >= at + 2 && text[at + 1] == u'/') {
        layout.hasAuthority = true;
        at += 2;
        layout.hostBegin = layout.hostEnd = offset(at);
        while (at < text.size() && text[at] != u'/' && text[at] != u'?' && text[at] != u'#') {
            ++at;
        }
    }
    std::size_t const pathBegin = at;
    PathScan scan;
    if (at < text.size() && text[at] == u'/') {
        scan = scanPath(text.substr(at), PathEnd::Suffix);
        at += scan.length;
    }
    layout.pathBegin = offset(pathBegin);
    layout.pathEnd = offset(at);
    std::u16string_view const name =
        scan.regular ? text.substr(pathBegin + scan.lastSegment, scan.length - scan.lastSegment)
                     : std::u16string_view();
    if (at < text.size() && text[at] == u'?') {
        layout.hasQuery = true;
        at = std::min(text.find(u'#', at), text.size());
    }
    layout.queryEnd = offset(at);
    layout.hasFragment = at < text.size();

    auto impl = std::make_shared<Impl>(text, pathBegin, scan.length, name);
    impl->layout = layout;
    impl->finishStem();
    if (scan.regular) {
        impl->pathHash = scan.hash;
    } else if (scan.length > 0) {
        impl->finishIrregularPath();
    }
    impl->finishSuffix();
    return impl;
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
    std::shared_ptr<Impl const> impl =
        parseFlat(text.substr(begins[depth], end - begins[depth]), colons[depth] - begins[depth]);
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
