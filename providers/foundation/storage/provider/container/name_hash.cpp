#include <foundation/storage/provider/container/name_hash.hpp>

#include <algorithm>
#include <cstddef>
#include <random>

namespace foundation::storage::provider::container {

namespace {

__extension__ using Wide = unsigned __int128;

/// Both factors of the product are secret, since one that is 0 makes all of it 0.
class Mixer {
  public:
    std::uint64_t operator()(std::uint64_t a, std::uint64_t b) const noexcept {
        Wide const product = Wide{a ^ first_} * (b ^ second_);
        return static_cast<std::uint64_t>(product) ^ static_cast<std::uint64_t>(product >> 64);
    }

    static Mixer const& ofProcess() {
        static Mixer const mixer;
        return mixer;
    }

  private:
    static std::uint64_t secret() {
        std::random_device device;
        return std::uint64_t{device()} << 32 | device();
    }

    std::uint64_t const first_ = secret();
    std::uint64_t const second_ = secret();
};

std::uint64_t wordAt(char const* at, std::size_t size) noexcept {
    std::uint64_t word = 0;
    std::copy_n(at, size, reinterpret_cast<char*>(&word));
    return word;
}

} // namespace

std::uint64_t hashOfChild(std::uint32_t folder, std::string_view name) noexcept {
    Mixer const& mix = Mixer::ofProcess();
    std::uint64_t result = mix(0, (std::uint64_t{folder} << 32) + name.size());
    for (; name.size() > 8; name.remove_prefix(8)) {
        result = mix(result, wordAt(name.data(), 8));
    }
    return mix(result, wordAt(name.data(), name.size()));
}

} // namespace foundation::storage::provider::container
