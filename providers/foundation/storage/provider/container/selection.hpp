#pragma once

#include <fl/i18n/ustring.hpp>

namespace foundation::storage::provider::container {

/// What a listing is to show.
struct Selection {
    enum class Kinds { All, Files, Folders };

    Kinds kinds = Kinds::All;
    bool hasAttributes = true;
    bool isRecursive = false;
    fl::i18n::ustring pattern; ///< that last components match; empty for all
};

} // namespace foundation::storage::provider::container
