#pragma once

#include <foundation/storage/provider/i_provider.hpp>

#include <map>
#include <memory>
#include <mutex>
#include <string>

namespace foundation::storage::conformance::detail {

/// A storage of another kind, to copy from and to: files without folders, written in place. Safe on
/// any number of threads but for streams on one file.
class ForeignStorage final : public provider::IProvider {
  public:
    static provider::StorageIRI at(provider::ustring const& name);

    std::string get(provider::ustring const& name) const;
    void put(provider::ustring const& name, std::string bytes);

    provider::ExistsResult exists(provider::StorageIRI const& location) const override;
    void removeFile(provider::StorageIRI const& location) override;
    std::unique_ptr<provider::ByteStream>
    openStream(provider::StorageIRI const& location,
               provider::ByteStreamOpenOptions const& options) override;
    std::unique_ptr<provider::ByteStream>
    openReadOnlyStream(provider::StorageIRI const& location) const override;

  private:
    std::shared_ptr<std::string> find(provider::StorageIRI const& location) const;

    std::mutex mutable mutex_;
    std::map<provider::ustring, std::shared_ptr<std::string>> files_;
};

} // namespace foundation::storage::conformance::detail
