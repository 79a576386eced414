#include <Core/Interfaces/RefCount.h>

#include <boost/intrusive_ptr.hpp>
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

using namespace Tarsel;

namespace {

class Counted : public RefCounted<IRefCountable> {
public:
    explicit Counted(std::atomic<int>* destroyed) : m_destroyed(destroyed) {}
    ~Counted() override { ++*m_destroyed; }

private:
    std::atomic<int>* m_destroyed;
};

class CountingLockable : public ILockable {
public:
    void Lock() override {
        m_lock.Lock_Impl();
        ++locks;
    }
    bool TryLock() override { return m_lock.TryLock_Impl(); }
    void Unlock() override {
        ++unlocks;
        m_lock.Unlock_Impl();
    }
    int locks = 0;
    int unlocks = 0;

private:
    LockImpl m_lock;
};

}  // namespace

TEST(RefCountImpl, CountsUpAndDownFromZero) {
    RefCountImpl count;
    EXPECT_EQ(count.GetRefCountImpl(), 0);
    EXPECT_EQ(count.AddRefImpl(), 1);
    EXPECT_EQ(count.AddRefImpl(), 2);
    EXPECT_EQ(count.ReleaseImpl(), 1);
    EXPECT_EQ(count.ReleaseImpl(), 0);
    EXPECT_EQ(count.GetRefCountImpl(), 0);
}

TEST(IntrusivePtr, TakesTheFirstReferenceAndDestroysOnTheLast) {
    std::atomic<int> destroyed{0};
    {
        boost::intrusive_ptr<Counted> first(new Counted(&destroyed));
        EXPECT_EQ(first->GetRefCount(), 1);
        boost::intrusive_ptr<IRefCountable> second = first;
        EXPECT_EQ(first->GetRefCount(), 2);
        first.reset();
        EXPECT_EQ(destroyed.load(), 0);
        EXPECT_EQ(second->GetRefCount(), 1);
    }
    EXPECT_EQ(destroyed.load(), 1);
}

TEST(IntrusivePtr, ConcurrentReleaseDestroysExactlyOnce) {
    constexpr int kThreads = 8;
    constexpr int kRounds = 200;
    for (int round = 0; round < kRounds; ++round) {
        std::atomic<int> destroyed{0};
        std::atomic<bool> go{false};
        std::vector<std::thread> threads;
        {
            boost::intrusive_ptr<Counted> shared(new Counted(&destroyed));
            for (int t = 0; t < kThreads; ++t) {
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
        }
        go = true;
        for (auto& thread : threads) {
            thread.join();
        }
        ASSERT_EQ(destroyed.load(), 1) << "round " << round;
    }
}

TEST(AutoLock, LocksForItsScopeAndIgnoresNull) {
    CountingLockable lockable;
    {
        AutoLock lock(&lockable);
        EXPECT_EQ(lockable.locks, 1);
        EXPECT_EQ(lockable.unlocks, 0);
    }
    EXPECT_EQ(lockable.unlocks, 1);
    { AutoLock nothing(nullptr); }
}

TEST(LockImpl, TryLockFailsAtOnceWhileAnotherThreadHoldsIt) {
    LockImpl lock;
    lock.Lock_Impl();
    bool taken = true;
    std::thread([&] { taken = lock.TryLock_Impl(); }).join();
    EXPECT_FALSE(taken);
    lock.Unlock_Impl();
    std::thread([&] {
        taken = lock.TryLock_Impl();
        lock.Unlock_Impl();
    }).join();
    EXPECT_TRUE(taken);
}
