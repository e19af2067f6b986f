// A name is the bytes of the storage. What a storage cannot hold it refuses with InvalidLocation;
// what it takes it gives back unchanged.

#include <foundation/storage/conformance/detail/case.hpp>
#include <foundation/storage/conformance/detail/trial.hpp>

#include <algorithm>

namespace foundation::storage::conformance::detail {

namespace {

using enum Ability;

constexpr AbilitySet forNames = FileCreation | FileRemoval | Ability::Listing;

/// A byte as a name has it: those that are not part of UTF-8 are lone surrogates.
char16_t unitOfByte(unsigned byte) {
    return static_cast<char16_t>(byte < 0x80 ? byte : 0xDC00 + byte);
}

ustring raw(std::initializer_list<unsigned> bytes) {
    ustring name;
    for (unsigned const byte : bytes) {
        name += unitOfByte(byte);
    }
    return name;
}

/// Makes, tells, lists and removes a file of each name, alone and then together.
void expectUsable(Trial& t, std::vector<ustring> names) {
    for (ustring const& name : names) {
        if (!t.expectDone("createFile of " + textOf(name),
                          [&] { t.provider().createFile(t.at(name)); })) {
            return;
        }
        t.expectEqual("exists of " + textOf(name), t.exists(name), ExistsResult::File);
    }
    std::sort(names.begin(), names.end());
    t.expectEqual("the names of a folder with " + textOf(names), t.names({}), names);
    for (ustring const& name : names) {
        t.expectDone("removeFile of " + textOf(name), [&] { t.provider().removeFile(t.at(name)); });
        t.expectGone(name);
    }
}

/// The name is usable, or refused by every operation alike.
void expectUsableOrInvalid(Trial& t, ustring const& name) {
    StorageIRI const location = t.at(name);
    try {
        t.provider().createFile(location);
    } catch (Exception const& e) {
        t.expectEqual("createFile of " + textOf(name), e.getErrorCode(),
                      ErrorCode::InvalidLocation);
        t.expectEqual("the location that createFile names", e.getStorageIRI(), location);
        t.expectRefused(
            "createFolder of " + textOf(name), [&] { t.provider().createFolder(location); },
            ErrorCode::InvalidLocation, location);
        t.expectRefused(
            "removeFile of " + textOf(name), [&] { t.provider().removeFile(location); },
            ErrorCode::InvalidLocation, location);
        t.expectEqual("the names of the folder", t.names({}), {});
        return;
    }
    t.expectEqual("exists of " + textOf(name), t.exists(name), ExistsResult::File);
    t.expectEqual("the names of the folder", t.names({}), {name});
    t.provider().removeFile(location);
    t.expectGone(name);
}

constexpr Case cases[] = {
    {"EveryByteIsAName",
     [](Trial& t) {
         std::vector<ustring> names;
         for (unsigned byte = 1; byte < 256; ++byte) {
             if (byte != '/' && byte != '.' && (byte < 'A' || byte > 'Z')) {
                 names.push_back(raw({byte}));
             }
         }
         expectUsable(t, names);
     },
     forNames},
    {"EveryCapitalLetterIsAName",
     [](Trial& t) {
         std::vector<ustring> names;
         for (unsigned byte = 'A'; byte <= 'Z'; ++byte) {
             names.push_back(raw({byte}));
         }
         expectUsable(t, names);
     },
     forNames},
    {"EveryByteIsTheNameOfAFolder",
     [](Trial& t) {
         std::vector<ustring> names;
         for (unsigned byte = 1; byte < 256; ++byte) {
             if (byte != '/' && byte != '.' && (byte < 'A' || byte > 'Z')) {
                 names.push_back(raw({byte}));
                 t.makeFolder(names.back());
                 t.makeFile(names.back() + u"/file");
             }
         }
         std::sort(names.begin(), names.end());
         t.expectEqual("the names of the folders", t.names({}, &IProvider::listFoldersNamesOnly),
                       names);
         for (ustring const& name : names) {
             t.expectEqual("the names in the folder " + textOf(name), t.names(name), {u"file"});
         }
     },
     FolderCreation | forNames},
    {"EveryByteMayStandInAName",
     [](Trial& t) {
         std::vector<ustring> names;
         for (unsigned byte = 1; byte < 256; ++byte) {
             if (byte != '/' && (byte < 'A' || byte > 'Z')) {
                 names.push_back(raw({'x', byte, 'y'}));
             }
         }
         expectUsable(t, names);
     },
     forNames},
    {"EscapesAreNotTakenTwice",
     [](Trial& t) {
         expectUsable(t, {u"%", u"%%", u"100%", u"%2F", u"%41", u"%2e", u"%2e%2e", u"%00", u"a%",
                          u"a%4", u"+", u"a+b", u"&amp;"});
     },
     forNames},
    {"SpacesStayWhereTheyAre",
     [](Trial& t) {
         expectUsable(t, {u" ", u"  ", u" a", u"a ", u" a ", u"a b", u"a  b", u"\t", u"a\t"});
     },
     forNames},
    {"LinesMayBreakInNames",
     [](Trial& t) {
         expectUsable(t, {u"\n", u"a\nb", u"a\r\nb", u"\r", u"a\n"});
     },
     forNames},
    {"DotsAreNoStepsInLongerNames",
     [](Trial& t) {
         expectUsable(t, {u"...", u"....", u".a", u"a.", u"..a", u"a..", u".. ", u" .", u". ",
                          u"a..b", u".hidden"});
     },
     forNames},
    {"DelimitersOfLocationsAreCharacters",
     [](Trial& t) {
         expectUsable(t, {u"?", u"a?b", u"#", u"a#b", u"a?b#c", u"!", u"a!", u"!a", u"a:b", u":",
                          u"http:", u"zip:x", u"user@host", u"[1]", u"a;b", u"a,b", u"a=b&c=d"});
     },
     forNames},
    {"AnExclamationMarkEndsNoFolder",
     [](Trial& t) {
         t.makeFolder(u"archive!");
         t.makeFile(u"archive!/file");
         t.makeFolder(u"archive!/b!");
         t.makeFile(u"archive!/b!/!");
         t.expectEqual("the names in archive!", t.names(u"archive!"), {u"b!", u"file"});
         t.expectEqual("the names in archive!/b!", t.names(u"archive!/b!"), {u"!"});
         t.expectGone(u"archive");
     },
     FolderCreation | forNames},
    {"BackslashesAreNoSlashes",
     [](Trial& t) {
         expectUsable(t, {u"\\", u"a\\b", u"C:\\", u"..\\a", u"\\\\host"});
     },
     forNames},
    {"WildcardsAreCharacters",
     [](Trial& t) {
         expectUsable(t, {u"*", u"a*", u"**", u"?x", u"[ab]", u"{a,b}", u"a?b*"});
     },
     forNames},
    {"ShellsMeanNothing",
     [](Trial& t) {
         expectUsable(t, {u"~", u"~root", u"$HOME", u"-", u"-rf", u"--", u"'", u"\"", u"`id`",
                          u"a;b", u"a|b", u"a>b", u"(", u"!!"});
     },
     forNames},
    {"NoNameBelongsToADevice",
     [](Trial& t) {
         expectUsable(t, {u"con", u"nul", u"aux.txt", u"com1", u"prn", u"lpt1.a", u"desktop.ini"});
     },
     forNames},
    {"NamesOfOtherScriptsAreKept",
     [](Trial& t) {
         expectUsable(t, {u"\u00fc", u"\u00df", u"\u0416\u0443\u043a", u"\u65e5\u672c\u8a9e",
                          u"\u05e9\u05dc\u05d5\u05dd", u"\u0e20\u0e32\u0e29\u0e32", u"\u0661"});
     },
     forNames},
    {"CharactersBeyondTheFirstPlaneAreKept",
     [](Trial& t) {
         expectUsable(t, {u"\U0001F600", u"a\U0001F600b", u"\U00020000", u"\U0010FFFD",
                          u"\U0001F468\u200D\U0001F469"});
     },
     forNames},
    {"InvisibleCharactersAreKept",
     [](Trial& t) {
         expectUsable(t, {u"\u200b", u"a\u200bb", u"\ufeff", u"\ufeffa", u"\u202ea", u"\u00a0",
                          u"a\u00ad", u"\u2028"});
     },
     forNames},
    {"NoncharactersAreKept",
     [](Trial& t) {
         expectUsable(t, {u"\uffff", u"\ufffe", u"\ufdd0", u"\U0001FFFF", u"\ufffd"});
     },
     forNames},
    {"ComposedAndDecomposedNamesAreTwo",
     [](Trial& t) {
         expectUsable(t, {u"\u00e9", u"e\u0301", u"\u212b", u"\u00c5", u"A\u030a", u"\uac00",
                          u"\u1100\u1161", u"\ufb01"});
     },
     forNames},
    {"BytesThatAreNotUtf8AreKept",
     [](Trial& t) {
         expectUsable(t, {raw({0xFF}), raw({0xFE, 0xFF}), raw({'a', 0x80, 'b'}), raw({0xC0, 0x80}),
                          raw({0xC0, 0xAF}), raw({0xED, 0xA0, 0x80}), raw({0xF5, 0x80, 0x80, 0x80}),
                          raw({0xE2, 0x82}), raw({0xF0, 0x9F, 0x98}), raw({0x80, 0x80, 0x80})});
     },
     forNames},
    {"BytesThatAreUtf8AreTheCharacter",
     [](Trial& t) {
         t.provider().createFile(t.at(raw({0xC3, 0xA4})));
         t.expectEqual("exists by the character", t.exists(u"\u00e4"), ExistsResult::File);
         t.expectEqual("the names of the folder", t.names({}), {u"\u00e4"});
     },
     forNames},
    {"NamesDifferByCase",
     [](Trial& t) {
         if (t.provider().getFilenameSensitivity(t.at({})) == FilenameSensitivity::Sensitive) {
             expectUsable(t, {u"name", u"Name", u"NAME", u"\u00e4", u"\u00c4", u"\u0131", u"i",
                              u"I", u"\u0130", u"\u00df", u"ss"});
             return;
         }
         t.makeFile(u"Name");
         t.expectRefused(
             "createFile in another case", [&] { t.provider().createFile(t.at(u"nAME")); },
             ErrorCode::ResourceAlreadyExists, t.at(u"nAME"));
     },
     forNames},
    {"APrefixIsAnotherName",
     [](Trial& t) {
         expectUsable(t, {u"a", u"ab", u"abc", u"a.b", u"a-b", u"a b", u"a!", u"a\x01", u"a0"});
     },
     forNames},
    {"AFolderHasNothingOfItsPrefixes",
     [](Trial& t) {
         t.makeFolder(u"a");
         t.makeFolder(u"ab");
         t.makeFile(u"a/x");
         t.makeFile(u"ab/y");
         t.makeFile(u"a.c");
         t.makeFile(u"a!");
         t.expectEqual("the names in a", t.names(u"a"), {u"x"});
         t.expectEqual("the names in ab", t.names(u"ab"), {u"y"});
         t.expectEqual("the names of the place", t.names({}), {u"a", u"a!", u"a.c", u"ab"});
     },
     FolderCreation | forNames},
    {"NamesOfEveryLengthUpTo255Bytes",
     [](Trial& t) {
         std::vector<ustring> names;
         for (std::size_t length = 1; length <= 255; length += length < 240 ? 7 : 1) {
             names.emplace_back(length, u'n');
         }
         expectUsable(t, names);
     },
     forNames},
    {"LongNamesThatDifferAtTheEndAreTwo",
     [](Trial& t) {
         ustring const stem(240, u'n');
         expectUsable(t, {stem + u"1", stem + u"2", stem, stem + u".txt"});
     },
     forNames},
    {"ANameOf256BytesIsUsableOrInvalid",
     [](Trial& t) { expectUsableOrInvalid(t, ustring(256, u'n')); }, FolderCreation | forNames},
    {"ANameOf256BytesAndFewerCharactersIsUsableOrInvalid",
     [](Trial& t) { expectUsableOrInvalid(t, ustring(128, u'\u00e4')); },
     FolderCreation | forNames},
    {"ANameOf5000CharactersIsUsableOrInvalid",
     [](Trial& t) { expectUsableOrInvalid(t, ustring(5000, u'n')); }, FolderCreation | forNames},
    {"PathsMayBeLongerThan4096Bytes",
     [](Trial& t) {
         ustring path;
         for (int level = 0; level < 25; ++level) {
             path += (level ? u"/" : u"") + ustring(200, u'n');
             t.makeFolder(path);
         }
         t.makeFile(path + u"/file");
         t.expectEqual("exists at the end of the path", t.exists(path + u"/file"),
                       ExistsResult::File);
         t.expectEqual("the names at the end of the path", t.names(path), {u"file"});
         t.provider().removeFile(t.at(path + u"/file"));
         t.expectGone(path + u"/file");
     },
     FolderCreation | forNames},
    {"ListedNamesLeadBackToTheirItems",
     [](Trial& t) {
         for (ustring const name :
              {u"a b", u"100%", u"a?b#c", u"x!", u"\u00fc", u"\U0001F600", u"a:b", u"%41"}) {
             t.makeFile(name);
         }
         t.makeFile(raw({0xFF, 'a'}));
         StorageItem const place = t.item({});
         for (ustring const& name : t.names({})) {
             t.expect(StorageItem(place, name).fileExists(),
                      "the listed " + textOf(name) + " is not there");
         }
     },
     forNames},
    {"DotSegmentsOfALocationAreResolved",
     [](Trial& t) {
         t.makeFolder(u"folder");
         t.makeFile(u"file");
         for (ustring const text : {u"folder/../file", u"./file", u"folder/./../file"}) {
             t.expectEqual("exists of " + textOf(text), t.provider().exists(t.spelled(text)),
                           ExistsResult::File);
         }
     },
     FileCreation | FolderCreation},
    {"EmptySegmentsOfALocationCountForNothing",
     [](Trial& t) {
         t.makeFolder(u"folder");
         t.makeFile(u"folder/file");
         for (ustring const text : {u"folder//file", u"folder///file"}) {
             t.expectEqual("exists of " + textOf(text), t.provider().exists(t.spelled(text)),
                           ExistsResult::File);
         }
     },
     FileCreation | FolderCreation},
};

} // namespace

Family nameFamily() {
    return {"Names", cases};
}

} // namespace foundation::storage::conformance::detail
