#include "commands.hpp"
#include "interruption.hpp"

#include <cstdio>
#include <exception>
#include <fcntl.h>
#include <new>

namespace {

// A file that is opened later must not take the number of a standard stream that was closed at the
// start. The stand-ins are opened the wrong way round, so that use of the stream still fails.
void fillStandardStreams() {
    for (int descriptor = 0; descriptor <= 2; ++descriptor) {
        if (::fcntl(descriptor, F_GETFD) == -1) {
            ::open("/dev/null", descriptor == 0 ? O_WRONLY : O_RDONLY);
        }
    }
}

} // namespace

int main(int argc, char** argv) {
    fillStandardStreams();
    try {
        cli::Host host;
        return cli::runCommandLine(host, cli::Words(argv + (argc > 0 ? 1 : 0), argv + argc));
    } catch (cli::Interrupted const& interrupted) {
        cli::endBySignal(interrupted.signal);
    } catch (std::bad_alloc const&) {
        std::fputs("vfs: out of memory\n", stderr);
    } catch (std::exception const& failure) {
        std::fprintf(stderr, "vfs: %s\n", failure.what());
    }
    return cli::exitFailed;
}
