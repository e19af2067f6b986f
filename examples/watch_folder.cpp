#include <boost/make_shared.hpp>
#include <foundation/msg_svc/eventmgr/event_mgr.hpp>
#include <foundation/storage/provider/standard/standard_storage_system.hpp>
#include <foundation/storage/vfs/vfs.hpp>
#include <iostream>
#include <limits>
namespace standard = foundation::storage::provider::standard;
namespace vfs = foundation::storage::vfs;

void print(vfs::Event const& event) {
    vfs::EventData const change = event.getEventData();
    char const* const what = change.getKind() == vfs::Kind::Created   ? "created "
                             : change.getKind() == vfs::Kind::Removed ? "removed "
                                                                      : "look again at ";
    auto const name = fromAbsoluteIRI(getLocation(change.getFileOrFolder()));
    std::cout << what << fl::i18n::toDisplayString(name) << std::endl;
}

int main(int argc, char** argv) try {
    if (argc != 2) {
        std::cerr << "usage: watch_folder FOLDER\n";
        return 2;
    }
    standard::StandardOptions options;
    options.eventMgr = boost::make_shared<foundation::msg_svc::eventmgr::EventMgr>();
    auto const system = standard::makeStandardStorageSystem(options);
    vfs::StorageSystemReference const storage(system);
    auto const text = fl::i18n::storageNameToUstring(argv[1]);
    vfs::Folder const folder(vfs::toAbsoluteIRI(text, fl::filesystem::current_path()), storage);

    vfs::ChangeWatcher watcher;
    auto const watching = watcher.watch(folder, {vfs::Kind::Created, vfs::Kind::Removed},
                                        vfs::WithRecursiveChangeEvents::Yes, print);
    std::cerr << "watching until the input ends\n";
    std::cin.ignore(std::numeric_limits<std::streamsize>::max());
} catch (foundation::core::except::IException const& failure) {
    std::cerr << fl::i18n::toDisplayString(failure.ToUstringImpl()) << '\n';
    return 1;
}
