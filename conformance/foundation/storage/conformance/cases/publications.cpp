// Publishing, stopping, and what callbacks may do.

#include <foundation/storage/conformance/detail/case.hpp>
#include <foundation/storage/conformance/detail/watching.hpp>

#include <boost/property_tree/ptree.hpp>

#include <atomic>
#include <memory>
#include <stdexcept>

namespace foundation::storage::conformance::detail {

namespace {

using enum Ability;
using events::EntryType;
using events::Kind;

constexpr AbilitySet forEvents = ChangeEvents | FileCreation;

constexpr Case cases[] = {
    {"EachPublicationIsTold",
     [](Trial& t) {
         EventLog const one = watch(t, t.at({}));
         EventLog const two = watch(t, t.at({}));
         t.makeFile(u"file");
         expectTold(t, one, Kind::Created, t.at(u"file"));
         expectTold(t, two, Kind::Created, t.at(u"file"));
     },
     forEvents},
    {"AStopTakesTheOldest",
     [](Trial& t) {
         EventLog const one = watch(t, t.at({}));
         EventLog const two = watch(t, t.at({}));
         t.provider().stopPublishingFolderEvents(t.at({}));
         settle(t, two, u"file");
         expectUntold(t, one, "a change behind the stop", isAbout(Kind::Created, t.at(u"file")));
     },
     forEvents},
    {"BehindTheLastStopNothingIsTold",
     [](Trial& t) {
         t.makeFile(u"file");
         EventLog const log = watch(t, t.at({}));
         EventLog const ofFile = watchFile(t, t.at(u"file"));
         t.provider().stopPublishingFolderEvents(t.at({}));
         t.provider().stopPublishingFileEvents(t.at(u"file"));
         EventLog const other = watch(t, t.at({}));
         t.provider().removeFile(t.at(u"file"));
         settle(t, other, u"last");
         auto const any = [](ChangeReport const&) { return true; };
         expectUntold(t, log, "a change behind the stop", any);
         expectUntold(t, ofFile, "a change of the file behind the stop", any);
     },
     forEvents | FileRemoval},
    {"FilesAndFoldersAreStoppedApart",
     [](Trial& t) {
         EventLog const log = watch(t, t.at({}));
         t.provider().stopPublishingFileEvents(t.at({}));
         t.makeFile(u"file");
         expectTold(t, log, Kind::Created, t.at(u"file"));
     },
     forEvents},
    {"AStopWithoutAPublicationDoesNothing",
     [](Trial& t) {
         t.expectDone("stopPublishingFolderEvents",
                      [&] { t.provider().stopPublishingFolderEvents(t.at({})); });
         t.expectDone("stopPublishingFileEvents",
                      [&] { t.provider().stopPublishingFileEvents(t.at(u"missing")); });
         EventLog const log = watch(t, t.at({}));
         settle(t, log, u"file");
     },
     forEvents},
    {"WhatIsMissingIsNotPublished",
     [](Trial& t) {
         EventLog const log(t.contract().patience);
         t.expectRefused(
             "publishFileEvents of what is missing",
             [&] { t.provider().publishFileEvents(t.at(u"missing"), log.callback(), everything); },
             ErrorCode::ResourceNotFound, t.at(u"missing"));
         for (auto const recursive :
              {RecursiveFileWatching::NonRecursive, RecursiveFileWatching::Recursive}) {
             if (recursive == RecursiveFileWatching::NonRecursive || t.has(RecursiveChangeEvents)) {
                 t.expectRefused(
                     "publishFolderEvents of what is missing",
                     [&] {
                         t.provider().publishFolderEvents(t.at(u"missing"), log.callback(),
                                                          everything, recursive);
                     },
                     ErrorCode::ResourceNotFound, t.at(u"missing"));
             }
         }
     },
     ChangeEvents},
    {"TheWrongKindIsNotPublished",
     [](Trial& t) {
         t.makeFile(u"file");
         EventLog const log(t.contract().patience);
         t.expectRefused(
             "publishFileEvents of a folder",
             [&] { t.provider().publishFileEvents(t.at({}), log.callback(), everything); },
             ErrorCode::InvalidLocation, t.at({}));
         t.expectRefused(
             "publishFolderEvents of a file",
             [&] {
                 t.provider().publishFolderEvents(t.at(u"file"), log.callback(), everything,
                                                  RecursiveFileWatching::NonRecursive);
             },
             ErrorCode::InvalidLocation, t.at(u"file"));
     },
     forEvents},
    {"WhatIsRefusedLeavesNothingBehind",
     [](Trial& t) {
         EventLog const refused(t.contract().patience);
         t.expectRefused(
             "publishFileEvents of what is missing",
             [&] { t.provider().publishFileEvents(t.at(u"file"), refused.callback(), everything); },
             ErrorCode::ResourceNotFound, t.at(u"file"));
         EventLog const log = watch(t, t.at({}));
         settle(t, log, u"file");
         expectUntold(t, refused, "a change of what was refused",
                      [](ChangeReport const&) { return true; });
     },
     forEvents},
    {"ACallbackMayUseTheStorage",
     [](Trial& t) {
         EventLog const log(t.contract().patience);
         std::weak_ptr<IProvider> const weak = t.item({}).getProvider();
         StorageIRI const first = t.at(u"file");
         StorageIRI const second = t.at(u"made by the callback");
         t.provider().publishFolderEvents(t.at({}), log.callback([=](ChangeReport const& report) {
             auto const provider = weak.lock();
             if (provider && report.kind == Kind::Created && report.entry == first) {
                 provider->exists(first);
                 provider->createFile(second);
             }
         }),
                                          {Kind::Created}, RecursiveFileWatching::NonRecursive);
         t.makeFile(u"file");
         expectTold(t, log, Kind::Created, second);
     },
     forEvents},
    {"ACallbackMayStopItself",
     [](Trial& t) {
         EventLog const log(t.contract().patience);
         std::weak_ptr<IProvider> const weak = t.item({}).getProvider();
         StorageIRI const place = t.at({});
         auto const stopped = std::make_shared<std::atomic<bool>>(false);
         t.provider().publishFolderEvents(place, log.callback([=](ChangeReport const&) {
             auto const provider = weak.lock();
             if (provider && !stopped->exchange(true)) {
                 provider->stopPublishingFolderEvents(place);
             }
         }),
                                          {Kind::Created}, RecursiveFileWatching::NonRecursive);
         t.makeFile(u"file");
         expectTold(t, log, Kind::Created, t.at(u"file"));
         EventLog const other = watch(t, place);
         if (*stopped) {
             settle(t, other, u"last");
         }
     },
     forEvents},
    {"WhatACallbackThrowsHarmsNoOther",
     [](Trial& t) {
         t.provider().publishFolderEvents(
             t.at({}),
             [](Kind const&, StorageIRI const&, StorageIRI const&, EntryType const&,
                boost::property_tree::ptree) { throw std::runtime_error("a callback's own"); },
             everything, RecursiveFileWatching::NonRecursive);
         EventLog const log = watch(t, t.at({}));
         t.expectDone("createFile beside a callback that throws",
                      [&] { t.provider().createFile(t.at(u"file")); });
         expectTold(t, log, Kind::Created, t.at(u"file"));
         settle(t, log, u"last");
     },
     forEvents},
};

} // namespace

Family publicationFamily() {
    return {"Publications", cases};
}

} // namespace foundation::storage::conformance::detail
