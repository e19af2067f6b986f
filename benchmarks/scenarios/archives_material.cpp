// The files that archives are made of.

#include "archives.hpp"

#include <cstdlib>
#include <fstream>
#include <random>
#include <stdexcept>
#include <vector>

namespace bench {

void run(std::string const& command) {
    if (std::system(command.c_str()) != 0) {
        throw std::runtime_error("failed: " + command);
    }
}

std::string makeManyFiles(Workplace const& place) {
    std::string const folder = place.path / "many";
    for (int number = 0; number < 50'000; ++number) {
        std::string const inside = folder + "/folder" + std::to_string(number / 500);
        if (number % 500 == 0) {
            std::filesystem::create_directories(inside);
        }
        std::ofstream(inside + "/file" + std::to_string(number))
            << "the content of file number " << number << '\n';
    }
    return folder;
}

std::string makeTexts(Workplace const& place) {
    std::string const folder = place.path / "text";
    std::filesystem::create_directories(folder);
    std::mt19937 random(3);
    std::vector<std::string> words(5'000);
    for (std::string& word : words) {
        for (std::size_t size = 2 + random() % 9; size != 0; --size) {
            word += static_cast<char>('a' + random() % 26);
        }
    }
    for (int number = 0; number < 1'000; ++number) {
        std::string text;
        while (text.size() < 204'000) {
            text += words[random() % words.size() * (random() % words.size()) / words.size()];
            text += ' ';
        }
        text.resize(204'000);
        std::ofstream(folder + "/text" + std::to_string(number)) << text;
    }
    return folder;
}

} // namespace bench
