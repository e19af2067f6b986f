// Bytes in and out of files of the local disk (workplace.hpp tells the command line).

#include "bytes.hpp"
#include "contest.hpp"

#include <algorithm>
#include <fstream>
#include <vector>

namespace bench {

void makeFile(std::filesystem::path const& path, std::size_t size) {
    std::vector<char> content(1 << 20);
    for (std::size_t i = 0; i < content.size(); ++i) {
        content[i] = static_cast<char>(i * 31 + i / 251);
    }
    std::ofstream file(path, std::ios::binary);
    for (std::size_t left = size; left > 0 && file;) {
        std::size_t const part = std::min(left, content.size());
        file.write(content.data(), static_cast<std::streamsize>(part));
        left -= part;
    }
    file.close();
    if (!file) {
        fail(path.string());
    }
}

} // namespace bench

int main(int argc, char** argv) {
    // The memory comes first, while this program is small.
    static constexpr bench::Work works[] = {
        {"memory", bench::showMemoryOfCat},    {"files", bench::holdManyFiles},
        {"read", bench::holdSequentialRead},   {"small", bench::holdSmallReads},
        {"write", bench::holdSequentialWrite},
    };
    return bench::runWorks("bench_bytes", argc, argv, works);
}
