#pragma once

#include <foundation/storage/provider/http/detail/dav_xml.hpp>
#include <foundation/storage/provider/http/detail/xml_text.hpp>

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace foundation::storage::provider::http::detail {

/// Takes a Multi-Status answer (RFC 4918, section 13) apart while it comes, so that of a long one
/// no more is kept than what it says: some elements below the root at a time are made a document
/// of, with the root's tag around them. It may be UTF-8, UTF-16, or what its first line says.
///
/// Throws web::Failure for anything else: no well-formed XML, another root, a document type, a part
/// without a location, more tags and attributes than `mostParts`, an element of more than a
/// mebibyte. Behind a failure it is of no use.
class MultistatusReader {
  public:
    explicit MultistatusReader(std::size_t mostParts) : mostParts_(mostParts) {}

    void take(std::string_view bytes);
    /// All parts of the answer. REQUIRES: called once, when all bytes were taken.
    std::vector<DavResponse> finish();

    enum class Markup {
        Start,
        Empty, ///< a start and an end at once
        End,
        Other, ///< a comment, characters that are no markup, an instruction
    };

  private:
    enum class Place { BeforeRoot, InRoot, BehindRoot };

    void count(std::string_view bytes);
    /// Whether there was a whole piece at the position to go beyond.
    bool step(std::size_t& position);
    void takeOutside(Markup what, std::string_view markup);
    void begin(std::string_view tag);
    void end(std::string_view tag);
    void parse();

    std::size_t const mostParts_;
    std::size_t parts_ = 0;
    char last_ = '\0';

    XmlText intake_;
    Place place_ = Place::BeforeRoot;
    std::size_t depth_ = 0;        ///< of elements below the root
    std::string text_;             ///< that has come, and was not gone beyond
    std::string opening_;          ///< what every document begins with
    std::string rootName_;         ///< as it stands in the root's tag
    std::string elements_;         ///< of the next document; the last one may not be whole
    std::size_t elementBegin_ = 0; ///< of that one
    std::vector<DavResponse> responses_;
};

} // namespace foundation::storage::provider::http::detail
