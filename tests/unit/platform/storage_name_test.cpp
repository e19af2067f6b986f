#include <fl/filesystem/basic_path.hpp>
#include <fl/i18n/conversion.hpp>

#include <gtest/gtest.h>

#include <cstdlib>
#include <random>
#include <stdexcept>
#include <string>
#include <system_error>

#include <sys/stat.h>
#include <unistd.h>

using namespace fl::i18n;

TEST(StorageName, EveryPairOfBytesComesBack) {
    for (unsigned first = 0; first < 256; ++first) {
        for (unsigned second = 0; second < 256; ++second) {
            std::string const bytes{static_cast<char>(first), static_cast<char>(second)};
            ASSERT_EQ(ustringToStorageName(storageNameToUstring(bytes)), bytes);
        }
    }
}

TEST(StorageName, RandomBytesComeBack) {
    std::mt19937 random(20240501);
    // Bytes that begin and continue sequences are what goes wrong, so they come often.
    std::string const favourites = "\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80\xED\xA0\x80\xF4\x90/a.";
    for (int round = 0; round < 200000; ++round) {
        std::string bytes;
        for (std::size_t left = random() % 40; left > 0; --left) {
            bytes += random() % 4 == 0 ? static_cast<char>(random() % 256)
                                       : favourites[random() % favourites.size()];
        }
        ustring const name = storageNameToUstring(bytes);
        ASSERT_EQ(ustringToStorageName(name), bytes);
        ASSERT_EQ(toDisplayString(name), bytes);
        ustring appended = u"before ";
        appendStorageName(appended, bytes);
        ASSERT_EQ(appended, u"before " + name);
    }
}

TEST(StorageName, WellFormedBytesBecomeTheirText) {
    EXPECT_EQ(storageNameToUstring("na\xC3\xAFve \xF0\x9F\x98\x80"), u"naïve \xD83D\xDE00");
}

TEST(StorageName, ABytePartOfNoCharacterBecomesItsLoneUnit) {
    EXPECT_EQ(storageNameToUstring("a\xFFz"), u"a\xDCFFz");
    EXPECT_EQ(storageNameToUstring("\xE2\x82"), u"\xDCE2\xDC82");
    EXPECT_EQ(storageNameToUstring("\xE2\x82\x41"), u"\xDCE2\xDC82\x41");
    EXPECT_EQ(storageNameToUstring("\xC3\xC3\xA9"), u"\xDCC3\xE9");
    EXPECT_EQ(storageNameToUstring("\xED\xA0\x80"), u"\xDCED\xDCA0\xDC80");
    EXPECT_EQ(storageNameToUstring("\xC0\xAF"), u"\xDCC0\xDCAF");
}

TEST(StorageName, LoneUnitsOutsideTheBytesAreRefused) {
    for (char32_t c = 0xD800; c <= 0xDFFF; ++c) {
        ustring const name(1, static_cast<char16_t>(c));
        if (c >= 0xDC80 && c <= 0xDCFF) {
            EXPECT_EQ(ustringToStorageName(name),
                      std::string(1, static_cast<char>(static_cast<unsigned char>(c - 0xDC00))));
        } else {
            EXPECT_THROW(ustringToStorageName(name), std::range_error) << static_cast<unsigned>(c);
        }
    }
}

TEST(StorageName, UnitsThatFormACharacterGiveItsBytes) {
    EXPECT_EQ(ustringToStorageName(u"\xDCC3\xDCA9"), "\xC3\xA9");
    EXPECT_EQ(storageNameToUstring(ustringToStorageName(u"\xDCC3\xDCA9")), u"é");
}

TEST(Path, HoldsTheBytesOfTheKernel) {
    fl::filesystem::path const path("/a/\xFF");

    EXPECT_EQ(path.native(), "/a/\xFF");
    EXPECT_EQ(path.external_string(), u"/a/\xDCFF");
    EXPECT_EQ(fl::filesystem::path(path.external_string()), path);
    EXPECT_TRUE(fl::filesystem::path().empty());
}

TEST(Path, TheWorkingDirectoryIsThatOfTheProcess) {
    fl::filesystem::path const here = fl::filesystem::current_path();

    struct stat byPath {};
    struct stat byDot {};
    ASSERT_EQ(::stat(here.native().c_str(), &byPath), 0);
    ASSERT_EQ(::stat(".", &byDot), 0);
    EXPECT_EQ(byPath.st_ino, byDot.st_ino);
    EXPECT_EQ(byPath.st_dev, byDot.st_dev);
}

TEST(Path, AWorkingDirectoryThatWasRemovedIsUnknown) {
    std::string const before = fl::filesystem::current_path().native();
    std::string folder = testing::TempDir() + "/removed-XXXXXX";
    ASSERT_NE(::mkdtemp(folder.data()), nullptr);
    ASSERT_EQ(::chdir(folder.c_str()), 0);
    ASSERT_EQ(::rmdir(folder.c_str()), 0);

    EXPECT_THROW(fl::filesystem::current_path(), std::system_error);

    ASSERT_EQ(::chdir(before.c_str()), 0);
}
