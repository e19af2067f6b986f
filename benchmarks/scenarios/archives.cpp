// Zip archives listed, decoded and read by name (workplace.hpp tells the command line).

#include "archives.hpp"

#include "contest.hpp"
#include "program.hpp"

#include <foundation/storage/provider/byte_stream.hpp>
#include <foundation/storage/provider/i_provider.hpp>
#include <foundation/storage/provider/local/local_factory.hpp>
#include <foundation/storage/provider/local_path.hpp>
#include <foundation/storage/provider/storage_item.hpp>
#include <foundation/storage/provider/zip/zip_factory.hpp>
#include <foundation/storage/vfs/listing/entries.hpp>
#include <foundation/storage/vfs/listing/folder_listing.hpp>
#include <foundation/storage/vfs/storage_system/pluggable_storage_system.hpp>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <random>
#include <stdexcept>
#include <thread>

namespace bench {

namespace provider = foundation::storage::provider;
namespace vfs = foundation::storage::vfs;

namespace {

using provider::StorageIRI;
using provider::StorageItem;

void run(std::string const& command) {
    if (std::system(command.c_str()) != 0) {
        throw std::runtime_error("failed: " + command);
    }
}

void require(Amount const& amount, Amount const& expected, char const* who) {
    if (!(amount == expected)) {
        throw std::runtime_error(std::string(who) + " read something else");
    }
}

/// 50,000 files of few bytes in folders of 500, deflated, as Info-ZIP makes it of them.
std::string archiveOfManyFiles(Workplace const& place) {
    std::string const folder = place.path / "many";
    for (int number = 0; number < 50'000; ++number) {
        std::string const inside = folder + "/folder" + std::to_string(number / 500);
        if (number % 500 == 0) {
            std::filesystem::create_directories(inside);
        }
        std::ofstream(inside + "/file" + std::to_string(number))
            << "the content of file number " << number << '\n';
    }
    run("cd '" + folder +
        "' && zip -qr ../many.zip . && cd .. && zip -q0 outer.zip many.zip && "
        "rm -rf many");
    return place.path / "many.zip";
}

/// 1,000 members of 204 KB that deflate to about a third, as text does.
std::string archiveOfText(Workplace const& place) {
    std::string const folder = place.path / "text";
    std::filesystem::create_directories(folder);
    std::mt19937 random(3);
    std::vector<std::string> words(5'000);
    for (std::string& word : words) {
        for (std::size_t size = 2 + random() % 9; size != 0; --size) {
            word += static_cast<char>('a' + random() % 26);
        }
    }
    for (int number = 0; number < 1'000; ++number) {
        std::string text;
        while (text.size() < 204'000) {
            text += words[random() % words.size() * (random() % words.size()) / words.size()];
            text += ' ';
        }
        text.resize(204'000);
        std::ofstream(folder + "/text" + std::to_string(number)) << text;
    }
    run("cd '" + folder + "' && zip -q ../text.zip * && cd .. && rm -rf text");
    return place.path / "text.zip";
}

StorageItem itemAt(std::string const& path) {
    return {provider::local::buildLocalProvider(), provider::fromLocalPath(path)};
}

/// Opens an archive anew and lists all of it through the storage system.
Amount listWithSystem(StorageIRI const& root) {
    auto const system = std::make_shared<vfs::PluggableStorageSystem>(nullptr);
    system->registerPhysicalProvider("file", [] { return provider::local::buildLocalProvider(); });
    system->registerContainerProvider(
        "zip", [](StorageItem const& item) { return provider::zip::buildZipProvider(item); });
    vfs::Folder const folder(vfs::AbsoluteIRI(root, true), vfs::StorageSystemReference(system));
    Amount amount;
    for (vfs::FileOrFolderEntry const& entry : folder.listAllEntriesRecursive()) {
        if (auto const* const file = boost::get<vfs::FileEntry>(&entry)) {
            ++amount.members;
            amount.bytes += file->getAttributes().values().size.value_or(0);
        }
    }
    return amount;
}

/// Reads some members of an archive, each to its end.
Amount read(provider::IProvider const& archive, StorageIRI const& root,
            std::span<std::string const> names) {
    Amount amount;
    std::vector<char> buffer(64 * 1024);
    for (std::string const& name : names) {
        auto const stream =
            archive.openReadOnlyStream(StorageIRI(root, std::u16string(name.begin(), name.end())));
        long got = 0;
        while ((got = stream->read(buffer.data(), static_cast<long>(buffer.size()))) > 0) {
            amount.bytes += static_cast<std::uint64_t>(got);
        }
        ++amount.members;
    }
    return amount;
}

} // namespace

void holdArchiveListing(Workplace const& place) {
    std::string const archive = archiveOfManyFiles(place);
    StorageIRI const item = provider::fromLocalPath(archive);
    StorageIRI const outer = provider::fromLocalPath((place.path / "outer.zip").string());
    StorageIRI const root(u"zip", item, u"/");
    StorageIRI const inner(u"zip", StorageIRI(u"zip", outer, u"/many.zip"), u"/");
    Amount const all = scanByHand(archive);
    std::vector<Contender> contenders{
        {"directory by hand", [&] { require(scanByHand(archive), all, "the scan"); }},
        {"vfs", [&] { require(listWithSystem(root), all, "vfs"); }, {{3.1, "directory by hand"}}},
        {"vfs, in another archive",
         [&] { require(listWithSystem(inner), all, "vfs"); },
         {{1.3, "vfs"}}},
        {"libzip", [&] { require(listWithLibzip(archive), all, "libzip"); }},
        {"libarchive", [&] { require(listWithLibarchive(archive), all, "libarchive"); }},
        {"unzip -l",
         [&] {
             runProgram({"unzip", "-l", archive});
         }},
        {"python3 zipfile", [&] {
             runProgram({"python3", "-c",
                         "import sys, zipfile; print(len(zipfile.ZipFile(sys.argv[1]).infolist()))",
                         archive});
         }}};
    hold({"An archive of 50,000 files opened and listed, with sizes", "ms", 1e-3, 11, contenders});
}

void holdArchiveDecoding(Workplace const& place) {
    std::string const archive = archiveOfText(place);
    auto const opened = provider::zip::buildZipProvider(itemAt(archive));
    StorageIRI const root(u"zip", provider::fromLocalPath(archive), u"/");
    std::vector<std::string> names;
    for (int number = 0; number < 1'000; ++number) {
        names.push_back("text" + std::to_string(number));
    }
    std::span<std::string const> const some(names);
    Amount const all = decodeByHand(archive, Codec::Libdeflate);
    hold({"204 MB of text in 1,000 members decoded and checked",
          "ms",
          1e-3,
          7,
          {{"libdeflate by hand",
            [&] { require(decodeByHand(archive, Codec::Libdeflate), all, "libdeflate"); }},
           {"vfs",
            [&] { require(read(*opened, root, names), all, "vfs"); },
            {{1.2, "libdeflate by hand"}}},
           {"vfs, 2 readers",
            [&] {
                Amount half;
                std::thread other([&] { half = read(*opened, root, some.first(500)); });
                Amount const rest = read(*opened, root, some.subspan(500));
                other.join();
                require({half.members + rest.members, half.bytes + rest.bytes}, all, "vfs");
            },
            {{0.6, "vfs", Time::Elapsed}}},
           {"zlib by hand", [&] { require(decodeByHand(archive, Codec::Zlib), all, "zlib"); }},
           {"libzip", [&] { require(decodeWithLibzip(archive), all, "libzip"); }},
           {"unzip -t", [&] {
                runProgram({"unzip", "-t", archive});
            }}}});
}

void holdMemberByName(Workplace const& place) {
    std::string const archive = archiveOfManyFiles(place);
    auto const opened = provider::zip::buildZipProvider(itemAt(archive));
    StorageIRI const root(u"zip", provider::fromLocalPath(archive), u"/");
    LibzipArchive const libzip(archive);
    std::vector<std::string> names;
    std::mt19937 random(5);
    for (int i = 0; i < 5'000; ++i) {
        unsigned const number = static_cast<unsigned>(random() % 50'000);
        names.push_back("folder" + std::to_string(number / 500) + "/file" + std::to_string(number));
    }
    Amount const all = libzip.read(names);
    hold({"One of 50,000 members read by its name, the archive being open",
          "us a member",
          5'000e-6,
          11,
          {{"libzip", [&] { require(libzip.read(names), all, "libzip"); }},
           {"vfs", [&] { require(read(*opened, root, names), all, "vfs"); }}}});
}

} // namespace bench

int main(int argc, char** argv) {
    static constexpr bench::Work works[] = {
        {"list", bench::holdArchiveListing},
        {"decode", bench::holdArchiveDecoding},
        {"member", bench::holdMemberByName},
    };
    return bench::runWorks("bench_archives", argc, argv, works);
}
