#include <Core/Interfaces/RefCount.h>

#include <boost/intrusive_ptr.hpp>
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <utility>
#include <vector>

using namespace Tarsel;

namespace {

// Counts its own destruction.
struct Counted : RefCounted<IRefCountable> {
    explicit Counted(std::atomic<int>* counter) : destroyed(counter) {}
    ~Counted() override { ++*destroyed; }
    std::atomic<int>* destroyed;
};

// A client's counted object in the owner pattern: a RefCountImpl member, and
// the compiler's own copy constructor and assignment.
class Preset : public IRefCountable {
public:
    explicit Preset(std::string name) : name(std::move(name)) {}
    long AddRef() const override { return m_refCount.AddRefImpl(); }
    long GetRefCount() const override { return m_refCount.GetRefCountImpl(); }
    long Release() const override {
        const long count = m_refCount.ReleaseImpl();
        if (count == 0) {
            delete this;
        }
        return count;
    }

    std::string name;

private:
    RefCountImpl m_refCount;
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

// A copy is a new object that nothing references yet; assignment copies the
// state and leaves each object's references as they were.
TEST(RefCountImpl, ACopiedOwnerStartsAtZeroAndAnAssignedOneKeepsItsCount) {
    const boost::intrusive_ptr<Preset> original(new Preset("hd"));
    boost::intrusive_ptr<Preset> second = original;
    Preset copy(*original);
    EXPECT_EQ(copy.name, "hd");
    EXPECT_EQ(copy.GetRefCount(), 0);
    EXPECT_EQ(original->GetRefCount(), 2);

    const boost::intrusive_ptr<Preset> other(new Preset("sd"));
    *other = *original;
    EXPECT_EQ(other->name, "hd");
    EXPECT_EQ(other->GetRefCount(), 1);
    EXPECT_EQ(original->GetRefCount(), 2);

    // A copy shared in its turn counts, and is destroyed, on its own.
    second.reset();
    const boost::intrusive_ptr<Preset> shared(new Preset(*original));
    EXPECT_EQ(shared->GetRefCount(), 1);
    EXPECT_EQ(original->GetRefCount(), 1);

    // The bare counter, the same way.
    RefCountImpl counter;
    counter.AddRefImpl();
    RefCountImpl copied(counter);
    EXPECT_EQ(copied.GetRefCountImpl(), 0);
    copied.AddRefImpl();
    copied.AddRefImpl();
    copied = counter;
    EXPECT_EQ(copied.GetRefCountImpl(), 2);
    EXPECT_EQ(counter.GetRefCountImpl(), 1);
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

// Holders on many threads, through AutoLock and through TryLock_Impl, never
// overlap: the unguarded counter ends exact (and ThreadSanitizer, in
// make tsan, sees every access ordered by the lock).
TEST(LockImpl, ConcurrentHoldersExcludeEachOther) {
    Lockable lockable;
    long counter = 0;
    constexpr int kThreads = 6;
    constexpr int kRounds = 2000;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < kRounds; ++i) {
                if (t % 2 == 0) {
                    AutoLock lock(&lockable);
                    ++counter;
                } else {
                    while (!lockable.TryLock()) {
                        std::this_thread::yield();
                    }
                    ++counter;
                    lockable.Unlock();
                }
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(counter, long{kThreads} * kRounds);
    EXPECT_TRUE(FreeForAnotherThread(lockable));
}
