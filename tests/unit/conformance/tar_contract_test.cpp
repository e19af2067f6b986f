// The inside of an archive is held to what the archive holds.

#include <foundation/storage/conformance/contract_gtest.hpp>
#include <foundation/storage/provider/byte_stream.hpp>
#include <foundation/storage/provider/byte_stream_open_options.hpp>
#include <foundation/storage/provider/i_provider.hpp>
#include <foundation/storage/provider/memory/memory_factory.hpp>
#include <foundation/storage/provider/storage_item.hpp>
#include <foundation/storage/provider/tar/tar_factory.hpp>

#include <cstdint>
#include <string>
#include <vector>

namespace {

using namespace foundation::storage::provider;
using namespace foundation::storage::conformance;

/// An archive of POSIX ustar (pax(1), "ustar Interchange Format").
class Archive {
  public:
    void add(std::string const& name, std::string const& bytes, std::uint32_t mode,
             char type = '0') {
        bool const isLink = type == '2';
        std::string header(512, '\0');
        put(header, 0, name);
        put(header, 100, octal(mode, 7));
        put(header, 124, octal(isLink ? 0 : bytes.size(), 11));
        put(header, 136, octal(1'700'000'000, 11));
        put(header, 148, "        ");
        header[156] = type;
        put(header, 157, isLink ? bytes : "");
        put(header, 257, std::string("ustar\00000", 8));
        unsigned sum = 0;
        for (char const byte : header) {
            sum += static_cast<unsigned char>(byte);
        }
        put(header, 148, octal(sum, 7));
        bytes_ += header;
        if (!isLink) {
            bytes_ += bytes + std::string((512 - bytes.size() % 512) % 512, '\0');
        }
    }
    std::string bytes() const { return bytes_ + std::string(1024, '\0'); }

  private:
    static void put(std::string& header, std::size_t at, std::string const& text) {
        header.replace(at, text.size(), text);
    }
    static std::string octal(std::uint64_t value, std::size_t digits) {
        std::string text(digits, '0');
        for (auto digit = text.rbegin(); digit != text.rend(); ++digit, value >>= 3) {
            *digit = static_cast<char>('0' + (value & 7U));
        }
        return text;
    }

    std::string bytes_;
};

Place archivePlace() {
    using Kind = DeclaredItem::Kind;
    Archive archive;
    archive.add("folder/", "", 0755, '5');
    archive.add("folder/empty", "", 0644);
    archive.add("folder/inner/", "", 0755, '5');
    archive.add("folder/inner/a!", std::string(200'000, 'x') + "end", 0644);
    archive.add("link", "folder/inner", 0777, '2');
    archive.add("text", "some text", 0644);
    archive.add("\u00e4 b", "more", 0444);
    auto const store = memory::buildMemoryProvider();
    StorageIRI const file(u"mem:/archive.tar");
    auto const stream = store->openStream(file, {});
    std::string const bytes = archive.bytes();
    stream->write(bytes.data(), static_cast<long>(bytes.size()));
    stream->close();
    return {tar::buildTarProvider(StorageItem(store, file)),
            StorageIRI(u"tar:mem:/archive.tar!/"),
            {{u"folder", Kind::Folder, {}},
             {u"folder/empty", Kind::File, {}},
             {u"folder/inner", Kind::Folder, {}},
             {u"folder/inner/a!", Kind::File, std::string(200'000, 'x') + "end"},
             {u"link", Kind::Link, "folder/inner"},
             {u"text", Kind::File, "some text"},
             {u"\u00e4 b", Kind::File, "more"}}};
}

int const tests =
    registerContractTests({.name = "Tar",
                           .makePlace = archivePlace,
                           .unsupported = changingAbilities | Ability::ChangeEvents |
                                          Ability::RecursiveChangeEvents | Ability::Flushing});

TEST(TarContract, IsMoreThanRefusals) {
    EXPECT_GT(tests, 70);
}

} // namespace
