#pragma once

#include <foundation/storage/conformance/ability.hpp>
#include <foundation/storage/provider/byte_stream_open_options.hpp>
#include <foundation/storage/provider/copy_file_options.hpp>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <random>
#include <string>

namespace foundation::storage::conformance::detail {

inline constexpr std::size_t streamSlots = 3;

enum class StepKind : std::uint8_t {
    CreateFile,
    CreateFolder,
    CreateFolderChain,
    RemoveFile,
    RemoveFolder,
    RemoveTree,
    CopyFile,
    MoveFile,
    MoveFolder,
    Write,   ///< opens a file, writes and closes
    Replace, ///< the same with extensions::IReplacingStreams
    Read,    ///< all of a file
    Exists,
    Attributes,
    SetReadOnly,
    SetWritable,
    List,
    OpenToRead,
    OpenToWrite,
    OpenToDoBoth,
    StreamRead,
    StreamWrite,
    StreamSeek,
    StreamClose,
};
inline constexpr std::uint8_t stepKinds = static_cast<std::uint8_t>(StepKind::StreamClose) + 1;

/// One operation of a model test. A plain value.
struct Step {
    StepKind kind{};
    std::string path{};
    std::string other{}; ///< of copies and moves, where to
    provider::ReplacementPolicy policy{};
    provider::ByteStreamOpenOptions options{};
    std::size_t size = 0;    ///< of what is read or written
    std::int64_t offset = 0; ///< where to, from the start
    char letter = 'a';       ///< that is written
    std::size_t slot = 0;    ///< of the stream
};

/// Makes steps, the same for the same seed.
class StepMaker {
  public:
    StepMaker(std::uint32_t seed, AbilitySet unsupported, bool hasLastingStreams)
        : random_(seed),
          unsupported_(unsupported),
          hasLastingStreams_(hasLastingStreams) {}

    Step next();

  private:
    std::size_t upTo(std::size_t limit) { return random_() % limit; }
    bool oneIn(std::size_t chances) { return upTo(chances) == 0; }
    bool isWanted(StepKind kind) const;
    std::string path();

    std::mt19937 random_;
    AbilitySet const unsupported_;
    bool const hasLastingStreams_;
    std::string lastPath_ = "a";
};

/// The line of C++ that does it.
std::string codeOf(Step const& step);

// What steps give, in words.
std::string refused(int code, std::string const& path);
std::string failed(int code);
std::string contentText(std::string const& bytes);

} // namespace foundation::storage::conformance::detail
