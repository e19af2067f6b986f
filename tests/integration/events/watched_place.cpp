#include "watched_place.hpp"

#include <foundation/storage/provider/local/local_factory.hpp>
#include <foundation/storage/provider/memory/memory_factory.hpp>

#include <boost/make_shared.hpp>

#include <cstdlib>
#include <fstream>
#include <stdexcept>

namespace event_test {

WatchedPlace::WatchedPlace()
    : manager(boost::make_shared<EventMgr>([](auto&&...) { ADD_FAILURE() << "a handler threw"; })),
      system(std::get<1>(GetParam()), manager),
      reference(system.reference()) {
    std::shared_ptr<provider::PhysicalProviderFactory> const made =
        isLocal() ? std::shared_ptr<provider::PhysicalProviderFactory>(
                        std::make_shared<provider::local::LocalProviderFactory>())
                  : std::make_shared<provider::memory::MemoryProviderFactory>();
    system.serve(isLocal() ? "file" : "mem", made);
    if (isLocal()) {
        auto text = (std::filesystem::temp_directory_path() / "events.XXXXXX").string();
        if (::mkdtemp(text.data()) == nullptr) {
            throw std::runtime_error("mkdtemp");
        }
        folder_ = text;
        location_ = u"file://" + fl::i18n::to_ustring(text);
    } else {
        location_ = u"mem:/";
    }
}

WatchedPlace::~WatchedPlace() {
    if (isLocal()) {
        std::error_code ignored;
        std::filesystem::remove_all(folder_, ignored);
    }
}

vfs::Folder WatchedPlace::newFolder(vfs::ustring const& name) const {
    vfs::Folder made(root(), name);
    made.createFolder();
    return made;
}

int WatchedPlace::watchThreads() {
    int count = 0;
    for (auto const& task : std::filesystem::directory_iterator("/proc/self/task")) {
        std::ifstream file(task.path() / "comm");
        std::string name;
        count += std::getline(file, name) && name == "vfs-watch" ? 1 : 0;
    }
    return count;
}

std::string nameOf(testing::TestParamInfo<std::tuple<StorageKind, SystemKind>> const& info) {
    return std::string(std::get<0>(info.param) == StorageKind::Local ? "Local" : "Memory") +
           (std::get<1>(info.param) == SystemKind::Pluggable ? "OfPluggable" : "OfFactoryBacked");
}

} // namespace event_test
