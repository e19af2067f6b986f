#include "../commands.hpp"
#include "../script.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <unistd.h>

namespace cli {

namespace {

// Standard input, byte by byte.
class Input {
  public:
    int next() {
        if (at_ == filled_) {
            ssize_t count = 0;
            do {
                count = ::read(STDIN_FILENO, buffer_.data(), buffer_.size());
            } while (count < 0 && errno == EINTR);
            if (count < 0) {
                throw Refusal(systemReason(errno));
            }
            if (count == 0) {
                return -1;
            }
            at_ = 0;
            filled_ = static_cast<std::size_t>(count);
        }
        return static_cast<unsigned char>(buffer_[at_++]);
    }

  private:
    std::array<char, 4096> buffer_{};
    std::size_t at_ = 0;
    std::size_t filled_ = 0;
};

// Runs the next command; false at the end of the script.
bool runNext(Host& host, Invocation& invocation, ScriptReader& reader, int& status) {
    Words words;
    try {
        if (!reader.read(words)) {
            return false;
        }
        status = runCommandLine(host, words);
    } catch (ScriptError const& error) {
        invocation.fail("standard input", error.what());
        status = exitUsage;
    }
    return true;
}

} // namespace

int runSh(Host& host, Words const& words) {
    bool stops = false;
    Arguments arguments(
        {"sh",
         "Runs commands from standard input, one on each line and without the word vfs, in one "
         "process, so that mem: keeps what they write. Words are quoted as in a shell ('...', "
         "\"...\", \\), # starts a comment, nothing is expanded. Goes on after a failure, and ends "
         "with the highest code of all commands.",
         {"vfs sh < script.vfs", "printf 'put -i notes.txt mem:/n\\ncat mem:/n\\n' | vfs sh -e"}});
    arguments.flag("-e,--errexit", stops, "Stop at the first failure").takes("", 0, 0);
    if (!arguments.read(words)) {
        return printHelp(host, arguments);
    }
    if (host.inputIsScript()) {
        throw UsageError("a script cannot run another one from the same standard input");
    }
    host.useInputAsScript();
    Invocation invocation(host, "sh");
    Input input;
    ScriptReader reader([&] { return input.next(); });
    int highest = exitDone;
    int status = exitDone;
    try {
        while (runNext(host, invocation, reader, status)) {
            highest = std::max(highest, status);
            if (stops && status != exitDone) {
                break;
            }
        }
    } catch (Refusal const& failure) {
        invocation.fail("standard input", failure.what());
        highest = std::max<int>(highest, exitFailed);
    }
    return std::max(highest, invocation.finish());
}

} // namespace cli
