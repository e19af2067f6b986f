#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

namespace foundation::storage::provider::tar::detail {

/// A sequence that only grows. It never moves what it holds, and so never takes twice the memory,
/// as a vector does that grows.
template<class T>
class Blocks {
  public:
    std::size_t size() const noexcept { return size_; }
    T& operator[](std::size_t place) noexcept { return blocks_[place / inBlock][place % inBlock]; }
    T const& operator[](std::size_t place) const noexcept {
        return blocks_[place / inBlock][place % inBlock];
    }
    T& append(T const& value) {
        if (size_ == blocks_.size() * inBlock) {
            blocks_.push_back(std::make_unique<T[]>(inBlock));
        }
        return (*this)[size_++] = value;
    }

  private:
    static constexpr std::size_t inBlock = 1024;
    std::vector<std::unique_ptr<T[]>> blocks_;
    std::size_t size_ = 0;
};

/// The same for texts without a NUL in them, of 65,535 bytes at most and 4 GiB in all.
class Texts {
  public:
    /// Up to the end of the last one, and what could not be used before.
    std::uint64_t size() const noexcept { return size_; }
    std::string_view operator[](std::uint32_t place) const noexcept {
        return blocks_[place / blockSize].get() + place % blockSize;
    }
    /// Where it stands from now on.
    std::uint32_t append(std::string_view text) {
        if (blocks_.size() * blockSize - size_ <= text.size()) {
            blocks_.push_back(std::make_unique_for_overwrite<char[]>(blockSize));
            size_ = (blocks_.size() - 1) * blockSize;
        }
        auto const place = static_cast<std::uint32_t>(size_);
        char* const to = blocks_.back().get() + place % blockSize;
        *std::copy(text.begin(), text.end(), to) = '\0';
        size_ += text.size() + 1;
        return place;
    }

  private:
    static constexpr std::size_t blockSize = 65'536;
    std::vector<std::unique_ptr<char[]>> blocks_;
    std::uint64_t size_ = 0;
};

} // namespace foundation::storage::provider::tar::detail
