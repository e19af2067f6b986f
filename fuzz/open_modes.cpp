// File streams of every mode, against a table of what the modes mean and a file that is a string.

#include "consumed_bytes.hpp"
#include "require.hpp"

#include <foundation/storage/provider/memory/memory_factory.hpp>
#include <foundation/storage/vfs/errors/error_code.hpp>
#include <foundation/storage/vfs/vfs.hpp>

#include <algorithm>
#include <array>
#include <cstdint>
#include <ios>
#include <optional>
#include <stdexcept>
#include <string>

namespace provider = foundation::storage::provider;
namespace vfs = foundation::storage::vfs;
using std::ios_base;

namespace {

/// What a mode means.
struct Meaning {
    bool opens;
    bool reads;
    bool writes;
    bool creates;
    bool truncates;
    bool appends;
};

/// By the bits app 1, in 2, out 4, trunc 8. Appending is writing, also where `out` is not said, and
/// reading alone neither creates nor truncates.
constexpr Meaning refused{false, false, false, false, false, false};
constexpr Meaning readOnly{true, true, false, false, false, false};
constexpr std::array<Meaning, 16> meanings{{
    refused,                                  //
    {true, false, true, true, false, true},   // app
    readOnly,                                 // in
    {true, true, true, true, false, true},    // app in
    {true, false, true, false, false, false}, // out
    {true, false, true, true, false, true},   // app out
    {true, true, true, false, false, false},  // in out
    {true, true, true, true, false, true},    // app in out
    refused,                                  // trunc
    refused,                                  // app trunc
    readOnly,                                 // in trunc
    readOnly,                                 // app in trunc
    {true, false, true, true, true, false},   // out trunc
    refused,                                  // app out trunc
    {true, true, true, true, true, false},    // in out trunc
    refused,                                  // app in out trunc
}};

constexpr unsigned app = 1, in = 2, out = 4, trunc = 8;

enum class Class { Both, Input, Output };

/// What each class of streams adds to a mode.
unsigned completed(unsigned bits, Class which) {
    switch (which) {
    case Class::Input:
        return bits | in;
    case Class::Output:
        return bits | out | ((bits & (app | in | trunc)) == 0 ? trunc : 0);
    case Class::Both:
        break;
    }
    return bits;
}

ios_base::openmode standardMode(unsigned bits) {
    ios_base::openmode mode{};
    mode |= (bits & app) != 0 ? ios_base::app : ios_base::openmode{};
    mode |= (bits & in) != 0 ? ios_base::in : ios_base::openmode{};
    mode |= (bits & out) != 0 ? ios_base::out : ios_base::openmode{};
    mode |= (bits & trunc) != 0 ? ios_base::trunc : ios_base::openmode{};
    return mode;
}

class TheFile {
  public:
    TheFile() : system_(std::make_shared<vfs::PluggableStorageSystem>(nullptr)) {
        auto store = provider::memory::buildMemoryProvider();
        system_->registerPhysicalProvider("mem", [store] { return store; });
    }

    vfs::File file() const {
        return vfs::File(vfs::AbsoluteIRI(u"mem:/f"), vfs::StorageSystemReference(system_));
    }
    std::optional<std::string> content() const {
        if (!exists(vfs::FileOrFolder(file()))) {
            return std::nullopt;
        }
        vfs::IODevice device(file());
        std::string read(4096, '\0');
        long const count = device.read(read.data(), static_cast<long>(read.size()));
        return read.substr(0, static_cast<std::size_t>(std::max(count, 0L)));
    }
    void set(std::string const& content) const {
        file().createFile();
        vfs::IODevice device(file(), {});
        device.write(content.data(), static_cast<long>(content.size()));
        device.close();
    }

  private:
    std::shared_ptr<vfs::PluggableStorageSystem> const system_;
};

/// A file as a string, with one position for reading and writing.
struct Model {
    std::string content;
    std::size_t position = 0;
    bool appends = false;

