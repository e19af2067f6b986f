// What locations and text cost, beside the libraries that do comparable work.

#include <fl/i18n/conversion.hpp>
#include <foundation/network/iri.hpp>
#include <foundation/storage/provider/local_path.hpp>
#include <foundation/storage/provider/storage_iri.hpp>

#include <benchmark/benchmark.h>

#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#if defined(WITH_URIPARSER)
#include <uriparser/Uri.h>
#endif
#if defined(WITH_CURL)
#include <curl/curl.h>
#endif
#if defined(WITH_ICU)
#include <unicode/unistr.h>
#include <unicode/ustring.h>
#endif
#if defined(WITH_ICONV)
#include <iconv.h>
#endif
#if defined(WITH_UTF8CPP)
#include <utf8.h>
#endif

using fl::i18n::ustring;
using foundation::network::IRI;
using foundation::network::IRIArgs;
using foundation::storage::provider::StorageIRI;

namespace {

std::string const shortText = "file:///home/user/readme.txt";

std::string longText() {
    std::string text = "file:///srv";
    for (int i = 0; text.size() < 340; ++i) {
        text += "/folder-" + std::to_string(100000 + i);
    }
    text += "/";
    return text + std::string(367 - text.size() - 4, 'n') + ".txt";
}

std::string const oddText =
    "file:///home/user/caf%C3%A9/./a%20b/../100%25/r%E2%82%AC%F0%9F%98%80.txt";

void parse(benchmark::State& state, std::string const& narrow) {
    ustring const text = fl::i18n::to_ustring(narrow);
    for (auto _ : state) {
        StorageIRI location(text);
        benchmark::DoNotOptimize(location);
    }
}

#if defined(WITH_URIPARSER)
void parseWithUriparser(benchmark::State& state, std::string const& text) {
    for (auto _ : state) {
        UriUriA uri;
        char const* error = nullptr;
        if (uriParseSingleUriA(&uri, text.c_str(), &error) != URI_SUCCESS) {
            throw std::runtime_error("uriparser refused the text");
        }
        benchmark::DoNotOptimize(uri);
        uriFreeUriMembersA(&uri);
    }
}
#endif

#if defined(WITH_CURL)
void parseWithCurl(benchmark::State& state, std::string const& text) {
    for (auto _ : state) {
        CURLU* const url = curl_url();
        if (curl_url_set(url, CURLUPART_URL, text.c_str(), 0) != CURLUE_OK) {
            throw std::runtime_error("libcurl refused the text");
        }
        benchmark::DoNotOptimize(url);
        curl_url_cleanup(url);
    }
}
#endif

void makeChild(benchmark::State& state, char16_t const* base, char16_t const* nameText) {
    StorageIRI const folder{ustring(base)};
    ustring const name = nameText;
    for (auto _ : state) {
        StorageIRI child(folder, name);
        benchmark::DoNotOptimize(child);
    }
}

void makeParent(benchmark::State& state) {
    StorageIRI const location(u"file:///home/user/readme.txt");
    for (auto _ : state) {
        StorageIRI parent = location.getParent();
        benchmark::DoNotOptimize(parent);
    }
}

void makeNested(benchmark::State& state) {
    StorageIRI const archive(u"file:///home/user/archive.zip");
    ustring const scheme = u"zip";
    ustring const path = u"/";
    for (auto _ : state) {
        StorageIRI root(scheme, archive, path);
        benchmark::DoNotOptimize(root);
    }
}

/// The key of a whole scheme, made from nothing, and looked up among a few.
void schemeKey(benchmark::State& state) {
    std::map<StorageIRI, int> const cache{
        {StorageIRI(u"file:/"), 1}, {StorageIRI(u"mem:/"), 2}, {StorageIRI(u"s3://bucket/"), 3}};
    for (auto _ : state) {
        IRIArgs args;
        args.scheme = L"file";
        args.hasScheme = true;
        args.path = L"/";
        args.hasPath = true;
        auto const found = cache.find(StorageIRI(IRI(args)));
        benchmark::DoNotOptimize(found->second);
    }
}

/// The key of an authority, made from a location.
void authorityKey(benchmark::State& state) {
    std::map<StorageIRI, int> const cache{
        {StorageIRI(u"file:/"), 1}, {StorageIRI(u"mem:/"), 2}, {StorageIRI(u"s3://bucket/"), 3}};
    StorageIRI const location(u"s3://bucket/folder/object.bin");
    for (auto _ : state) {
        IRIArgs args(location.toIRI());
        args.hasQuery = args.hasFragment = false;
        args.path = L"/";
        auto const found = cache.find(StorageIRI(IRI(args)));
        benchmark::DoNotOptimize(found->second);
    }
}

void compare(benchmark::State& state) {
    StorageIRI const a(u"file:///home/user/readme.txt");
    StorageIRI const b(u"file:/home/user/%72eadme.txt");
    for (auto _ : state) {
        bool same = a == b;
        benchmark::DoNotOptimize(same);
    }
}

void localPath(benchmark::State& state) {
    StorageIRI const location(u"file:///home/user/readme.txt");
    for (auto _ : state) {
        std::string path = foundation::storage::provider::toLocalPath(location);
        benchmark::DoNotOptimize(path);
    }
}

std::string const ascii24 = "report-2024-05-31-v2.txt";
std::string const ascii1000 = std::string(1000, 'n');
std::string const mixed = "Übersicht über die Größen – naïve café, 100 € (日本語のファイル).txt";
std::string const cyrillic = "Отчёт о проделанной работе за второй квартал.документ";
std::string const japanese = "年度末の報告書、最終版の写し、第二回の会議のために.文書";
std::string const emoji =
    "😀😃😄😁😆😅🤣😂🙂🙃🫠😉😊😇🥰😍🤩😘😗☺";

void toUtf16(benchmark::State& state, std::string const& text) {
    for (auto _ : state) {
        ustring wide = fl::i18n::to_ustring(text);
        benchmark::DoNotOptimize(wide);
    }
}

void toUtf8(benchmark::State& state, std::string const& text) {
    ustring const wide = fl::i18n::to_ustring(text);
    for (auto _ : state) {
        std::string narrow = fl::i18n::to_string(wide);
        benchmark::DoNotOptimize(narrow);
    }
}

#if defined(WITH_ICU)
void toUtf16WithIcu(benchmark::State& state, std::string const& text) {
    for (auto _ : state) {
        icu::UnicodeString const converted = icu::UnicodeString::fromUTF8(text);
        ustring wide(converted.getBuffer(), static_cast<std::size_t>(converted.length()));
        benchmark::DoNotOptimize(wide);
    }
}

/// Into a buffer on the stack first, which is the cheapest way to a string of the exact size.
void toUtf16WithIcuFlat(benchmark::State& state, std::string const& text) {
    for (auto _ : state) {
        char16_t buffer[1024];
        std::int32_t length = 0;
        UErrorCode error = U_ZERO_ERROR;
        u_strFromUTF8(buffer, 1024, &length, text.data(), static_cast<std::int32_t>(text.size()),
                      &error);
        ustring wide(buffer, static_cast<std::size_t>(length));
        benchmark::DoNotOptimize(wide);
    }
}

void toUtf8WithIcu(benchmark::State& state, std::string const& text) {
    ustring const wide = fl::i18n::to_ustring(text);
    for (auto _ : state) {
        char buffer[3072];
        std::int32_t length = 0;
        UErrorCode error = U_ZERO_ERROR;
        u_strToUTF8(buffer, sizeof buffer, &length, wide.data(),
                    static_cast<std::int32_t>(wide.size()), &error);
        std::string narrow(buffer, static_cast<std::size_t>(length));
        benchmark::DoNotOptimize(narrow);
    }
}
#endif

#if defined(WITH_ICONV)
void toUtf16WithIconv(benchmark::State& state, std::string const& text) {
    iconv_t const converter = iconv_open("UTF-16LE", "UTF-8");
    for (auto _ : state) {
        char16_t buffer[1024];
        char* in = const_cast<char*>(text.data());
        char* out = reinterpret_cast<char*>(buffer);
        std::size_t inLeft = text.size();
        std::size_t outLeft = sizeof buffer;
        iconv(converter, &in, &inLeft, &out, &outLeft);
        ustring wide(buffer, (sizeof buffer - outLeft) / sizeof(char16_t));
        benchmark::DoNotOptimize(wide);
    }
    iconv_close(converter);
}
#endif

#if defined(WITH_UTF8CPP)
void toUtf16WithUtf8cpp(benchmark::State& state, std::string const& text) {
    for (auto _ : state) {
        ustring wide;
        utf8::utf8to16(text.begin(), text.end(), std::back_inserter(wide));
        benchmark::DoNotOptimize(wide);
    }
}
#endif

void forTexts(char const* what, void (*run)(benchmark::State&, std::string const&)) {
    struct {
        char const* name;
        std::string const& text;
    } const texts[] = {{"ascii24", ascii24},   {"ascii1000", ascii1000}, {"mixed", mixed},
                       {"cyrillic", cyrillic}, {"japanese", japanese},   {"emoji", emoji}};
    for (auto const& text : texts) {
        benchmark::RegisterBenchmark((std::string(what) + "/" + text.name).c_str(), run, text.text);
    }
}

void forLocations(char const* what, void (*run)(benchmark::State&, std::string const&)) {
    benchmark::RegisterBenchmark((std::string("parse/28/") + what).c_str(), run, shortText);
    benchmark::RegisterBenchmark((std::string("parse/367/") + what).c_str(), run, longText());
    benchmark::RegisterBenchmark((std::string("parse/odd/") + what).c_str(), run, oddText);
}

} // namespace

