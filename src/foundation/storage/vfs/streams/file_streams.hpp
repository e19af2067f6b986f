#pragma once

#include <foundation/export.hpp>
#include <foundation/storage/vfs/resources/file.hpp>

#include <boost/iostreams/categories.hpp>
#include <boost/iostreams/filtering_streambuf.hpp>

#include <ios>
#include <istream>
#include <memory>
#include <ostream>

namespace foundation::storage::vfs {

namespace detail {
class FileStreamBuffer;
}

/// The buffer of a file stream; 128 KiB, shared by reading and writing, while the stream is open.
using FileStreambuf = boost::iostreams::filtering_streambuf<boost::iostreams::seekable>;

/// A standard stream over a file, for reading and writing. Differs from its standard namesake in
/// these points:
/// - Failing to open is an exception (vfs::Exception and what else File::open throws), not failbit.
/// - `out` alone keeps the content and needs an existing file; a mode that opens nothing throws
///   std::runtime_error.
/// - A device failure during a stream operation sets badbit; seekp() lets it through as it is.
///   close() reports as IOCloseException what fails in the device's close, not a failed flush; the
///   destructor drops both.
/// For one thread at a time.
class FOUNDATION_EXPORT fstream : public std::basic_iostream<char> {
  public:
    fstream();
    explicit fstream(File const& file,
                     std::ios_base::openmode mode = std::ios_base::in | std::ios_base::out);
    ~fstream() override;

    /// On an open stream sets failbit and nothing else. Otherwise ends with a good state.
    void open(File const& file,
              std::ios_base::openmode mode = std::ios_base::in | std::ios_base::out);
    /// On a closed stream sets failbit. Changes no state otherwise; after an exception a further
    /// close() finishes the job.
    void close();
    bool is_open() const;
    FileStreambuf* rdbuf() const;

  private:
    std::unique_ptr<detail::FileStreamBuffer> buffer_;
};

/// A standard stream over a file, for reading; `in` is always added to the mode. Otherwise as
/// fstream.
class FOUNDATION_EXPORT ifstream : public std::basic_istream<char> {
  public:
    ifstream();
    explicit ifstream(File const& file, std::ios_base::openmode mode = std::ios_base::in);
    ~ifstream() override;

    void open(File const& file, std::ios_base::openmode mode = std::ios_base::in);
    void close();
    bool is_open() const;
    FileStreambuf* rdbuf() const;

  private:
    std::unique_ptr<detail::FileStreamBuffer> buffer_;
};

/// A standard stream over a file, for writing; `out` is always added to the mode, and `trunc` where
/// it has none of `app`, `in` and `trunc`. Otherwise as fstream.
class FOUNDATION_EXPORT ofstream : public std::basic_ostream<char> {
  public:
    ofstream();
    explicit ofstream(File const& file, std::ios_base::openmode mode = std::ios_base::out);
    ~ofstream() override;

    void open(File const& file, std::ios_base::openmode mode = std::ios_base::out);
    void close();
    bool is_open() const;
    FileStreambuf* rdbuf() const;

  private:
    std::unique_ptr<detail::FileStreamBuffer> buffer_;
};

} // namespace foundation::storage::vfs
