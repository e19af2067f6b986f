#include <foundation/storage/provider/local/detail/content_copy.hpp>

#include <foundation/storage/provider/local/detail/file_descriptor.hpp>

#include <algorithm>
#include <array>
#include <linux/fs.h>
#include <memory>
#include <sys/ioctl.h>
#include <unistd.h>

namespace foundation::storage::provider::local::detail {

namespace {

using Failure = ContentCopyFailure;
using Result = std::optional<Failure>;

constexpr std::size_t bufferSize = 256 * 1024;
/// How much the kernel copies between two calls of progress, and without progress.
constexpr off_t watchedStep = 8 * 1024 * 1024;
constexpr off_t unwatchedStep = 1024 * 1024 * 1024;

class ContentCopy {
  public:
    ContentCopy(int source, struct stat const& item, int destination, CopyProgress const& progress)
        : source_(source),
          destination_(destination),
          size_(item.st_size),
          sparse_(item.st_blocks < item.st_size / 512),
          progress_(progress) {}

    Result run() {
        if (Result canceled = report(0)) {
            return canceled;
        }
        if (size_ <= smallFile && !sparse_) {
            return copySmall();
        }
        if (::ioctl(destination_, FICLONE, source_) == 0) {
            return report(size_);
        }
        off_t end = 0;
        while (end < size_) {
            off_t const begin = sparse_ ? ::lseek(source_, end, SEEK_DATA) : end;
            if (begin < 0) {
                // ENXIO: nothing but a hole is left. A file system without the call has no holes.
                if (errno == ENXIO) {
                    break;
                }
                sparse_ = false;
                continue;
            }
            off_t const hole = sparse_ ? ::lseek(source_, begin, SEEK_HOLE) : size_;
            off_t const stop = hole < 0 ? size_ : std::min(hole, size_);
            if (begin >= stop) { // the file grew behind its old end
                break;
            }
            Result failure = copyRange(begin, stop);
            if (failure || shrunk_) {
                return failure;
            }
            end = stop;
        }
        if (end < size_ && uninterrupted([&] { return ::ftruncate(destination_, size_); }) != 0) {
            return Failure{Failure::Where::Writing, errno};
        }
        if (Result canceled = report(size_)) {
            return canceled;
        }
        return copyRest(size_, buffer(), bufferSize);
    }

  private:
    Result report(off_t done) const {
        if (progress_ && done != reported_) {
            reported_ = done;
            auto const bytes = static_cast<std::uint64_t>(done);
            if (!progress_(bytes, std::max(bytes, static_cast<std::uint64_t>(size_)))) {
                return Failure{Failure::Where::Canceled, 0};
            }
        }
        return std::nullopt;
    }

    char* buffer() {
        if (!buffer_) {
            buffer_ = std::make_unique_for_overwrite<char[]>(bufferSize);
        }
        return buffer_.get();
    }

    Result copySmall() {
        off_t at = 0;
        // Files of /proc and their like tell no size, and have to be read to their end.
        Result const failure = size_ != 0 ? copyInKernel(at, smallFile) : std::nullopt;
        if (failure || (at == size_ && size_ != 0)) {
            return failure;
        }
        std::array<char, smallFile> space;
        return copyRest(at, space.data(), space.size());
    }

    Result copyRange(off_t begin, off_t stop) {
        off_t at = begin;
        while (at < stop && inKernel_) {
            if (Result failure = copyInKernel(
                    at, std::min(stop - at, progress_ ? watchedStep : unwatchedStep))) {
                return failure;
            }
        }
        while (at < stop) {
            std::size_t const wanted =
                static_cast<std::size_t>(std::min<off_t>(stop - at, bufferSize));
            Result failure = copyPiece(at, buffer(), wanted);
            if (failure || shrunk_) {
                return failure;
            }
        }
        return std::nullopt;
    }

    /// Up to `wanted` bytes at `at`, which moves on; clears inKernel_ where nothing came of it.
    Result copyInKernel(off_t& at, off_t wanted) {
        off_t to = at;
        ssize_t const done = uninterrupted([&] {
            return ::copy_file_range(source_, &at, destination_, &to,
                                     static_cast<std::size_t>(wanted), 0);
        });
        if (done < 0 && (errno == ENOSPC || errno == EDQUOT || errno == EFBIG)) {
            return Failure{Failure::Where::Writing, errno};
        }
        // Every other refusal, and an answer of nothing, says that the kernel cannot do it for
        // these two files; a defect of one of them shows again behind it, on its proper side.
        inKernel_ = done > 0;
        return done > 0 ? report(at) : std::nullopt;
    }

    /// What is behind `at`, up to the end of the file as it is found.
    Result copyRest(off_t at, char* space, std::size_t size) {
        while (!shrunk_) {
            if (Result failure = copyPiece(at, space, size)) {
                return failure;
            }
        }
        return std::nullopt;
    }

    /// One piece through a buffer; moves `at` on, or notes that the file ends here.
    Result copyPiece(off_t& at, char* space, std::size_t wanted) {
        ssize_t const got = uninterrupted([&] { return ::pread(source_, space, wanted, at); });
        if (got < 0) {
            return Failure{Failure::Where::Reading, errno};
        }
        if (got == 0) {
            shrunk_ = true;
            return std::nullopt;
        }
        ssize_t written = 0;
        while (written < got) {
            ssize_t const put = uninterrupted([&] {
                return ::pwrite(destination_, space + written,
                                static_cast<std::size_t>(got - written), at + written);
            });
            if (put <= 0) {
                return Failure{Failure::Where::Writing, put < 0 ? errno : EIO};
            }
            written += put;
        }
        at += got;
        return report(at);
    }

    int source_;
    int destination_;
    off_t size_;
    bool sparse_;
    CopyProgress const& progress_;
    mutable off_t reported_ = -1;
    bool inKernel_ = true;
    bool shrunk_ = false; ///< the end of the file has been met
    std::unique_ptr<char[]> buffer_;
};

} // namespace

std::optional<ContentCopyFailure> copyContent(int source, struct stat const& item, int destination,
                                              CopyProgress const& progress) {
    return ContentCopy(source, item, destination, progress).run();
}

} // namespace foundation::storage::provider::local::detail
