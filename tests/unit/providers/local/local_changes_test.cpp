#include "child_process.hpp"
#include "local_fixture.hpp"

#include <foundation/storage/provider/extensions/i_folder_attributes.hpp>
#include <foundation/storage/provider/extensions/i_links.hpp>

#include <atomic>
#include <barrier>
#include <cerrno>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <thread>
#include <utility>

namespace foundation::storage::provider::local::test {
namespace {

class LocalChanges : public LocalProviderTest {
  protected:
    LocalChanges() {
        makeFile("file", "content");
        makeFolder("folder");
        makeFolder("full");
        makeFile("full/inner");
        makeLink("link to file", "file");
        makeLink("link to folder", "folder");
        makeLink("link to nothing", "missing");
    }
};

TEST_F(LocalChanges, ANewFileIsEmptyAndHonoursTheUmask) {
    EXPECT_EQ(inChild([&] {
                  ::umask(0027);
                  provider_->createFile(at("new"));
                  provider_->createFolder(at("new folder"));
                  return std::string();
              }),
              "");

    EXPECT_EQ(content("new"), "");
    EXPECT_EQ(status("new").st_mode & 07777, 0640U);
    EXPECT_EQ(status("new folder").st_mode & 07777, 0750U);
}

TEST_F(LocalChanges, WhatExistsCannotBeCreated) {
    for (char const* name :
         {"file", "folder", "link to file", "link to folder", "link to nothing"}) {
        EXPECT_TRUE(isRefused([&] { provider_->createFile(at(name)); },
                              ErrorCode::ResourceAlreadyExists, at(name)))
            << name;
        EXPECT_TRUE(isRefused([&] { provider_->createFolder(at(name)); },
                              ErrorCode::ResourceAlreadyExists, at(name)))
            << name;
    }
    EXPECT_EQ(content("file"), "content");
    EXPECT_FALSE(isThere("missing"));
}

TEST_F(LocalChanges, NothingIsCreatedInWhatIsNoFolder) {
    for (char const* name : {"missing/new", "file/new"}) {
        EXPECT_TRUE(isRefused([&] { provider_->createFile(at(name)); }, ErrorCode::ResourceNotFound,
                              at(name)));
        EXPECT_TRUE(isRefused([&] { provider_->createFolder(at(name)); },
                              ErrorCode::ResourceNotFound, at(name)));
    }
}

TEST_F(LocalChanges, ANameOf256BytesIsInvalid) {
    StorageIRI const location = at(std::string(256, 'n'));

    EXPECT_TRUE(
        isRefused([&] { provider_->createFile(location); }, ErrorCode::InvalidLocation, location));
    EXPECT_TRUE(isRefused([&] { provider_->createFolderRecursive(location); },
                          ErrorCode::InvalidLocation, location));
    provider_->createFile(at(std::string(255, 'n')));
    EXPECT_TRUE(isThere(std::string(255, 'n')));
}

TEST_F(LocalChanges, FoldersAreMadeAllTheWayDown) {
    provider_->createFolderRecursive(at("folder/a/b/c"));

    EXPECT_TRUE(provider_->folderExists(at("folder/a/b/c")));
}

TEST_F(LocalChanges, MakingAnExistingFolderRecursivelyIsFine) {
    provider_->createFolderRecursive(at("full"));
    provider_->createFolderRecursive(at("link to folder"));
    provider_->createFolderRecursive(StorageIRI(u"file:///"));
    provider_->createFolderRecursive(at("link to folder/deeper"));

    EXPECT_TRUE(isThere("full/inner"));
    EXPECT_TRUE(isThere("folder/deeper"));
}

TEST_F(LocalChanges, WhatIsNoFolderStopsTheMakingOfFolders) {
    EXPECT_TRUE(isRefused([&] { provider_->createFolderRecursive(at("file")); },
                          ErrorCode::ResourceAlreadyExists, at("file")));
    EXPECT_TRUE(isRefused([&] { provider_->createFolderRecursive(at("link to nothing")); },
                          ErrorCode::ResourceAlreadyExists, at("link to nothing")));
    EXPECT_TRUE(isRefused([&] { provider_->createFolderRecursive(at("file/a/b")); },
                          ErrorCode::ResourceNotFound, at("file/a/b")));
}

TEST_F(LocalChanges, ThreadsThatMakeTheSameFoldersAllSucceed) {
    constexpr int threads = 4;
    std::barrier start(threads);
    std::atomic<int> failures = 0;
    std::vector<std::thread> workers;
    workers.reserve(threads);
    for (int i = 0; i < threads; ++i) {
        workers.emplace_back([&] {
            for (int round = 0; round < 50; ++round) {
                start.arrive_and_wait();
                StorageIRI const location = at("shared/" + std::to_string(round) + "/a/b/c/d");
                if (refusalOf([&] { provider_->createFolderRecursive(location); }) ||
                    !provider_->folderExists(location)) {
                    ++failures;
                }
            }
        });
    }
    for (std::thread& worker : workers) {
        worker.join();
    }

    EXPECT_EQ(failures, 0);
}

TEST_F(LocalChanges, OfThreadsThatCreateOneFileOneSucceeds) {
    constexpr int threads = 4;
    std::barrier start(threads);
    std::atomic<int> successes = 0;
    std::vector<std::thread> workers;
    workers.reserve(threads);
    for (int i = 0; i < threads; ++i) {
        workers.emplace_back([&] {
            for (int round = 0; round < 50; ++round) {
                start.arrive_and_wait();
                StorageIRI const location = at("contended " + std::to_string(round));
                if (!refusalOf([&] { provider_->createFile(location); })) {
                    ++successes;
                }
            }
        });
    }
    for (std::thread& worker : workers) {
        worker.join();
    }

    EXPECT_EQ(successes, 50);
}

TEST_F(LocalChanges, RemovingTakesFilesLinksAndEmptyFolders) {
    provider_->removeFile(at("file"));
    provider_->removeFile(at("link to folder"));
    provider_->removeFile(at("link to nothing"));
    provider_->removeFolder(at("folder"));

    EXPECT_EQ(names(), (std::vector<std::string>{"full", "link to file"}));
}

TEST_F(LocalChanges, AReadOnlyFileIsRemovedAsItsFolderAllows) {
    ASSERT_EQ(::chmod(path("file").c_str(), 0444), 0);

    provider_->removeFile(at("file"));

    EXPECT_FALSE(isThere("file"));
}

TEST_F(LocalChanges, RemovingTheWrongKindIsRefused) {
    EXPECT_TRUE(isRefused([&] { provider_->removeFile(at("folder")); }, ErrorCode::InvalidLocation,
                          at("folder")));
    EXPECT_TRUE(isRefused([&] { provider_->removeFolder(at("file")); }, ErrorCode::ResourceNotFound,
                          at("file")));
    EXPECT_TRUE(isRefused([&] { provider_->removeFolder(at("link to folder")); },
                          ErrorCode::ResourceNotFound, at("link to folder")));
    EXPECT_TRUE(isThere("folder"));
    EXPECT_TRUE(isThere("file"));
    EXPECT_TRUE(isThere("link to folder"));
}

TEST_F(LocalChanges, RemovingWhatIsNotThereIsRefused) {
    for (char const* name : {"missing", "missing/child", "file/child"}) {
        EXPECT_TRUE(isRefused([&] { provider_->removeFile(at(name)); }, ErrorCode::ResourceNotFound,
                              at(name)));
        EXPECT_TRUE(isRefused([&] { provider_->removeFolder(at(name)); },
                              ErrorCode::ResourceNotFound, at(name)));
    }
}

TEST_F(LocalChanges, AFolderWithContentIsNotRemoved) {
    EXPECT_TRUE(isRefused([&] { provider_->removeFolder(at("full")); }, ErrorCode::FolderNotEmpty,
                          at("full")));
    EXPECT_TRUE(isThere("full/inner"));
}

TEST_F(LocalChanges, AFolderThatDeniesWritingDeniesChanges) {
    ASSERT_EQ(::chmod(path("full").c_str(), 0555), 0);

    std::string const outcome = inChild([&] {
        becomeUnprivileged();
        std::string codes;
        for (auto const& call : std::vector<std::function<void()>>{
                 [&] { provider_->createFile(at("full/new")); },
                 [&] { provider_->createFolder(at("full/new")); },
                 [&] { provider_->createFolderRecursive(at("full/new")); },
                 [&] { provider_->removeFile(at("full/inner")); }}) {
            auto const refusal = refusalOf(call);
            codes += refusal && refusal->code == ErrorCode::PermissionDenied ? "denied " : "done ";
        }
        return codes;
    });

    EXPECT_EQ(outcome, "denied denied denied denied ");
}

TEST_F(LocalChanges, WhatLiesInAClosedFolderIsDeniedAndNotMissing) {
    ASSERT_EQ(::chmod(path("full").c_str(), 0700), 0);
    ASSERT_TRUE(::geteuid() != 0 || ::chown(path("full").c_str(), 0, 0) == 0);
    if (::geteuid() != 0) {
        ASSERT_EQ(::chmod(path("full").c_str(), 0000), 0);
    }

    std::string const outcome = inChild([&] {
        becomeUnprivileged();
        auto const refusal = refusalOf([&] { provider_->exists(at("full/inner")); });
        return std::string(refusal && refusal->code == ErrorCode::PermissionDenied ? "denied"
                                                                                   : "answered");
    });
    ASSERT_EQ(::chmod(path("full").c_str(), 0755), 0);

    EXPECT_EQ(outcome, "denied");
}

TEST_F(LocalChanges, PathsBeyondTheKernelsLimitWork) {
    std::string deep = "deep";
    for (int i = 0; i < 60; ++i) {
        deep += "/" + std::string(100, static_cast<char>('a' + i % 26));
    }
    ASSERT_GT(path(deep).size(), 6000U);

    provider_->createFolderRecursive(at(deep));
    provider_->createFile(at(deep + "/file"));
    auto const stream = provider_->openStream(at(deep + "/file"), {});
    writeAll(*stream, "far down");
    stream->close();
    copy(deep + "/file", deep + "/copy");
    provider_->moveFile(at(deep + "/copy"), at("moved"), ReplacementPolicy::FailIfExists);

    EXPECT_TRUE(provider_->folderExists(at(deep)));
    EXPECT_EQ(provider_->getFileAttributes(at(deep + "/file")).values().size, 8U);
    EXPECT_EQ(provider_->getExtendedAttributes(at(deep + "/file")).at("posix.links"), "1");
    EXPECT_EQ(content("moved"), "far down");
    auto& links = dynamic_cast<extensions::ILinks&>(*provider_);
    for (auto const& [name, target] : {std::pair(u"nowhere", u"missing"), {u"circle", u"circle"}}) {
        StorageIRI const link(at(deep), name);
        links.createLink(link, target);
        EXPECT_EQ(provider_->getExtendedAttributes(link).at("posix.mode"), "0777");
    }
    EXPECT_EQ(provider_->exists(at(deep + "/missing/file")), ExistsResult::Nothing);
    EXPECT_EQ(provider_->exists(at("missing/" + deep)), ExistsResult::Nothing);
    EXPECT_TRUE(isRefused([&] { provider_->exists(at(deep + '/' + std::string(5000, 'n'))); },
                          ErrorCode::InvalidLocation, at(deep + '/' + std::string(5000, 'n'))));
}

TEST_F(LocalChanges, FailuresLeaveNoDescriptorOpen) {
    std::size_t const before = openDescriptors();

    for (char const* name : {"missing", "missing/child", "file/child", "folder", "file"}) {
        refusalOf([&] { provider_->createFile(at(name)); });
        refusalOf([&] { provider_->createFolderRecursive(at(std::string(name) + "/child")); });
        refusalOf([&] { provider_->openReadOnlyStream(at(name)); });
        refusalOf([&] { provider_->openStream(at(name), {}); });
        refusalOf([&] { copy(name, "full"); });
        refusalOf([&] { copy("file", name, ReplacementPolicy::ReplaceExisting); });
        refusalOf([&] { provider_->moveFile(at("full"), at(name), {}); });
    }

    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(LocalChanges, RunningOutOfDescriptorsIsAFailureAndNotACrash) {
    std::string const outcome = inChild([&] {
        injectFaults({{SYS_openat, 0, 0, EMFILE}});
        std::string codes;
        for (auto const& call : std::vector<std::function<void()>>{
                 [&] { provider_->createFile(at("new")); },
                 [&] { provider_->createFolderRecursive(at("new/new")); },
                 [&] { provider_->openReadOnlyStream(at("file")); },
                 [&] { provider_->openStream(at("file"), {}); }, [&] { copy("file", "new"); }}) {
            auto const refusal = refusalOf(call);
            codes += refusal && refusal->code == ErrorCode::InternalError ? "refused " : "other ";
        }
        return codes;
    });

    EXPECT_EQ(outcome, "refused refused refused refused refused ");
    EXPECT_FALSE(isThere("new"));
}

TEST_F(LocalChanges, AFolderGetsTheAttributesThatAreGivenAndKeepsTheOthers) {
    auto& folders = dynamic_cast<extensions::IFolderAttributes&>(*provider_);
    struct stat const before = status("folder");

    folders.setFolderAttributes(at("folder"), {{}, Timestamp{981173106, 123456789}, {}});
    EXPECT_EQ(status("folder").st_mtim.tv_sec, 981173106);
    EXPECT_EQ(status("folder").st_mtim.tv_nsec, 123456789);
    EXPECT_EQ(status("folder").st_atim.tv_nsec, before.st_atim.tv_nsec);
    EXPECT_EQ(status("folder").st_mode, before.st_mode);

    folders.setFolderAttributes(at("folder"), {01711, {}, Timestamp{-5, 7}});
    EXPECT_EQ(status("folder").st_mode & 07777, 01711U);
    EXPECT_EQ(status("folder").st_mtim.tv_nsec, 123456789);
    EXPECT_EQ(status("folder").st_atim.tv_sec, -5);
    EXPECT_EQ(status("folder").st_atim.tv_nsec, 7);
}

TEST_F(LocalChanges, ASetIdBitOfAFolderIsNeitherGivenNorTaken) {
    auto& folders = dynamic_cast<extensions::IFolderAttributes&>(*provider_);

    folders.setFolderAttributes(at("folder"), {06755, {}, {}});
    EXPECT_EQ(status("folder").st_mode & 07777, 0755U);

    ASSERT_EQ(::chmod(path("folder").c_str(), 02755), 0);
    folders.setFolderAttributes(at("folder"), {0700, {}, {}});
    EXPECT_EQ(status("folder").st_mode & 07777, 02700U);
    ASSERT_EQ(::chmod(path("folder").c_str(), 0755), 0);
}

TEST_F(LocalChanges, OnlyAFolderItselfGetsFolderAttributes) {
    auto& folders = dynamic_cast<extensions::IFolderAttributes&>(*provider_);
    struct stat const before = status("folder");

    for (char const* name : {"file", "link to file", "link to folder", "link to nothing"}) {
        EXPECT_TRUE(isRefused(
            [&] {
                folders.setFolderAttributes(at(name), {0700, {}, {}});
            },
            ErrorCode::InvalidLocation, at(name)))
            << name;
    }
    EXPECT_TRUE(isRefused(
        [&] {
            folders.setFolderAttributes(at("missing"), {0700, {}, {}});
        },
        ErrorCode::ResourceNotFound, at("missing")));
    EXPECT_EQ(status("folder").st_mode, before.st_mode);
}

} // namespace
} // namespace foundation::storage::provider::local::test
