#include <foundation/storage/provider/http/detail/xml_text.hpp>

#include <foundation/storage/provider/web/failure.hpp>

#include <fl/i18n/conversion.hpp>

#include <array>
#include <cstddef>
#include <stdexcept>
#include <utility>

namespace foundation::storage::provider::http::detail {

/// Whether enough has come to know the form.
bool XmlText::recognize() {
    struct Beginning {
        std::string_view bytes;
        Form form;
        bool isMark; ///< and no part of the text
    };
    using namespace std::string_view_literals;
    static constexpr std::array beginnings{
        Beginning{"\xef\xbb\xbf"sv, Form::AsItIs, true},
        Beginning{"\xfe\xff"sv, Form::HighFirst, true},
        Beginning{"\xff\xfe"sv, Form::LowFirst, true},
        Beginning{"\0<"sv, Form::HighFirst, false},
        Beginning{"<\0"sv, Form::LowFirst, false},
    };
    for (Beginning const& beginning : beginnings) {
        if (pending_.starts_with(beginning.bytes)) {
            form_ = beginning.form;
            isMarked_ = true;
            pending_.erase(0, beginning.isMark ? beginning.bytes.size() : 0);
            return true;
        }
        if (beginning.bytes.starts_with(pending_)) {
            return false;
        }
    }
    form_ = Form::AsItIs;
    return true;
}

std::string XmlText::take(std::string_view bytes) {
    pending_ += bytes;
    if (form_ == Form::Unknown && !recognize()) {
        return {};
    }
    if (form_ == Form::AsItIs) {
        return std::exchange(pending_, {});
    }
    std::u16string units;
    units.reserve(pending_.size() / 2);
    for (std::size_t i = 0; i + 1 < pending_.size(); i += 2) {
        auto const first = static_cast<unsigned char>(pending_[i]);
        auto const second = static_cast<unsigned char>(pending_[i + 1]);
        units += static_cast<char16_t>(form_ == Form::HighFirst ? first << 8 | second
                                                                : second << 8 | first);
    }
    if (!units.empty() && (units.back() & 0xfc00) == 0xd800) {
        units.pop_back(); // the first half of a character
    }
    pending_.erase(0, units.size() * 2);
    try {
        return fl::i18n::to_string(units);
    } catch (std::range_error const&) {
        throw web::unusableAnswer("no well-formed XML");
    }
}

} // namespace foundation::storage::provider::http::detail
