#pragma once

#include <foundation/export.hpp>

#include <string_view>

namespace foundation::storage::provider {

/// Whether a text that a person typed is a location and not a plain path: a chain of schemes, each
/// a letter followed by at least one letter, digit, hyphen, dot or plus, each with its colon, and
/// a slash behind the last colon. Says nothing about the rest of the text. Takes time in
/// proportion to the chain and no stack.
FOUNDATION_EXPORT bool hasIRIPrefix(std::u32string_view text) noexcept;

/// The same on UTF-16, where a lone surrogate is just a character that ends the chain.
FOUNDATION_EXPORT bool hasIRIPrefix(std::u16string_view text) noexcept;

} // namespace foundation::storage::provider
