#pragma once

#include <foundation/msg_svc/eventmgr/event_mgr.hpp>
#include <foundation/storage/provider/memory/memory_factory.hpp>
#include <foundation/storage/vfs/vfs.hpp>

#include <boost/make_shared.hpp>

#include <gtest/gtest.h>

#include <iterator>
#include <memory>
#include <stdexcept>
#include <string>

namespace consumer {

namespace provider = foundation::storage::provider;
namespace vfs = foundation::storage::vfs;
using foundation::msg_svc::eventmgr::EventMgr;

/// A store in memory, behind a system with an event manager, as a host makes them.
class StorageTest : public testing::Test {
  protected:
    StorageTest() {
        system->registerPhysicalProvider("mem", [this] { return mem; });
    }

    vfs::File file(char16_t const* text) const {
        return vfs::File(vfs::AbsoluteIRI(text), reference);
    }
    vfs::Folder folder(char16_t const* text) const {
        return vfs::Folder(vfs::AbsoluteIRI(text), reference);
    }
    vfs::File fileWith(char16_t const* location, std::string const& content) const {
        vfs::File made = file(location);
        vfs::ofstream out(made);
        out << content;
        out.close();
        return made;
    }
    static std::string contentOf(vfs::File const& file) {
        vfs::ifstream in(file);
        return {std::istreambuf_iterator<char>(in), {}};
    }

    boost::shared_ptr<EventMgr> const manager = boost::make_shared<EventMgr>();
    std::shared_ptr<provider::IProvider> const mem = provider::memory::buildMemoryProvider();
    std::shared_ptr<vfs::PluggableStorageSystem> system =
        std::make_shared<vfs::PluggableStorageSystem>(manager);
    vfs::StorageSystemReference const reference{std::weak_ptr<vfs::StorageSystem>(system)};
};

/// The code of the vfs::Exception that an operation throws.
template<class Operation>
vfs::ErrorCode codeOf(Operation operation) {
    try {
        operation();
    } catch (vfs::Exception const& failure) {
        return failure.getErrorCode();
    }
    throw std::logic_error("nothing was thrown");
}

} // namespace consumer
