#include "reading.hpp"
#include "scenario.hpp"

#include <fl/i18n/conversion.hpp>
#include <foundation/storage/provider/byte_stream_failure.hpp>
#include <foundation/storage/provider/storage_item.hpp>

#include <algorithm>
#include <ios>

namespace remote_faults {

namespace {

using Wrong = std::optional<std::string>;

constexpr std::size_t largeSize = 12'000'000;

std::string content(std::size_t size) {
    std::string result(size, '\0');
    for (std::size_t i = 0; i < size; ++i) {
        result[i] = static_cast<char>((i * 7 + (i >> 8) * 13 + (i >> 16) * 29) & 255);
    }
    return result;
}

std::string const& smallContent() {
    static std::string const result = content(1'000);
    return result;
}
std::string const& largeContent() {
    static std::string const result = content(largeSize);
    return result;
}

std::string nameOf(std::size_t number) {
    return "name-" + std::to_string(10'000 + number);
}

Wrong ask(Stage const& stage) {
    if (stage.provider->exists(stage.at("small.txt")) != provider::ExistsResult::File) {
        return "the file is not there";
    }
    if (stage.provider->exists(stage.at("missing")) != provider::ExistsResult::Nothing) {
        return "something is there that is missing";
    }
    auto const size = stage.provider->getFileAttributes(stage.at("small.txt")).values().size;
    if (size != smallContent().size()) {
        return "the size is another";
    }
    return {};
}

Wrong readSmall(Stage const& stage) {
    auto const stream = stage.provider->openReadOnlyStream(stage.at("small.txt"));
    if (readUpTo(*stream, 100'000) != smallContent()) {
        return "other bytes";
    }
    stream->close();
    return {};
}

Wrong readLarge(Stage const& stage) {
    auto const stream = stage.provider->openReadOnlyStream(stage.at("large.bin"));
    auto const isRight = [&](std::size_t position, std::size_t count) {
        stream->seek(static_cast<long>(position), std::ios_base::beg);
        return readUpTo(*stream, count) == largeContent().substr(position, count);
    };
    if (!isRight(0, 1'000'000) || !isRight(11'000'000, 2'000'000) || !isRight(3'000'000, 10) ||
        !isRight(2'999'000, 3'000'000)) {
        return "other bytes";
    }
    stream->close();
    return {};
}

Wrong checkMany(std::unique_ptr<provider::IFolderEntryIterator> const& cursor) {
    std::vector<std::string> names;
    names.reserve(manyNames);
    while (cursor->hasNext()) {
        cursor->advance();
        provider::FolderEntry const entry = cursor->currentEntry();
        std::string name = fl::i18n::to_string(entry.getName());
        auto const& attributes = entry.getFileAttributes();
        if (!attributes || attributes->values().size != name.size()) {
            return name + " has another size";
        }
        names.push_back(std::move(name));
    }
    std::sort(names.begin(), names.end());
    for (std::size_t i = 0; i < names.size(); ++i) {
        if (names[i] != nameOf(i)) {
            return names[i] + " stands for " + nameOf(i);
        }
    }
    if (names.size() != manyNames) {
        return std::to_string(names.size()) + " names";
    }
    return {};
}

} // namespace

std::string readUpTo(provider::ByteStream& stream, std::size_t count) {
    std::string result(count, '\0');
    std::size_t done = 0;
    while (done < count) {
        long const step = static_cast<long>(std::min<std::size_t>(count - done, 100'000));
        long const got = stream.read(result.data() + done, step);
        if (got <= 0) {
            break;
        }
        done += static_cast<std::size_t>(got);
    }
    result.resize(done);
    return result;
}

Wrong readAs(provider::IProvider& provider, provider::StorageIRI const& file,
             std::string const& expected) {
    auto const stream = provider.openReadOnlyStream(file);
    std::string read;
    try {
        std::string buffer(777, '\0');
        for (long got = 0;
             (got = stream->read(buffer.data(), static_cast<long>(buffer.size()))) > 0;) {
            read.append(buffer, 0, static_cast<std::size_t>(got));
        }
        stream->close();
    } catch (provider::ByteStreamFailure const&) {
        if (!expected.starts_with(read)) {
            return "other bytes before it fails";
        }
        throw;
    }
    return read == expected ? Wrong() : "other bytes";
}

std::vector<std::string> namesOf(provider::IFolderEntryIterator& cursor) {
    std::vector<std::string> names;
    while (cursor.hasNext()) {
        cursor.advance();
        provider::FolderEntry const entry = cursor.currentEntry();
        names.push_back(fl::i18n::to_string(entry.getName()) + (entry.isFile() ? "" : "/"));
    }
    return names;
}

provider::StorageIRI Stage::at(std::string const& path) const {
    return provider::StorageIRI(root, fl::i18n::to_ustring(path));
}

provider::StorageItem Stage::item(std::string const& path) const {
    return provider::StorageItem(provider, at(path));
}

Files readOnlyFiles(Target const& target) {
    Files result{{"small.txt", smallContent()}, {"large.bin", largeContent()}};
    if (target.hasFolders) {
        for (std::size_t i = 0; i < manyNames; ++i) {
            result.emplace("many/" + nameOf(i), nameOf(i));
        }
    }
    return result;
}

std::vector<Scenario> readingScenarios(Target const& target) {
    std::vector<Scenario> result{
        {"question", &ask}, {"small read", &readSmall}, {"large read with seeks", &readLarge}};
    if (target.hasFolders) {
        result.push_back({"listing of 3,000 names", [](Stage const& stage) {
                              return checkMany(stage.provider->listAll(stage.at("many"), u""));
                          }});
    }
    if (target.listsTrees) {
        result.push_back({"recursive listing of 3,000 names", [](Stage const& stage) {
                              return checkMany(
                                  stage.provider->listAllRecursive(stage.at("many"), u""));
                          }});
    }
    for (Scenario& scenario : result) {
        scenario.isReading = true;
    }
    return result;
}

std::vector<Scenario> scenariosOf(Target const& target) {
    std::vector<Scenario> result = readingScenarios(target);
    if (target.hasFolders) {
        for (Scenario& scenario : changingScenarios()) {
            bool const movesFolder = scenario.name == "move of a folder";
            if (!movesFolder || target.movesFolders) {
                result.push_back(std::move(scenario));
            }
        }
    }
    return result;
}

} // namespace remote_faults
