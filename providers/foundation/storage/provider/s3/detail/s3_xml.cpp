#include <foundation/storage/provider/s3/detail/s3_xml.hpp>

#include <foundation/storage/provider/s3/detail/encoding.hpp>
#include <foundation/storage/provider/s3/detail/store_failure.hpp>

#include <algorithm>
#include <chrono>
#include <pugixml.hpp>

namespace foundation::storage::provider::s3::detail {

namespace {

/// Keeps the text that it was read from.
class Document {
  public:
    Document(std::string text, char const* root) : text_(std::move(text)) {
        if (!parse()) {
            throw wrongAnswer("it is no XML");
        }
        if (!root_ || root_.name() != std::string_view(root)) {
            throw wrongAnswer(std::string("it is no ") + root);
        }
    }
    /// The first element of a document, whatever it is.
    explicit Document(std::string text) : text_(std::move(text)) { parse(); }

    pugi::xml_node root() const { return root_; }

  private:
    bool parse() {
        auto const options =
            pugi::parse_default | pugi::parse_ws_pcdata_single | pugi::parse_doctype;
        if (text_.size() > largestDocument ||
            !document_.load_buffer_inplace(text_.data(), text_.size(), options,
                                           pugi::encoding_utf8)) {
            return false;
        }
        for (pugi::xml_node const node : document_.children()) {
            if (node.type() == pugi::node_doctype) {
                return false;
            }
        }
        root_ = document_.document_element();
        return true;
    }

