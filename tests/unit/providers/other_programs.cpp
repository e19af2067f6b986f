#include "other_programs.hpp"

#include <foundation/storage/provider/byte_stream.hpp>
#include <foundation/storage/provider/extensions/i_links.hpp>
#include <foundation/storage/provider/local/local_factory.hpp>
#include <foundation/storage/provider/local_path.hpp>

#include <fl/i18n/conversion.hpp>

#include <gmock/gmock.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <ostream>
#include <sys/wait.h>
#include <vector>

namespace foundation::storage::provider::test {

namespace {

constexpr char const* makeTree = R"shell(
mkdir -p tree/folder/inner tree/none && cd tree &&
echo 'some text' > text && : > empty && seq 1 60000 > large && cp large folder/inner/deep &&
echo 1 > 'name with  spaces' && echo 2 > "$(printf 'e\314\201 \303\251 \346\227\245')" &&
echo u > "$(printf '\303\274 \346\227\245')" && echo 3 > "$(printf 'bytes \377\376')" && echo 4 > 'back\slash' &&
mkdir -p "long/$(printf '%0100d' 1)/$(printf '%0120d' 2)" &&
echo 5 > "long/$(printf '%0100d' 1)/$(printf '%0120d' 2)/$(printf '%090d' 3)" &&
ln -s text link && ln -s ../large folder/up && ln -s nothing dangling && ln -s /etc/hostname absolute &&
ln -s "$(printf 't%.0s' $(seq 150))" 'link to a long name' &&
ln text hard && ln folder/inner/deep folder/harder &&
truncate -s 1M holes && echo middle | dd of=holes bs=1 seek=500000 conv=notrunc status=none &&
truncate -s 300000 hole &&
chmod 600 text && chmod 555 large && chmod 700 none &&
find . -exec touch -h -d '2021-03-04 05:06:07.123456789 UTC' {} + &&
touch -d '1975-01-02 03:04:05 UTC' empty
)shell";

/// Removed with everything in it at the end.
class Folder {
  public:
    Folder() : path_(std::filesystem::temp_directory_path() / "programs-test-XXXXXX") {
        EXPECT_NE(::mkdtemp(path_.data()), nullptr);
    }
    Folder(Folder const&) = delete;
    Folder& operator=(Folder const&) = delete;
    ~Folder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    std::string const& path() const noexcept { return path_; }

    /// What the command has to say.
    std::string run(std::string const& command) const {
        std::string const all = "cd " + path_ + " && export A=" + path_ +
                                "/archive LC_ALL=C.UTF-8 TZ=UTC && (" + command + ") > log 2>&1";
        int const status = std::system(all.c_str());
        EXPECT_TRUE(WIFEXITED(status)) << command;
        std::ifstream file(path_ + "/log", std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

  private:
    std::string path_;
};

std::string readAll(ByteStream& stream) {
    std::string result;
    std::string buffer(100'000, '\0');
    for (;;) {
        long const got = stream.read(buffer.data(), static_cast<long>(buffer.size()));
        if (got < 0) {
            return result;
        }
        result.append(buffer, 0, static_cast<std::size_t>(got));
    }
}

std::string timeOf(AttributeValues const& values, Times times) {
    std::string text = ' ' + std::to_string(values.lastModified.seconds);
    return times == Times::None    ? ""
           : times == Times::Exact ? text + '.' + std::to_string(values.lastModified.nanoseconds)
                                   : text;
}

/// A line for each entry below a folder of any provider: what it is, and all that is to be read of
/// it.
std::vector<std::string> described(IProvider& provider, StorageIRI const& root,
                                   OtherProgram const& program) {
    std::vector<std::string> lines;
    auto const cursor = provider.listAllRecursive(root, u"");
    while (cursor->hasNext()) {
        cursor->advance();
        FolderEntry const entry = cursor->currentEntry();
        StorageIRI const location(root, entry.getName());
        std::string line = fl::i18n::ustringToStorageName(entry.getName());
        if (!entry.isFile()) {
            AttributeValues const values = entry.getFolderAttributes()->values();
            if (program.modes == Modes::Kept) {
                line += ' ' + std::to_string(*values.mode);
            }
            lines.push_back(line + '/');
            continue;
        }
        AttributeValues const values = entry.getFileAttributes()->values();
        if (provider.existsExtended(location) == ExtendedExistsResult::File) {
            std::string const content = readAll(*provider.openReadOnlyStream(location));
            EXPECT_EQ(values.size, content.size()) << line;
            line += '=' + std::to_string(content.size()) + ' ' +
                    std::to_string(std::hash<std::string>()(content)) +
                    timeOf(values, program.times);
            if (program.modes == Modes::Kept) {
                line += ' ' + std::to_string(*values.mode);
            }
        } else {
            line += "->" + fl::i18n::ustringToStorageName(
                               dynamic_cast<extensions::ILinks&>(provider).readLink(location));
        }
        lines.push_back(line);
    }
    std::sort(lines.begin(), lines.end());
    return lines;
}

} // namespace

std::ostream& operator<<(std::ostream& out, OtherProgram const& program) {
    return out << program.title;
}

bool isInstalled(std::string const& tool) {
    return std::system(("command -v " + tool + " > /dev/null").c_str()) == 0;
}

void expectTheSame(OtherProgram const& program, std::string const& scheme,
                   std::function<std::shared_ptr<IProvider>(StorageItem const&)> const& build) {
    std::string tools = program.tools;
    for (std::string tool; !tools.empty(); tools.erase(0, tool.size() + 1)) {
        tool = tools.substr(0, tools.find(' '));
        if (!isInstalled(tool)) {
            GTEST_SKIP() << tool << " is not installed";
        }
    }
    Folder const folder;
    ASSERT_EQ(folder.run(makeTree), "");
    std::string const made = folder.run(program.make);
    std::string const extracted =
        folder.run(std::string("mkdir out && cd out && ") + program.extract);

    auto const local = local::buildLocalProvider();
    std::vector<std::string> const expected =
        described(*local, fromLocalPath(folder.path() + "/out/"), program);
    StorageItem const item(local, fromLocalPath(folder.path() + "/archive"));
    auto const provider = build(item);
    StorageIRI const root(fl::i18n::to_ustring(scheme), item.getLocation(), u"/");
    std::vector<std::string> const seen = described(*provider, root, program);

    EXPECT_FALSE(expected.empty()) << made << extracted;
    EXPECT_THAT(seen, ::testing::ContainerEq(expected)) << made << extracted;
}

} // namespace foundation::storage::provider::test
