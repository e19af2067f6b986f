#include "tarred.hpp"

#include "zipped.hpp"

namespace foundation::storage::provider::test {

std::string tarred(std::vector<std::pair<std::string, std::size_t>> const& members) {
    std::string bytes;
    unsigned seed = 0;
    for (auto const& [name, size] : members) {
        std::string header(512, '\0');
        auto const putText = [&](std::size_t at, std::string const& text) {
            header.replace(at, text.size(), text);
        };
        auto const putOctal = [&](std::size_t at, std::size_t width, std::size_t number) {
            for (std::size_t digit = width; digit-- > 0; number /= 8) {
                header[at + digit] = static_cast<char>('0' + number % 8);
            }
        };
        putText(0, name);
        putText(100, "0000644");
        putOctal(124, 11, size);
        putOctal(136, 11, 0);
        putText(148, "        ");
        putText(156, "0");
        putText(257, std::string("ustar\0", 6) + "00");
        std::size_t sum = 0;
        for (char const byte : header) {
            sum += static_cast<unsigned char>(byte);
        }
        putOctal(148, 6, sum);
        header[154] = '\0';
        bytes += header + noise(size, seed++) + std::string((512 - size % 512) % 512, '\0');
    }
    return bytes + std::string(1024, '\0');
}

} // namespace foundation::storage::provider::test