    void write(std::string const& text) {
        if (text.empty()) {
            return;
        }
        if (appends) {
            position = content.size();
        }
        content.resize(std::max(content.size(), position + text.size()), '\0');
        content.replace(position, text.size(), text);
        position += text.size();
    }
    std::string read(std::size_t count) {
        std::string text =
            position < content.size() ? content.substr(position, count) : std::string();
        position += text.size();
        return text;
    }
};

constexpr std::uint8_t longestText = 40;
constexpr std::uint8_t farthest = 60;

template<class Stream>
void writeTo(Stream& stream, Model& model, std::string const& text) {
    stream.write(text.data(), static_cast<std::streamsize>(text.size()));
    require(stream.good());
    model.write(text);
}

template<class Stream>
void readFrom(Stream& stream, Model& model, std::size_t count) {
    std::string got(count, '\0');
    stream.read(got.data(), static_cast<std::streamsize>(count));
    got.resize(static_cast<std::size_t>(stream.gcount()));
    require(got == model.read(count));
    require(!stream.bad() && stream.eof() == (got.size() < count));
    stream.clear();
}

/// Between reading and writing a position is set, as the standard demands.
template<class Stream>
void use(Stream& stream, Model& model, Meaning const& meaning, ConsumedBytes& data) {
    constexpr bool canRead = requires {
        stream.gcount();
    };
    constexpr bool canWrite = requires {
        stream.write("", 0);
    };
    if (data.flag() && meaning.writes) {
        if constexpr (canWrite) {
            writeTo(stream, model, data.text(longestText)); // where the stream stands at first
        }
    }
    while (!data.empty()) {
        std::size_t const to = data.number(farthest);
        bool const write = data.flag();
        if constexpr (canWrite) {
            if (write && meaning.writes) {
                stream.seekp(static_cast<std::streamoff>(to));
                require(stream.tellp() == static_cast<std::streamoff>(to));
                model.position = to;
                writeTo(stream, model, data.text(longestText));
            }
        }
        if constexpr (canRead) {
            if (!write && meaning.reads) {
                stream.seekg(static_cast<std::streamoff>(to));
                require(stream.tellg() == static_cast<std::streamoff>(to));
                model.position = to;
                readFrom(stream, model, data.number(longestText));
            }
        }
    }
    if constexpr (canWrite) {
        if (!meaning.writes) {
            stream.write("no", 2);
            stream.flush();
            require(stream.bad());
        }
    }
}

template<class Stream>
void openAndUse(Class which, unsigned bits, ios_base::openmode extra, ConsumedBytes& data) {
    TheFile const place;
    std::optional<std::string> before;
    if (data.flag()) {
        before = data.text(longestText);
        place.set(*before);
    }
    Meaning const& meaning = meanings[completed(bits, which)];
    Stream stream;
    try {
        stream.open(place.file(), standardMode(bits) | extra);
    } catch (vfs::Exception const& failure) {
        require(failure.getErrorCode() == vfs::ErrorCode::ResourceNotFound);
        require(meaning.opens && !meaning.creates && !before);
        require(!place.content());
        return;
    } catch (std::runtime_error const&) {
        require(!meaning.opens);
        require(place.content() == before);
        return;
    }
    require(meaning.opens && (before || meaning.creates));
    require(stream.good() && stream.is_open());

    Model model;
    model.appends = meaning.appends;
    model.content = meaning.truncates ? std::string() : before.value_or(std::string());
    model.position = (extra & ios_base::ate) != 0 ? model.content.size() : 0;
    use(stream, model, meaning, data);
    try {
        stream.close();
    } catch (vfs::IOException const&) {
        require(!meaning.writes); // what was written to a stream that only reads
    }
    require(place.content() == model.content);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* bytes, std::size_t size) {
    ConsumedBytes data(bytes, size);
    unsigned const bits = data.byte() % 16;
    std::uint8_t const more = data.byte();
    ios_base::openmode extra{};
    extra |= (more & 1) != 0 ? ios_base::ate : ios_base::openmode{};
    extra |= (more & 2) != 0 ? ios_base::binary : ios_base::openmode{};
    switch (data.number(2)) {
    case 0:
        openAndUse<vfs::fstream>(Class::Both, bits, extra, data);
        break;
    case 1:
        openAndUse<vfs::ifstream>(Class::Input, bits, extra, data);
        break;
    default:
        openAndUse<vfs::ofstream>(Class::Output, bits, extra, data);
    }
    return 0;
}
