#pragma once

#include <foundation/storage/conformance/contract.hpp>
#include <foundation/storage/conformance/detail/text.hpp>
#include <foundation/storage/provider/attributes.hpp>
#include <foundation/storage/provider/byte_stream.hpp>
#include <foundation/storage/provider/byte_stream_failure.hpp>
#include <foundation/storage/provider/byte_stream_open_options.hpp>
#include <foundation/storage/provider/copy_file_options.hpp>
#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/provider/i_provider.hpp>
#include <foundation/storage/provider/storage_item.hpp>

#include <functional>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace foundation::storage::conformance::detail {

// What the cases are written in.
using namespace foundation::storage::provider;
using ListingCall = std::unique_ptr<IFolderEntryIterator> (IProvider::*)(StorageIRI const&,
                                                                         ustring const&) const;
using Call = std::function<void()>;

inline constexpr ReplacementPolicy allPolicies[] = {
    ReplacementPolicy::FailIfExists, ReplacementPolicy::ReplaceExisting,
    ReplacementPolicy::ReplaceReadOnly, ReplacementPolicy::ReplaceAndDeferDenied,
    ReplacementPolicy::KeepExisting};

/// Thrown to end a case whose remark says all there is to say.
struct Abandoned {};

/// One run of one case: a place, ways to arrange what is in it, and checks, which note what is
/// wrong and go on. For one thread, but for the provider itself.
class Trial {
  public:
    Trial(Contract const& contract, Place place, std::vector<std::string>& remarks);
    Trial(Trial const&) = delete;
    Trial& operator=(Trial const&) = delete;
    ~Trial();

    Contract const& contract() const noexcept { return contract_; }
    bool has(Ability ability) const { return !contract_.unsupported.contains(ability); }
    bool canMakeFiles() const {
        return has(Ability::Writing) || has(Ability::FileCreation) || has(Ability::Replacement);
    }

    IProvider& provider() const noexcept { return *place_.provider; }
    /// The place's folder, or what is below it.
    StorageIRI at(ustring const& path) const { return StorageIRI(place_.folder, path); }
    /// The same from the text that stands behind the place's in the location's.
    StorageIRI spelled(ustring const& text) const {
        ustring const& place = place_.folder.toString();
        return StorageIRI(place + (place.ends_with(u'/') ? u"" : u"/") + text);
    }
    StorageItem item(ustring const& path) const { return {place_.provider, at(path)}; }
    /// A provider's extension; a remark and the end where it has none.
    template<class Extension>
    Extension& extension() const {
        auto* const found = dynamic_cast<Extension*>(place_.provider.get());
        if (!found) {
            abandon("the provider has no such extension");
        }
        return *found;
    }

    // Arranging. A failure is a remark, and ends the case.
    void makeFile(ustring const& path, std::string_view bytes = {}) const;
    void makeFolder(ustring const& path) const;
    void makeLink(ustring const& path, ustring const& target) const;
    void makeReadOnly(ustring const& path) const;
    /// What is in the place: as declared, or a small tree that this makes.
    std::vector<DeclaredItem> const& content();

    // Looking. A failure ends the case as anything unexpected does.
    ExistsResult exists(ustring const& path) const; ///< Nothing also where absence is thrown
    bool isFile(ustring const& path) const { return exists(path) == ExistsResult::File; }
    bool isFolder(ustring const& path) const { return exists(path) == ExistsResult::Folder; }
    bool isThere(ustring const& path) const { return exists(path) != ExistsResult::Nothing; }
    std::string bytesOf(ustring const& path) const;
    /// The entries in the order of their names' units.
    std::vector<FolderEntry> entries(ListingCall listing, ustring const& path,
                                     ustring const& filter = {}) const;
    std::vector<ustring> names(ustring const& path,
                               ListingCall listing = &IProvider::listAllNamesOnly,
                               ustring const& filter = {}) const;
    CopyStatus copy(ustring const& from, ustring const& to,
                    ReplacementPolicy policy = ReplacementPolicy::FailIfExists) const;

    // Checking. All note what is wrong, and answer whether nothing is.
    void remark(std::string text) const { remarks_.push_back(std::move(text)); }
    [[noreturn]] void abandon(std::string text) const;
    bool expect(bool holds, std::string_view what) const;
    template<class Value>
    bool expectEqual(std::string_view what, Value const& got, Value const& wanted) const {
        return got == wanted || expect(false, std::string(what) + " gave " + textOf(got) +
                                                  " instead of " + textOf(wanted));
    }
    bool expectFile(ustring const& path, std::string_view bytes) const;
    bool expectGone(ustring const& path) const;
    /// The call throws nothing.
    bool expectDone(std::string_view what, Call const& call) const;
    /// The call throws provider::Exception with this code and location.
    bool expectRefused(std::string_view what, Call const& call, ErrorCode code,
                       StorageIRI const& location) const;
    /// The same about something on the way to the location: itself or a folder above.
    bool expectNotFoundOnTheWay(std::string_view what, Call const& call,
                                StorageIRI const& location) const;
    template<class Failure>
    bool expectStreamFailure(std::string_view what, Call const& call, ErrorCode code) const {
        std::string text;
        try {
            call();
            text = "success";
        } catch (Failure const& e) {
            if (e.getErrorCode() == code) {
                return true;
            }
            text = textOfCurrentException();
        } catch (...) {
            text = "a failure of another kind, " + textOfCurrentException() + ",";
        }
        return expect(false, std::string(what) + " gave " + text + " instead of " + textOf(code));
    }

  private:
    bool expectThrown(std::string_view what, Call const& call, ErrorCode code,
                      std::function<bool(StorageIRI const&)> const& isLocation,
                      StorageIRI const& location) const;
    void arrange(std::string_view what, Call const& call) const;

    Contract const& contract_;
    Place place_;
    std::vector<std::string>& remarks_;
    std::optional<std::vector<DeclaredItem>> content_;
};

/// Bytes that differ from place to place, so that what is lost, doubled or swapped shows.
std::string pattern(std::size_t size, unsigned salt = 0);

/// All that is left of a stream, read in pieces. A remark where a count is not what it may be.
std::string readAll(Trial const& t, ByteStream& stream, long piece = 65536);

void write(ByteStream& stream, std::string_view bytes);

struct NamedListing {
    char const* name;
    ListingCall list;
    bool files;
    bool folders;
    bool attributes;
};
inline constexpr NamedListing flatListings[] = {
    {"listAll", &IProvider::listAll, true, true, true},
    {"listFiles", &IProvider::listFiles, true, false, true},
    {"listFolders", &IProvider::listFolders, false, true, true},
    {"listAllNamesOnly", &IProvider::listAllNamesOnly, true, true, false},
    {"listFilesNamesOnly", &IProvider::listFilesNamesOnly, true, false, false},
    {"listFoldersNamesOnly", &IProvider::listFoldersNamesOnly, false, true, false},
};
inline constexpr NamedListing treeListings[] = {
    {"listAllRecursive", &IProvider::listAllRecursive, true, true, true},
    {"listAllRecursiveNamesOnly", &IProvider::listAllRecursiveNamesOnly, true, true, false},
};

} // namespace foundation::storage::conformance::detail
