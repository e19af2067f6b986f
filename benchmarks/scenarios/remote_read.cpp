#include "remote.hpp"
#include "remote_store.hpp"

#include <foundation/storage/provider/byte_stream.hpp>
#include <foundation/storage/provider/extensions/i_replacing_streams.hpp>
#include <foundation/storage/provider/s3/s3_factory.hpp>

#include <fl/i18n/conversion.hpp>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <vector>

namespace bench {

namespace provider = foundation::storage::provider;

namespace {

constexpr std::size_t mebibyte = std::size_t{1} << 20;
constexpr std::size_t size = std::size_t{1} << 30;
/// What the plain connection reads of it; the whole would take it minutes.
constexpr std::size_t plainSize = 32 * mebibyte;
constexpr std::size_t plainStep = std::size_t{128} * 1024;
constexpr double goal = 6;

/// Each mebibyte begins with its number.
void write(provider::IProvider& store, provider::StorageIRI const& location) {
    auto const stream =
        dynamic_cast<provider::extensions::IReplacingStreams&>(store).openReplacement(
            location, provider::ReplacementPolicy::ReplaceExisting);
    std::vector<char> block(mebibyte, 'x');
    for (std::size_t i = 0; i < size / mebibyte; ++i) {
        std::memcpy(block.data(), &i, sizeof i);
        stream->write(block.data(), static_cast<long>(block.size()));
    }
    stream->close();
}

void readAll(provider::IProvider const& store, provider::StorageIRI const& location) {
    auto const stream = store.openReadOnlyStream(location);
    std::vector<char> block(mebibyte);
    for (std::size_t i = 0; i < size / mebibyte; ++i) {
        std::size_t number = 0;
        if (stream->read(block.data(), static_cast<long>(mebibyte)) !=
                static_cast<long>(mebibyte) ||
            (std::memcpy(&number, block.data(), sizeof number), number != i)) {
            throw std::runtime_error("other bytes");
        }
    }
    stream->close();
}

void readPlainly(std::string const& url, std::size_t count, std::size_t step) {
    PlainConnection connection(url);
    for (std::size_t done = 0; done < count; done += step) {
        if (connection.read(done, step) != step) {
            throw std::runtime_error("another range");
        }
    }
}

template<class Work>
double mebibytesInASecond(std::size_t bytes, Work const& work) {
    auto const begun = std::chrono::steady_clock::now();
    work();
    return static_cast<double>(bytes) / mebibyte /
           std::chrono::duration<double>(std::chrono::steady_clock::now() - begun).count();
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

} // namespace

void holdRemoteRead(Workplace const& place) {
    std::string const name = "1GiB.bin";
    provider::StorageIRI const location(fl::i18n::to_ustring("s3://" + bucketName() + '/' + name));
    write(*provider::s3::buildS3Provider(location, storeOptions(Way::Direct)), location);

    std::string const url = endpoint(Way::Delayed) + '/' + bucketName() + '/' + name;
    auto const store = provider::s3::buildS3Provider(location, storeOptions(Way::Delayed));
    readPlainly(url, size, size); // so that no round is the first one
    readAll(*store, location);
    std::vector<double> pieces;
    std::vector<double> whole;
    std::vector<double> streams;
    std::vector<double> ratios;
    for (int round = 0; round < place.runs; ++round) {
        pieces.push_back(
            mebibytesInASecond(plainSize, [&] { readPlainly(url, plainSize, plainStep); }));
        whole.push_back(mebibytesInASecond(size, [&] { readPlainly(url, size, size); }));
        streams.push_back(mebibytesInASecond(size, [&] { readAll(*store, location); }));
        ratios.push_back(streams.back() / pieces.back());
    }
    std::printf("\nAn object of 1 GiB read from the start to the end (%d rounds, MiB/s)\n",
                place.runs);
    std::printf("%-44s %8.1f\n", "one connection, 128 KiB at a time, 32 MiB", median(pieces));
    std::printf("%-44s %8.1f\n", "one connection, one request", median(whole));
    double const ratio = median(ratios);
    std::printf("%-44s %8.1f   %.1f times 128 KiB at a time, at least %.0f: %s\n", "stream",
                median(streams), ratio, goal, ratio >= goal ? "met" : "missed");
    std::fflush(stdout);
}

} // namespace bench
