#pragma once

#include <fl/i18n/ustring.hpp>
#include <foundation/storage/provider/http/detail/dav_client.hpp>
#include <foundation/storage/provider/i_folder_entry_iterator.hpp>

#include <cstddef>
#include <memory>
#include <vector>

namespace foundation::storage::provider::http {

/// What a listing is to show.
struct HttpSelection {
    enum class Kinds { All, Files, Folders };
    enum class Told { Names, Attributes };

    Kinds kinds = Kinds::All;
    Told told = Told::Attributes;
};

/// A cursor over one folder, as the server told of it when the listing began. A clone takes
/// constant time. Throws std::logic_error from advance() behind the last entry, and from
/// currentEntry() before the first.
class HttpCursor final : public IFolderEntryIterator {
  public:
    using Members = std::vector<detail::DavMember>;

    HttpCursor(std::shared_ptr<Members const> members, HttpSelection::Told told)
        : members_(std::move(members)),
          told_(told) {}

    FolderEntry currentEntry() const override;
    bool hasNext() const override { return next_ < members_->size(); }
    void advance() override;
    HttpCursor* cloneIterator() const override { return new HttpCursor(*this); }

  private:
    HttpCursor(HttpCursor const& other) = default;

    std::shared_ptr<Members const> members_;
    HttpSelection::Told told_;
    std::size_t next_ = 0; ///< one more than the current one
};

/// What the properties say, as attributes of an item that may be written.
AttributeValues attributesOf(detail::DavProperties const& properties);

} // namespace foundation::storage::provider::http
