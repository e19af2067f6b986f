// Cursors that are cloned, outlive their provider, and meet the end of what they list.

#include "../local/allocation_failure.hpp"
#include "trouble_fixture.hpp"

#include <new>

namespace foundation::storage::provider::s3 {
namespace {

using local::test::AllocationFailure;
using ::testing::ElementsAre;
using Cursor = std::unique_ptr<IFolderEntryIterator>;

class S3Cursors : public TroubledBucket {
  protected:
    void usePages(unsigned size, std::string const& behaviour = "good") {
        S3Options some = options();
        some.pageSize = size;
        useStore(behaviour, some);
    }
    void putFiles(std::string const& folder, int count) const {
        for (int number = 0; number < count; ++number) {
            put(folder + std::to_string(number));
        }
    }
    Cursor list(ustring const& path = {}) const { return Cursor(provider_->listAll(in(path), {})); }
};

TEST_F(S3Cursors, AreClonedWhereverTheyStand) {
    usePages(3);
    putFiles("", 9);
    for (int steps = 0; steps <= 9; ++steps) {
        Cursor const cursor = list();
        for (int step = 0; step < steps; ++step) {
            cursor->advance();
        }
        Cursor const before(cursor->cloneIterator());
        EXPECT_EQ(cursor->hasNext(), steps < 9);
        Cursor const behind(cursor->cloneIterator()); // which knows what comes next
        std::vector<std::string> const rest = namesOf(*cursor);
        EXPECT_EQ(rest.size(), static_cast<std::size_t>(9 - steps));
        EXPECT_EQ(namesOf(*before), rest) << steps;
        EXPECT_EQ(namesOf(*behind), rest) << steps;
        EXPECT_FALSE(before->hasNext());
        EXPECT_FALSE(before->hasNext()) << "the end is told twice";
        EXPECT_THROW(before->advance(), std::logic_error);
        EXPECT_THROW(before->advance(), std::logic_error);
    }
}

TEST_F(S3Cursors, ACloneOfOneThatHasMetAFailureFailsOnceToo) {
    usePages(1, "fails_at_page_2_once");
    putFiles("", 3);
    Cursor const cursor = list();
    cursor->advance();
    Cursor const fresh(cursor->cloneIterator()); // which has asked for nothing
    EXPECT_TRUE(cursor->hasNext());
    Cursor const failed(cursor->cloneIterator());
    for (Cursor const* const one : {&cursor, &failed}) {
        EXPECT_EQ(codeOf([&] { (*one)->advance(); }), refused(ErrorCode::PermissionDenied));
        EXPECT_FALSE((*one)->hasNext());
    }
    Cursor const ended(cursor->cloneIterator());
    EXPECT_FALSE(ended->hasNext());
    EXPECT_THAT(namesOf(*fresh), ElementsAre("1", "2"));
}

TEST_F(S3Cursors, OutliveTheirProvider) {
    usePages(2);
    putFiles("", 7);
    Cursor const cursor = list();
    cursor->advance();
    Cursor const clone(cursor->cloneIterator());
    provider_.reset();
    EXPECT_THAT(namesOf(*clone), ElementsAre("1", "2", "3", "4", "5", "6"));
    EXPECT_THAT(namesOf(*cursor), ElementsAre("1", "2", "3", "4", "5", "6"));
}

TEST_F(S3Cursors, AFolderThatVanishesBetweenPagesIsAFailure) {
    usePages(2);
    for (bool const isTree : {false, true}) {
        putFiles("d/", 5);
        Cursor const cursor(isTree ? provider_->listAllRecursive(in(u"d"), {})
                                   : provider_->listAll(in(u"d"), {}));
        cursor->advance();
        provider_->removeFolderRecursively(in(u"d"));
        cursor->advance();
        ASSERT_TRUE(cursor->hasNext());
        EXPECT_EQ(placeOfFailure([&] { cursor->advance(); }), "4 s3://good/d");
        EXPECT_FALSE(cursor->hasNext());
    }
}

TEST_F(S3Cursors, AFolderThatLosesTheRestOfItsFilesEndsItsListing) {
    usePages(2);
    putFiles("d/", 4);
    Cursor const cursor = list(u"d");
    cursor->advance();
    for (char const* key : {"d/1", "d/2", "d/3"}) {
        bucket_->remove(key, bucket_->deadline());
    }
    EXPECT_THAT(namesOf(*cursor), ElementsAre("1")) << "what was listed by then";
}

TEST_F(S3Cursors, LoseNoEntryWhereAPageCannotBeAskedForAhead) {
    usePages(3);
    putFiles("", 9);
    std::vector<std::string> const all{"0", "1", "2", "3", "4", "5", "6", "7", "8"};
    std::size_t failures = 0;
    for (std::size_t before = 0;; ++before) {
        Cursor const cursor = list();
        cursor->advance();
        std::vector<std::string> names{"0"};
        bool happened = false;
        bool failed = false;
        {
            AllocationFailure const one(before, happened);
            try {
                cursor->advance(); // from here on there is a page ahead
            } catch (std::bad_alloc const&) {
                failed = true;
            }
        }
        if (failed) {
            ++failures;
            EXPECT_FALSE(cursor->hasNext()) << before;
        } else {
            names.push_back(fl::i18n::to_string(cursor->currentEntry().getName()));
            for (std::string const& name : namesOf(*cursor)) {
                names.push_back(name);
            }
            EXPECT_EQ(names, all) << before;
        }
        if (!happened) {
            break;
        }
    }
    EXPECT_LT(failures, 5U);
}

} // namespace
} // namespace foundation::storage::provider::s3
