#include <cli/display.hpp>
#include <cli/entry_line.hpp>
#include <cli/failure.hpp>
#include <cli/iso_time.hpp>
#include <cli/location.hpp>
#include <cli/new_content.hpp>
#include <cli/progress.hpp>
#include <cli/transfer.hpp>

#include <fl/i18n/conversion.hpp>
#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/provider/i_provider.hpp>
#include <foundation/storage/vfs/storage_system/pluggable_storage_system.hpp>
#include <foundation/storage/vfs/storage_system/storage_system_reference.hpp>

#include <gmock/gmock.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <map>
#include <memory>

namespace cli_test {
namespace {

namespace provider = foundation::storage::provider;
namespace vfs = foundation::storage::vfs;

std::string meaningOf(std::string const& typed) {
    return fl::i18n::toDisplayString(cli::parseLocation(typed).iri.toString());
}

TEST(CommandLocation, CompletesWhatPeopleLeaveOut) {
    std::string const here = "file://" + std::filesystem::current_path().string();
    struct Row {
        std::string typed;
        std::string meant;
    };
    for (Row const& row : {
             Row{"notes.txt", here + "/notes.txt"},
             Row{"mem:", "mem:/"},
             Row{"mem://", "mem:///"},
             Row{"s3://bucket", "s3://bucket/"},
             Row{"http://host?q", "http://host/?q"},
             Row{"zip:a.zip", "zip:" + here + "/a.zip!/"},
             Row{"zip:a.zip!/x", "zip:" + here + "/a.zip!/x"},
             Row{"zip:/tmp/a.zip!/x", "zip:file:///tmp/a.zip!/x"},
             Row{"zip:../a b%.zip!/x", "zip:" + here + "/../a b%25.zip!/x"},
             Row{"zip:file:///a.zip", "zip:file:///a.zip!/"},
             Row{"zip:file:///a.zip!/x", "zip:file:///a.zip!/x"},
             Row{"zip:mem:/a.zip!/x", "zip:mem:/a.zip!/x"},
             Row{"zip:tar:/o.tar!/i.zip!/x", "zip:tar:file:///o.tar!/i.zip!/x"},
             Row{"zip:zip:/o.zip!/i.zip", "zip:zip:file:///o.zip!/i.zip!/"},
             Row{"xyz:/a", "xyz:/a"},
         }) {
        EXPECT_EQ(meaningOf(row.typed), row.meant) << row.typed;
    }
}

TEST(CommandLocation, TakesAnOddNameBehindADotAsAPath) {
    EXPECT_THAT(meaningOf("./mem:x"), ::testing::EndsWith("/mem:x"));
    EXPECT_THROW(cli::parseLocation("mem:x"), cli::Refusal);
    EXPECT_THROW(cli::parseLocation("zip:"), cli::Refusal);
    EXPECT_THROW(cli::parseLocation("zip:!/x"), cli::Refusal);
}

TEST(CommandLocation, SpellsAChildAsItsFolderWasSpelled) {
    struct Row {
        std::string folder;
        std::string child;
    };
    for (Row const& row : {
             Row{"docs", "docs/a b%"},
             Row{"docs/", "docs/a b%"},
             Row{".", "./a b%"},
             Row{"/", "/a b%"},
             Row{"ab:", "./ab:/a b%"},
             Row{"file:///tmp", "file:///tmp/a b%25"},
             Row{"file:/tmp/", "file:/tmp/a b%25"},
             Row{"mem:", "mem:/a b%25"},
             Row{"zip:/x.zip", "zip:/x.zip!/a b%25"},
             Row{"zip:x.zip!/", "zip:x.zip!/a b%25"},
             Row{"zip:x.zip!/d", "zip:x.zip!/d/a b%25"},
             Row{"zip:tar:x y%.tar!/i.zip", "zip:tar:x y%.tar!/i.zip!/a b%25"},
             Row{"zip:file:///x.zip!/d", "zip:file:///x.zip!/d/a b%25"},
         }) {
        cli::Location const folder = cli::parseLocation(row.folder);
        cli::Location const child = cli::childLocation(folder, u"a b%");
        EXPECT_EQ(child.typed, row.child);
        EXPECT_EQ(cli::parseLocation(child.typed).iri, child.iri) << row.folder;
    }
    cli::Location const odd = cli::childLocation(cli::parseLocation("docs"), u"\xDCFF");
    EXPECT_EQ(odd.typed, "docs/\xFF");
}

TEST(CommandLocation, IsShownAsItWasTypedButForABareScheme) {
    EXPECT_EQ(cli::parseLocation("mem:").shown(), "mem:/");
    EXPECT_EQ(cli::parseLocation("file:").shown(), "file:/");
    for (char const* const typed : {"mem:/", "mem://", "mem:/a:", "ab:", "./mem:", "zip:a.zip"}) {
        EXPECT_EQ(cli::parseLocation(typed).shown(), typed);
    }
}

TEST(CommandDisplay, HidesPasswordsAndNothingElse) {
    EXPECT_EQ(cli::shownLocation("http://host:80/a@b"), "http://host:80/a@b");
    EXPECT_EQ(cli::shownLocation("http://user@host/"), "http://user@host/");
    EXPECT_EQ(cli::shownLocation("a:b@c"), "a:b@c");
    EXPECT_EQ(cli::shownLocation("http://u:p@host/x"), "http://***@host/x");
    EXPECT_EQ(cli::shownLocation("http://u:p/p@host/x"), "http://***@host/x");
    EXPECT_EQ(cli::shownLocation("zip:s3://u:p@b/a.zip!/x"), "zip:s3://***@b/a.zip!/x");
}

TEST(CommandDisplay, KeepsPrintableTextAndEscapesTheRest) {
    EXPECT_EQ(cli::onOneLine("a\xC3\xA4\xF0\x9F\x8D\x8B \\"), "a\xC3\xA4\xF0\x9F\x8D\x8B \\");
    EXPECT_EQ(cli::onOneLine("\r\n\t\x7f\xff"), "\\r\\n\\t\\x7f\\xff");
    EXPECT_EQ(cli::onOneLine("\xE2\x80\xA8\xE2\x80\xA9"), "\\u2028\\u2029");
    struct Range {
        char16_t first;
        char16_t last;
    };
    for (Range const range :
         {Range{0x202a, 0x202e}, Range{0x2066, 0x2069}, Range{0xfeff, 0xfeff}}) {
        for (char16_t unit = range.first; unit <= range.last; ++unit) {
            std::string const name = fl::i18n::toDisplayString(std::u16string{u'a', unit, u'b'});
            char escaped[8];
            std::snprintf(escaped, sizeof escaped, "\\u%04x", static_cast<unsigned>(unit));
            EXPECT_EQ(cli::onOneLine(name), std::string("a") + escaped + "b");
        }
    }
    std::string const neighbours =
        fl::i18n::toDisplayString(u"\u2027\u202f\u2065\u206a\ufefe\uff00");
    EXPECT_EQ(cli::onOneLine(neighbours), neighbours);
}

TEST(CommandDisplay, WritesSizesAndModes) {
    EXPECT_EQ(cli::sizeInWords(0), "0 bytes");
    EXPECT_EQ(cli::sizeInWords(1), "1 byte");
    EXPECT_EQ(cli::sizeInWords(1023), "1023 bytes");
    EXPECT_EQ(cli::sizeInWords(1024), "1.0 KiB (1024 bytes)");
    EXPECT_EQ(cli::sizeInWords(18446744073709551615u), "16.0 EiB (18446744073709551615 bytes)");
    EXPECT_EQ(cli::modeInWords(0), "--------- (0000)");
    EXPECT_EQ(cli::modeInWords(0100644), "rw-r--r-- (0644)");
    EXPECT_EQ(cli::modeInWords(07755), "rwsr-sr-t (7755)");
    EXPECT_EQ(cli::modeInWords(07000), "--S--S--T (7000)");
}

TEST(CommandDisplay, WritesTimesOutsideTheCalendarAsSeconds) {
    EXPECT_EQ(cli::isoTime({253402300799, 999'999'999}), "9999-12-31T23:59:59.999999999Z");
    EXPECT_EQ(cli::isoTime({INT64_MAX, 5}), "@9223372036854775807.000000005");
    EXPECT_EQ(cli::isoTime({INT64_MIN, 0}), "@-9223372036854775808.000000000");
    EXPECT_EQ(cli::isoTimeToSecond({0, 999'999'999}), "1970-01-01T00:00:00Z");
    EXPECT_EQ(cli::isoTimeToSecond({INT64_MAX, 5}), "@9223372036854775807");
}

TEST(CommandDisplay, ShowsInColumnsWhatAStorageDoesNotTell) {
    cli::EntryFacts facts{"a", cli::parseLocation("mem:/a").iri,
                          provider::ExtendedExistsResult::File, std::nullopt,
                          provider::AttributeValues{}};

    EXPECT_EQ(cli::detailColumns(facts), "-r-                  -  1970-01-01T00:00:00Z  ");
    facts.values->writable = true;
    facts.values->size = 1023 * 1024 + 1023;
    EXPECT_EQ(cli::detailColumns(facts), "-rw         1024.0 KiB  1970-01-01T00:00:00Z  ");
    facts.values->mode = 0;
    facts.kind = provider::ExtendedExistsResult::Folder;
    EXPECT_EQ(cli::detailColumns(facts), "d---------           -  1970-01-01T00:00:00Z  ");
    facts.values.reset();
    EXPECT_EQ(cli::detailColumns(facts), cli::unknownColumns(true));
    EXPECT_EQ(cli::entryAsJson(facts), "{\"name\":\"a\",\"path\":\"a\",\"location\":\"mem:/a\","
                                       "\"kind\":\"folder\"}\n");
}

TEST(CommandProgress, SaysHowFarAndHowFast) {
    EXPECT_EQ(cli::progressText("a", 1 << 20, 4u << 20, 2, 80),
              "a  1.0 MiB of 4.0 MiB  25%  512.0 KiB/s");
    EXPECT_EQ(cli::progressText("a", 2048, std::nullopt, 1, 80), "a  2.0 KiB  2.0 KiB/s");
    EXPECT_EQ(cli::progressText("a", 2048, 1024, 1, 80), "a  2.0 KiB  2.0 KiB/s");
    EXPECT_EQ(cli::progressText("a", 0, 0, 0, 80), "a  0 B");
}

TEST(CommandProgress, CutsALongLabelAtItsFront) {
    std::string const text = cli::progressText(std::string(90, 'x') + "end.iso", 1, 2, 0, 40);

    EXPECT_EQ(text.size(), 40u);
    EXPECT_THAT(text, ::testing::StartsWith("...x"));
    EXPECT_THAT(text, ::testing::HasSubstr("end.iso  1 B of 2 B  50%"));
    EXPECT_EQ(cli::progressText("\xC3\xA4\xC3\xA4\xC3\xA4\xC3\xA4\xC3\xA4", 1, {}, 0, 9),
              "...\xC3\xA4  1 B");
}

TEST(CommandProgress, SaysHowFarWorkOnManyFilesIsAndHowLongItTakesYet) {
    cli::WorkAmount const done{1, 100 * 1024};
    cli::WorkAmount const total{3, 300 * 1024};
    EXPECT_EQ(cli::workProgressText("a", done, total, 10, 90),
              "a  1 of 3 files  100.0 KiB of 300.0 KiB  33%  10.0 KiB/s  0:20 left");
    EXPECT_EQ(cli::workProgressText("a", done, total, 3600, 90),
              "a  1 of 3 files  100.0 KiB of 300.0 KiB  33%  28 B/s  2:00:00 left");
    EXPECT_EQ(cli::workProgressText("a", done, std::nullopt, 10, 90),
              "a  1 file  100.0 KiB  10.0 KiB/s");
    // More than was counted: the tree grows.
    EXPECT_EQ(cli::workProgressText("a", {4, 0}, total, 10, 90), "a  4 files  0 B  0 B/s");
    EXPECT_EQ(cli::workProgressText("a", {0, 0}, total, 0, 90),
              "a  0 of 3 files  0 B of 300.0 KiB");
    EXPECT_EQ(cli::workProgressText("a", {0, 0}, cli::WorkAmount{}, 1, 90),
              "a  0 of 0 files  0 B of 0 B  0 B/s");
}

TEST(CommandProgress, LeavesOutTheRateWhereTheLineIsShort) {
    cli::WorkAmount const done{1, 100 * 1024};
    cli::WorkAmount const total{3, 300 * 1024};
    EXPECT_EQ(cli::workProgressText("some/name", done, total, 10, 64),
              "some/name  1 of 3 files  100.0 KiB of 300.0 KiB  33%  0:20 left");
    EXPECT_EQ(cli::workProgressText("some/name", done, total, 10, 40),
              "some/name  1 of 3 files  33%  0:20 left");
}

// A storage with neither replacing streams nor anything else beyond files in place.
class PlainProvider final : public provider::IProvider {
  public:
    struct File {
        std::string bytes;
        bool writable = true;
    };

