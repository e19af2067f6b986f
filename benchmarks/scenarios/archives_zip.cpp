// Zip archives listed, decoded and read by name.

#include "archives_zip_peers.hpp"
#include "contest.hpp"
#include "program.hpp"

#include <foundation/storage/provider/local/local_factory.hpp>
#include <foundation/storage/provider/local_path.hpp>
#include <foundation/storage/provider/storage_item.hpp>
#include <foundation/storage/provider/zip/zip_factory.hpp>

#include <random>
#include <thread>
#include <vector>

namespace bench {

namespace provider = foundation::storage::provider;

using provider::StorageIRI;

namespace {

/// As Info-ZIP makes it of them, and one in which that is stored.
std::string archiveOfManyFiles(Workplace const& place) {
    std::string const folder = makeManyFiles(place);
    run("cd '" + folder +
        "' && zip -qr ../many.zip . && cd .. && zip -q0 outer.zip many.zip && rm -rf many");
    return place.path / "many.zip";
}

std::string archiveOfText(Workplace const& place) {
    run("cd '" + makeTexts(place) + "' && zip -q ../text.zip * && cd .. && rm -rf text");
    return place.path / "text.zip";
}

provider::StorageItem itemAt(std::string const& path) {
    return {provider::local::buildLocalProvider(), provider::fromLocalPath(path)};
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
            [&] { require(readMembers(*opened, root, names), all, "vfs"); },
            {{1.2, "libdeflate by hand"}}},
           {"vfs, 2 readers",
            [&] {
                Amount half;
                std::thread other([&] { half = readMembers(*opened, root, some.first(500)); });
                Amount const rest = readMembers(*opened, root, some.subspan(500));
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
           {"vfs", [&] { require(readMembers(*opened, root, names), all, "vfs"); }}}});
}

} // namespace bench
