#include <Core/Interfaces/RefCount.h>

#include <boost/intrusive_ptr.hpp>
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

using namespace Tarsel;

namespace {

// Counts its own destruction.
struct Counted : RefCounted<IRefCountable> {
    explicit Counted(std::atomic<int>* counter) : destroyed(counter) {}
    ~Counted() override { ++*destroyed; }
    std::atomic<int>* destroyed;
};

struct Lockable : ILockable, LockImpl {
    void Lock() override { Lock_Impl(); }
    bool TryLock() override { return TryLock_Impl(); }
    void Unlock() override { Unlock_Impl(); }
};

// Whether another thread can take the lock at this moment (it gives it back).
bool FreeForAnotherThread(ILockable& lockable) {
    bool taken = false;
    std::thread([&] {
        taken = lockable.TryLock();
        if (taken) {
            lockable.Unlock();
        }
    }).join();
    return taken;
}

}  // namespace

TEST(RefCounted, CountsFromZeroAndDestroysOnTheLastRelease) {
    std::atomic<int> destroyed{0};
    const Counted* raw = new Counted(&destroyed);
    EXPECT_EQ(raw->GetRefCount(), 0);
    {
        boost::intrusive_ptr<const Counted> first(raw);  // takes the first reference
        EXPECT_EQ(raw->AddRef(), 2);
        EXPECT_EQ(raw->Release(), 1);
        boost::intrusive_ptr<const IRefCountable> second = first;
        EXPECT_EQ(raw->GetRefCount(), 2);
        first.reset();
        EXPECT_EQ(destroyed.load(), 0);
        EXPECT_EQ(second->GetRefCount(), 1);
    }
    EXPECT_EQ(destroyed.load(), 1);
}

TEST(RefCounted, ConcurrentReleaseDestroysExactlyOnce) {
    for (int round = 0; round < 200; ++round) {
        std::atomic<int> destroyed{0};
        std::atomic<bool> go{false};
        std::vector<std::thread> threads;
        boost::intrusive_ptr<Counted> shared(new Counted(&destroyed));
        for (int t = 0; t < 8; ++t) {
            threads.emplace_back([copy = shared, &go]() mutable {
                while (!go) {
                    std::this_thread::yield();
                }
                for (int i = 0; i < 100; ++i) {
                    boost::intrusive_ptr<Counted> extra = copy;
                }
                copy.reset();
            });
        }
        shared.reset();
        go = true;
        for (auto& thread : threads) {
            thread.join();
        }
        ASSERT_EQ(destroyed.load(), 1) << "round " << round;
    }
}

TEST(AutoLock, HoldsTheLockForItsScopeAndIgnoresNull) {
    Lockable lockable;
    {
        AutoLock lock(&lockable);
        // TryLock fails at once while another thread holds the lock.
        EXPECT_FALSE(FreeForAnotherThread(lockable));
    }
    EXPECT_TRUE(FreeForAnotherThread(lockable));
    AutoLock nothing(nullptr);
}
