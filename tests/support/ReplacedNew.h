// Replaces the global operator new and delete of a test executable, so that
// its tests can count the allocations a call makes, make the Nth of them fail
// with std::bad_alloc, and see whether a call leaves blocks behind. Include it
// in exactly one source of an executable: the replacement is process-wide.
//
// ThreadSanitizer's runtime defines operator new itself and cannot have it
// replaced; in that build kReplacesNew is false, nothing is replaced, nothing
// is counted, and the tests that depend on it skip.
#pragma once

#include <atomic>
#include <cstdlib>
#include <new>

#if defined(__SANITIZE_THREAD__)
#define TARSEL_REPLACES_NEW 0
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define TARSEL_REPLACES_NEW 0
#else
#define TARSEL_REPLACES_NEW 1
#endif
#else
#define TARSEL_REPLACES_NEW 1
#endif

namespace TarselTest {

constexpr bool kReplacesNew = TARSEL_REPLACES_NEW;

// What the replacement does for one thread: allocations are counted while a
// watch is open, and the failAt-th of them (and, when failing persistently,
// every later one too) throws std::bad_alloc.
struct AllocationState {
    bool watching = false;
    long count = 0;
    long failAt = 0;  // 0: none fails
    bool persistent = false;
};
inline thread_local AllocationState t_allocationState;

// Blocks that operator new handed out and operator delete has not taken back,
// over the whole process.
inline std::atomic<long> g_liveBlocks{0};

inline long LiveBlocks() {
    return g_liveBlocks.load();
}

// Counts the allocations of this thread while it lives; with failAt > 0 the
// failAt-th of them fails, and with persistent every one after it as well.
// Close it before asserting: gtest's messages allocate too.
class AllocationWatch {
public:
    explicit AllocationWatch(long failAt = 0, bool persistent = false) {
        t_allocationState = AllocationState{true, 0, failAt, persistent};
    }
    ~AllocationWatch() { t_allocationState.watching = false; }
    AllocationWatch(const AllocationWatch&) = delete;
    AllocationWatch& operator=(const AllocationWatch&) = delete;

    long Allocations() const { return t_allocationState.count; }
    // Whether the allocation meant to fail was asked for.
    bool ReachedFailure() const {
        return t_allocationState.failAt > 0 && t_allocationState.count >= t_allocationState.failAt;
    }
};

}  // namespace TarselTest

#if TARSEL_REPLACES_NEW
// Kept out of line: g++ at -O2 would inline them into gtest's `new TestClass`
// and then see free() on memory from operator new (-Wmismatched-new-delete).
// operator new[] and the nothrow forms call these in both standard libraries.
[[gnu::noinline]] void* operator new(std::size_t size) {
    TarselTest::AllocationState& state = TarselTest::t_allocationState;
    if (state.watching) {
        ++state.count;
        if (state.failAt > 0 && (state.count == state.failAt || (state.persistent && state.count > state.failAt))) {
            throw std::bad_alloc();
        }
    }
    void* block = std::malloc(size == 0 ? 1 : size);
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    ++TarselTest::g_liveBlocks;
    return block;
}
[[gnu::noinline]] void operator delete(void* block) noexcept {
    if (block != nullptr) {
        --TarselTest::g_liveBlocks;
        std::free(block);
    }
}
[[gnu::noinline]] void operator delete(void* block, std::size_t) noexcept {
    operator delete(block);
}
#endif
