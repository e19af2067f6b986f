// The one way to make resolving a good location fail is to run out of memory, so this program's
// operator new fails once on request.

#include <foundation/core/except/exception.hpp>
#include <foundation/storage/vfs/iri/absolute_iri.hpp>

#include <gtest/gtest.h>

#include <cstdlib>
#include <new>

namespace {

thread_local bool failNextAllocation = false;

} // namespace

[[gnu::noinline]] void* operator new(std::size_t size) {
    if (failNextAllocation) {
        failNextAllocation = false;
        throw std::bad_alloc();
    }
    if (void* memory = std::malloc(size == 0 ? 1 : size)) {
        return memory;
    }
    throw std::bad_alloc();
}

[[gnu::noinline]] void operator delete(void* memory) noexcept {
    std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}

namespace {

namespace vfs = foundation::storage::vfs;
using foundation::core::except::IException;

TEST(ResolvedIRI, AnyFailureIsAPlainInvalidIRIExceptionWithTheText) {
    vfs::AbsoluteIRI const iri(u"mem:/a/./b/../a path long enough to need memory");
    failNextAllocation = true;
    try {
        iri.getResolvedIRI();
        FAIL();
    } catch (vfs::InvalidIRIException& e) {
        EXPECT_EQ(e.getInvalidIRIString(), iri.toString());
        EXPECT_EQ(dynamic_cast<IException*>(&e), nullptr) << "the plain form is required";
    }
    EXPECT_FALSE(failNextAllocation);
}

} // namespace
