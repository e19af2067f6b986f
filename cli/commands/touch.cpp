#include "../commands.hpp"
#include "../display.hpp"
#include "../iso_time.hpp"

#include <foundation/storage/vfs/errors/exception.hpp>
#include <foundation/storage/vfs/resources/file.hpp>
#include <foundation/storage/vfs/resources/folder.hpp>
#include <foundation/storage/vfs/storage_system/exists.hpp>

#include <chrono>
#include <optional>

namespace cli {

namespace vfs = foundation::storage::vfs;

using foundation::storage::provider::ExtendedExistsResult;
using foundation::storage::provider::Timestamp;

namespace {

Timestamp currentTime() {
    using namespace std::chrono;
    auto const now = system_clock::now().time_since_epoch();
    auto const whole = floor<seconds>(now);
    auto const rest = duration_cast<nanoseconds>(now - whole).count();
    return {whole.count(), static_cast<std::int32_t>(rest)};
}

// False where another process made the file first.
bool created(vfs::File const& file) {
    try {
        file.createFile();
        return true;
    } catch (vfs::Exception const& failure) {
        if (failure.getErrorCode() != vfs::ErrorCode::ResourceAlreadyExists) {
            throw;
        }
        return false;
    }
}

} // namespace

int runTouch(Host& host, Words const& words) {
    bool onlyExisting = false;
    std::optional<std::string> date;
    Arguments arguments({"touch",
                         "Sets the time of modification of files and folders, to now unless told "
                         "otherwise, and creates files that are missing.",
                         {"vfs touch notes.txt", "vfs touch -d 2024-05-01T10:30:00Z notes.txt",
                          "vfs touch -c missing.txt"}});
    arguments.flag("-c,--no-create", onlyExisting, "Create nothing; a missing file is no error")
        .option("-d,--date", date, "TIME",
                "The time: 2024-05-01, 2024-05-01T10:30:00.5, with Z or an offset such as +02:00 "
                "behind it; without one it is local. Kept to the microsecond")
        .takes("LOCATION", 1, Arguments::unlimited);
    if (!arguments.read(words)) {
        return printHelp(host, arguments);
    }
    std::optional<Timestamp> const wanted = date ? parseIsoTime(*date) : std::nullopt;
    if (date && !wanted) {
        throw UsageError("not a time as 2024-05-01T10:30:00Z: '" + onOneLine(*date) + "'");
    }
    Invocation invocation(host, "touch");
    invocation.forEach(arguments.operands(), [&](Location const& location) {
        auto const time = toPtime(wanted.value_or(currentTime()));
        if (!onlyExisting) {
            invocation.aboutToWrite(location);
        }
        ExtendedExistsResult const kind = existsExtended(location.iri, invocation.system());
        if (kind == ExtendedExistsResult::DanglingLink) {
            throw Refusal("is a link that leads nowhere");
        }
        if (kind == ExtendedExistsResult::Folder || kind == ExtendedExistsResult::LinkToFolder) {
            vfs::Folder(location.iri, invocation.system()).setLastModified(time);
            invocation.changed(location);
            return;
        }
        bool const missing = kind == ExtendedExistsResult::Nothing;
        if (missing && onlyExisting) {
            return;
        }
        if (missing && location.wantsFolder()) {
            throw Refusal("no such folder");
        }
        vfs::File const file(location.iri, invocation.system());
        bool const fresh = missing && created(file);
        if (!fresh || wanted) {
            file.setLastModified(time);
        }
        invocation.changed(location);
    });
    return invocation.finish();
}

} // namespace cli
