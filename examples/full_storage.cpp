#include <foundation/storage/conformance/call_counter.hpp>
#include <foundation/storage/conformance/decorate.hpp>
#include <foundation/storage/conformance/fault_injector.hpp>
#include <foundation/storage/provider/memory/memory_factory.hpp>
#include <foundation/storage/vfs/vfs.hpp>
#include <iostream>
namespace conformance = foundation::storage::conformance;
namespace provider = foundation::storage::provider;
namespace vfs = foundation::storage::vfs;

int main() {
    using conformance::Operation;
    auto const faults =
        conformance::decorate<conformance::FaultInjector>(provider::memory::buildMemoryProvider());
    auto const counter = conformance::decorate<conformance::CallCounter>(faults);
    auto const system = std::make_shared<vfs::PluggableStorageSystem>(nullptr);
    system->registerPhysicalProvider("mem", [counter] { return counter; });

    vfs::File const file(vfs::AbsoluteIRI(u"mem:/notes"), vfs::StorageSystemReference(system));
    faults->failAt(Operation::CreateFile, 2, provider::ErrorCode::NoSpaceLeft);
    file.createFile();
    file.removeFile();
    try {
        file.createFile();
    } catch (vfs::Exception const& failure) {
        std::cout << failure.getErrorCode() << " at " << failure.getLocation() << '\n';
    }
    file.createFile();
    std::cout << counter->countOf(Operation::CreateFile) << " calls of createFile\n";
}
