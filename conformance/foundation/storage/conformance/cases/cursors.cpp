// The protocol of the cursors that listings give.

#include <foundation/storage/conformance/detail/case.hpp>
#include <foundation/storage/conformance/detail/trial.hpp>

#include <algorithm>
#include <memory>
#include <stdexcept>

namespace foundation::storage::conformance::detail {

namespace {

using enum Ability;
using Cursor = std::unique_ptr<IFolderEntryIterator>;
using Names = std::vector<ustring>;

constexpr std::size_t entryCount = 40;
constexpr std::size_t manyEntries = 1300;
constexpr AbilitySet forChanges = Ability::Listing | FileCreation;

ustring nameOf(std::size_t number) {
    std::string const digits = std::to_string(number);
    return u"entry " + ustring(digits.begin(), digits.end());
}

void makeEntries(Trial& t, std::size_t count, ustring const& folder = {}) {
    for (std::size_t number = 0; number < count; ++number) {
        t.makeFile((folder.empty() ? u"" : folder + u"/") + nameOf(number));
    }
}

/// Something to list: files that are made, or what is there where none can be made.
void makeOrFindEntries(Trial& t, std::size_t count) {
    if (t.has(FileCreation)) {
        makeEntries(t, count);
    } else if (t.content().empty()) {
        t.abandon("no content is declared");
    }
}

Cursor cursorOver(Trial& t, ListingCall listing = &IProvider::listAllNamesOnly,
                  ustring const& path = {}) {
    return (t.provider().*listing)(t.at(path), {});
}
Cursor clone(Cursor const& cursor) {
    return Cursor(cursor->cloneIterator());
}

/// What a cursor has still to deliver, in its order.
Names restOf(Trial& t, IFolderEntryIterator& cursor) {
    Names names;
    while (cursor.hasNext()) {
        cursor.advance();
        names.push_back(cursor.currentEntry().getName());
        if (names.size() > 10 * manyEntries) {
            t.abandon("a cursor does not end");
        }
    }
    return names;
}

void expectLogicError(Trial& t, std::string_view what, Call const& call) {
    try {
        call();
        t.remark(std::string(what) + " gave success instead of std::logic_error");
    } catch (std::logic_error const&) {
    } catch (...) {
        t.remark(std::string(what) + " gave " + textOfCurrentException() +
                 " instead of std::logic_error");
    }
}

/// Calls with each listing that delivers something of the place, and with what that is.
void withEachListing(Trial& t,
                     std::function<void(NamedListing const&, Names const&)> const& check) {
    bool any = false;
    auto const call = [&](NamedListing const& listing) {
        Names const names = restOf(t, *cursorOver(t, listing.list));
        if (!names.empty()) {
            check(listing, names);
            any = true;
        }
    };
    std::for_each(std::begin(flatListings), std::end(flatListings), call);
    if (t.has(Ability::RecursiveListing)) {
        std::for_each(std::begin(treeListings), std::end(treeListings), call);
    }
    t.expect(any, "no listing delivers anything");
}

void expectClonesAtEveryPosition(Trial& t, std::size_t count, std::size_t step, bool ask) {
    makeOrFindEntries(t, count);
    withEachListing(t, [&](NamedListing const& listing, Names const& names) {
        Cursor const cursor = cursorOver(t, listing.list);
        std::vector<Cursor> clones;
        for (std::size_t position = 0; position <= names.size(); ++position) {
            if (ask && cursor->hasNext() != (position < names.size())) {
                t.abandon(std::string(listing.name) + " has another length the second time");
            }
            if (position % step == 0) {
                clones.push_back(clone(cursor));
            }
            if (position < names.size()) {
                cursor->advance();
            }
        }
        for (std::size_t i = 0; i < clones.size(); ++i) {
            std::size_t const position = i * step;
            std::string const what = std::string(listing.name) + ", the clone made at position " +
                                     textOf(static_cast<unsigned long>(position));
            if (position > 0) {
                t.expectEqual(what + ", its entry", clones[i]->currentEntry().getName(),
                              names[position - 1]);
            }
            t.expectEqual(what + ", the rest", restOf(t, *clones[i]),
                          Names(names.begin() + static_cast<long>(position), names.end()));
        }
    });
}

constexpr Case cases[] = {
    {"AskingDoesNotAdvance",
     [](Trial& t) {
         makeOrFindEntries(t, entryCount);
         withEachListing(t, [&](NamedListing const& listing, Names const& names) {
             Cursor const cursor = cursorOver(t, listing.list);
             Names found;
             while (cursor->hasNext() && found.size() <= names.size()) {
                 for (int time = 0; time < 5; ++time) {
                     t.expect(cursor->hasNext(),
                              std::string(listing.name) +
                                  ": hasNext once more gave false instead of true");
                 }
                 cursor->advance();
                 found.push_back(cursor->currentEntry().getName());
             }
             t.expectEqual(std::string(listing.name) + ", asked again and again", found, names);
         });
     },
     Ability::Listing},
    {"AdvancesWithoutBeingAsked",
     [](Trial& t) {
         makeOrFindEntries(t, entryCount);
         withEachListing(t, [&](NamedListing const& listing, Names const& names) {
             Cursor const cursor = cursorOver(t, listing.list);
             Names found;
             for (std::size_t i = 0; i < names.size(); ++i) {
                 cursor->advance();
                 found.push_back(cursor->currentEntry().getName());
             }
             t.expectEqual(std::string(listing.name) + ", the entries", found, names);
             t.expect(!cursor->hasNext(), std::string(listing.name) + " goes on behind the end");
         });
     },
     Ability::Listing},
    {"TheEndStaysTheEnd",
     [](Trial& t) {
         makeOrFindEntries(t, 3);
         withEachListing(t, [&](NamedListing const& listing, Names const&) {
             Cursor const cursor = cursorOver(t, listing.list);
             restOf(t, *cursor);
             for (int time = 0; time < 3; ++time) {
                 t.expect(!cursor->hasNext(), std::string(listing.name) + " has more at the end");
                 expectLogicError(t, std::string(listing.name) + ", advance at the end",
                                  [&] { cursor->advance(); });
             }
         });
     },
     Ability::Listing},
    {"TheEndOfAnEmptyFolderIsAtOnce",
     [](Trial& t) {
         std::vector<NamedListing> all(std::begin(flatListings), std::end(flatListings));
         if (t.has(Ability::RecursiveListing)) {
             all.insert(all.end(), std::begin(treeListings), std::end(treeListings));
         }
         for (NamedListing const& listing : all) {
             std::string const what = std::string(listing.name) + " of an empty folder";
             Cursor const cursor = cursorOver(t, listing.list);
             t.expect(!cursor->hasNext(), what + " has more");
             t.expect(!cursor->hasNext(), what + " has more the second time");
             expectLogicError(t, what + ", advance", [&] { cursor->advance(); });
             expectLogicError(t, what + ", currentEntry", [&] { cursor->currentEntry(); });
         }
     },
     forChanges},
    {"BeforeTheFirstAdvanceThereIsNoEntry",
     [](Trial& t) {
         makeOrFindEntries(t, 3);
         withEachListing(t, [&](NamedListing const& listing, Names const& names) {
             Cursor const cursor = cursorOver(t, listing.list);
             expectLogicError(t, std::string(listing.name) + ", currentEntry at first",
                              [&] { cursor->currentEntry(); });
             cursor->hasNext();
             expectLogicError(t, std::string(listing.name) + ", currentEntry behind hasNext",
                              [&] { cursor->currentEntry(); });
             t.expectEqual(std::string(listing.name) + ", the entries behind that",
                           restOf(t, *cursor), names);
         });
     },
     Ability::Listing},
    {"TheEntryStaysUntilTheNextAdvance",
     [](Trial& t) {
         makeOrFindEntries(t, entryCount);
         withEachListing(t, [&](NamedListing const& listing, Names const&) {
             Cursor const cursor = cursorOver(t, listing.list);
             while (cursor->hasNext()) {
                 cursor->advance();
                 ustring const name = cursor->currentEntry().getName();
                 cursor->hasNext();
                 t.expectEqual(std::string(listing.name) + ", the entry asked for again",
                               cursor->currentEntry().getName(), name);
             }
         });
     },
     Ability::Listing},
    {"ClonesAtEveryPositionGoOnByThemselves",
     [](Trial& t) { expectClonesAtEveryPosition(t, entryCount, 1, true); }, Ability::Listing},
    {"ClonesOfACursorThatIsNotAskedGoOnToo",
     [](Trial& t) { expectClonesAtEveryPosition(t, entryCount, 1, false); }, Ability::Listing},
    {"ClonesInALargeFolderGoOnByThemselves",
     [](Trial& t) { expectClonesAtEveryPosition(t, manyEntries, 61, true); }, Ability::Listing},
    {"AClonesStepsLeaveTheOriginal",
     [](Trial& t) {
         makeOrFindEntries(t, entryCount);
         withEachListing(t, [&](NamedListing const& listing, Names const& names) {
             Cursor const original = cursorOver(t, listing.list);
             for (std::size_t i = 0; i < names.size(); ++i) {
                 original->advance();
                 Cursor const copy = clone(original);
                 restOf(t, *copy);
                 t.expectEqual(std::string(listing.name) +
                                   ", the original's entry when a clone is at the end",
                               original->currentEntry().getName(), names[i]);
                 t.expectEqual(std::string(listing.name) + ", whether the original goes on",
                               original->hasNext(), i + 1 < names.size());
             }
         });
     },
     Ability::Listing},
    {"TheOriginalsStepsLeaveAClone",
     [](Trial& t) {
         makeOrFindEntries(t, entryCount);
         withEachListing(t, [&](NamedListing const& listing, Names const& names) {
             Cursor const original = cursorOver(t, listing.list);
             original->advance();
             Cursor const copy = clone(original);
             restOf(t, *original);
             t.expectEqual(std::string(listing.name) + ", the clone's entry",
                           copy->currentEntry().getName(), names.front());
             t.expectEqual(std::string(listing.name) + ", the clone's rest", restOf(t, *copy),
                           Names(names.begin() + 1, names.end()));
         });
     },
     Ability::Listing},
    {"AClonesCloneIsOneToo",
     [](Trial& t) {
         makeOrFindEntries(t, entryCount);
         withEachListing(t, [&](NamedListing const& listing, Names const& names) {
             Cursor cursor = cursorOver(t, listing.list);
             Names found;
             while (cursor->hasNext() && found.size() <= names.size()) {
                 cursor = clone(clone(cursor)); // the ones before are gone
                 cursor->advance();
                 found.push_back(cursor->currentEntry().getName());
             }
             t.expectEqual(std::string(listing.name) + ", listed by clones of clones", found,
                           names);
         });
     },
     Ability::Listing},
    {"AClonesEndIsTheEnd",
     [](Trial& t) {
         makeOrFindEntries(t, 5);
         withEachListing(t, [&](NamedListing const& listing, Names const&) {
             Cursor const cursor = cursorOver(t, listing.list);
             restOf(t, *cursor);
             Cursor const copy = clone(cursor);
             t.expect(!copy->hasNext(),
                      std::string(listing.name) + ": a clone made at the end goes on");
             expectLogicError(t, std::string(listing.name) + ", advance of a clone at the end",
                              [&] { copy->advance(); });
         });
     },
     Ability::Listing},
    {"ManyCursorsAreOpenAtOnce",
     [](Trial& t) {
         makeOrFindEntries(t, 300);
         Names const names = restOf(t, *cursorOver(t));
         std::vector<Cursor> cursors;
         for (int i = 0; i < 300; ++i) {
             cursors.push_back(cursorOver(t));
             cursors.back()->advance();
         }
         for (Cursor const& cursor : cursors) {
             if (!t.expectEqual("the rest of one of 300 cursors", restOf(t, *cursor),
                                Names(names.begin() + 1, names.end()))) {
                 return;
             }
         }
     },
     Ability::Listing},
    {"WhatIsThereThroughoutIsDeliveredOnce",
     [](Trial& t) {
         makeEntries(t, manyEntries);
         withEachListing(t, [&](NamedListing const& listing, Names const&) {
             Cursor const cursor = cursorOver(t, listing.list);
             Names found;
             for (int i = 0; cursor->hasNext(); ++i) {
                 cursor->advance();
                 found.push_back(cursor->currentEntry().getName());
                 if (i % 100 == 50) {
                     t.makeFile(u"added " + nameOf(static_cast<std::size_t>(i)));
                     t.makeFile(u"a " + nameOf(static_cast<std::size_t>(i)));
                 }
             }
             std::erase_if(found, [](ustring const& name) { return name.starts_with(u"a"); });
             Names wanted;
             for (std::size_t i = 0; i < manyEntries; ++i) {
                 wanted.push_back(nameOf(i));
             }
             std::sort(found.begin(), found.end());
             std::sort(wanted.begin(), wanted.end());
             t.expectEqual(std::string(listing.name) + " beside creations", found, wanted);
             for (std::size_t i = 50; i < manyEntries; i += 100) {
                 for (ustring const stem : {u"added ", u"a "}) {
                     if (t.has(FileRemoval) && t.isThere(stem + nameOf(i))) {
                         t.provider().removeFile(t.at(stem + nameOf(i)));
                     }
                 }
             }
         });
     },
     forChanges | FileRemoval},
    {"WhatIsRemovedMeanwhileComesOnceOrNotAtAll",
     [](Trial& t) {
         makeEntries(t, manyEntries);
         Cursor const cursor = cursorOver(t, &IProvider::listAll);
         Names found;
         for (std::size_t i = 0; cursor->hasNext(); ++i) {
             cursor->advance();
             found.push_back(cursor->currentEntry().getName());
             if (i < manyEntries / 2) {
                 t.provider().removeFile(t.at(nameOf(2 * i)));
             }
         }
         std::sort(found.begin(), found.end());
         t.expect(std::adjacent_find(found.begin(), found.end()) == found.end(),
                  "an entry is delivered twice beside removals");
         for (std::size_t i = 1; i < manyEntries; i += 2) {
             t.expect(std::binary_search(found.begin(), found.end(), nameOf(i)),
                      textOf(nameOf(i)) + ", there throughout, is not delivered beside removals");
         }
     },
     forChanges | FileRemoval},
    {"AFolderThatVanishesEndsItsListing",
     [](Trial& t) {
         for (std::size_t const count : {std::size_t{0}, std::size_t{5}, manyEntries}) {
             t.makeFolder(u"folder");
             makeEntries(t, count, u"folder");
             Cursor const cursor = cursorOver(t, &IProvider::listAllNamesOnly, u"folder");
             for (std::size_t number = 0; number < count; ++number) {
                 t.provider().removeFile(t.at(u"folder/" + nameOf(number)));
             }
             t.provider().removeFolder(t.at(u"folder"));
             Names found;
             try {
                 found = restOf(t, *cursor);
             } catch (Exception const& e) {
                 t.expectEqual("the code out of advance", e.getErrorCode(),
                               ErrorCode::ResourceNotFound);
                 t.expectEqual("the location out of advance", e.getStorageIRI(), t.at(u"folder"));
                 t.expect(!cursor->hasNext(), "a listing that has failed goes on");
             }
             t.expect(found.size() <= count, "more is delivered than there ever was");
         }
     },
     forChanges | FolderCreation | FileRemoval | FolderRemoval},
};

} // namespace

Family cursorFamily() {
    return {"Cursors", cases};
}

} // namespace foundation::storage::conformance::detail
