#include <foundation/storage/vfs/streams/file_streams.hpp>

#include <foundation/storage/vfs/errors/detail/translated.hpp>
#include <foundation/storage/vfs/streams/detail/guarded_streambuf.hpp>
#include <foundation/storage/vfs/streams/detail/open_mode.hpp>

namespace foundation::storage::vfs {

using std::ios_base;

/// What the three classes share: the chain, and how it is opened and closed.
class detail::FileStreamBuffer {
  public:
    FileStreambuf* get() { return &buffer_; }
    bool isOpen() { return buffer_.is_complete(); }

    void open(File const& file, ios_base::openmode mode) {
        ParsedOpenMode const parsed(mode);
        provider::ByteStreamDevice const device =
            isReadOnly(parsed) ? file.openReadOnly() : file.open(toByteStreamOpenOptions(parsed));
        if (parsed.atEnd) {
            device.seek(0, ios_base::end);
        }
        buffer_.push(device, deviceBufferSize);
    }

    void close() {
        translated([this] {
            buffer_.pubsync();
            buffer_.closeChain();
        });
    }

    void closeQuietly() noexcept {
        try {
            if (isOpen()) {
                close();
            }
        } catch (...) {
        }
    }

  private:
    GuardedStreambuf<provider::ByteStreamDevice> buffer_;
};

namespace {

ios_base::openmode forReading(ios_base::openmode mode) {
    return mode | ios_base::in;
}

ios_base::openmode forWriting(ios_base::openmode mode) {
    bool const keeps = (mode & (ios_base::app | ios_base::in | ios_base::trunc)) != 0;
    return mode | ios_base::out | (keeps ? ios_base::openmode{} : ios_base::trunc);
}

/// Whether the stream is open already, which gives it failbit and nothing else.
bool refusedAsOpen(std::ios& stream, detail::FileStreamBuffer& buffer) {
    if (buffer.isOpen()) {
        stream.clear(ios_base::failbit);
        return true;
    }
    return false;
}

void closeStream(std::ios& stream, detail::FileStreamBuffer& buffer) {
    if (buffer.isOpen()) {
        buffer.close();
    } else {
        stream.clear(ios_base::failbit);
    }
}

} // namespace

fstream::fstream()
    : std::basic_iostream<char>(nullptr),
      buffer_(std::make_unique<detail::FileStreamBuffer>()) {
    init(buffer_->get());
}

fstream::fstream(File const& file, ios_base::openmode mode)
    : std::basic_iostream<char>(nullptr),
      buffer_(std::make_unique<detail::FileStreamBuffer>()) {
    open(file, mode);
}

fstream::~fstream() {
    buffer_->closeQuietly();
}

void fstream::open(File const& file, ios_base::openmode mode) {
    if (refusedAsOpen(*this, *buffer_)) {
        return;
    }
    buffer_->open(file, mode);
    init(buffer_->get());
}

void fstream::close() {
    closeStream(*this, *buffer_);
}
bool fstream::is_open() const {
    return buffer_->isOpen();
}
FileStreambuf* fstream::rdbuf() const {
    return buffer_->get();
}

ifstream::ifstream()
    : std::basic_istream<char>(nullptr),
      buffer_(std::make_unique<detail::FileStreamBuffer>()) {
    init(buffer_->get());
}

ifstream::ifstream(File const& file, ios_base::openmode mode)
    : std::basic_istream<char>(nullptr),
      buffer_(std::make_unique<detail::FileStreamBuffer>()) {
    open(file, mode);
}

ifstream::~ifstream() {
    buffer_->closeQuietly();
}

void ifstream::open(File const& file, ios_base::openmode mode) {
    if (refusedAsOpen(*this, *buffer_)) {
        return;
    }
    buffer_->open(file, forReading(mode));
    init(buffer_->get());
}

void ifstream::close() {
    closeStream(*this, *buffer_);
}
bool ifstream::is_open() const {
    return buffer_->isOpen();
}
FileStreambuf* ifstream::rdbuf() const {
    return buffer_->get();
}

ofstream::ofstream()
    : std::basic_ostream<char>(nullptr),
      buffer_(std::make_unique<detail::FileStreamBuffer>()) {
    init(buffer_->get());
}

ofstream::ofstream(File const& file, ios_base::openmode mode)
    : std::basic_ostream<char>(nullptr),
      buffer_(std::make_unique<detail::FileStreamBuffer>()) {
    open(file, mode);
}

ofstream::~ofstream() {
    buffer_->closeQuietly();
}

void ofstream::open(File const& file, ios_base::openmode mode) {
    if (refusedAsOpen(*this, *buffer_)) {
        return;
    }
    buffer_->open(file, forWriting(mode));
    init(buffer_->get());
}

void ofstream::close() {
    closeStream(*this, *buffer_);
}
bool ofstream::is_open() const {
    return buffer_->isOpen();
}
FileStreambuf* ofstream::rdbuf() const {
    return buffer_->get();
}

} // namespace foundation::storage::vfs
