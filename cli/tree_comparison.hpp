#pragma once

#include "content_comparison.hpp"
#include "invocation.hpp"
#include "progress.hpp"
#include "walked_path.hpp"
#include "work_tally.hpp"

#include <foundation/storage/provider/attributes.hpp>
#include <foundation/storage/provider/exists_result.hpp>
#include <foundation/storage/provider/storage_iri.hpp>
#include <foundation/storage/vfs/listing/file_or_folder_entry.hpp>

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <variant>
#include <vector>

/// Two trees, held against each other.
namespace cli {

enum class CompareBy { Size, Time, Content };
enum class LinksBelow { Compared, Followed };

enum class Difference { OnlyInFirst, OnlyInSecond, Kind, Size, Time, Content, Target };

/// What one side has where the two differ. Nothing where the difference says it all.
using DifferentFact =
    std::variant<std::monostate, foundation::storage::provider::ExtendedExistsResult, std::uint64_t,
                 foundation::storage::provider::Timestamp, std::string>;

struct FoundDifference {
    Difference what;
    std::string path; ///< bytes below the tops; empty for the tops themselves
    bool folder;      ///< whether what is at the path, on the side that has it, is a folder
    std::array<DifferentFact, 2> facts;
};

/// Whether two times are the same. Storages of one kind must agree to the nanosecond; between
/// others a time that is whole in micro- or milliseconds or seconds may be one that was cut to
/// that.
bool isSameTime(foundation::storage::provider::Timestamp first,
                foundation::storage::provider::Timestamp second, bool oneKindOfStorage) noexcept;

/// Compares two trees, or two files, and tells of each difference. In each folder that both have,
/// in the order of the bytes of their names, first everything in it, then folder by folder what is
/// below; what only one side has is told once, and not entered. Links below the tops are compared
/// by where they lead, or followed; one that leads to a folder that it is in is reported. Of
/// folders and links no time is compared.
///
/// Reports what fails and goes on. Holds the entries of one folder of each side at a time, and of
/// each folder on the way down the names of those that are still to be entered. Throws Interrupted.
class TreeComparison {
  public:
    using Found = std::function<void(FoundDifference const&)>;
    using Kinds = std::array<foundation::storage::provider::ExtendedExistsResult, 2>;

    TreeComparison(Invocation& invocation, std::array<Location, 2> const& tops, CompareBy by,
                   LinksBelow links, Found found);

    /// `kinds` is what is at the tops, links followed. REQUIRES: File or Folder.
    void compare(Kinds const& kinds);

    /// What was compared so far.
    WorkTally const& done() const noexcept { return done_; }
    std::uint64_t differences() const noexcept { return differences_; }

  private:
    struct Entry {
        std::string name;
        bool folder = false;
        bool known = true; ///< false where its attributes could not be read, which is reported
        std::optional<std::uint64_t> size;
        foundation::storage::provider::Timestamp modified{};
    };
    /// Both sides are always at the same place below their tops.
    struct TwinPath {
        std::array<WalkedPath, 2> sides;

        std::size_t length() const noexcept { return sides[0].length(); }
        void enter(std::string const& name);
        void returnTo(std::size_t length);
    };
    using Locations = std::array<Location, 2>;
    /// A folder on the way down.
    struct Level {
        std::string path;
        std::array<std::optional<foundation::storage::provider::StorageIRI>, 2> canonical;
    };

    void compareTopFiles();
    std::vector<std::string> compareFolder();
    bool noteLevel(Locations const& at);
    bool list(std::size_t side, Location const& location, std::vector<Entry>& entries);
    std::optional<Entry> entryOf(std::size_t side, Location const& folder,
                                 foundation::storage::vfs::FileOrFolderEntry const& entry);
    void follow(std::size_t side, Location const& location, Entry& entry);
    void tellOnlyIn(std::size_t side, Entry const& entry);
    void compareItems(Locations const& folder, Entry const& first, Entry const& second);
    void compareLinks(std::string const& path, Locations const& at);
    void compareFiles(std::string const& path, Locations const& at, Entry const& first,
                      Entry const& second);
    std::optional<bool> isSameContent(Locations const& at);
    void tell(FoundDifference const& difference);
    void report(Location const& location);

    Invocation& invocation_;
    std::array<Location, 2> const tops_;
    CompareBy const by_;
    bool const followsLinks_;
    Found const found_;
    TwinPath path_;
    std::vector<Level> levels_; ///< where links are followed
    std::array<bool, 2> hasLinks_;
    bool const oneKindOfStorage_;
    ContentComparison contents_;
    WorkProgress progress_;
    WorkTally done_;
    std::uint64_t differences_ = 0;
};

} // namespace cli
