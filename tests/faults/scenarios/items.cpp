#include "../scenario.hpp"

#include <foundation/storage/provider/extensions/i_folder_attributes.hpp>
#include <foundation/storage/provider/extensions/i_links.hpp>
#include <foundation/storage/provider/i_provider.hpp>

#include <boost/date_time/posix_time/posix_time_types.hpp>

namespace fault_sweep {

namespace {

boost::posix_time::ptime const someTime(boost::gregorian::date(2020, 2, 3),
                                        boost::posix_time::hours(4));

void nothing(Place const&) {}

void oneFile(Place const& place) {
    place.makeFile("here/file", "content");
}

} // namespace

void addItemScenarios(std::vector<Scenario>& scenarios) {
    auto const add = [&](std::string const& name, auto prepare, auto run) {
        scenarios.push_back({name, prepare, [run](Place const& place) {
                                 run(place);
                                 return Told::Done;
                             }});
    };
    add("createFile", nothing, [](Place const& at) { at.file("here/file").createFile(); });
    add("removeFile", oneFile, [](Place const& at) { at.file("here/file").removeFile(); });
    add(
        "removeFile, a link", [](Place const& at) { at.makeLink("here/file", "nowhere"); },
        [](Place const& at) { at.file("here/file").removeFile(); });
    add("File::setLastModified", oneFile,
        [](Place const& at) { at.file("here/file").setLastModified(someTime); });
    add("File::setWritable", oneFile,
        [](Place const& at) { at.file("here/file").setWritable(false); });
    add(
        "Folder::setLastModified", [](Place const& at) { at.makeFolder("here/folder"); },
        [](Place const& at) { at.folder("here/folder").setLastModified(someTime); });
    add(
        "Folder::setWritable", [](Place const& at) { at.makeFolder("here/folder"); },
        [](Place const& at) { at.folder("here/folder").setWritable(false); });
    add(
        "setFolderAttributes", [](Place const& at) { at.makeFolder("here/folder"); },
        [](Place const& at) {
            auto const item = at.item("here/folder");
            dynamic_cast<provider::extensions::IFolderAttributes&>(*item.getProvider())
                .setFolderAttributes(item.getLocation(), {01711, provider::Timestamp{1000, 5},
                                                          provider::Timestamp{2000, 6}});
        });
    add("createFolder", nothing, [](Place const& at) { at.folder("here/folder").createFolder(); });
    add("createFolderRecursive", nothing,
        [](Place const& at) { at.folder("here/a/b/c").createFolderRecursive(); });
    add(
        "createFolderRecursive, all there",
        [](Place const& at) {
            at.makeFolder("here/a");
            at.makeFolder("here/a/b");
        },
        [](Place const& at) { at.folder("here/a/b").createFolderRecursive(); });
    add(
        "removeFolder", [](Place const& at) { at.makeFolder("here/folder"); },
        [](Place const& at) {
            at.folder("here/folder").removeFolder(vfs::FolderRemovalPolicy::NonRecursive);
        });
    add("createLink", nothing, [](Place const& at) {
        auto const item = at.item("here/link");
        dynamic_cast<provider::extensions::ILinks&>(*item.getProvider())
            .createLink(item.getLocation(), u"somewhere/else");
    });
}

} // namespace fault_sweep
