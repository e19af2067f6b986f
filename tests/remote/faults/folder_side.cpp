#include "server_side.hpp"

#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <utility>

namespace remote_faults {

namespace fs = std::filesystem;

namespace {

class FolderSide final : public ServerSide {
  public:
    explicit FolderSide(fs::path root) : root_(std::move(root)) {}

    void put(std::string const& path, std::string const& content) override {
        fs::path const full = root_ / path;
        if (path.ends_with('/')) {
            makeFolder(full.parent_path());
            return;
        }
        makeFolder(full.parent_path());
        std::ofstream file(full, std::ios::binary | std::ios::trunc);
        file << content;
        if (!file.flush()) {
            throw std::runtime_error("cannot write " + full.string());
        }
        fs::permissions(full, fs::perms::all);
        // Servers give a file of this second another tag than later on.
        fs::last_write_time(full, fs::last_write_time(full) - std::chrono::hours(1));
    }
    void remove(std::string const& path) override { fs::remove_all(root_ / path); }

    Files files(std::string const& folder) override {
        Files result;
        if (fs::exists(root_ / folder)) {
            collect(folder, result);
        }
        return result;
    }

  private:
    static void makeFolder(fs::path const& folder) {
        if (!fs::exists(folder)) {
            makeFolder(folder.parent_path());
            fs::create_directory(folder);
            fs::permissions(folder, fs::perms::all);
        }
    }
    void collect(std::string const& folder, Files& result) const {
        for (fs::directory_entry const& entry : fs::directory_iterator(root_ / folder)) {
            std::string const name = entry.path().filename();
            if (name == ".DAV") {
                continue; // where the WebDAV server keeps properties
            }
            std::string const path = folder + name;
            if (entry.is_directory()) {
                Files inner;
                collect(path + '/', inner);
                if (inner.empty()) {
                    inner.emplace(path + '/', "");
                }
                result.merge(inner);
            } else {
                std::ifstream file(entry.path(), std::ios::binary);
                result[path] = std::string(std::istreambuf_iterator<char>(file), {});
            }
        }
    }

    fs::path const root_;
};

} // namespace

std::unique_ptr<ServerSide> makeFolderSide(std::string const& root) {
    return std::make_unique<FolderSide>(root);
}

} // namespace remote_faults
