#include "flush_kills.hpp"

#include "killed_run.hpp"
#include "scenario.hpp"

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <stdexcept>
#include <utility>

namespace fault_sweep {

namespace fs = std::filesystem;

namespace {

std::string textOf(std::string const& path) {
    std::ifstream file(path, std::ios_base::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

void write(std::string const& path, std::string const& bytes) {
    std::ofstream(path, std::ios_base::binary) << bytes;
}

class FlushKilling {
  public:
    /// `root` is where the members are: an archive, or one in it.
    FlushKilling(KillOptions const& options, std::string name, std::string root)
        : options_(options),
          root_(std::move(root)),
          random_(options.seed) {
        result_.name = std::move(name);
        write(options_.folder + "/kept", kept_);
        write(options_.folder + "/new", new_);
        fs::remove(archive());
        must({"cp", options_.folder + "/kept", root_ + "kept"});
        must({"cp", options_.folder + "/kept", root_ + "changed"});
        old_ = textOf(archive());
    }

    KillResult run(std::size_t kills) {
        std::array<Clock::duration, 3> durations{};
        for (auto& duration : durations) {
            write(archive(), old_);
            Run const whole = start(change());
            if (int const code = whole.wait(); code != 0) {
                throw std::runtime_error(result_.name + ": " + textOf(output()));
            }
            duration = whole.elapsed();
            if (!isNew()) {
                throw std::runtime_error(result_.name + " makes something else");
            }
        }
        std::sort(durations.begin(), durations.end());
        std::uniform_int_distribution<Clock::rep> delay(0, durations[1].count());
        for (; result_.kills < kills && result_.rounds < 10 * kills; ++result_.rounds) {
            killOnce(Clock::duration(delay(random_)));
        }
        return result_;
    }

  private:
    std::string archive() const { return options_.folder + "/archive.zip"; }
    std::string output() const { return options_.folder + "/output"; }
    Words change() const { return {"cp", options_.folder + "/new", root_ + "changed"}; }

    Run start(Words const& words) const {
        Words all{options_.command};
        all.insert(all.end(), words.begin(), words.end());
        return Run(std::move(all), output());
    }
    void must(Words const& words) const {
        if (start(words).wait() != 0) {
            throw std::runtime_error(textOf(output()));
        }
    }
    void find(std::string const& what) {
        result_.findings.push_back("round " + std::to_string(result_.rounds) + ": " + what);
    }

    bool holds(std::string const& member, std::string const& bytes) const {
        return start({"cat", root_ + member}).wait() == 0 && textOf(output()) == bytes;
    }
    bool isNew() const { return holds("kept", kept_) && holds("changed", new_); }

    void killOnce(Clock::duration delay) {
        write(archive(), old_);
        Run const run = start(change());
        run.killAfter(delay);
        int const code = run.wait();
        if (code == 128 + SIGKILL) {
            ++result_.kills;
        } else if (code != 0) {
            find("ends with " + std::to_string(code) + ": " + textOf(output()));
        }
        bool const isOld = textOf(archive()) == old_;
        if (code == 0 && isOld) {
            find("exit 0, and the archive is the old one");
        } else if (!isOld) {
            ++result_.told; // the new one was checked
            if (!isNew()) {
                find("the archive is neither the old nor the new one");
            }
        }
        lookForLeftovers();
    }

    void lookForLeftovers() {
        std::vector<fs::path> left;
        for (auto const& entry : fs::directory_iterator(options_.folder)) {
            if (entry.path().filename().string().starts_with(".vfs-")) {
                left.push_back(entry.path());
            }
        }
        for (fs::path const& path : left) {
            ++result_.leftovers;
            fs::rename(path, archive());
            if (!isNew()) {
                find("what stayed is not complete");
            }
        }
    }

    KillOptions const& options_;
    std::string const root_;
    std::mt19937_64 random_;
    std::string const kept_ = contentOfSize(2'000'000, 7);
    std::string const new_ = contentOfSize(3'000'000, 8);
    std::string old_;
    KillResult result_;
};

} // namespace

std::vector<KillResult> killFlushes(KillOptions const& options) {
    fs::create_directories(options.folder);
    std::string const archive = "zip:" + options.folder + "/archive.zip!/";
    std::vector<std::pair<std::string, std::string>> works{
        {"cp, into an archive", archive},
        {"cp, into an archive in an archive", "zip:" + archive + "inner.zip!/"}};
    std::erase_if(works, [&](auto const& work) {
        return work.first.find(options.only) == std::string::npos;
    });
    std::vector<KillResult> results;
    std::size_t left = options.kills;
    for (std::size_t i = 0; i < works.size(); ++i) {
        std::size_t const share = left / (works.size() - i);
        left -= share;
        results.push_back(FlushKilling(options, works[i].first, works[i].second).run(share));
    }
    fs::remove_all(options.folder);
    return results;
}

} // namespace fault_sweep