    provider::ExistsResult exists(provider::StorageIRI const& location) const override {
        return files.contains(location) ? provider::ExistsResult::File
                                        : provider::ExistsResult::Nothing;
    }
    provider::FileAttributes
    getFileAttributes(provider::StorageIRI const& location) const override {
        provider::AttributeValues values;
        values.writable = files.at(location).writable;
        return provider::FileAttributes(values);
    }
    void removeFile(provider::StorageIRI const& location) override { files.erase(location); }
    // Delivers seven bytes at most with one call, as a storage may.
    std::unique_ptr<provider::ByteStream>
    openReadOnlyStream(provider::StorageIRI const& location) const override {
        return std::make_unique<ReadStream>(files.at(location).bytes);
    }
    std::unique_ptr<provider::ByteStream>
    openStream(provider::StorageIRI const& location,
               provider::ByteStreamOpenOptions const& options) override {
        EXPECT_EQ(options.withoutTruncate, 0u);
        files[location].bytes.clear();
        return std::make_unique<Stream>(files[location].bytes);
    }

    std::map<provider::StorageIRI, File> files;

  private:
    class ReadStream final : public provider::ByteStream {
      public:
        explicit ReadStream(std::string bytes) : bytes_(std::move(bytes)) {}
        long read(char* buffer, long count) override {
            std::size_t const taken =
                bytes_.copy(buffer, std::min<std::size_t>(7, static_cast<std::size_t>(count)), at_);
            at_ += taken;
            return taken == 0 ? -1 : static_cast<long>(taken);
        }
        long write(char const*, long) override { return -1; }
        long seek(long, std::ios_base::seekdir) override { return -1; }
        void close() override {}

