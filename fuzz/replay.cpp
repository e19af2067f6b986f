// Gives a target what is in folders of inputs, once each, without a fuzzer: replay FOLDER ...

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size);

int main(int argc, char** argv) try {
    std::size_t count = 0;
    for (int i = 1; i < argc; ++i) {
        std::vector<std::filesystem::path> inputs;
        for (auto const& entry : std::filesystem::directory_iterator(argv[i])) {
            inputs.push_back(entry.path());
        }
        std::sort(inputs.begin(), inputs.end());
        for (std::filesystem::path const& input : inputs) {
            std::ifstream file(input, std::ios::binary);
            std::vector<char> const bytes{std::istreambuf_iterator<char>(file), {}};
            // Where a target stops the program, the last line tells which input it was.
            std::fprintf(stderr, "%s\n", input.c_str());
            LLVMFuzzerTestOneInput(reinterpret_cast<std::uint8_t const*>(bytes.data()),
                                   bytes.size());
            ++count;
        }
    }
    std::printf("%zu inputs\n", count);
    return count == 0 ? 1 : 0; // a corpus that is not there is no success
} catch (std::exception const& failure) {
    std::fprintf(stderr, "%s\n", failure.what());
    return 1;
}
