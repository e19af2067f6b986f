#include <foundation/storage/provider/http/detail/dav_multistatus.hpp>

#include <foundation/storage/provider/web/failure.hpp>

#include <algorithm>
#include <optional>
#include <utility>

namespace foundation::storage::provider::http::detail {

namespace {

/// An item takes 300 to 1,000 bytes.
constexpr std::size_t largestElement = std::size_t{1024} * 1024;
/// It is parsed again with each document.
constexpr std::size_t largestRootTag = std::size_t{16} * 1024;
/// So much of the answer makes a document.
constexpr std::size_t documentSize = std::size_t{256} * 1024;

/// At least: those around its location, its properties and their state. One that has less takes far
/// more memory here than it took on its way.
constexpr std::size_t partsOfItem = 5;

constexpr std::string_view blanks = " \t\r\n";

[[noreturn]] void refuseSize() {
    throw web::Failure(ErrorCode::FileTooLarge, "the server sent more XML than is taken");
}

using Markup = MultistatusReader::Markup;

struct Token {
    Markup what;
    std::size_t end;
};

std::optional<Token> upTo(std::string_view text, std::string_view closing, std::size_t at) {
    std::size_t const end = text.find(closing, at);
    return end == std::string_view::npos
               ? std::nullopt
               : std::optional(Token{Markup::Other, end + closing.size()});
}

/// The markup at a position where one begins; nothing where its end has not come yet.
std::optional<Token> markupAt(std::string_view text, std::size_t at) {
    std::string_view const here = text.substr(at);
    if (here.starts_with("<?")) {
        return upTo(text, "?>", at + 2);
    }
    if (here.starts_with("<!")) {
        for (auto const& [opening, closing] :
             {std::pair{std::string_view("<!--"), std::string_view("-->")},
              std::pair{std::string_view("<![CDATA["), std::string_view("]]>")}}) {
            if (here.starts_with(opening)) {
                return upTo(text, closing, at + opening.size());
            }
            if (opening.starts_with(here)) {
                return std::nullopt;
            }
        }
        throw web::unusableAnswer(
            "a document type"); // nothing that it could say has a meaning here
    }
    if (here.size() < 2) {
        return std::nullopt;
    }
    char quote = '\0'; // in which a value stands
    for (std::size_t i = at + 1; i < text.size(); ++i) {
        char const c = text[i];
        if (quote != '\0') {
            quote = c == quote ? '\0' : quote;
        } else if (c == '"' || c == '\'') {
            quote = c;
        } else if (c == '>') {
            bool const isEnd = text[at + 1] == '/';
            bool const isEmpty = text[i - 1] == '/' && i > at + 1;
            return Token{isEnd ? Markup::End : isEmpty ? Markup::Empty : Markup::Start, i + 1};
        }
    }
    return std::nullopt;
}

bool isDeclaration(std::string_view markup) noexcept {
    constexpr std::string_view opening = "<?xml";
    return markup.starts_with(opening) && blanks.find(markup[opening.size()]) != blanks.npos;
}

std::string_view nameIn(std::string_view tag) noexcept {
    tag.remove_prefix(tag.starts_with("</") ? 2 : 1);
    return tag.substr(0, tag.find_first_of(" \t\r\n/>"));
}

} // namespace

/// The tags that begin something, and the attributes; at least.
void MultistatusReader::count(std::string_view bytes) {
    for (char const c : bytes) {
        parts_ += (last_ == '<' && c != '/') || c == '=' ? 1U : 0U;
        last_ = c;
    }
    if (parts_ > mostParts_) {
        refuseSize();
    }
}

void MultistatusReader::take(std::string_view bytes) {
    std::string const told = intake_.take(bytes);
    count(told);
    text_ += told;
    std::size_t position = 0;
    while (step(position)) {
    }
    text_.erase(0, position);
    if (text_.size() + elements_.size() - elementBegin_ > largestElement) {
        refuseSize();
    }
}

bool MultistatusReader::step(std::size_t& position) {
    std::string_view const text = text_;
    if (place_ != Place::InRoot) {
        position = std::min(text.find_first_not_of(blanks, position), text.size());
    } else {
        std::size_t const next = std::min(text.find('<', position), text.size());
        if (depth_ > 0) {
            elements_ += text.substr(position, next - position);
        }
        position = next;
    }
    if (position == text.size()) {
        return false;
    }
    if (text[position] != '<') {
        throw web::unusableAnswer("no well-formed XML");
    }
    auto const token = markupAt(text, position);
    if (!token) {
        return false;
    }
    std::string_view const markup = text.substr(position, token->end - position);
    position = token->end;
    if (depth_ > 0) {
        elements_ += markup;
        depth_ += token->what == Markup::Start ? 1U : 0U;
        depth_ -= token->what == Markup::End ? 1U : 0U;
    } else {
        takeOutside(token->what, markup);
    }
    if (depth_ == 0) {
        elementBegin_ = elements_.size();
        if (elements_.size() >= documentSize) {
            parse();
        }
    }
    return true;
}

/// What is in no element below the root.
void MultistatusReader::takeOutside(Markup what, std::string_view markup) {
    if (what == Markup::Other) {
        if (place_ == Place::BeforeRoot && isDeclaration(markup) && !intake_.isMarked()) {
            opening_ = markup; // tells the encoding
        }
    } else if (place_ == Place::BeforeRoot) {
        begin(markup);
        if (what == Markup::Empty) {
            end("</" + rootName_ + '>');
        }
    } else if (place_ == Place::InRoot && what == Markup::End) {
        end(markup);
    } else if (place_ == Place::BehindRoot || what == Markup::End) {
        throw web::unusableAnswer("no well-formed XML");
    } else {
        elements_ += markup;
        depth_ = what == Markup::Start ? 1U : 0U;
    }
}

void MultistatusReader::begin(std::string_view tag) {
    rootName_ = nameIn(tag);
    if (tag.starts_with("</") || rootName_.empty()) {
        throw web::unusableAnswer("no well-formed XML");
    }
    if (tag.size() + opening_.size() > largestRootTag) {
        throw web::unusableAnswer("an XML tag with too many attributes");
    }
    if (tag.ends_with("/>")) {
        opening_ += tag.substr(0, tag.size() - 2);
        opening_ += '>';
    } else {
        opening_ += tag;
    }
    place_ = Place::InRoot;
}

void MultistatusReader::end(std::string_view tag) {
    if (nameIn(tag) != rootName_) {
        throw web::unusableAnswer("no well-formed XML");
    }
    parse(); // also where there is nothing in it: the root is looked at
    place_ = Place::BehindRoot;
}

void MultistatusReader::parse() {
    parseMultistatus(opening_ + elements_ + "</" + rootName_ + '>', responses_);
    elements_.clear();
    elementBegin_ = 0;
    if (responses_.size() > mostParts_ / partsOfItem) {
        refuseSize();
    }
}

std::vector<DavResponse> MultistatusReader::finish() {
    if (place_ != Place::BehindRoot || !text_.empty() || !intake_.isWhole()) {
        throw web::unusableAnswer("no well-formed XML");
    }
    return std::move(responses_);
}

} // namespace foundation::storage::provider::http::detail
