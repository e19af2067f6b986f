#pragma once

#include <string>
#include <string_view>

namespace foundation::storage::provider::http::detail {

/// Makes UTF-8 of a text of XML that comes in UTF-16, which every reader of XML must know. Any
/// other text goes through, but for the mark that some begin with.
class XmlText {
  public:
    /// What can be told of the text by now. Throws web::Failure where it is none.
    std::string take(std::string_view bytes);
    /// Whether nothing is left over, as of a character that did not come as a whole.
    bool isWhole() const noexcept { return pending_.empty(); }
    /// Whether the bytes have said what they are: then nothing counts that the text says of it.
    bool isMarked() const noexcept { return isMarked_; }

  private:
    enum class Form { Unknown, AsItIs, HighFirst, LowFirst };

    bool recognize();

    Form form_ = Form::Unknown;
    bool isMarked_ = false;
    std::string pending_; ///< that has come, and was not told
};

} // namespace foundation::storage::provider::http::detail
