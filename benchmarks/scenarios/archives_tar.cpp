// Tar archives listed and read, as they are and compressed.

#include "archives_tar_peers.hpp"
#include "contest.hpp"
#include "program.hpp"

#include <foundation/storage/provider/local/local_factory.hpp>
#include <foundation/storage/provider/local_path.hpp>
#include <foundation/storage/provider/storage_item.hpp>
#include <foundation/storage/provider/tar/tar_factory.hpp>

#include <fl/i18n/conversion.hpp>

#include <vector>

namespace bench {

namespace provider = foundation::storage::provider;

using provider::StorageIRI;
using provider::StorageItem;

namespace {

/// What is in a folder, as GNU tar makes it: NAME.tar and NAME.tar.gz. The folder goes.
std::vector<std::string> archivesOf(std::string const& folder) {
    run("cd '" + folder + "' && tar cf ../tar.tar --format=ustar * && cd .. && rm -rf '" + folder +
        "' && gzip -k tar.tar && mv tar.tar '" + folder + ".tar' && mv tar.tar.gz '" + folder +
        ".tar.gz'");
    return {folder + ".tar", folder + ".tar.gz"};
}

StorageIRI rootOf(std::string const& archive) {
    return {u"tar", provider::fromLocalPath(archive), u"/"};
}

/// Opens an archive anew, and reads its files in its own order.
Amount readAll(std::string const& archive) {
    auto const opened = provider::tar::buildTarProvider(
        StorageItem(provider::local::buildLocalProvider(), provider::fromLocalPath(archive)));
    StorageIRI const root = rootOf(archive);
    std::vector<std::string> names;
    for (auto const cursor = opened->listAllRecursiveNamesOnly(root, u""); cursor->hasNext();) {
        cursor->advance();
        provider::FolderEntry const entry = cursor->currentEntry();
        if (entry.isFile()) {
            names.push_back(fl::i18n::ustringToStorageName(entry.getName()));
        }
    }
    return readMembers(*opened, root, names);
}

} // namespace

void holdTarListing(Workplace const& place) {
    for (std::string const& archive : archivesOf(makeManyFiles(place))) {
        Amount const all = readTarByHand(archive, Reading::Headers);
        bool const isCompressed = archive.ends_with(".gz");
        hold({std::string("A ") + (isCompressed ? "tar.gz" : "tar") +
                  " of 50,000 files opened and listed, with sizes",
              "ms",
              1e-3,
              11,
              {{isCompressed ? "headers by hand, zlib" : "headers by hand",
                [&] { require(readTarByHand(archive, Reading::Headers), all, "by hand"); }},
               {"vfs", [&] { require(listWithSystem(rootOf(archive)), all, "vfs"); }},
               {"libarchive",
                [&] {
                    require(readTarWithLibarchive(archive, Reading::Headers), all, "libarchive");
                }},
               {"bsdtar -tvf",
                [&] {
                    runProgram({"bsdtar", "-tvf", archive});
                }},
               {"tar -tvf",
                [&] {
                    runProgram({"tar", "-tvf", archive});
                }},
               {"python3 tarfile", [&] {
                    runProgram({"python3", "-c",
                                "import sys, tarfile; "
                                "print(sum(m.size for m in tarfile.open(sys.argv[1])))",
                                archive});
                }}}});
    }
}

void holdTarReading(Workplace const& place) {
    for (std::string const& archive : archivesOf(makeTexts(place))) {
        Amount const all = readTarByHand(archive, Reading::Contents);
        bool const isCompressed = archive.ends_with(".gz");
        hold({std::string("204 MB of text in the 1,000 files of a ") +
                  (isCompressed ? "tar.gz" : "tar") + ", opened and read",
              "ms",
              1e-3,
              7,
              {{isCompressed ? "by hand, zlib" : "by hand",
                [&] { require(readTarByHand(archive, Reading::Contents), all, "by hand"); }},
               {"vfs", [&] { require(readAll(archive), all, "vfs"); }},
               {"libarchive",
                [&] {
                    require(readTarWithLibarchive(archive, Reading::Contents), all, "libarchive");
                }},
               {"bsdtar -xOf",
                [&] {
                    runProgram({"bsdtar", "-xOf", archive});
                }},
               {"tar -xOf",
                [&] {
                    runProgram({"tar", "-xOf", archive});
                }},
               {"python3 tarfile", [&] {
                    runProgram({"python3", "-c",
                                "import sys, tarfile\n"
                                "with tarfile.open(sys.argv[1]) as archive:\n"
                                "    print(sum(len(archive.extractfile(member).read())"
                                " for member in archive))",
                                archive});
                }}}});
    }
}

} // namespace bench
