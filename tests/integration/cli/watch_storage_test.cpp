#include "storage_run.hpp"

#include <foundation/core/except/nested.hpp>
#include <foundation/msg_svc/eventmgr/event_mgr.hpp>
#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/vfs/storage_system/pluggable_storage_system.hpp>

#include <boost/exception/errinfo_nested_exception.hpp>
#include <boost/exception/info.hpp>
#include <boost/make_shared.hpp>
#include <gmock/gmock.h>

#include <cerrno>
#include <stdexcept>
#include <system_error>

namespace cli_test {
namespace {

namespace provider = foundation::storage::provider;

// Holds a folder at every location, and refuses to watch it.
class Unwatchable : public provider::IProvider {
  public:
    using Refuse = void (*)(provider::StorageIRI const&);

    explicit Unwatchable(Refuse refuse) : refuse_(refuse) {}

    provider::ExistsResult exists(provider::StorageIRI const&) const override {
        return provider::ExistsResult::Folder;
    }
    void publishFolderEvents(provider::StorageIRI const& location, provider::ChangeCallback,
                             provider::ChangeKinds const&,
                             provider::RecursiveFileWatching) override {
        refuse_(location);
    }

  private:
    Refuse refuse_;
};

void refuseForWantOf(provider::StorageIRI const& location, int error) {
    try {
        throw std::system_error(error, std::generic_category(), "some call");
    } catch (std::system_error const&) {
        provider::ChangeEventsSubscriptionException refusal(location);
        refusal << boost::errinfo_nested_exception(foundation::core::except::currentException());
        throw refusal;
    }
}

Outcome watchOver(Unwatchable::Refuse refuse, std::vector<std::string> const& words) {
    auto const system = std::make_shared<foundation::storage::vfs::PluggableStorageSystem>(
        boost::make_shared<foundation::msg_svc::eventmgr::EventMgr>());
    system->registerPhysicalProvider("file", [=] { return std::make_shared<Unwatchable>(refuse); });
    cli::Host host(system);
    ::testing::internal::CaptureStdout();
    ::testing::internal::CaptureStderr();
    Outcome outcome;
    outcome.code = cli::runCommandLine(host, words);
    outcome.out = ::testing::internal::GetCapturedStdout();
    outcome.err = ::testing::internal::GetCapturedStderr();
    return outcome;
}

TEST(CommandWatchOfOddStorages, SaysWhyAWatchCannotBeStarted) {
    struct Row {
        Unwatchable::Refuse refuse;
        std::string reason;
    };
    for (Row const& row : {
             Row{[](provider::StorageIRI const& location) { refuseForWantOf(location, ENOSPC); },
                 "cannot be watched: no more watches are allowed (fs.inotify.max_user_watches)"},
             Row{[](provider::StorageIRI const& location) { refuseForWantOf(location, EMFILE); },
                 "cannot be watched: too many watchers or open files "
                 "(fs.inotify.max_user_instances, ulimit -n)"},
             Row{[](provider::StorageIRI const& location) { refuseForWantOf(location, EAGAIN); },
                 "cannot be watched: Resource temporarily unavailable"},
             Row{[](provider::StorageIRI const& location) {
                     throw provider::ChangeEventsSubscriptionException(location);
                 },
                 "cannot be watched"},
             Row{[](provider::StorageIRI const& location) {
                     throw provider::ChangeEventsNotSupportedException(location);
                 },
                 "the storage does not tell of changes"},
             Row{[](provider::StorageIRI const& location) {
                     throw provider::Exception(provider::ErrorCode::PermissionDenied, location);
                 },
                 "permission denied"},
         }) {
        Outcome const outcome = watchOver(row.refuse, {"watch", "/a", "/b"});

        EXPECT_EQ(outcome.code, 1);
        EXPECT_EQ(outcome.out, "");
        EXPECT_EQ(outcome.err,
                  "vfs: watch: /a: " + row.reason + "\nvfs: watch: /b: " + row.reason + "\n");
    }
}

TEST(CommandWatchOfOddStorages, SaysThatAStorageCannotWatchTrees) {
    auto const neverAsked = [](provider::StorageIRI const&) { throw std::logic_error("asked"); };

    Outcome const outcome = watchOver(neverAsked, {"watch", "-r", "/a"});

    EXPECT_EQ(outcome.code, 1);
    EXPECT_EQ(outcome.err, "vfs: watch: /a: the storage does not tell of changes deeper in a "
                           "folder (without -r it may)\n");
}

} // namespace
} // namespace cli_test
