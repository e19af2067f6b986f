// Archives that other programs have made are read as those programs read them.

#include "tar_fixture.hpp"

#include <foundation/storage/provider/byte_stream.hpp>
#include <foundation/storage/provider/extensions/i_links.hpp>
#include <foundation/storage/provider/local/local_factory.hpp>
#include <foundation/storage/provider/local_path.hpp>
#include <foundation/storage/provider/tar/tar_factory.hpp>

#include <fl/i18n/conversion.hpp>

#include <gmock/gmock.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <sys/wait.h>

namespace foundation::storage::provider::tar::test {
namespace {

/// What a format keeps.
enum class Times { Exact, Seconds, None };
enum class Modes { Kept, Lost };

/// How an archive of the folder `tree` is made at $A, and read again in another folder.
struct Row {
    char const* title;
    char const* tools; ///< that both need
    char const* make;
    char const* extract;
    Times times = Times::Seconds;
    Modes modes = Modes::Kept;
};

std::ostream& operator<<(std::ostream& out, Row const& row) {
    return out << row.title;
}

// bsdtar composes names of pax (NFC) where the locale is UTF-8. Names of 7-Zip are composed here,
// and so there are none that are not; no name there is of bytes.
constexpr Row rows[] = {
    {"GnuTar", "tar", "tar cf $A tree", "tar xpf $A"},
    {"GnuTarV7", "tar", "tar c --format=v7 -f $A tree", "tar xpf $A"},
    {"GnuTarOldGnu", "tar", "tar c --format=oldgnu -f $A tree", "tar xpf $A"},
    {"GnuTarUstar", "tar", "tar c --format=ustar -f $A tree", "tar xpf $A"},
    {"GnuTarPax", "tar", "tar c --format=pax -f $A tree", "tar xpf $A", Times::Exact},
    {"GnuTarSparse", "tar", "tar cS --format=gnu -f $A tree", "tar xpf $A"},
    {"GnuTarSparsePax00", "tar", "tar cS --format=pax --sparse-version=0.0 -f $A tree",
     "tar xpf $A", Times::Exact},
    {"GnuTarSparsePax01", "tar", "tar cS --format=pax --sparse-version=0.1 -f $A tree",
     "tar xpf $A", Times::Exact},
    {"GnuTarSparsePax10", "tar", "tar cS --format=pax --sparse-version=1.0 -f $A tree",
     "tar xpf $A", Times::Exact},
    {"GnuTarOfTheFolderItself", "tar", "tar cf $A -C tree .", "tar xpf $A"},
    {"GnuTarAppended", "tar", "tar cf $A tree; echo new > tree/text; tar rf $A tree/text",
     "tar xpf $A"},
    {"GnuTarGzip", "tar gzip", "tar czf $A tree", "tar xpzf $A"},
    {"GnuTarBzip2", "tar bzip2", "tar cjf $A tree", "tar xpjf $A"},
    {"GnuTarXz", "tar xz", "tar cJf $A tree", "tar xpJf $A"},
    {"GnuTarXzOfSeveralBlocks", "tar xz", "tar c tree | xz --block-size=100000 > $A",
     "tar xpJf $A"},
    {"GnuTarLzma", "tar xz", "tar c --lzma -f $A tree", "tar xp --lzma -f $A"},
    {"GnuTarLzip", "tar lzip", "tar c --lzip -f $A tree", "tar xp --lzip -f $A"},
    {"GnuTarZstd", "tar zstd", "tar c --zstd -f $A tree", "tar xp --zstd -f $A"},
    {"GnuTarGzipInPieces", "tar gzip split cat",
     "tar cf t tree; split -b 100000 t t.; for f in t.*; do gzip -c $f; done > $A", "tar xpzf $A"},
    {"BsdtarPax", "bsdtar", "bsdtar --format pax -cf $A tree", "LC_ALL=C bsdtar xpf $A",
     Times::Exact},
    {"BsdtarRestrictedPax", "bsdtar", "bsdtar --format paxr -cf $A tree", "LC_ALL=C bsdtar xpf $A",
     Times::Exact},
    {"BsdtarGnu", "bsdtar", "bsdtar --format gnutar -cf $A tree", "bsdtar xpf $A"},
    {"BsdtarUstar", "bsdtar", "bsdtar --format ustar -cf $A tree", "bsdtar xpf $A"},
    {"BsdtarCpio", "bsdtar", "bsdtar --format odc -cf $A tree", "bsdtar xpf $A"},
    {"BsdtarNewCpio", "bsdtar", "bsdtar --format newc -cf $A tree", "bsdtar xpf $A"},
    {"Bsdtar7Zip", "bsdtar", "rm tree/bytes*; bsdtar --format 7zip -cf $A tree", "bsdtar xpf $A"},
    {"BsdtarIso9660", "bsdtar",
     "rm tree/bytes*; bsdtar --format iso9660 --options '!joliet' -cf $A tree", "bsdtar xpf $A"},
    {"BsdtarIso9660WithJoliet", "bsdtar",
     "rm tree/bytes*; rm tree/absolute; bsdtar --format iso9660 --options '!rockridge' -cf $A "
     "tree",
     "bsdtar xpf $A"},
    {"PythonPax", "python3", "python3 -m tarfile -c $A tree", "python3 -m tarfile -e $A",
     Times::Seconds},
    {"PythonGnu", "python3",
     "python3 -c \"import tarfile; tarfile.open('$A', 'w', format=tarfile.GNU_FORMAT)"
     ".add('tree')\"",
     "python3 -m tarfile -e $A"},
    {"PythonGzip", "python3",
     "python3 -c \"import tarfile; tarfile.open('$A', 'w:gz').add('tree')\"",
     "python3 -m tarfile -e $A"},
    {"SevenZipTar", "7z", "rm tree/absolute; 7z a -ttar -snl $A.tar tree; mv $A.tar $A",
     "7z x -snld -ttar $A"},
    {"SevenZip", "7z",
     "rm tree/bytes* tree/absolute tree/e[!m]*; 7z a -t7z -snl $A.7z tree; mv $A.7z $A",
     "7z x -snld -t7z $A"},
    {"SevenZipStored", "7z",
     "rm tree/bytes* tree/absolute tree/e[!m]*; 7z a -t7z -snl -mx=0 $A.7z tree; mv $A.7z $A",
     "7z x -snld -t7z $A"},
    {"SevenZipNotSolid", "7z",
     "rm tree/bytes* tree/absolute tree/e[!m]*; 7z a -t7z -snl -ms=off $A.7z tree; mv $A.7z $A",
     "7z x -snld -t7z $A"},
    {"SevenZipPpmd", "7z",
     "rm tree/bytes* tree/absolute tree/e[!m]*; 7z a -t7z -snl -m0=PPMd $A.7z tree; mv $A.7z $A",
     "7z x -snld -t7z $A"},
    {"SevenZipBzip2", "7z",
     "rm tree/bytes* tree/absolute tree/e[!m]*; 7z a -t7z -snl -m0=BZip2 $A.7z tree; mv $A.7z $A",
     "7z x -snld -t7z $A"},
    {"SevenZipDeflate", "7z",
     "rm tree/bytes* tree/absolute tree/e[!m]*; 7z a -t7z -snl -m0=Deflate $A.7z tree; mv $A.7z $A",
     "7z x -snld -t7z $A"},
    {"CpioNew", "cpio find", "find tree -depth | cpio -o -H newc > $A", "cpio -idm < $A"},
    {"CpioCrc", "cpio find", "find tree -depth | cpio -o -H crc > $A", "cpio -idm < $A"},
    {"CpioOld", "cpio find", "find tree -depth | cpio -o -H odc > $A", "cpio -idm < $A"},
    {"CpioBinary", "cpio find", "find tree -depth | cpio -o -H bin > $A", "cpio -idm < $A"},
    {"CpioTar", "cpio find", "find tree -depth | cpio -o -H ustar > $A", "cpio -idm < $A"},
    {"CpioGzip", "cpio find gzip", "find tree -depth | cpio -o -H newc | gzip > $A",
     "gzip -dc $A | cpio -idm"},
    {"Ar", "ar", "ar rcU $A tree/text tree/empty tree/large", "ar xo $A"},
    {"Xorriso", "xorriso bsdtar",
     "rm tree/bytes*; xorriso -as mkisofs -quiet -R -graft-points -o $A tree=tree",
     "bsdtar xpf $A"},
};

constexpr char const* makeTree = R"shell(
mkdir -p tree/folder/inner tree/none && cd tree &&
echo 'some text' > text && : > empty && seq 1 60000 > large && cp large folder/inner/deep &&
echo 1 > 'name with  spaces' && echo 2 > "$(printf 'e\314\201 \303\251 \346\227\245')" &&
echo u > "$(printf '\303\274 \346\227\245')" && echo 3 > "$(printf 'bytes \377\376')" && echo 4 > 'back\slash' &&
mkdir -p "long/$(printf '%0100d' 1)/$(printf '%0120d' 2)" &&
echo 5 > "long/$(printf '%0100d' 1)/$(printf '%0120d' 2)/$(printf '%090d' 3)" &&
ln -s text link && ln -s ../large folder/up && ln -s nothing dangling && ln -s /etc/hostname absolute &&
ln -s "$(printf 't%.0s' $(seq 150))" 'link to a long name' &&
ln text hard && ln folder/inner/deep folder/harder &&
truncate -s 1M holes && echo middle | dd of=holes bs=1 seek=500000 conv=notrunc status=none &&
truncate -s 300000 hole &&
chmod 600 text && chmod 555 large && chmod 700 none &&
find . -exec touch -h -d '2021-03-04 05:06:07.123456789 UTC' {} + &&
touch -d '1975-01-02 03:04:05 UTC' empty
)shell";

bool isThere(std::string const& tool) {
    return std::system(("command -v " + tool + " > /dev/null").c_str()) == 0;
}

std::string timeOf(AttributeValues const& values, Times times) {
    std::string text = ' ' + std::to_string(values.lastModified.seconds);
    return times == Times::None    ? ""
           : times == Times::Exact ? text + '.' + std::to_string(values.lastModified.nanoseconds)
                                   : text;
}

/// A line for each entry below a folder of any provider: what it is, and all that is to be read of
/// it.
std::vector<std::string> described(IProvider& provider, StorageIRI const& root, Row const& row) {
    std::vector<std::string> lines;
    auto const cursor = provider.listAllRecursive(root, u"");
    while (cursor->hasNext()) {
        cursor->advance();
        FolderEntry const entry = cursor->currentEntry();
        StorageIRI const location(root, entry.getName());
        std::string line = fl::i18n::ustringToStorageName(entry.getName());
        if (!entry.isFile()) {
            AttributeValues const values = entry.getFolderAttributes()->values();
            if (row.modes == Modes::Kept) {
                line += ' ' + std::to_string(*values.mode);
            }
            lines.push_back(line + '/');
            continue;
        }
        AttributeValues const values = entry.getFileAttributes()->values();
        if (provider.existsExtended(location) == ExtendedExistsResult::File) {
            std::string const content = readAll(*provider.openReadOnlyStream(location));
            EXPECT_EQ(values.size, content.size()) << line;
            line += '=' + std::to_string(content.size()) + ' ' +
                    std::to_string(std::hash<std::string>()(content)) + timeOf(values, row.times);
            if (row.modes == Modes::Kept) {
                line += ' ' + std::to_string(*values.mode);
            }
        } else {
            line += "->" + fl::i18n::ustringToStorageName(
                               dynamic_cast<extensions::ILinks&>(provider).readLink(location));
        }
        lines.push_back(line);
    }
    std::sort(lines.begin(), lines.end());
    return lines;
}

class TarOfOtherPrograms : public ::testing::TestWithParam<Row> {};

TEST(TarOfSevenZip, HasItsNamesComposed) {
    if (!isThere("7z")) {
        GTEST_SKIP() << "7z is not installed";
    }
    WorkFolder const folder;
    std::string const archive = folder.path() + "/archive";
    std::string const make = "cd " + folder.path() +
                             " && echo 1 > \"$(printf 'e\\314\\201')\" && LC_ALL=C.UTF-8 7z a " +
                             archive + ".7z e* > log && mv " + archive + ".7z " + archive + ".tar";
    ASSERT_EQ(std::system(make.c_str()), 0);

    EXPECT_EQ(open(archive)->exists(inside(archive, "\u00e9")), ExistsResult::File);
}

TEST_P(TarOfOtherPrograms, IsReadAsTheyReadIt) {
    Row const& row = GetParam();
    std::string tools = row.tools;
    for (std::string tool; !tools.empty(); tools.erase(0, tool.size() + 1)) {
        tool = tools.substr(0, tools.find(' '));
        if (!isThere(tool)) {
            GTEST_SKIP() << tool << " is not installed";
        }
    }
    WorkFolder const folder;
    std::string const& at = folder.path();
    auto const run = [&](std::string const& command) {
        std::string const all = "cd " + at + " && export A=" + at + "/archive LC_ALL=C.UTF-8 && (" +
                                command + ") > log 2>&1";
        int const status = std::system(all.c_str());
        EXPECT_TRUE(WIFEXITED(status)) << command;
        return contentOf(at + "/log");
    };
    ASSERT_EQ(run(makeTree), "");
    std::string const made = run(row.make);
    std::string const extracted = run(std::string("mkdir out && cd out && ") + row.extract);

    StorageIRI const outside = fromLocalPath(at + "/out/");
    auto const local = local::buildLocalProvider();
    std::vector<std::string> const expected = described(*local, outside, row);
    StorageItem const item = localItem(at + "/archive");
    auto const provider = buildTarProvider(item);
    std::vector<std::string> seen =
        described(*provider, StorageIRI(u"tar", item.getLocation(), u"/"), row);

    EXPECT_GE(expected.size(), 3U) << made << extracted;
    EXPECT_THAT(seen, ::testing::ContainerEq(expected)) << made << extracted;
}

INSTANTIATE_TEST_SUITE_P(Archives, TarOfOtherPrograms, ::testing::ValuesIn(rows),
                         [](auto const& row) { return std::string(row.param.title); });

} // namespace
} // namespace foundation::storage::provider::tar::test