      private:
        std::string bytes_;
        std::size_t at_ = 0;
    };
    class Stream final : public provider::ByteStream {
      public:
        explicit Stream(std::string& bytes) : bytes_(bytes) {}
        long read(char*, long) override { return -1; }
        long write(char const* buffer, long count) override {
            bytes_.append(buffer, static_cast<std::size_t>(count));
            return count;
        }
        long seek(long, std::ios_base::seekdir) override { return 0; }
        void close() override {}

      private:
        std::string& bytes_;
    };
};

class CommandOnAPlainStorage : public ::testing::Test {
  protected:
    CommandOnAPlainStorage() {
        system_->registerPhysicalProvider("plain", [this] { return plain_; });
    }
    cli::NewContent open(cli::NewContent::IfThere ifThere = cli::NewContent::IfThere::Replace) {
        return cli::NewContent(reference_, location_, ifThere);
    }
    PlainProvider::File& file() { return plain_->files[location_.iri.toStorageIRI()]; }

    std::shared_ptr<PlainProvider> plain_ = std::make_shared<PlainProvider>();
    std::shared_ptr<vfs::PluggableStorageSystem> system_ =
        std::make_shared<vfs::PluggableStorageSystem>(nullptr);
    vfs::StorageSystemReference reference_{std::weak_ptr<vfs::StorageSystem>(system_)};
    cli::Location location_ = cli::parseLocation("plain:/a");
};

TEST_F(CommandOnAPlainStorage, KeepsPublishedContent) {
    {
        cli::NewContent content = open();
        content.write("one", 3);
        content.write("two", 3);
        content.publish();
    }
    EXPECT_EQ(file().bytes, "onetwo");
}

TEST_F(CommandOnAPlainStorage, RemovesWhatItCreatedAndDidNotPublish) {
    {
        cli::NewContent content = open();
        content.write("one", 3);
    }
    EXPECT_TRUE(plain_->files.empty());
}

TEST_F(CommandOnAPlainStorage, LeavesAFileThatWasThere) {
    file().bytes = "old";
    {
        cli::NewContent content = open();
        content.write("one", 3);
    }
    EXPECT_EQ(file().bytes, "one");
}

TEST_F(CommandOnAPlainStorage, RefusesWhatThePolicyForbids) {
    file().bytes = "old";
    EXPECT_THROW(open(cli::NewContent::IfThere::Refuse), cli::Refusal);
    file().writable = false;
    EXPECT_THROW(open(), cli::Refusal);
    EXPECT_EQ(file().bytes, "old");
}

TEST_F(CommandOnAPlainStorage, TellsACopyFromItsSourceByEveryByte) {
    cli::Location const copy = cli::parseLocation("plain:/copy");
    std::string const bytes(600'000, 'x');
    std::string changed = bytes;
    changed.back() = 'y';
    struct Row {
        std::string source;
        std::string copy;
        bool same;
    };
    for (Row const& row : {
             Row{"", "", true},
             Row{bytes, bytes, true},
             Row{std::string(262144, 'x'), std::string(262144, 'x'), true},
             Row{bytes, changed, false},
             Row{bytes, bytes + "x", false},
             Row{bytes + "x", bytes, false},
             Row{std::string(262144, 'x'), std::string(524288, 'x'), false},
             Row{"x", "", false},
             Row{"", "x", false},
         }) {
        file().bytes = row.source;
        plain_->files[copy.iri.toStorageIRI()].bytes = row.copy;
        if (row.same) {
            EXPECT_NO_THROW(cli::checkCopy(reference_, location_, copy)) << row.source.size();
        } else {
            EXPECT_THROW(cli::checkCopy(reference_, location_, copy), cli::Refusal)
                << row.source.size();
        }
    }
}

} // namespace
} // namespace cli_test
