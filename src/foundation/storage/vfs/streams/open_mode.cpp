#include <foundation/storage/vfs/streams/detail/open_mode.hpp>

#include <foundation/core/except/exception.hpp>

#include <stdexcept>

namespace foundation::storage::vfs::detail {

namespace {

using std::ios_base;
using openmode = std::ios_base::openmode;

constexpr openmode significant = ios_base::app | ios_base::in | ios_base::out | ios_base::trunc;

[[noreturn]] void throwBadMode(char const* text) {
    throw foundation::core::except::detail::AnonymousInternalException<std::runtime_error>(
        std::runtime_error(text));
}

openmode withImpliedOut(openmode given) noexcept {
    openmode const what = given & significant;
    bool const impliesOut = what == ios_base::app || what == (ios_base::app | ios_base::in);
    return impliesOut ? given | ios_base::out : given;
}

provider::ByteStreamCreation toByteStreamCreate(openmode mode) {
    openmode const what = mode & significant;
    if (what == ios_base::out || what == (ios_base::in | ios_base::out)) {
        return provider::ByteStreamCreation::OpenExisting;
    }
    if (what == (ios_base::app | ios_base::out) ||
        what == (ios_base::app | ios_base::in | ios_base::out) ||
        what == (ios_base::out | ios_base::trunc) ||
        what == (ios_base::in | ios_base::out | ios_base::trunc)) {
        return provider::ByteStreamCreation::OpenOrCreate;
    }
    throwBadMode("toByteStreamCreate called with bad openmode");
}

provider::ByteStreamAccess toByteStreamAccess(openmode mode) {
    openmode const what = mode & (ios_base::in | ios_base::out);
    if (what == ios_base::out) {
        return provider::ByteStreamAccess::WriteOnly;
    }
    if (what == (ios_base::in | ios_base::out)) {
        return provider::ByteStreamAccess::ReadWrite;
    }
    throwBadMode("toByteStreamAccess called with bad openmode");
}

} // namespace

ParsedOpenMode::ParsedOpenMode(openmode given) noexcept
    : mode(withImpliedOut(given)),
      atEnd((given & ios_base::ate) != 0),
      binary((given & ios_base::binary) != 0) {}

bool isReadOnly(ParsedOpenMode const& parsed) noexcept {
    return (parsed.mode & (ios_base::in | ios_base::out)) == ios_base::in;
}

provider::ByteStreamOpenOptions toByteStreamOpenOptions(ParsedOpenMode const& parsed) {
    provider::ByteStreamOpenOptions options;
    options.creation = toByteStreamCreate(parsed.mode);
    options.access = toByteStreamAccess(parsed.mode);
    options.withoutTruncate = (parsed.mode & ios_base::trunc) == 0 ? 1 : 0;
    options.withoutAppend = (parsed.mode & ios_base::app) == 0 ? 1 : 0;
    return options;
}

} // namespace foundation::storage::vfs::detail
