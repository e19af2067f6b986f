// The inside of an archive is held to what the archive holds, and what is written to all that a
// folder of a disk is held to.

#include "unit/conformance/contract_places.hpp"

#include <foundation/storage/conformance/contract_gtest.hpp>
#include <foundation/storage/conformance/decorate.hpp>
#include <foundation/storage/conformance/read_only.hpp>
#include <foundation/storage/provider/byte_stream.hpp>
#include <foundation/storage/provider/byte_stream_open_options.hpp>
#include <foundation/storage/provider/i_provider.hpp>
#include <foundation/storage/provider/memory/memory_factory.hpp>
#include <foundation/storage/provider/storage_item.hpp>
#include <foundation/storage/provider/zip/zip_factory.hpp>

#include <boost/crc.hpp>

#include <cstdint>
#include <string>
#include <vector>

namespace {

using namespace foundation::storage::provider;
using namespace foundation::storage::conformance;

void append(std::string& bytes, std::uint64_t value, int count) {
    for (int i = 0; i < count; ++i) {
        bytes += static_cast<char>(value >> (8 * i) & 0xFF);
    }
}

/// An archive of stored members (APPNOTE.TXT 4.3), made on Unix.
class Archive {
  public:
    void add(std::string const& name, std::string const& bytes, std::uint32_t mode) {
        boost::crc_32_type sum;
        sum.process_bytes(bytes.data(), bytes.size());
        std::string common; // of both headers, from the version needed on
        append(common, 20, 2);
        append(common, 0x0800, 2); // names are UTF-8
        append(common, 0, 2);
        append(common, 0x58215000, 4); // 2024-01-01, ten o'clock
        append(common, sum.checksum(), 4);
        append(common, bytes.size(), 4);
        append(common, bytes.size(), 4);
        append(common, name.size(), 2);
        append(common, 0, 2);
        directory_ += "PK\1\2";
        append(directory_, 0x0314, 2);
        directory_ += common;
        append(directory_, 0, 6);
        append(directory_, std::uint64_t{mode} << 16, 4);
        append(directory_, members_.size(), 4);
        directory_ += name;
        members_ += "PK\3\4" + common + name + bytes;
        ++count_;
    }
    std::string bytes() const {
        std::string all = members_ + directory_ + "PK\5\6";
        append(all, 0, 4);
        append(all, count_, 2);
        append(all, count_, 2);
        append(all, directory_.size(), 4);
        append(all, members_.size(), 4);
        append(all, 0, 2);
        return all;
    }

  private:
    std::string members_;
    std::string directory_;
    std::uint64_t count_ = 0;
};

Place archivePlace() {
    using Kind = DeclaredItem::Kind;
    Archive archive;
    archive.add("folder/", "", 040755);
    archive.add("folder/empty", "", 0100644);
    archive.add("folder/inner/", "", 040755);
    archive.add("folder/inner/a!", std::string(200'000, 'x') + "end", 0100644);
    archive.add("link", "folder/inner", 0120777);
    archive.add("text", "some text", 0100644);
    archive.add("\u00e4 b", "more", 0100444);
    auto const store = memory::buildMemoryProvider();
    StorageIRI const file(u"mem:/archive.zip");
    auto const stream = store->openStream(file, {});
    std::string const bytes = archive.bytes();
    stream->write(bytes.data(), static_cast<long>(bytes.size()));
    stream->close();
    return {zip::buildZipProvider(StorageItem(decorate<ReadOnly>(store), file)),
            StorageIRI(u"zip:mem:/archive.zip!/"),
            {{u"folder", Kind::Folder, {}},
             {u"folder/empty", Kind::File, {}},
             {u"folder/inner", Kind::Folder, {}},
             {u"folder/inner/a!", Kind::File, std::string(200'000, 'x') + "end"},
             {u"link", Kind::Link, "folder/inner"},
             {u"text", Kind::File, "some text"},
             {u"\u00e4 b", Kind::File, "more"}}};
}

/// An empty archive in a place of another kind.
template<Place (*outerPlace)()>
Place newArchive() {
    Place outer = outerPlace();
    StorageIRI const file(outer.folder, u"archive.zip");
    outer.provider->createFile(file);
    return {zip::buildZipProvider(StorageItem(outer.provider, file)),
            StorageIRI(u"zip", file, u"/"),
            {},
            outer.keeper};
}

constexpr AbilitySet notOfArchives = Ability::ChangeEvents | Ability::RecursiveChangeEvents;

Contract writable(char const* name, Place (*makePlace)()) {
    return {.name = name,
            .makePlace = makePlace,
            .unsupported = notOfArchives,
            .deviations = {
                {"Attributes.ATimeOfMicrosecondsIsKept", "archives tell times in seconds"},
                {"Attributes.ATimeBeforeTheEpochIsKept", "archives tell times in seconds"},
                {"Links.AFolderGetsTheAttributesThatAreGivenAndKeepsTheOthers",
                 "archives tell times in seconds"},
            }};
}

int const readOnlyTests = registerContractTests(
    {.name = "Zip",
     .makePlace = archivePlace,
     .unsupported = changingAbilities | notOfArchives,
     .deviations = {
         {"Declarations.TheFeaturesAreThoseDeclared", "it is only the item that cannot be written"},
         {"Declarations.TheExtensionsAreThoseDeclared",
          "it is only the item that cannot be written"},
     }});

int const memoryTests =
    registerContractTests(writable("ZipInMemory", newArchive<conformance_test::memoryPlace>));
int const localTests =
    registerContractTests(writable("ZipOnDisk", newArchive<conformance_test::localPlace>));
int const nestedTests = registerContractTests(
    writable("ZipInZipOnDisk", newArchive<newArchive<conformance_test::localPlace>>));

TEST(ZipContract, IsMoreThanRefusals) {
    EXPECT_GT(readOnlyTests, 70);
    EXPECT_GT(memoryTests, 330);
    EXPECT_EQ(localTests, memoryTests);
    EXPECT_EQ(nestedTests, memoryTests);
}

} // namespace
