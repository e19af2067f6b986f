#include "local_fixture.hpp"

#include <foundation/storage/provider/extensions/i_small_file_copies.hpp>
#include <foundation/storage/provider/local/local_factory.hpp>

#include <fcntl.h>
#include <unistd.h>

namespace foundation::storage::provider::local::test {
namespace {

using extensions::SmallFileCopy;
using fl::i18n::ustring;

class LocalSmallCopies : public LocalProviderTest {
  protected:
    LocalSmallCopies() {
        makeFolder("from");
        makeFolder("to");
    }

    /// The sizes of the copies, and "left" for what was left.
    std::vector<std::string> copyAll(std::vector<ustring> const& names,
                                     std::string_view from = "from",
                                     std::string_view to = "to") const {
        std::vector<SmallFileCopy> files;
        files.reserve(names.size());
        for (ustring const& name : names) {
            files.push_back({&name});
        }
        dynamic_cast<extensions::ISmallFileCopies&>(*provider_)
            .copySmallFiles(at(from), at(to), files);
        std::vector<std::string> result;
        result.reserve(files.size());
        for (SmallFileCopy const& file : files) {
            result.push_back(file.isCopied ? std::to_string(file.size) : "left");
        }
        return result;
    }
};

using Results = std::vector<std::string>;

TEST_F(LocalSmallCopies, CarryContentModeAndTimes) {
    makeFile("from/a", "some");
    makeFile("from/b", std::string(100'000, 'b'), 0400);
    setTimes("from/b", {1'111'111'111, 987'654'321}, {-3, 123'456'789});

    EXPECT_EQ(copyAll({u"a", u"b"}), (Results{"4", "100000"}));

    EXPECT_EQ(status("to/b").st_mode & 07777, 0400U);
    EXPECT_EQ(status("to/b").st_atim.tv_nsec, 987'654'321);
    EXPECT_EQ(status("to/b").st_mtim.tv_sec, -3);
    EXPECT_EQ(status("to/b").st_mtim.tv_nsec, 123'456'789);
    EXPECT_EQ(content("to/a"), "some");
    EXPECT_EQ(content("to/b"), std::string(100'000, 'b'));
    EXPECT_EQ(names("to"), (std::vector<std::string>{"a", "b"}));
}

TEST_F(LocalSmallCopies, LeaveWhatIsThereAsItIs) {
    makeFile("from/a", "new");
    makeFile("from/b", "new");
    makeFile("to/a", "old");
    makeLink("to/b", "nowhere");

    EXPECT_EQ(copyAll({u"a", u"b"}), (Results{"left", "left"}));

    EXPECT_EQ(content("to/a"), "old");
    EXPECT_EQ(target("to/b"), "nowhere");
    EXPECT_EQ(names("to"), (std::vector<std::string>{"a", "b"}));
}

TEST_F(LocalSmallCopies, LeaveWhatIsNoFile) {
    makeFile("from/file", "bytes");
    makeLink("from/link", "file");
    makeFolder("from/folder");
    makeFifo("from/fifo");

    EXPECT_EQ(copyAll({u"link", u"folder", u"fifo", u"missing", u"file"}),
              (Results{"left", "left", "left", "left", "5"}));
    EXPECT_EQ(names("to"), std::vector<std::string>{"file"});
}

TEST_F(LocalSmallCopies, LeaveNamesThatLeadElsewhere) {
    makeFile("secret", "bytes");
    makeFolder("from/folder");
    makeFile("from/folder/file", "bytes");

    EXPECT_EQ(copyAll({u"../secret", u"folder/file", u"..", u".", u"", ustring(u"secret\0x", 8),
                       ustring(1, char16_t{0xD800})}),
              Results(7, "left"));
    EXPECT_EQ(names("to"), std::vector<std::string>());
}

TEST_F(LocalSmallCopies, LeaveEverythingOfAFolderThatIsNone) {
    makeFile("from/a", "some");
    makeLink("link", "from");

    EXPECT_EQ(copyAll({u"a"}, "missing"), Results{"left"});
    EXPECT_EQ(copyAll({u"a"}, "link"), Results{"left"});
    EXPECT_EQ(copyAll({u"a"}, "from", "missing"), Results{"left"});
    EXPECT_EQ(copyAll({u"a"}, "from", "from/a"), Results{"left"});
}

TEST_F(LocalSmallCopies, TakeNoMoreDescriptorsThanAFew) {
    std::vector<ustring> files;
    for (int number = 0; number < 100; ++number) {
        std::string const name = std::to_string(number);
        makeFile("from/" + name, name);
        files.emplace_back(name.begin(), name.end());
    }
    std::size_t const before = openDescriptors();

    Results const results = copyAll(files);

    EXPECT_EQ(openDescriptors(), before);
    EXPECT_EQ(results[7], "1");
    EXPECT_EQ(results[99], "2");
    EXPECT_EQ(names("to").size(), 100U);
}

TEST_F(LocalSmallCopies, LeaveEverythingWhereLinksAreFollowed) {
    LocalOptions options;
    options.followLinks = true;
    provider_ = buildLocalProvider(options);
    makeFile("from/a", "some");

    EXPECT_EQ(copyAll({u"a"}), Results{"left"});
}

} // namespace
} // namespace foundation::storage::provider::local::test
