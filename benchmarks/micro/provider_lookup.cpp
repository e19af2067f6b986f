// What a location costs that asks for a provider already built, on each of the three routes, beside
// the pieces that such a call cannot do without.

#include <foundation/storage/provider/i_provider.hpp>
#include <foundation/storage/provider/storage_iri.hpp>
#include <foundation/storage/provider/storage_item.hpp>
#include <foundation/storage/vfs/resources/file.hpp>
#include <foundation/storage/vfs/storage_system/pluggable_storage_system.hpp>
#include <foundation/storage/vfs/storage_system/storage_system_reference.hpp>

#include <benchmark/benchmark.h>

#include <future>
#include <map>
#include <memory>
#include <mutex>
#include <thread>

namespace {

namespace provider = foundation::storage::provider;
namespace vfs = foundation::storage::vfs;
using provider::IProvider;
using provider::StorageIRI;

class EmptyProvider final : public IProvider {
  public:
    provider::ExistsResult exists(StorageIRI const&) const override {
        return provider::ExistsResult::Nothing;
    }
};

std::shared_ptr<vfs::PluggableStorageSystem> makeSystem() {
    auto const build = [](auto const&...) { return std::make_shared<EmptyProvider>(); };
    auto system = std::make_shared<vfs::PluggableStorageSystem>(nullptr);
    system->registerPhysicalProvider("file", build);
    system->registerPhysicalProvider("mem", build);
    system->registerContainerProvider("zip", build);
    system->registerAliasProvider("s3", build);
    return system;
}

/// One system for all threads, with a provider of each route cached.
vfs::PluggableStorageSystem const& sharedSystem() {
    static auto const system = [] {
        auto made = makeSystem();
        for (char16_t const* text :
             {u"file:///", u"mem:/", u"zip:file:///a.zip!/", u"s3://bucket/"}) {
            (void)made->buildProvider(StorageIRI(text));
        }
        return made;
    }();
    return *system;
}

constexpr char16_t physicalLocation[] = u"file:///home/someone/documents/letter.txt";
constexpr char16_t containerLocation[] = u"zip:file:///home/someone/archive.zip!/letters/one.txt";
constexpr char16_t aliasLocation[] = u"s3://someone@bucket:9000/letters/one.txt?version=3";

/// What one call costs the thread that makes it, also beside other threads; the time that the
/// library prints is that of a call's share of the whole.
void countCalls(benchmark::State& state) {
    using benchmark::Counter;
    state.counters["per_call"] =
        Counter(static_cast<double>(state.iterations()),
                static_cast<Counter::Flags>(Counter::kAvgThreadsRate | Counter::kInvert));
}

void lookup(benchmark::State& state, char16_t const* text) {
    vfs::PluggableStorageSystem const& system = sharedSystem();
    StorageIRI const location(text);
    for (auto _ : state) {
        benchmark::DoNotOptimize(system.buildProvider(location));
    }
    countCalls(state);
}
BENCHMARK_CAPTURE(lookup, physical, physicalLocation)->ThreadRange(1, 2)->UseRealTime();
BENCHMARK_CAPTURE(lookup, container, containerLocation)->ThreadRange(1, 2)->UseRealTime();
BENCHMARK_CAPTURE(lookup, alias, aliasLocation)->ThreadRange(1, 2)->UseRealTime();

void fileFromLocation(benchmark::State& state) {
    static auto const system = makeSystem();
    vfs::StorageSystemReference const reference{std::weak_ptr<vfs::StorageSystem>(system)};
    vfs::AbsoluteIRI const location(physicalLocation);
    for (auto _ : state) {
        benchmark::DoNotOptimize(vfs::File(location, reference));
    }
}
BENCHMARK(fileFromLocation);

/// The required steps and nothing else, over a key that costs nothing.
struct BareCache {
    struct Entry {
        std::shared_ptr<IProvider> provider;
        std::once_flag once;
    };
    std::map<StorageIRI, std::shared_ptr<Entry>> entries;
    std::recursive_mutex mutex;

    std::shared_ptr<IProvider> find(StorageIRI const& key) {
        std::promise<std::shared_ptr<IProvider>> promise;
        benchmark::DoNotOptimize(promise);
        std::shared_ptr<Entry> entry;
        {
            std::lock_guard const lock(mutex);
            entry = entries.find(key)->second;
        }
        std::call_once(entry->once, [] {});
        return entry->provider;
    }
};

void requiredStepsByHand(benchmark::State& state) {
    static BareCache& cache = [&]() -> BareCache& {
        static BareCache made;
        for (char16_t const* text :
             {u"file:/", u"mem:/", u"zip:file:///a.zip!/", u"s3://bucket/"}) {
            auto entry = std::make_shared<BareCache::Entry>();
            entry->provider = std::make_shared<EmptyProvider>();
            made.entries.emplace(StorageIRI(text), std::move(entry));
        }
        return made;
    }();
    StorageIRI const key(u"file:/");
    for (auto _ : state) {
        benchmark::DoNotOptimize(cache.find(key));
    }
    countCalls(state);
}
BENCHMARK(requiredStepsByHand)->ThreadRange(1, 2)->UseRealTime();

void recursiveMutex(benchmark::State& state) {
    static std::recursive_mutex mutex;
    for (auto _ : state) {
        std::lock_guard const lock(mutex);
        benchmark::ClobberMemory();
    }
    countCalls(state);
}
BENCHMARK(recursiveMutex)->ThreadRange(1, 2)->UseRealTime();

void promiseMadeAndDropped(benchmark::State& state) {
    for (auto _ : state) {
        std::promise<std::shared_ptr<IProvider>> promise;
        benchmark::DoNotOptimize(promise);
    }
}
BENCHMARK(promiseMadeAndDropped);

void sharedObjectMade(benchmark::State& state) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(std::make_shared<int>(1));
    }
}
BENCHMARK(sharedObjectMade);

void sharedPointerCopied(benchmark::State& state) {
    static auto const pointer = std::make_shared<int>(1);
    for (auto _ : state) {
        std::shared_ptr<int> copy = pointer;
        benchmark::DoNotOptimize(copy);
    }
    countCalls(state);
}
BENCHMARK(sharedPointerCopied)->ThreadRange(1, 2)->UseRealTime();

void keyFoundInMap(benchmark::State& state) {
    std::map<StorageIRI, int> const cache{{StorageIRI(u"file:/"), 1},
                                          {StorageIRI(u"mem:/"), 2},
                                          {StorageIRI(u"zip:file:///a.zip!/"), 3},
                                          {StorageIRI(u"s3://bucket/"), 4}};
    StorageIRI const key(u"file:/");
    for (auto _ : state) {
        benchmark::DoNotOptimize(cache.find(key));
    }
}
BENCHMARK(keyFoundInMap);

} // namespace

int main(int argc, char** argv) {
    // Until a process has had a second thread, its reference counts are not atomic. Hosts have one.
    std::thread([] {}).join();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 2;
    }
    benchmark::RunSpecifiedBenchmarks();
}
