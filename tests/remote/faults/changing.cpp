#include "plain_request.hpp"
#include "scenario.hpp"

#include <foundation/storage/provider/byte_stream.hpp>
#include <foundation/storage/provider/extensions/i_replacing_streams.hpp>
#include <foundation/storage/provider/storage_item.hpp>

#include <algorithm>
#include <stdexcept>
#include <thread>

namespace remote_faults {

namespace {

using Policy = provider::ReplacementPolicy;

constexpr char kept[] = "work/kept.txt";

/// A folder stays where its last file goes, since another one is in it.
Files with(Files files) {
    files.emplace(kept, "stays");
    return files;
}

std::string bytes(std::size_t size, unsigned seed) {
    std::string result(size, '\0');
    for (std::size_t i = 0; i < size; ++i) {
        result[i] = static_cast<char>((i * (2 * seed + 1) + (i >> 12) * 17) & 255);
    }
    return result;
}

std::string const oldBytes = bytes(700, 1);
std::string const newBytes = bytes(1'300, 2);
std::string const& manyBytes() {
    static std::string const result = bytes(12'000'000, 3);
    return result;
}

void writeAll(provider::ByteStream& stream, std::string const& content) {
    for (std::size_t done = 0; done < content.size();) {
        std::size_t const step = std::min<std::size_t>(content.size() - done, 1'000'000);
        stream.write(content.data() + done, static_cast<long>(step));
        done += step;
    }
}

std::unique_ptr<provider::ByteStream> replacement(Stage const& stage, std::string const& path,
                                                  Policy policy) {
    auto* const replacing =
        dynamic_cast<provider::extensions::IReplacingStreams*>(stage.provider.get());
    if (!replacing) {
        throw std::logic_error("the provider replaces nothing");
    }
    return replacing->openReplacement(stage.at(path), policy);
}

/// Puts a file in the place of another one, or where there is none.
Scenario writing(std::string name, std::string const& content, Files before, Policy policy) {
    Files after = before;
    after["work/file"] = content;
    Scenario result{std::move(name), [content, policy](Stage const& stage) {
                        auto const stream = replacement(stage, "work/file", policy);
                        writeAll(*stream, content);
                        stream->close();
                        return std::optional<std::string>();
                    }};
    result.before = std::move(before);
    result.after = std::move(after);
    result.cleansUp = true;
    result.allowance = std::chrono::seconds(content.size() >> 20);
    return result;
}

/// Something that gives no result but what it changes.
Scenario change(std::string name, Files before, Files after,
                std::function<void(Stage const&)> const& run) {
    Scenario result{std::move(name), [run](Stage const& stage) {
                        run(stage);
                        return std::optional<std::string>();
                    }};
    result.before = std::move(before);
    result.after = std::move(after);
    return result;
}

Scenario giveUp() {
    Files const files = with({{"work/file", oldBytes}});
    Scenario result = change("large write that is given up", files, files, [](Stage const& stage) {
        auto const stream = replacement(stage, "work/file", Policy::ReplaceExisting);
        writeAll(*stream, manyBytes());
    });
    result.cleansUp = true;
    return result;
}

Scenario writeInPlace() {
    return change("small write in place", with({{"work/file", oldBytes}}),
                  with({{"work/file", newBytes}}), [](Stage const& stage) {
                      auto const stream = stage.provider->openStream(stage.at("work/file"), {});
                      writeAll(*stream, newBytes);
                      stream->close();
                  });
}

Scenario move(std::string name, std::string const& content) {
    Scenario result =
        change(std::move(name), with({{"work/from", content}}), with({{"work/to", content}}),
               [](Stage const& stage) {
                   stage.provider->moveFile(stage.at("work/from"), stage.at("work/to"),
                                            Policy::FailIfExists);
               });
    result.moved.emplace("work/from", "work/to");
    return result;
}

Scenario moveFolder() {
    Scenario result =
        change("move of a folder", with({{"work/from/a", oldBytes}}),
               with({{"work/to/a", oldBytes}}), [](Stage const& stage) {
                   stage.provider->moveFolder(stage.at("work/from"), stage.at("work/to"),
                                              Policy::FailIfExists);
               });
    result.moved.emplace("work/from/a", "work/to/a");
    result.gone = "work/from";
    return result;
}

Scenario copy(std::string name, Files const& before, Policy policy) {
    Files after = before;
    after["work/to"] = newBytes;
    Scenario result = change(std::move(name), before, after, [policy](Stage const& stage) {
        stage.provider->copyFile(stage.at("work/from"), stage.item("work/to"), {policy, 0, {}});
    });
    result.cleansUp = true; // some servers copy to another name first
    return result;
}

Scenario removeTree() {
    Files before = with({});
    for (char const* const folder :
         {"work/tree/", "work/tree/a/", "work/tree/b/", "work/tree/b/c/"}) {
        for (char const* const name : {"one", "two", "three"}) {
            before[folder + std::string(name)] = oldBytes;
        }
    }
    Scenario result =
        change("removal of a tree", std::move(before), with({}), [](Stage const& stage) {
            stage.provider->removeFolderRecursively(stage.at("work/tree"));
        });
    result.gone = "work/tree";
    return result;
}

} // namespace

Scenario uploadInTheMiddle(Target const& target, std::string& seen) {
    return {"upload that is not completed", [&target, &seen](Stage const& stage) {
                auto const stream = replacement(stage, "upload", Policy::ReplaceExisting);
                writeAll(*stream, manyBytes());
                // Parts are sent while more is written.
                for (int i = 0; i < 100 && seen.empty(); ++i) {
                    std::vector<std::string> const uploads = target.side->takeUploads();
                    seen = uploads.empty() ? "" : uploads.front();
                    std::this_thread::sleep_for(std::chrono::milliseconds(20));
                }
                closePlainConnections();
                return std::optional<std::string>();
            }};
}

std::vector<Scenario> changingScenarios() {
    Files const old = with({{"work/file", oldBytes}});
    std::vector<Scenario> result{
        writing("small write over a file", newBytes, old, Policy::ReplaceExisting),
        writing("small write of a new file", newBytes, with({}), Policy::FailIfExists),
        writeInPlace(),
        writing("large write over a file", manyBytes(), old, Policy::ReplaceExisting),
        writing("large write of a new file", manyBytes(), with({}), Policy::FailIfExists),
        giveUp(),
        copy("copy over a file", with({{"work/from", newBytes}, {"work/to", oldBytes}}),
             Policy::ReplaceExisting),
        copy("copy to a new file", with({{"work/from", newBytes}}), Policy::FailIfExists),
        move("move", newBytes),
        moveFolder(),
        change("new folder", with({}), with({{"work/new/", ""}}),
               [](Stage const& stage) { stage.provider->createFolder(stage.at("work/new")); }),
        change("removal of a file", old, with({}),
               [](Stage const& stage) { stage.provider->removeFile(stage.at("work/file")); }),
        removeTree(),
    };
    return result;
}

} // namespace remote_faults
