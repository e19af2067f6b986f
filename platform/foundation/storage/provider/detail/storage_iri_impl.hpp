#pragma once

#include <foundation/storage/provider/detail/path_scan.hpp>
#include <foundation/storage/provider/storage_iri.hpp>

#include <cstdint>
#include <memory>
#include <string_view>

namespace foundation::storage::provider {

/// What a location is: its text, its parts, and what it compares by. Immutable once a maker has
/// returned it. Whatever can be read off the text is a view of it; the decoded forms that differ
/// from the text stand in `derived`, which most locations do without.
struct FOUNDATION_HIDDEN StorageIRI::Impl {
    /// Where the parts stand in the text.
    struct Layout {
        std::uint32_t schemeEnd = 0;
        std::uint32_t hostBegin = 0; ///< with an authority; the user information ends before the @
        std::uint32_t hostEnd = 0;
        std::uint32_t pathBegin = 0; ///< of a flat location without a path, where it would begin
        std::uint32_t pathEnd = 0;   ///< the query begins behind the next character
        std::uint32_t queryEnd = 0;  ///< pathEnd without a query; the fragment begins behind it
        std::uint16_t port = 0;      ///< 0 where there is none
        std::uint16_t depth = 0;     ///< how many schemes are nested around the innermost location
        bool hasAuthority = false;
        bool derivedAuthority = false; ///< its compared form stands in `derived`
        bool hasQuery = false;
        bool hasFragment = false;
    };

    /// Decoded forms that differ from the text.
    struct Derived {
        ustring identity;
        ustring resolved;
        ustring name;
        ustring authority;
        ustring query;
        ustring fragment;
    };

    static std::uint32_t offset(std::size_t value) noexcept {
        return static_cast<std::uint32_t>(value);
    }

    Impl() = default;
    /// For a maker that knows the parts already; the path is a piece of the text.
    Impl(std::u16string_view wholeText, std::size_t pathBegin, std::size_t pathLength,
         std::u16string_view lastSegment)
        : text(wholeText),
          path(wholeText.data() + pathBegin, pathLength),
          name(lastSegment) {}
    Impl(Impl const&) = delete;
    Impl& operator=(Impl const&) = delete;

    ustring text;
    ustring path; ///< as it stands in the text; empty where there is none
    ustring name;
    /// What the path compares by: decoded, without empty segments, dot segments kept.
    ustring const* identity = &path;
    ustring const* resolved = &path;
    std::shared_ptr<Impl const> inner;
    std::size_t stemHash = 0; ///< of scheme, authority and inner location
    std::size_t pathHash = 0; ///< of the path, where there is one
    std::size_t hash = 0;     ///< of all
    Layout layout;
    std::unique_ptr<Derived> derived;

    std::u16string_view scheme() const noexcept { return part(0, layout.schemeEnd); }
    /// What the authority compares by; so for query and fragment.
    std::u16string_view authority() const noexcept {
        if (!layout.hasAuthority) {
            return {};
        }
        if (layout.derivedAuthority) {
            return derived->authority;
        }
        return part(layout.schemeEnd + 3, layout.pathBegin);
    }
    std::u16string_view query() const noexcept {
        if (!layout.hasQuery) {
            return {};
        }
        return derived && !derived->query.empty() ? std::u16string_view(derived->query)
                                                  : part(layout.pathEnd + 1, layout.queryEnd);
    }
    std::u16string_view fragment() const noexcept {
        if (!layout.hasFragment) {
            return {};
        }
        return derived && !derived->fragment.empty() ? std::u16string_view(derived->fragment)
                                                     : part(layout.queryEnd + 1, text.size());
    }
    std::u16string_view part(std::size_t begin, std::size_t end) const noexcept {
        return std::u16string_view(text.data() + begin, end - begin);
    }
    bool hasPath() const noexcept { return !path.empty(); }
    /// Whether the path as written is also its decoded and its resolved form.
    bool isRegular() const noexcept { return resolved == &path; }
    bool isRoot() const noexcept { return resolved->size() == 1; }
    bool hasSuffix() const noexcept { return layout.hasQuery || layout.hasFragment; }

    static std::shared_ptr<Impl const> parse(std::u16string_view text);
    static std::shared_ptr<Impl const> fromParts(foundation::network::IRI const& iri);
    static std::shared_ptr<Impl const> child(StorageIRI const& base, ustring const& name);
    static std::shared_ptr<Impl const>
    nested(ustring const& scheme, std::shared_ptr<Impl const> const& inner, ustring const& path);
    static std::shared_ptr<Impl const> parent(std::shared_ptr<Impl const> const& self);
    /// The same without query and fragment.
    static std::shared_ptr<Impl const> withoutSuffix(std::shared_ptr<Impl const> const& self);
    /// The same with the path in its resolved form; query and fragment stay.
    static std::shared_ptr<Impl const> withResolvedPath(std::shared_ptr<Impl const> const& self);

    static int compare(Impl const& a, Impl const& b) noexcept;
    static bool equal(Impl const& a, Impl const& b) noexcept;
    /// Whether scheme, authority and inner location are the same.
    static bool sameStem(Impl const& a, Impl const& b) noexcept;
    static bool isAncestor(Impl const& a, Impl const& b) noexcept;

  private:
    /// A child whose name stands in a text as it is, in a folder whose path does.
    static std::shared_ptr<Impl const> plainChild(Impl const& base, ustring const& name);
    /// The location `base` with another path, as it stands in a text, and with `suffix` behind it,
    /// which is nothing or the query and fragment of `base` with their delimiters.
    static std::shared_ptr<Impl const> withPath(Impl const& base, std::u16string_view path,
                                                std::u16string_view suffix);

    static std::shared_ptr<Impl const> parseFlat(std::u16string_view text, std::size_t colon);

    Derived& makeDerived();
    /// Takes over what stands before the path. REQUIRES: the texts are the same up to there.
    void takeStem(Impl const& other);
    /// Each works out what follows from the text and the layout, and is called in this order.
    void finishStem();
    void finishPath();
    void finishIrregularPath();
    void finishSuffix();
};

} // namespace foundation::storage::provider
