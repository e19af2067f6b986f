#include "tar_fixture.hpp"

#include <foundation/storage/provider/byte_stream.hpp>
#include <foundation/storage/provider/byte_stream_failure.hpp>
#include <foundation/storage/provider/extensions/i_links.hpp>

#include <fl/i18n/conversion.hpp>

#include <gmock/gmock.h>

#include <algorithm>
#include <ctime>
#include <filesystem>

namespace foundation::storage::provider::tar::test {
namespace {

/// A name, with bytes that are no UTF-8 spelled out.
std::string spelledName(fl::i18n::ustring const& name) {
    std::string text;
    for (char16_t const unit : name) {
        if (unit >= 0xDC80 && unit <= 0xDCFF) {
            char hex[8];
            std::snprintf(hex, sizeof hex, "\\x%02x", unit & 0xFFU);
            text += hex;
        } else {
            text += fl::i18n::toDisplayString({&unit, 1});
        }
    }
    return text;
}

std::string lineFor(IProvider& provider, std::string_view archive, FolderEntry const& entry) {
    std::string const path = fl::i18n::ustringToStorageName(entry.getName());
    StorageIRI const location = inside(archive, path);
    std::string const name = spelledName(entry.getName());
    if (!entry.isFile()) {
        return name + '/';
    }
    std::string line;
    int const code = codeOf([&] {
        ExtendedExistsResult const kind = provider.existsExtended(location);
        bool const isLink =
            kind != ExtendedExistsResult::File && kind != ExtendedExistsResult::Other;
        if (isLink) {
            line = name + "->";
            line += spelledName(dynamic_cast<extensions::ILinks&>(provider).readLink(location));
            return;
        }
        line = name;
        auto const stream = provider.openReadOnlyStream(location);
        try {
            line += '=' + readAll(*stream);
        } catch (ByteStreamReadFailure const&) {
            line += "!read";
        }
        EXPECT_EQ(provider.getFileAttributes(location).values().size,
                  entry.getFileAttributes()->values().size);
    });
    if (code >= 0) {
        line = name + '!' + std::to_string(code);
    }
    return line;
}

/// What a reader makes of an archive, as the files beside them have it.
std::string view(std::string_view archive) {
    std::string text;
    int const code = codeOf([&] {
        auto const provider = open(archive);
        auto const cursor = provider->listAllRecursive(inside(archive, ""), u"");
        while (cursor->hasNext()) {
            cursor->advance();
            text += lineFor(*provider, archive, cursor->currentEntry()) + '\n';
        }
    });
    return code < 0 ? text : '!' + std::to_string(code) + '\n';
}

TEST(TarArchives, AreReadOrRefusedAsIsWrittenBesideThem) {
    int compared = 0;
    for (auto const& file : std::filesystem::recursive_directory_iterator(archives())) {
        if (file.path().extension() == ".expected") {
            std::string const name =
                std::filesystem::relative(file.path(), archives()).replace_extension().string();
            std::clock_t const begin = std::clock();
            EXPECT_EQ(view(name), contentOf(file.path())) << name;
            EXPECT_LT(std::clock() - begin, CLOCKS_PER_SEC) << name;
            ++compared;
        }
    }
    EXPECT_GE(compared, 100);
}

TEST(TarArchives, ThatEndTooSoonAreRefusedOrHaveWhatStandsBeforeTheEnd) {
    std::string const whole = "a=some text, some more text, and some text again\nd/\nd/b=2\n";
    int refused = 0;
    int read = 0;
    for (auto const& file : std::filesystem::directory_iterator(archives() + "/cut")) {
        std::string const name = "cut/" + file.path().stem().string();
        std::string const seen = view(name);
        if (seen == "!9\n") {
            ++refused;
        } else {
            EXPECT_TRUE(whole.starts_with(seen)) << name << ": " << seen;
            ++read;
        }
    }
    EXPECT_GE(refused, 500);
    EXPECT_GE(read, 100);
}

} // namespace
} // namespace foundation::storage::provider::tar::test
