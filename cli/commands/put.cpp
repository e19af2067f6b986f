#include "../commands.hpp"
#include "../interruption.hpp"
#include "../new_content.hpp"
#include "../progress.hpp"

#include <foundation/storage/vfs/resources/file.hpp>
#include <foundation/storage/vfs/streams/io_device.hpp>

#include <cerrno>
#include <optional>
#include <unistd.h>

namespace cli {

namespace vfs = foundation::storage::vfs;

namespace {

constexpr std::size_t bufferSize = 256 * 1024;

// Where the bytes come from: a location, or standard input.
class Source {
  public:
    Source(vfs::StorageSystemReference const& system, std::optional<Location> const& location) {
        if (location) {
            vfs::File const file(location->iri, system);
            device_.emplace(file);
            total_ = file.getAttributes().values().size;
        }
    }

    std::optional<std::uint64_t> total() const { return total_; }

    // 0 at the end.
    std::size_t read(std::vector<char>& buffer) const {
        if (device_) {
            long const count = device_->read(buffer.data(), static_cast<long>(buffer.size()));
            return count > 0 ? static_cast<std::size_t>(count) : 0;
        }
        for (;;) {
            waitForInput(STDIN_FILENO);
            ssize_t const count = ::read(STDIN_FILENO, buffer.data(), buffer.size());
            if (count >= 0) {
                return static_cast<std::size_t>(count);
            }
            if (errno != EINTR) {
                throw Refusal("standard input could not be read: " + systemReason(errno));
            }
        }
    }

    // A storage may find out only here that it did not deliver what it should have.
    void close() {
        if (device_) {
            device_->close();
        }
    }

  private:
    std::optional<vfs::IODevice> device_;
    std::optional<std::uint64_t> total_;
};

void put(Invocation& invocation, std::optional<Location> const& from, Location const& to,
         NewContent::IfThere ifThere) {
    Source source(invocation.system(), from);
    invocation.aboutToWrite(to);
    NewContent content(invocation.system(), to, ifThere);
    // A person who types the bytes has the line in front of them.
    bool const typed = !from && ::isatty(STDIN_FILENO) == 1;
    std::optional<ProgressLine> line;
    if (!typed) {
        line.emplace(to.shown());
    }
    std::vector<char> buffer(bufferSize);
    std::uint64_t done = 0;
    while (std::size_t const count = source.read(buffer)) {
        throwIfInterrupted();
        content.write(buffer.data(), count);
        done += count;
        if (line) {
            line->update(done, source.total());
        }
    }
    throwIfInterrupted();
    source.close();
    content.publish();
}

} // namespace

int runPut(Host& host, Words const& words) {
    bool noClobber = false;
    std::optional<std::string> input;
    Arguments arguments(
        {"put",
         "Writes a file from standard input. The file appears under its name when it "
         "is complete; one that is already there is replaced unless it is read-only.",
         {"date | vfs put now.txt", "vfs put -i notes.txt mem:/notes.txt"}});
    arguments.option("-i,--input", input, "FILE", "Read this location instead; - is standard input")
        .flag("-n,--no-clobber", noClobber, "Refuse to replace a file")
        .takes("LOCATION", 1, 1);
    if (!arguments.read(words)) {
        return printHelp(host, arguments);
    }
    bool const fromInput = !input || *input == "-";
    if (fromInput && host.inputIsScript()) {
        throw UsageError("standard input holds the commands here; -i FILE is needed");
    }
    InterruptionGuard const guard;
    Invocation invocation(host, "put");
    std::optional<Location> const from = fromInput ? std::nullopt : invocation.locate(*input);
    std::optional<Location> const to = invocation.locate(arguments.operands().front());
    if (to && (fromInput || from)) {
        auto const ifThere = noClobber ? NewContent::IfThere::Refuse : NewContent::IfThere::Replace;
        std::vector<Location> operands{*to};
        if (from) {
            operands.insert(operands.begin(), *from);
        }
        if (invocation.attempt(operands, [&] { put(invocation, from, *to, ifThere); })) {
            invocation.changed(*to);
        }
    }
    return invocation.finish();
}

} // namespace cli
