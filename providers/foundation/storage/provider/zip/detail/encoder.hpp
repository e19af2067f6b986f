#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <vector>

struct libdeflate_compressor;

namespace foundation::storage::provider::zip::detail {

/// Deflates members that are held as a whole. For one thread at a time.
class WholeEncoder {
  public:
    /// From 1, the fastest, to 9.
    explicit WholeEncoder(int level);
    WholeEncoder(WholeEncoder const&) = delete;
    WholeEncoder& operator=(WholeEncoder const&) = delete;
    ~WholeEncoder();

    /// What it came to; empty where that is not less. It lives until the next call.
    std::span<unsigned char const> encode(std::span<unsigned char const> content);

  private:
    libdeflate_compressor* const compressor_;
    std::vector<unsigned char> output_;
};

/// Deflates a member piece by piece. For one thread at a time.
class PieceEncoder {
  public:
    using Take = std::function<void(std::span<unsigned char const>)>;

    PieceEncoder(int level, Take take);
    PieceEncoder(PieceEncoder const&) = delete;
    PieceEncoder& operator=(PieceEncoder const&) = delete;
    ~PieceEncoder();

    void encode(std::span<unsigned char const> content);
    void finish();

  private:
    struct State;

    void run(std::span<unsigned char const> content, int flush);

    Take const take_;
    std::unique_ptr<State> const state_;
};

} // namespace foundation::storage::provider::zip::detail
