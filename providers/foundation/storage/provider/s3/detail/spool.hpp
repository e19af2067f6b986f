#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace foundation::storage::provider::s3::detail {

/// Bytes that are written here and there before they go to the store: in memory up to a bound, and
/// then in a temporary file that has no name, so that nothing is left of it however the process
/// ends. What was never written is zero. For one thread at a time. Throws web::Failure.
class Spool {
  public:
    /// An empty `folder` stands for /var/tmp, and /tmp where that does not do.
    Spool(std::size_t mostMemory, std::string folder);
    Spool(Spool const&) = delete;
    Spool& operator=(Spool const&) = delete;
    ~Spool();

    std::uint64_t size() const noexcept { return size_; }
    void write(std::uint64_t position, std::span<char const> bytes);
    /// The bytes read; fewer only at the end.
    std::size_t read(std::uint64_t position, std::span<char> buffer) const;

  private:
    void goToFile();
    void writeToFile(std::uint64_t position, std::span<char const> bytes);

    std::size_t const mostMemory_;
    std::string const folder_;
    std::vector<char> memory_;
    int file_ = -1;
    std::uint64_t size_ = 0;
};

} // namespace foundation::storage::provider::s3::detail