    std::string text_;
    pugi::xml_document document_;
    pugi::xml_node root_;
};

std::string_view textOf(pugi::xml_node parent, char const* child) {
    return parent.child(child).text().get();
}

/// As the fields of an answer have it; some stores leave the quotes out of documents.
std::string tagIn(pugi::xml_node parent) {
    std::string tag(textOf(parent, "ETag"));
    // It is to be sent back in a field.
    if (!std::all_of(tag.begin(), tag.end(), [](char c) { return c > ' ' && c <= '~'; })) {
        throw wrongAnswer("a tag is malformed");
    }
    return tag.empty() || tag.ends_with('"') ? tag : '"' + tag + '"';
}

std::string nameIn(std::string_view text, bool isEncoded) {
    if (!isEncoded) {
        return std::string(text);
    }
    std::optional<std::string> name = decoded(text);
    if (!name) {
        throw wrongAnswer("a name is encoded wrongly");
    }
    return *std::move(name);
}

/// YYYY-MM-DDThh:mm:ss.fffZ, to the nanosecond at most.
std::int64_t timeIn(std::string_view text) {
    auto const number = [&](std::size_t from, std::size_t size) {
        auto const part = from <= text.size() ? text.substr(from, size) : std::string_view();
        auto const value = part.size() == size ? web::parseNumber(part) : std::nullopt;
        if (!value) {
            throw wrongAnswer("a time is malformed");
        }
        return *value;
    };
    using namespace std::chrono;
    year_month_day const date{year(static_cast<int>(number(0, 4))),
                              month(static_cast<unsigned>(number(5, 2))),
                              day(static_cast<unsigned>(number(8, 2)))};
    auto const inDay = hours(number(11, 2)) + minutes(number(14, 2)) + seconds(number(17, 2));
    nanoseconds fraction(0);
    if (text.size() > 19 && text[19] == '.') {
        nanoseconds unit = milliseconds(100);
        for (std::size_t i = 20; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i) {
            fraction += unit * (text[i] - '0');
            unit /= 10;
        }
    }
    if (!date.ok() || inDay > hours(24)) {
        throw wrongAnswer("a time is malformed");
    }
    seconds const whole = sys_days(date).time_since_epoch() + inDay;
    return nanosecondsOf(whole.count()) + fraction.count();
}

ListedObject objectIn(pugi::xml_node node, bool isEncoded) {
    auto const size = web::parseNumber(textOf(node, "Size"));
    if (!size) {
        throw wrongAnswer("an object has no size");
    }
    return {nameIn(textOf(node, "Key"), isEncoded), *size, timeIn(textOf(node, "LastModified")),
            tagIn(node)};
}

void hold(ListedObject const& object, ListQuery const& query) {
    if (!object.key.starts_with(query.prefix)) {
        throw wrongAnswer("a key is not among those that were asked for");
    }
    if (query.continuation.empty() && !query.startAfter.empty() && object.key <= query.startAfter) {
        throw wrongAnswer("the listing does not advance");
    }
    if (query.isDelimited && object.key.find('/', query.prefix.size()) != std::string::npos) {
        throw wrongAnswer("a key is not of this level");
    }
}

void hold(std::string const& prefix, ListQuery const& query) {
    if (!query.isDelimited || !prefix.starts_with(query.prefix) ||
        prefix.find('/', query.prefix.size()) + 1 != prefix.size()) {
        throw wrongAnswer("a prefix is not among those that were asked for");
    }
}

std::string continuationIn(pugi::xml_node root, ListQuery const& query) {
    std::string_view const isTruncated = textOf(root, "IsTruncated");
    if (isTruncated == "false") {
        return {};
    }
    std::string token(textOf(root, "NextContinuationToken"));
    if (isTruncated != "true" || token.empty()) {
        throw wrongAnswer("the listing does not tell how it goes on");
    }
    if (token == query.continuation) {
        throw wrongAnswer("the listing does not advance");
    }
    return token;
}

} // namespace

std::optional<StoreError> errorIn(std::string_view document) {
    constexpr std::size_t longest = std::size_t{64} * 1024;
    std::size_t const begin = document.find('<');
    if (begin == std::string_view::npos || document.size() - begin > longest) {
        return std::nullopt;
    }
    Document const read{std::string(document.substr(begin))};
    if (read.root().name() != std::string_view("Error")) {
        return std::nullopt;
    }
    return StoreError{std::string(textOf(read.root(), "Code")),
                      std::string(textOf(read.root(), "Region"))};
}

ListPage listPageIn(std::string document, ListQuery const& query) {
    Document const read(std::move(document), "ListBucketResult");
    pugi::xml_node const root = read.root();
    bool const isEncoded = textOf(root, "EncodingType") == "url";
    ListPage page;
    for (pugi::xml_node const node : root.children("Contents")) {
        page.objects.push_back(objectIn(node, isEncoded));
        hold(page.objects.back(), query);
    }
    for (pugi::xml_node const node : root.children("CommonPrefixes")) {
        page.prefixes.push_back(nameIn(textOf(node, "Prefix"), isEncoded));
        hold(page.prefixes.back(), query);
    }
    if (page.objects.size() + page.prefixes.size() > query.mostKeys) {
        throw wrongAnswer("a page is larger than was asked for");
    }
    page.continuation = continuationIn(root, query);
    return page;
}

std::vector<RefusedRemoval> refusedRemovalsIn(std::string document) {
    Document const read(std::move(document), "DeleteResult");
    std::vector<RefusedRemoval> refused;
    for (pugi::xml_node const node : read.root().children("Error")) {
        std::string word(textOf(node, "Code"));
        if (word != "NoSuchKey") {
            refused.push_back({std::string(textOf(node, "Key")), std::move(word)});
        }
    }
    return refused;
}

std::vector<ListedUpload> uploadsIn(std::string document) {
    Document const read(std::move(document), "ListMultipartUploadsResult");
    bool const isEncoded = textOf(read.root(), "EncodingType") == "url";
    std::vector<ListedUpload> uploads;
    for (pugi::xml_node const node : read.root().children("Upload")) {
        uploads.push_back({nameIn(textOf(node, "Key"), isEncoded),
                           std::string(textOf(node, "UploadId")),
                           timeIn(textOf(node, "Initiated"))});
    }
    return uploads;
}

std::string uploadIn(std::string document) {
    Document const read(std::move(document), "InitiateMultipartUploadResult");
    std::string upload(textOf(read.root(), "UploadId"));
    if (upload.empty()) {
        throw wrongAnswer("it names no upload");
    }
    return upload;
}

std::string tagIn(std::string document, char const* element) {
    Document const read(std::move(document), element);
    std::string tag = tagIn(read.root());
    if (tag.empty()) {
        throw wrongAnswer("it tells no tag");
    }
    return tag;
}

} // namespace foundation::storage::provider::s3::detail