int main(int argc, char** argv) {
    forLocations("ours", parse);
#if defined(WITH_URIPARSER)
    forLocations("uriparser", parseWithUriparser);
#endif
#if defined(WITH_CURL)
    forLocations("libcurl", parseWithCurl);
#endif
    benchmark::RegisterBenchmark("child/plain", makeChild, u"file:///home/user", u"readme.txt");
    benchmark::RegisterBenchmark("child/longer", makeChild,
                                 u"file:///home/user/projects/archive/2024",
                                 u"report-2024-05-31-v2.txt");
    benchmark::RegisterBenchmark("child/encoded", makeChild, u"file:///home/user", u"100% #1.txt");
    benchmark::RegisterBenchmark("child/of_authority", makeChild, u"s3://bucket/folder",
                                 u"object.bin");
    benchmark::RegisterBenchmark("child/of_nested", makeChild, u"zip:file:///a/b.zip!/folder",
                                 u"readme.txt");
    benchmark::RegisterBenchmark("parent", makeParent);
    benchmark::RegisterBenchmark("nested", makeNested);
    benchmark::RegisterBenchmark("key/scheme", schemeKey);
    benchmark::RegisterBenchmark("key/authority", authorityKey);
    benchmark::RegisterBenchmark("compare/spellings", compare);
    benchmark::RegisterBenchmark("local_path", localPath);
    forTexts("utf16/ours", toUtf16);
#if defined(WITH_ICU)
    forTexts("utf16/icu", toUtf16WithIcu);
    forTexts("utf16/icu_flat", toUtf16WithIcuFlat);
#endif
#if defined(WITH_ICONV)
    forTexts("utf16/iconv", toUtf16WithIconv);
#endif
#if defined(WITH_UTF8CPP)
    forTexts("utf16/utf8cpp", toUtf16WithUtf8cpp);
#endif
    forTexts("utf8/ours", toUtf8);
#if defined(WITH_ICU)
    forTexts("utf8/icu_flat", toUtf8WithIcu);
#endif
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
