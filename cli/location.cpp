#include "location.hpp"

#include "display.hpp"
#include "failure.hpp"
#include "schemes.hpp"

#include <fl/filesystem/basic_path.hpp>
#include <fl/i18n/conversion.hpp>

#include <utility>

namespace cli {

using fl::i18n::ustring;
using foundation::storage::provider::StorageIRI;
using foundation::storage::provider::toStorageIRI;

namespace {

constexpr std::u16string_view separator = u"!/";

// The scheme in front of `text`, without its colon; empty where there is no colon.
std::u16string_view schemeOf(std::u16string_view text) {
    std::size_t const colon = text.find(u':');
    return text.substr(0, colon == std::u16string_view::npos ? 0 : colon);
}

// An IRI in the inner place must not hold a separator that is not meant as one.
ustring withoutSeparators(ustring text) {
    for (std::size_t at = text.find(separator); at != ustring::npos;
         at = text.find(separator, at)) {
        text.replace(at, 1, u"%21");
    }
    return text;
}

// The item of a nested location, where it was typed as a plain path: up to the first separator.
ustring expandInner(std::u16string_view inner) {
    std::size_t const end = inner.find(separator);
    std::u16string_view const path = inner.substr(0, end);
    if (path.empty()) {
        throw Refusal("not a valid location: the item to look into is missing");
    }
    std::u16string_view const rest =
        end == std::u16string_view::npos ? std::u16string_view() : inner.substr(end);
    return withoutSeparators(toStorageIRI(ustring(path), {}).toString()).append(rest);
}

ustring expand(ustring const& text) {
    std::u16string_view rest = text;
    std::u16string_view scheme = schemeOf(rest);
    std::size_t levels = 0;
    for (; kindOfScheme(scheme) == SchemeKind::Container; ++levels) {
        rest.remove_prefix(scheme.size() + 1);
        scheme = schemeOf(rest);
    }
    if (levels > 0) {
        bool const isIRI = foundation::storage::vfs::hasIRIPrefix(ustring(rest));
        ustring const outer = text.substr(0, text.size() - rest.size());
        return isIRI ? text : outer + expandInner(rest);
    }
    if (kindOfScheme(scheme) != SchemeKind::Storage) {
        return text;
    }
    std::u16string_view const path = rest.substr(scheme.size() + 1);
    if (path.empty()) {
        return text + u"/";
    }
    if (path.front() != u'/') {
        // Taken as a plain path, this would quietly make a local file of that odd name.
        throw Refusal(
            "not a valid location: behind the scheme must stand '/' (a local file of this "
            "name is written with ./ before it)");
    }
    return text;
}

void addSlash(ustring& text, StorageIRI const& iri) {
    if (iri.hasInnerIRI()) {
        text += separator;
        return;
    }
    std::size_t const end = text.find_first_of(u"?#");
    text.insert(end == ustring::npos ? text.size() : end, u"/");
}

} // namespace

std::string Location::shown() const {
    // A bare scheme with a colon of the line behind it would read `mem::`.
    bool const bareScheme =
        typed.ends_with(':') && iri.toString() == fl::i18n::storageNameToUstring(typed) + u"/";
    return shownLocation(bareScheme ? typed + "/" : typed);
}

Location parseLocation(std::string const& typed) {
    if (typed.empty()) {
        throw Refusal("not a valid location: it is empty");
    }
    ustring text = expand(fl::i18n::storageNameToUstring(typed));
    StorageIRI iri = toStorageIRI(text, {});
    // Each level of nesting may lack its own slash; the parser bounds the levels.
    while (!iri.hasPath()) {
        addSlash(text, iri);
        iri = StorageIRI(text);
    }
    return {typed, foundation::storage::vfs::AbsoluteIRI(std::move(iri), true)};
}

namespace {

// An item below a folder as an IRI, with the plain path in its inner place where the folder was
// typed with one.
std::string spelledAs(Location const& folder, foundation::storage::vfs::AbsoluteIRI const& item) {
    ustring const& whole = item.toString();
    ustring const& base = folder.iri.toString();
    ustring const typed = fl::i18n::storageNameToUstring(folder.typed);
    ustring const expanded = folder.iri.toStorageIRI().hasInnerIRI() ? expand(typed) : typed;
    if (expanded == typed || !base.starts_with(expanded) || !whole.starts_with(base)) {
        return fl::i18n::toDisplayString(whole);
    }
    return folder.typed + fl::i18n::toDisplayString(whole.substr(expanded.size()));
}

} // namespace

Location childLocation(Location const& folder, ustring const& name) {
    using foundation::storage::vfs::hasIRIPrefix;
    foundation::storage::vfs::AbsoluteIRI iri(folder.iri, name);
    bool const isPath = folder.iri.getScheme() == u"file" &&
                        !hasIRIPrefix(fl::i18n::storageNameToUstring(folder.typed));
    if (!isPath) {
        std::string text = spelledAs(folder, iri);
        return {std::move(text), std::move(iri)};
    }
    std::string path = folder.typed + (folder.wantsFolder() ? "" : "/");
    path += fl::i18n::toDisplayString(name);
    if (hasIRIPrefix(fl::i18n::storageNameToUstring(path))) {
        path.insert(0, "./"); // in a folder of a name such as `ab:`
    }
    return {std::move(path), std::move(iri)};
}

} // namespace cli
