#include <foundation/storage/provider/detail/storage_iri_impl.hpp>

#include <foundation/network/iri.hpp>
#include <foundation/storage/provider/detail/location_text.hpp>

#include <algorithm>
#include <string>

namespace foundation::storage::provider {

using namespace detail;

namespace {

void appendNarrowed(ustring& out, std::wstring const& wide) {
    for (wchar_t const w : wide) {
        auto const c = static_cast<char32_t>(w);
        if (c < 0x10000) {
            if ((c & 0xFFFFF800) == 0xD800 && (c < 0xDC80 || c > 0xDCFF)) {
                malformed("a location holds half a character");
            }
            out += static_cast<char16_t>(c);
        } else if (c <= 0x10FFFF) {
            out += static_cast<char16_t>(0xD7C0 + (c >> 10));
            out += static_cast<char16_t>(0xDC00 + (c & 0x3FF));
        } else {
            malformed("a location holds a character outside Unicode");
        }
    }
}

/// A part that holds a delimiter would end early in the text, and its rest become another part.
void requireNone(std::wstring const& part, wchar_t const* delimiters) {
    if (part.find_first_of(delimiters) != std::wstring::npos) {
        malformed("a part of a location holds a delimiter that is not encoded");
    }
}

std::wstring widened(std::u16string_view text) {
    std::wstring out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        char32_t c = text[i];
        if ((c & 0xFC00) == 0xD800) {
            // No location holds a high surrogate without a low one.
            c = 0x10000 + ((c - 0xD800) << 10) + (text[++i] - 0xDC00U);
        }
        out += static_cast<wchar_t>(c);
    }
    return out;
}

} // namespace

std::shared_ptr<StorageIRI::Impl const>
StorageIRI::Impl::fromParts(foundation::network::IRI const& iri) {
    foundation::network::IRIArgs const& args = iri.args();
    bool const hasAuthority = args.hasUserInformation || args.hasHost || args.hasPort;
    if (!args.hasScheme) {
        malformed("a location begins with a scheme and a colon");
    }
    std::size_t const length = args.scheme.size() + args.userInformation.size() + args.host.size() +
                               args.path.size() + args.query.size() + args.fragment.size();
    requireLength(length);
    ustring text;
    text.reserve(length + 12); // delimiters and a port
    appendNarrowed(text, args.scheme);
    if (requireScheme(text) != text.size()) {
        malformed("a scheme is a letter and at least one letter, digit, hyphen, dot or plus");
    }
    Layout layout;
    layout.schemeEnd = offset(text.size());
    text += u':';
    std::wstring const none;
    std::wstring const& path = args.hasPath ? args.path : none;
    if (!path.empty() && path.front() != L'/') {
        if (hasAuthority || args.hasQuery || args.hasFragment) {
            malformed("a path begins with a slash");
        }
        appendNarrowed(text, path);
        return parse(text);
    }

    std::size_t hostSize = 0;
    if (hasAuthority || path.empty() || path.starts_with(L"//")) {
        layout.hasAuthority = true;
        text += u"//";
        if (args.hasUserInformation) {
            requireNone(args.userInformation, L"/?#");
            appendNarrowed(text, args.userInformation);
            text += u'@';
        }
        layout.hostBegin = layout.hostEnd = offset(text.size());
        if (args.hasHost) {
            requireNone(args.host, L"/?#");
            appendNarrowed(text, args.host);
            hostSize = text.size() - layout.hostBegin;
        }
        if (args.hasPort) {
            text += u':';
            for (char const c : std::to_string(args.port)) {
                text += static_cast<char16_t>(c);
            }
        }
    }
    requireNone(path, L"?#");
    layout.pathBegin = offset(text.size());
    appendNarrowed(text, path);
    layout.pathEnd = offset(text.size());
    if (args.hasQuery) {
        requireNone(args.query, L"#");
        layout.hasQuery = true;
        text += u'?';
        appendNarrowed(text, args.query);
    }
    layout.queryEnd = offset(text.size());
    if (args.hasFragment) {
        layout.hasFragment = true;
        text += u'#';
        appendNarrowed(text, args.fragment);
    }

    auto impl = std::make_shared<Impl>();
    impl->text = std::move(text);
    impl->layout = layout;
    impl->finishStem();
    if (layout.hasAuthority && impl->layout.hostEnd - impl->layout.hostBegin != hostSize) {
        malformed("a host holds a colon or an at sign");
    }
    impl->finishPath();
    impl->finishSuffix();
    return impl;
}

foundation::network::IRI StorageIRI::toIRI() const {
    Impl::Layout const& layout = impl_->layout;
    std::u16string_view const text = impl_->text;
    foundation::network::IRIArgs args;
    args.scheme = widened(impl_->scheme());
    args.hasScheme = true;
    if (impl_->inner) {
        // Behind the scheme of a nested location there is nothing but its path (RFC 3986).
        args.path = widened(text.substr(layout.schemeEnd + 1));
        args.hasPath = true;
        return foundation::network::IRI(args);
    }
    if (layout.hasAuthority) {
        std::size_t const begin = layout.schemeEnd + 3;
        args.host = widened(text.substr(layout.hostBegin, layout.hostEnd - layout.hostBegin));
        args.hasHost = true;
        if (layout.hostBegin > begin + 1) {
            args.userInformation = widened(text.substr(begin, layout.hostBegin - 1 - begin));
            args.hasUserInformation = true;
        }
        args.port = layout.port;
        args.hasPort = layout.port != 0;
    }
    if (impl_->hasPath()) {
        args.path = widened(impl_->path);
        args.hasPath = true;
    }
    if (layout.hasQuery) {
        args.query = widened(text.substr(layout.pathEnd + 1, layout.queryEnd - layout.pathEnd - 1));
        args.hasQuery = true;
    }
    if (layout.hasFragment) {
        args.fragment = widened(text.substr(layout.queryEnd + 1));
        args.hasFragment = true;
    }
    return foundation::network::IRI(args);
}

} // namespace foundation::storage::provider
