#include "odd_tree.hpp"

#include <fl/i18n/conversion.hpp>
#include <foundation/storage/provider/extensions/i_links.hpp>
#include <foundation/storage/provider/local/local_factory.hpp>
#include <foundation/storage/provider/local_path.hpp>
#include <foundation/storage/provider/memory/memory_provider.hpp>

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <sys/stat.h>
#include <utility>
#include <vector>

namespace listing_test {

namespace {

using fl::i18n::ustring;
using provider::StorageIRI;

class DiskPlace : public Place {
  public:
    explicit DiskPlace(std::string const& path)
        : Place(
              provider::local::LocalProviderFactory().buildProvider(provider::fromLocalPath(path)),
              provider::fromLocalPath(path)),
          path_(path) {}
    ~DiskPlace() override {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    bool makeFifo(char const* name) const override {
        return ::mkfifo((path_ + '/' + name).c_str(), 0644) == 0;
    }

  private:
    std::string path_;
};

/// Makes items, and keeps the record of them.
class Maker {
  public:
    explicit Maker(Place const& place) : storage_(*place.storage) {}

    StorageIRI folder(StorageIRI const& in, ustring const& name) {
        StorageIRI const made(in, name);
        storage_.createFolder(made);
        record(made, false);
        return made;
    }
    void file(StorageIRI const& in, ustring const& name) {
        StorageIRI const made(in, name);
        storage_.createFile(made);
        record(made, true);
    }
    void link(StorageIRI const& in, ustring const& name, ustring const& target) {
        StorageIRI const made(in, name);
        dynamic_cast<provider::extensions::ILinks&>(storage_).createLink(made, target);
        record(made, true);
    }
    void record(StorageIRI const& made, bool isFile) {
        kinds.emplace(fl::i18n::toDisplayString(made.toString()), isFile);
    }

    Kinds kinds;

  private:
    provider::IProvider& storage_;
};

std::vector<ustring> oddNames() {
    return {fl::i18n::storageNameToUstring("byte\xFF.txt"),
            fl::i18n::storageNameToUstring("\x80\xC3"),
            u"line\nbreak.txt",
            u" lead and trail ",
            u"per%cent",
            u"%41",
            u"ha#sh.txt",
            u"que?ry",
            u"st*r",
            u"back\\slash",
            u"bang!",
            u"co:lon",
            u"a@b;c&d=e+f",
            u".hidden",
            u"..two",
            u"...",
            u"\u00E9",
            u"e\u0301",
            u"Case",
            u"case",
            u"CASE.TXT",
            u"\U0001F600.txt",
            u"\x01",
            ustring(255, u'n'),
            ustring(127, u'\u00E9')};
}

} // namespace

std::unique_ptr<Place> onDisk() {
    std::string path = std::filesystem::canonical(std::filesystem::temp_directory_path()).string() +
                       "/listing-XXXXXX";
    if (::mkdtemp(path.data()) == nullptr || ::chmod(path.c_str(), 0755) != 0) {
        throw std::runtime_error(path);
    }
    return std::make_unique<DiskPlace>(path);
}

std::unique_ptr<Place> inMemory() {
    return std::make_unique<Place>(std::make_shared<provider::memory::MemoryProvider>(),
                                   StorageIRI(u"mem:/"));
}

Kinds makeOddTree(Place const& place) {
    Maker maker(place);
    StorageIRI const& root = place.root;
    StorageIRI const files = maker.folder(root, u"files");
    StorageIRI const folders = maker.folder(root, u"folders");
    for (ustring const& name : oddNames()) {
        maker.file(files, name);
        // Odd names on the way to a child too.
        maker.file(maker.folder(folders, name), u"child.txt");
    }
    maker.folder(root, u"empty");
    maker.file(root, u"plain.txt");
    maker.link(root, u"to file", u"plain.txt");
    maker.link(root, u"to folder", u"folders");
    maker.link(root, u"loop", u".");
    maker.link(folders, u"up", u"..");
    maker.link(root, u"dangling.txt", u"nowhere");
    maker.link(root, u"to itself", u"to itself");
    if (place.makeFifo("fifo.txt")) {
        maker.record(StorageIRI(root, u"fifo.txt"), true);
    }
    StorageIRI deep = maker.folder(root, u"deep");
    for (int level = 0; level < 40; ++level) {
        deep = maker.folder(deep, u"d");
    }
    maker.file(deep, u"bottom.txt");
    return maker.kinds;
}

} // namespace listing_test
