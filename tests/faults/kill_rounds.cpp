#include "kill_rounds.hpp"

#include "killed_run.hpp"
#include "scenario.hpp"
#include "tree_picture.hpp"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <random>
#include <stdexcept>
#include <string_view>
#include <sys/stat.h>
#include <utility>

namespace fault_sweep {

namespace fs = std::filesystem;

namespace {

std::string textOf(std::string const& path) {
    std::ifstream in(path, std::ios_base::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

/// What is killed, and what is to be true then. `source` and `destination` are made anew each time.
struct Work {
    std::string name;
    std::string source;
    std::string destination;
    Words first; ///< behind the name of the command
    Words again;
    bool moves = false;
    bool replaces = false; ///< there is an old destination
};

void makeSource(std::string const& folder) {
    auto const make = [&](std::string const& name, std::size_t size, unsigned seed) {
        std::ofstream(folder + "/" + name, std::ios_base::binary) << contentOfSize(size, seed);
    };
    fs::create_directory(folder);
    fs::create_directory(folder + "/inner");
    fs::create_directory(folder + "/inner/deep");
    unsigned seed = 0;
    for (std::string const in : {"", "inner/", "inner/deep/"}) {
        for (int i = 0; i < 12; ++i) {
            make(in + "small" + std::to_string(i), 1000 + 700 * static_cast<std::size_t>(i),
                 ++seed);
        }
        make(in + "large", 400'000, ++seed);
        make(in + "empty", 0, ++seed);
        fs::create_symlink("small1", fs::path(folder) / (in + "link"));
    }
}

void makeOld(TreePicture const& wanted, std::string const& folder) {
    fs::create_directory(folder);
    for (auto const& [path, item] : wanted) {
        if (S_ISDIR(item.mode)) {
            fs::create_directory(fs::path(folder) / path);
        } else {
            std::ofstream(fs::path(folder) / path) << "old content of " << path;
        }
    }
}

TreePicture pictureOfEither(std::string const& path) {
    if (!fs::exists(fs::symlink_status(path))) {
        return {};
    }
    if (fs::is_directory(fs::symlink_status(path))) {
        return pictureOf(path);
    }
    // A file alone is pictured as the one entry with no name.
    return {{"", {S_IFREG, textOf(path), 0}}};
}

bool isTemporaryName(std::string const& path) {
    std::string const name = path.substr(path.rfind('/') + 1);
    return name.starts_with(".vfs-") && name.ends_with(".part");
}

class Killing {
  public:
    Killing(KillOptions const& options, Work const& work, TreePicture const& wanted,
            std::function<void()> prepare, std::mt19937_64& random)
        : options_(options),
          work_(work),
          wanted_(wanted),
          prepare_(std::move(prepare)),
          random_(random) {
        result_.name = work.name;
    }

    KillResult run(std::size_t kills) {
        std::vector<Clock::duration> durations;
        for (int i = 0; i < 3; ++i) {
            prepare_();
            Run const run = start(work_.first);
            if (int const code = run.wait(); code != 0) {
                find("ends with " + std::to_string(code) + " unkilled: " + textOf(output()));
                return result_;
            }
            durations.push_back(run.elapsed());
        }
        std::sort(durations.begin(), durations.end());
        std::uniform_int_distribution<Clock::rep> delay(0, durations[1].count());
        // Where the machine is slow for a while, or fast, more rounds make up for it.
        for (; result_.kills < kills && result_.rounds < 10 * kills; ++result_.rounds) {
            killOnce(Clock::duration(delay(random_)));
        }
        return result_;
    }

  private:
    std::string output() const { return options_.folder + "/output"; }

    Run start(Words const& words) const {
        Words all{options_.command};
        all.insert(all.end(), words.begin(), words.end());
        return Run(std::move(all), output());
    }

    void find(std::string const& what) {
        result_.findings.push_back("round " + std::to_string(result_.rounds) + ": " + what);
    }

    void find(std::string const& path, std::string const& what) { find(path + ": " + what); }

    void killOnce(Clock::duration delay) {
        prepare_();
        Run const run = start(work_.first);
        run.killAfter(delay);
        int const code = run.wait();
        if (code == 128 + SIGKILL) {
            ++result_.kills;
        } else if (code != 0) {
            find("ends with " + std::to_string(code) + ": " + textOf(output()));
        }
        TreePicture const source = pictureOfEither(work_.source);
        TreePicture const destination = pictureOfEither(work_.destination);
        judgeDestination(destination);
        judgeSource(source, destination);
        judgeTold(destination);
        if (code == 0) {
            judgeComplete("after exit 0");
        }
        runAgain();
    }

    bool isNew(std::string const& path, PicturedItem const& item) const {
        auto const wanted = wanted_.find(path);
        return wanted != wanted_.end() && item.isSameAs(wanted->second);
    }

    bool isSomeNew(PicturedItem const& item) const {
        return std::any_of(wanted_.begin(), wanted_.end(),
                           [&](auto const& one) { return item.isSameAs(one.second); });
    }

    void judgeDestination(TreePicture const& destination) {
        for (auto const& [path, item] : destination) {
            if (isTemporaryName(path)) {
                ++result_.leftovers;
                if (!work_.replaces) {
                    find(path + " stayed, where nothing is replaced");
                } else if (!isSomeNew(item)) {
                    find(path + " stayed, and is not complete");
                }
            } else if (!isNew(path, item) &&
                       !(work_.replaces && item.content.starts_with("old content of "))) {
                find(path + " is neither the old nor the new one");
            }
        }
        for (auto const& [path, item] : wanted_) {
            if (work_.replaces && !destination.contains(path)) {
                find(path + ", which was to be replaced, is gone");
            }
        }
    }

    void judgeSource(TreePicture const& source, TreePicture const& destination) {
        for (auto const& [path, item] : wanted_) {
            if (S_ISDIR(item.mode)) {
                continue;
            }
            auto const isIn = [&, &name = path](TreePicture const& tree) {
                auto const found = tree.find(name);
                return found != tree.end() && isNew(name, found->second);
            };
            if (!isIn(source) && !(work_.moves && isIn(destination))) {
                find("the source has lost " + path);
            }
        }
    }

    /// Lines like `SOURCE -> DESTINATION`.
    void judgeTold(TreePicture const& destination) {
        std::string const text = textOf(output());
        for (std::size_t at = 0; at < text.size();) {
            std::size_t const end = text.find('\n', at);
            if (end == std::string::npos) {
                break; // not printed in full
            }
            std::string const line = text.substr(at, end - at);
            at = end + 1;
            std::size_t const arrow = line.find(" -> ");
            if (arrow == std::string::npos) {
                continue;
            }
            ++result_.told;
            std::string const told = line.substr(arrow + 4);
            if (told == work_.destination) {
                judgeComplete("after it was told of");
                continue;
            }
            std::string const path = told.substr(work_.destination.size() + 1);
            auto const found = destination.find(path);
            if (found == destination.end() || !isNew(path, found->second)) {
                find(path + " was told of, and is not there");
            }
        }
    }

    void judgeComplete(std::string const& when) {
        TreePicture const destination = pictureOfEither(work_.destination);
        for (auto const& [path, item] : wanted_) {
            auto const found = destination.find(path);
            if (found == destination.end() || !isNew(path, found->second)) {
                find(path, "is not complete " + when);
            } else if (!work_.replaces && found->second.mode != item.mode) {
                find(path, "has another mode " + when);
            }
        }
    }

    void runAgain() {
        if (work_.moves && !fs::exists(fs::symlink_status(work_.source))) {
            judgeComplete("and the source is gone");
            return;
        }
        if (int const code = start(work_.again).wait(); code != 0) {
            find("again, it ends with " + std::to_string(code) + ": " + textOf(output()));
        }
        judgeComplete("after running again");
        if (work_.moves && fs::exists(fs::symlink_status(work_.source))) {
            find("again, the source stays");
        }
    }

    KillOptions const& options_;
    Work const& work_;
    TreePicture const& wanted_;
    std::function<void()> prepare_;
    std::mt19937_64& random_;
    KillResult result_;
};

} // namespace

std::vector<KillResult> killAtRandom(KillOptions const& options) {
    fs::create_directories(options.folder);
    fs::create_directories(options.other);
    std::string const master = options.other + "/master";
    makeSource(master);
    TreePicture const wanted = pictureOf(master);
    std::string const here = options.folder + "/source";
    std::string const there = options.other + "/source";
    std::string const to = options.folder + "/destination";
    std::string const file = options.folder + "/file";
    std::string const content = options.folder + "/content";
    TreePicture const wantedFile = {{"", {S_IFREG, contentOfSize(3'000'000, 99), 0}}};
    std::ofstream(content, std::ios_base::binary) << wantedFile.at("").content;

    std::vector<Work> works = {
        {"cp -r, of a tree",
         here,
         to,
         {"cp", "-r", "-v", "-T", here, to},
         {"cp", "-r", "-T", here, to}},
        {"cp -r, over a tree",
         here,
         to,
         {"cp", "-r", "-v", "-T", here, to},
         {"cp", "-r", "-T", here, to},
         false,
         true},
        {"cp -r, of a tree, from another file system",
         there,
         to,
         {"cp", "-r", "-v", "-T", there, to},
         {"cp", "-r", "-T", there, to}},
        {"mv, of a tree",
         here,
         to,
         {"mv", "-v", "-T", here, to},
         {"mv", "-f", "-T", here, to},
         true},
        {"mv, of a tree, from another file system",
         there,
         to,
         {"mv", "-v", "-T", there, to},
         {"mv", "-f", "-T", there, to},
         true},
        {"mv, into a tree, from another file system",
         there,
         to,
         {"mv", "-v", "-f", "-T", there, to},
         {"mv", "-f", "-T", there, to},
         true,
         true},
        {"put, over a file",
         content,
         file,
         {"put", "-i", content, file},
         {"put", "-i", content, file},
         false,
         true},
        {"cp, over a file",
         content,
         file,
         {"cp", "-v", content, file},
         {"cp", content, file},
         false,
         true},
    };

    std::erase_if(
        works, [&](Work const& work) { return work.name.find(options.only) == std::string::npos; });
    std::mt19937_64 random(options.seed);
    std::vector<KillResult> results;
    std::size_t left = options.kills;
    for (std::size_t i = 0; i < works.size(); ++i) {
        Work const& work = works[i];
        bool const ofTree = work.destination == to;
        auto const prepare = [&] {
            fs::remove_all(work.destination);
            if (ofTree) {
                fs::remove_all(work.source);
                fs::copy(master, work.source,
                         fs::copy_options::recursive | fs::copy_options::copy_symlinks);
                if (work.replaces) {
                    makeOld(wanted, work.destination);
                }
            } else {
                std::ofstream(work.destination) << "old content of the file";
            }
        };
        std::size_t const share = left / (works.size() - i);
        left -= share;
        results.push_back(
            Killing(options, work, ofTree ? wanted : wantedFile, prepare, random).run(share));
    }
    fs::remove_all(options.folder);
    fs::remove_all(options.other);
    return results;
}

} // namespace fault_sweep
