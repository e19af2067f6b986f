#pragma once

#include <foundation/storage/provider/byte_stream.hpp>
#include <foundation/storage/provider/copy_file_options.hpp>
#include <foundation/storage/provider/error_code.hpp>
#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/provider/i_provider.hpp>
#include <foundation/storage/provider/local/local_options.hpp>
#include <foundation/storage/provider/storage_iri.hpp>
#include <foundation/storage/provider/storage_item.hpp>

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <vector>

namespace foundation::storage::provider::local::test {

/// A folder of its own on the real disk, removed with everything in it at the end.
class TemporaryFolder {
  public:
    TemporaryFolder();
    explicit TemporaryFolder(std::string const& parent);
    TemporaryFolder(TemporaryFolder const&) = delete;
    TemporaryFolder& operator=(TemporaryFolder const&) = delete;
    ~TemporaryFolder();

    std::string const& path() const noexcept { return path_; }

  private:
    std::string path_;
};

class LocalProviderTest : public ::testing::Test {
  protected:
    explicit LocalProviderTest(LocalOptions const& options = {});

    std::string path(std::string_view name) const;
    StorageIRI at(std::string_view name) const;
    StorageItem item(std::string_view name) const { return StorageItem(provider_, at(name)); }

    /// What is on the disk, made and looked at without the provider.
    void makeFile(std::string_view name, std::string_view content = "", mode_t mode = 0644) const;
    void makeFolder(std::string_view name, mode_t mode = 0755) const;
    void makeLink(std::string_view name, std::string const& target) const;
    void makeFifo(std::string_view name) const;
    void setTimes(std::string_view name, timespec accessed, timespec modified) const;
    std::string content(std::string_view name) const;
    bool isThere(std::string_view name) const;
    struct stat status(std::string_view name) const;
    std::string target(std::string_view link) const;
    /// The names in a folder, sorted; of the test's own folder where `name` is empty.
    std::vector<std::string> names(std::string_view name = "") const;

    CopyStatus copy(std::string_view from, std::string_view to,
                    ReplacementPolicy policy = ReplacementPolicy::FailIfExists,
                    CopyProgress progress = {}) const;

    TemporaryFolder folder_;
    std::shared_ptr<IProvider> provider_;
};

/// What a call threw as provider::Exception: the code and the location.
struct Refusal {
    ErrorCode code;
    StorageIRI location;
};
std::optional<Refusal> refusalOf(std::function<void()> const& call);

/// Whether a call was refused with this code, about this location.
::testing::AssertionResult isRefused(std::function<void()> const& call, ErrorCode code,
                                     StorageIRI const& location);

std::string readAll(ByteStream& stream);
void writeAll(ByteStream& stream, std::string_view bytes);

/// The number of descriptors that this process has open.
std::size_t openDescriptors();

inline constexpr ReplacementPolicy allPolicies[] = {
    ReplacementPolicy::FailIfExists, ReplacementPolicy::ReplaceExisting,
    ReplacementPolicy::ReplaceReadOnly, ReplacementPolicy::ReplaceAndDeferDenied,
    ReplacementPolicy::KeepExisting};

} // namespace foundation::storage::provider::local::test
