// Archives that other programs have made are read as those programs read them.

#include "../other_programs.hpp"

#include <foundation/storage/provider/zip/zip_factory.hpp>

#include <gtest/gtest.h>

namespace foundation::storage::provider::zip::test {
namespace {

using provider::test::Modes;
using provider::test::OtherProgram;
using provider::test::Times;

// unzip loses bytes of names that are no UTF-8, and bsdtar composes names (NFC): such names are not
// in what they extract.
constexpr OtherProgram programs[] = {
    {"InfoZip", "zip unzip", "rm tree/bytes*; zip -r $A.zip tree; mv $A.zip $A", "unzip $A"},
    {"InfoZipWithLinks", "zip unzip", "rm tree/bytes*; zip -ry $A.zip tree; mv $A.zip $A",
     "unzip $A"},
    {"InfoZipStored", "zip unzip", "rm tree/bytes*; zip -ry0 $A.zip tree; mv $A.zip $A",
     "unzip $A"},
    {"InfoZipBzip2", "zip unzip", "rm tree/bytes*; zip -ryZ bzip2 $A.zip tree; mv $A.zip $A",
     "unzip $A"},
    {"InfoZipZip64", "zip unzip", "rm tree/bytes*; zip -ryfz $A.zip tree; mv $A.zip $A",
     "unzip $A"},
    {"InfoZipStreamed", "zip unzip cat", "rm tree/bytes*; zip -r - tree | cat > $A", "unzip $A"},
    {"InfoZipOfStandardInput", "zip unzip cat", "cat tree/large | zip > $A", "unzip $A"},
    {"InfoZipWithoutExtraFields", "zip unzip", "rm tree/bytes*; zip -ryX $A.zip tree; mv $A.zip $A",
     "unzip $A"},
    {"InfoZipWithoutFolders", "zip unzip", "rm tree/bytes*; zip -ryD $A.zip tree; mv $A.zip $A",
     "unzip $A"},
    {"InfoZipBehindSomething", "zip unzip cat",
     "rm tree/bytes*; zip -ry $A.zip tree; (echo before; cat $A.zip) > $A; zip -A $A", "unzip $A"},
    {"InfoZipUpdated", "zip unzip",
     "rm tree/bytes*; zip -ry $A.zip tree; echo new > tree/text;"
     " zip -ry $A.zip tree; zip -d $A.zip tree/large; mv $A.zip $A",
     "unzip $A"},
    {"SevenZip", "7z", "rm tree/absolute; 7z a -tzip -snl $A.zip tree; mv $A.zip $A",
     "7z x -snld $A"},
    {"SevenZipBzip2", "7z", "rm tree/absolute; 7z a -tzip -snl -mm=BZip2 $A.zip tree; mv $A.zip $A",
     "7z x -snld $A"},
    {"SevenZipUtf8", "7z", "rm tree/absolute; 7z a -tzip -snl -mcu=on $A.zip tree; mv $A.zip $A",
     "7z x -snld $A"},
    {"Python", "python3", "python3 -m zipfile -c $A tree", "python3 -m zipfile -e $A .",
     Times::None, Modes::Lost},
    {"PythonZip64", "python3",
     "python3 -c \"import os, zipfile; z = zipfile.ZipFile('$A', 'w', zipfile.ZIP_DEFLATED);"
     " [z.open(n, 'w', force_zip64=True).write(open('tree/' + n, 'rb').read())"
     " for n in ('text', 'large', 'empty')]; z.close()\"",
     "python3 -m zipfile -e $A .", Times::None, Modes::Lost},
    {"PythonStreamed", "python3 cat",
     "python3 -c \"import sys, zipfile; z = zipfile.ZipFile(sys.stdout.buffer, 'w', "
     "zipfile.ZIP_BZIP2"
     "); [z.write('tree/' + n) for n in ('text', 'large', 'empty')]; z.close()\" | cat > $A",
     "python3 -m zipfile -e $A .", Times::None, Modes::Lost},
    {"Bsdtar", "bsdtar", "rm tree/bytes* tree/e[!m]*; bsdtar --format zip -cf $A tree",
     "bsdtar xpf $A"},
    {"BsdtarStored", "bsdtar",
     "rm tree/bytes* tree/e[!m]*; bsdtar --format zip --options zip:compression=store -cf $A tree",
     "bsdtar xpf $A"},
    {"BsdtarStreamed", "bsdtar cat",
     "rm tree/bytes* tree/e[!m]*; bsdtar --format zip -cf - tree | cat > $A", "bsdtar xpf $A"},
    {"BsdtarZip64", "bsdtar",
     "rm tree/bytes* tree/e[!m]*; bsdtar --format zip --options zip:zip64 -cf $A tree",
     "bsdtar xpf $A"},
};

class ZipOfOtherPrograms : public ::testing::TestWithParam<OtherProgram> {};

TEST_P(ZipOfOtherPrograms, IsReadAsTheyReadIt) {
    provider::test::expectTheSame(GetParam(), "zip",
                                  [](StorageItem const& item) { return buildZipProvider(item); });
}

INSTANTIATE_TEST_SUITE_P(Archives, ZipOfOtherPrograms, ::testing::ValuesIn(programs),
                         [](auto const& test) { return std::string(test.param.title); });

} // namespace
} // namespace foundation::storage::provider::zip::test
