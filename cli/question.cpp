#include "question.hpp"

#include "failure.hpp"
#include "interruption.hpp"
#include "output.hpp"

#include <cerrno>
#include <cstdio>
#include <unistd.h>

namespace cli {

namespace {

// One byte at a time: what is behind the line may be for the next question, or for another program.
// -1 at the end.
int nextByte() {
    for (;;) {
        waitForInput(STDIN_FILENO);
        char byte = 0;
        ssize_t const count = ::read(STDIN_FILENO, &byte, 1);
        if (count == 1) {
            return static_cast<unsigned char>(byte);
        }
        if (count == 0) {
            return -1;
        }
        if (errno != EINTR && errno != EAGAIN) {
            throw Refusal("standard input could not be read: " + systemReason(errno));
        }
    }
}

} // namespace

bool askedAndAgreed(std::string const& command, std::string const& question) {
    std::string const text = "vfs: " + command + ": " + question + "? ";
    std::fwrite(text.data(), 1, text.size(), stderr);
    int const first = nextByte();
    int byte = first;
    while (byte != '\n' && byte != -1) {
        byte = nextByte();
    }
    if (byte == -1) {
        std::fputc('\n', stderr); // what comes next begins on a line of its own
    }
    return first == 'y' || first == 'Y';
}

} // namespace cli
