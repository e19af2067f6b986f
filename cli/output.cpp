#include "output.hpp"

#include "failure.hpp"

#include <foundation/storage/provider/error_code.hpp>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

namespace cli {

namespace {

// Large enough that calls cost nothing beside the text, and what a pipe holds.
constexpr std::size_t blockSize = 64 * 1024;

bool wantsColours(bool terminal) {
    char const* const refused = std::getenv("NO_COLOR");
    char const* const type = std::getenv("TERM");
    bool const capable = type != nullptr && std::strcmp(type, "dumb") != 0;
    return (refused == nullptr || *refused == '\0') && capable && terminal;
}

} // namespace

Output::Output() : terminal_(::isatty(STDOUT_FILENO) == 1), colours_(wantsColours(terminal_)) {}

void Output::printLine(std::string_view text) {
    gathered_ += text;
    gathered_ += '\n';
}

std::string Output::heading(std::string_view text) const {
    return colours_ ? "\x1b[1m" + std::string(text) + "\x1b[0m" : std::string(text);
}

void Output::writeBytes(char const* bytes, std::size_t count) {
    flush();
    while (count > 0) {
        ssize_t const written = ::write(STDOUT_FILENO, bytes, count);
        if (written >= 0) {
            bytes += written;
            count -= static_cast<std::size_t>(written);
        } else if (errno != EINTR) {
            throw OutputFailure(systemReason(errno));
        }
    }
}

void Output::flush() {
    if (!gathered_.empty()) {
        std::string const text = std::move(gathered_);
        gathered_.clear();
        writeBytes(text.data(), text.size());
    }
}

void Output::flushBlock() {
    if (terminal_ || gathered_.size() >= blockSize) {
        flush();
    }
}

std::string systemReason(int errorNumber) {
    using foundation::storage::provider::ErrorCode;
    ErrorCode const code = foundation::storage::provider::errorCodeOfErrno(errorNumber);
    switch (code) {
    case ErrorCode::PermissionDenied:
    case ErrorCode::NoSpaceLeft:
    case ErrorCode::FileTooLarge:
        return wordsFor(code);
    default:
        return std::strerror(errorNumber);
    }
}

} // namespace cli
