// Archives that other programs have made are read as those programs read them.

#include "../other_programs.hpp"
#include "tar_fixture.hpp"

#include <foundation/storage/provider/tar/tar_factory.hpp>

#include <gmock/gmock.h>

#include <cstdlib>

namespace foundation::storage::provider::tar::test {
namespace {

using provider::test::OtherProgram;
using provider::test::Times;

// bsdtar composes names of pax (NFC) where the locale is UTF-8. Names of 7-Zip are composed here,
// and so there are none that are not; no name there is of bytes.
constexpr OtherProgram programs[] = {
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

class TarOfOtherPrograms : public ::testing::TestWithParam<OtherProgram> {};

TEST_P(TarOfOtherPrograms, IsReadAsTheyReadIt) {
    provider::test::expectTheSame(GetParam(), "tar", [](StorageItem const& item) {
        return buildTarProvider(item, {.sevenZip = true});
    });
}

INSTANTIATE_TEST_SUITE_P(Archives, TarOfOtherPrograms, ::testing::ValuesIn(programs),
                         [](auto const& test) { return std::string(test.param.title); });

TEST(TarOfSevenZip, HasItsNamesComposedAndSaysHowManyBecameOne) {
    if (!provider::test::isInstalled("7z")) {
        GTEST_SKIP() << "7z is not installed";
    }
    WorkFolder const folder;
    std::string const archive = folder.path() + "/archive";
    std::string const make = "cd " + folder.path() +
                             " && for f in 'e\\314\\201' 'e\\303\\251' 'ee\\314\\201'; do"
                             " echo 1 > \"$(printf $f)\"; done && LC_ALL=C.UTF-8 7z a " +
                             archive + ".7z e* > log && mv " + archive + ".7z " + archive + ".tar";
    ASSERT_EQ(std::system(make.c_str()), 0);

    auto const provider = open(archive, {.sevenZip = true});

    EXPECT_THAT(namesOf(provider->listAll(inside(archive, ""), u"")),
                ::testing::UnorderedElementsAre("\u00e9", "e\u00e9"));
    EXPECT_EQ(provider->getExtendedAttributes(inside(archive, "")).at("tar.replaced"), "1");
}

} // namespace
} // namespace foundation::storage::provider::tar::test
