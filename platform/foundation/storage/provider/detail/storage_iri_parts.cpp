#include <foundation/storage/provider/detail/storage_iri_impl.hpp>

#include <foundation/network/iri.hpp>
#include <foundation/storage/provider/detail/location_text.hpp>

#include <array>
#include <string>
#include <utility>

namespace foundation::storage::provider {

using namespace detail;

namespace {

/// Some of the characters below 64, where all delimiters of a path and a query are.
constexpr std::uint64_t bits(std::string_view characters) {
    std::uint64_t set = 0;
    for (char const c : characters) {
        set |= std::uint64_t{1} << c;
    }
    return set;
}

/// The text of a location while it is put together: on the stack unless it is long.
class TextWriter {
  public:
    /// REQUIRES: no more than `capacity` units are written.
    explicit TextWriter(std::size_t capacity) {
        if (capacity > small_.size()) {
            large_.resize(capacity);
            begin_ = large_.data();
        }
        end_ = begin_;
    }
    TextWriter(TextWriter const&) = delete;
    TextWriter& operator=(TextWriter const&) = delete;

    void write(char16_t unit) { *end_++ = unit; }

    /// Refuses a `delimiter`: it would end the part early in the text, and the rest of the part
    /// become another one.
    void write(std::wstring const& part, std::uint64_t delimiters) {
        for (wchar_t const w : part) {
            auto const c = static_cast<char32_t>(w);
            if (c < 64 && (delimiters >> c & 1) != 0) {
                malformed("a part of a location holds a delimiter that is not encoded");
            }
            if (c < 0x10000) {
                if ((c & 0xFFFFF800) == 0xD800 && (c < 0xDC80 || c > 0xDCFF)) {
                    malformed("a location holds half a character");
                }
                write(static_cast<char16_t>(c));
            } else if (c <= 0x10FFFF) {
                write(static_cast<char16_t>(0xD7C0 + (c >> 10)));
                write(static_cast<char16_t>(0xDC00 + (c & 0x3FF)));
            } else {
                malformed("a location holds a character outside Unicode");
            }
        }
    }

    std::size_t size() const noexcept { return static_cast<std::size_t>(end_ - begin_); }
    std::u16string_view text() const noexcept { return {begin_, size()}; }

  private:
    std::array<char16_t, 128> small_;
    ustring large_;
    char16_t* begin_ = small_.data();
    char16_t* end_;
};

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
    TextWriter writer(2 * length + 12); // characters of two units, delimiters and a port
    writer.write(args.scheme, 0);
    Layout layout;
    layout.schemeEnd = offset(writer.size());
    if (requireScheme(writer.text()) != writer.size()) {
        malformed("a scheme is a letter and at least one letter, digit, hyphen, dot or plus");
    }
    writer.write(u':');
    bool const hasPath = args.hasPath && !args.path.empty();
    if (hasPath && args.path.front() != L'/') {
        if (hasAuthority || args.hasQuery || args.hasFragment) {
            malformed("a path begins with a slash");
        }
        writer.write(args.path, 0);
        return parse(writer.text());
    }

    std::size_t hostSize = 0;
    if (hasAuthority || !hasPath || args.path.starts_with(L"//")) {
        layout.hasAuthority = true;
        writer.write(u'/');
        writer.write(u'/');
        if (args.hasUserInformation) {
            writer.write(args.userInformation, bits("/?#"));
            writer.write(u'@');
        }
        layout.hostBegin = layout.hostEnd = offset(writer.size());
        if (args.hasHost) {
            writer.write(args.host, bits("/?#"));
            hostSize = writer.size() - layout.hostBegin;
        }
        if (args.hasPort) {
            writer.write(u':');
            for (char const digit : std::to_string(args.port)) {
                writer.write(static_cast<char16_t>(digit));
            }
        }
    }
    layout.pathBegin = offset(writer.size());
    if (hasPath) {
        writer.write(args.path, bits("?#"));
    }
    layout.pathEnd = offset(writer.size());
    if (args.hasQuery) {
        layout.hasQuery = true;
        writer.write(u'?');
        writer.write(args.query, bits("#"));
    }
    layout.queryEnd = offset(writer.size());
    if (args.hasFragment) {
        layout.hasFragment = true;
        writer.write(u'#');
        writer.write(args.fragment, 0);
    }

    auto impl = std::make_shared<Impl>();
    impl->text = writer.text();
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
        return foundation::network::IRI(std::move(args));
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
    return foundation::network::IRI(std::move(args));
}

} // namespace foundation::storage::provider
