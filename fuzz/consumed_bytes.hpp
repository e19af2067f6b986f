#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

/// The bytes of a fuzzer's input, taken from the front as what a target needs. Once they are used
/// up everything is 0 and empty, so that every input means something.
class ConsumedBytes {
  public:
    ConsumedBytes(std::uint8_t const* data, std::size_t size)
        : left_(reinterpret_cast<char const*>(data), size) {}

    bool empty() const noexcept { return left_.empty(); }
    std::uint8_t byte() { return static_cast<std::uint8_t>(take(1).c_str()[0]); }
    bool flag() { return (byte() & 1) != 0; }
    /// At most `most`.
    std::size_t number(std::uint8_t most) { return byte() % (static_cast<std::size_t>(most) + 1); }
    char16_t unit() {
        unsigned const low = byte();
        return static_cast<char16_t>(low + byte() * 256U);
    }
    /// A byte that says how many, and so many bytes, at most `most`.
    std::string text(std::uint8_t most) { return take(number(most)); }
    /// The same of UTF-16 units.
    std::u16string units(std::uint8_t most) {
        std::u16string out(std::min(number(most), left_.size() / 2), u'\0');
        std::generate(out.begin(), out.end(), [this] { return unit(); });
        return out;
    }

  private:
    std::string take(std::size_t count) {
        std::string const out(left_.substr(0, count));
        left_.remove_prefix(out.size());
        return out;
    }

    std::string_view left_;
};
