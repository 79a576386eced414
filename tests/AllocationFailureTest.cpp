// Runs small operations with their Nth allocation failing, for N = 1, 2, ...
// until they complete, once failing that allocation alone and once failing it
// and every later one (memory gone for good). Each time std::bad_alloc (or the
// operation's documented exception) must come out, the target must be as the
// operation promises, and no block may be left behind. The same for streams
// whose Nth call throws. An executable of its own: operator new is replaced
// for the whole process (support/ReplacedNew.h).
#include <Core/Interfaces/DataStream.h>
#include <Core/Interfaces/Digest.h>
#include <Core/Interfaces/Property.h>
#include <Core/Interfaces/PropertySerializer.h>
#include <Core/Interfaces/StackTrace.h>

#include "support/Clip.h"
#include "support/Describe.h"
#include "support/ReplacedNew.h"
#include "support/TempFolder.h"

#include <boost/exception/get_error_info.hpp>
#include <boost/filesystem.hpp>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

#include <unistd.h>

using namespace Tarsel;
using namespace Tarsel::Core;
using TarselTest::AllocationWatch;
using TarselTest::Describe;
using TarselTest::LiveBlocks;

namespace {

// Which allocation fails: the failAt-th alone, or with persistent every
// later one as well. failAt 0 fails none.
struct Injection {
    long failAt;
    bool persistent;
};

// How an operation ended.
struct Outcome {
    bool completed;  // returned, or threw its documented exception
    bool reached;    // the allocation meant to fail was asked for
};

// Runs operation under at: it completes, or std::bad_alloc comes out. Any
// other exception escapes and fails the test.
template <class Operation>
Outcome RunUnder(Injection at, Operation operation) {
    AllocationWatch watch(at.failAt, at.persistent);
    try {
        operation();
    } catch (const std::bad_alloc&) {
        return {false, watch.ReachedFailure()};
    }
    return {true, watch.ReachedFailure()};
}

// Calls round for failAt = 1, 2, ... in both modes until its operation no
// longer reaches the failing allocation, after one round without failures
// (which pays for whatever a first call initialises once). round sets up,
// runs the operation through RunUnder, checks, and tears everything down:
// the blocks alive before and after each round must be the same. One call
// site for every round, so that the call stacks taken inside agree.
void ForEveryAllocation(const std::function<Outcome(Injection)>& round) {
    for (Injection at{0, false};;) {
        const long live = LiveBlocks();
        const Outcome outcome = round(at);
        if (at.failAt == 0) {
            ASSERT_TRUE(outcome.completed);
            at = Injection{1, false};
            continue;
        }
        EXPECT_EQ(LiveBlocks(), live) << "blocks left behind, allocation " << at.failAt;
        EXPECT_TRUE(outcome.completed || outcome.reached) << "std::bad_alloc without a failure, " << at.failAt;
        if (testing::Test::HasFailure()) {
            return;
        }
        if (outcome.reached) {
            ++at.failAt;
        } else if (!at.persistent) {
            at = Injection{1, true};
        } else {
            return;
        }
    }
}

// ThreadSanitizer's build cannot replace operator new (support/ReplacedNew.h).
#define SKIP_UNLESS_NEW_IS_REPLACED()                                    \
    if (!TarselTest::kReplacesNew) {                                     \
        GTEST_SKIP() << "operator new cannot be replaced in this build"; \
    }

// The text of tree saved wrapped: what a save that completes writes.
std::string SavedText(const Property& tree) {
    const auto text = MemoryDataOutput::Create();
    PropertySerializer::Serialize(tree, text, true);
    return text->GetData();
}

// A container with a value of each type and a nested container: the clip
// example with a title no short-string buffer holds.
Property Sample() {
    Property root("root");
    root.CopyDataFrom(TarselTest::Clip());
    root.SetChild("title", "a title longer than any short-string buffer");
    Property& nested = root.SetChild("nested");
    nested.SetChild("flag", Property("", true));
    nested.SetChild("list").Add(Property("", 1));
    return root;
}

}  // namespace

// --- Property trees ---------------------------------------------------------

// Every copy builds aside and commits without failing: a failed copy leaves
// the destination as it was.
TEST(AllocationFailure, CopiesLeaveTheDestinationAsItWas) {
    SKIP_UNLESS_NEW_IS_REPLACED();
    const Property source = Sample();
    const struct {
        const char* what;
        std::function<void(Property&)> copy;
        std::string expected;
    } cases[] = {
        {"copy assignment", [&](Property& d) { d = source; }, Describe(source)},
        {"copy constructor", [&](Property& d) { d.SetChild("copy", Property(source)); },
         "dest<6>{old<6>{x<3>1},copy" + Describe(source).substr(4) + "}"},
        {"CopyDataFrom", [&](Property& d) { d.CopyDataFrom(source); }, "dest" + Describe(source).substr(4)},
        {"SetChild onto a child", [&](Property& d) { d.SetChild("old", source); },
         "dest<6>{old" + Describe(source).substr(4) + "}"},
        {"Add", [&](Property& d) { d.Add(source); }, "dest<6>{old<6>{x<3>1},1" + Describe(source).substr(4) + "}"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        ForEveryAllocation([&](Injection at) {
            Property destination("dest");
            destination.SetChild("old").SetChildT<long long>("x", 1);
            const std::string before = Describe(destination);
            const Outcome outcome = RunUnder(at, [&] { c.copy(destination); });
            EXPECT_EQ(Describe(destination), outcome.completed ? c.expected : before);
            return outcome;
        });
    }
}

// SetChild appends or resets a child; ChildByPath finds a node or throws
// ChildNameIsNotFound, which builds a call stack and may itself run out.
TEST(AllocationFailure, ChildOperationsLeaveTheTreeAsItWasOrDone) {
    SKIP_UNLESS_NEW_IS_REPLACED();
    const std::string sample = Describe(Sample());
    const struct {
        const char* what;
        std::function<const Property*(Property&)> operation;  // returns what it found, if anything
        std::string found;
        std::string tree;
    } cases[] = {
        {"SetChild of a new name", [](Property& t) { return &t.SetChild("new"); }, "new<6>{}",
         sample.substr(0, sample.size() - 1) + ",new<6>{}}"},
        {"SetChild of a container", [](Property& t) { return &t.SetChild("nested"); }, "nested<6>{}",
         "root<6>{width<3>1920,fps<2>29.97,title<4>a title longer than any short-string buffer,"
         "frameRateRatio<5>30000/1001,nested<6>{}}"},
        {"ChildByPath to a value", [](Property& t) { return &t.ChildByPath("/nested//list/0"); }, "0<3>1", sample},
        {"ChildByPath to a missing name",
         [](Property& t) -> const Property* {
             try {
                 return &t.ChildByPath("nested/missing/x");
             } catch (const ChildNameIsNotFound&) {
                 return nullptr;
             }
         },
         "", sample},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        ForEveryAllocation([&](Injection at) {
            Property tree = Sample();
            const Property* found = nullptr;
            const Outcome outcome = RunUnder(at, [&] { found = c.operation(tree); });
            EXPECT_EQ(found != nullptr ? Describe(*found) : "", outcome.completed ? c.found : "");
            EXPECT_EQ(Describe(tree), outcome.completed ? c.tree : sample);
            return outcome;
        });
    }
}

// --- JSON -----------------------------------------------------------------

// A target that is an empty container receives the loaded tree in one step
// at the end, so any failure leaves it untouched. A target that already has
// children has the document merged into them member by member: a failure
// part-way keeps the members merged so far, as a failing load does.
TEST(AllocationFailure, LoadingLeavesAnEmptyTargetUntouchedAndAMergeTargetWhole) {
    SKIP_UNLESS_NEW_IS_REPLACED();
    const std::string text = R"({"width":1920,"fps":29.97,"title":"a title longer than any short-string buffer",)"
                             R"("frameRateRatio":"30000/1001","nested":{"flag":true,"list":[1]}})";
    ForEveryAllocation([&](Injection at) {
        Property target("root");
        const Outcome outcome =
            RunUnder(at, [&] { PropertySerializer::Deserialize(target, MemoryDataInput::Create(text), false); });
        EXPECT_EQ(Describe(target), outcome.completed ? Describe(Sample()) : "root<6>{}");
        return outcome;
    });
    ForEveryAllocation([&](Injection at) {
        Property target("root");
        target.SetChildT<long long>("kept", 1);
        target.SetChildT<long long>("width", 1);
        const Outcome outcome =
            RunUnder(at, [&] { PropertySerializer::Deserialize(target, MemoryDataInput::Create(text), false); });
        const std::string loaded = Describe(target);
        if (outcome.completed) {
            EXPECT_EQ(loaded, "root<6>{kept<3>1," + Describe(Sample()).substr(8));
        } else {
            EXPECT_EQ(loaded.rfind("root<6>{kept<3>1,width<", 0), 0u) << loaded;
        }
        return outcome;
    });
}

// The whole text is built before the first byte goes out: a failed save
// writes nothing, to a stream or to a file, which keeps its old content.
TEST(AllocationFailure, SavingWritesTheWholeTextOrNothing) {
    SKIP_UNLESS_NEW_IS_REPLACED();
    const Property tree = Sample();
    const std::string reference = SavedText(tree);
    ForEveryAllocation([&](Injection at) {
        const auto sink = MemoryDataOutput::Create();
        const Outcome outcome = RunUnder(at, [&] { PropertySerializer::Serialize(tree, sink, true); });
        EXPECT_EQ(sink->GetData(), outcome.completed ? reference : "");
        return outcome;
    });
}

// Files are the other resource a failure must not leave behind: a temporary
// file on the disk, or an open descriptor.
class AllocationFailureInFiles : public TarselTest::TempFolderTest {
protected:
    // The lowest descriptor free in the process: it moves up when one leaks.
    static int LowestFreeDescriptor() {
        const int probe = ::dup(0);
        ::close(probe);
        return probe;
    }

    std::size_t EntriesInFolder() const {
        return static_cast<std::size_t>(
            std::distance(boost::filesystem::directory_iterator(m_dir), boost::filesystem::directory_iterator()));
    }
};

TEST_F(AllocationFailureInFiles, SavingToAFileReplacesItWholeOrNotAtAll) {
    SKIP_UNLESS_NEW_IS_REPLACED();
    const Property tree = Sample();
    const std::string reference = SavedText(tree);
    const ioPath path(At("settings.json"));
    ForEveryAllocation([&](Injection at) {
        WriteFile("settings.json", "old");
        const int descriptor = LowestFreeDescriptor();
        const Outcome outcome = RunUnder(at, [&] { PropertySerializer::SerializeToFile(tree, path, true); });
        EXPECT_EQ(ReadFile("settings.json"), outcome.completed ? reference : "old");
        EXPECT_EQ(EntriesInFolder(), 1u);  // no temporary file left
        EXPECT_EQ(LowestFreeDescriptor(), descriptor);
        return outcome;
    });
}

TEST_F(AllocationFailureInFiles, OpeningAFileStreamLeavesNoDescriptorOpen) {
    SKIP_UNLESS_NEW_IS_REPLACED();
    WriteFile("in.txt", "abc");
    ForEveryAllocation([&](Injection at) {
        const int descriptor = LowestFreeDescriptor();
        const Outcome outcome = RunUnder(at, [&] {
            FileDataOutput::Create(At("out.txt"));
            FileDataInput::Create(At("in.txt"));
        });
        EXPECT_EQ(LowestFreeDescriptor(), descriptor);
        return outcome;
    });
}

// --- Texts: call stacks, values, digests -------------------------------------

// Each text is whole or the call fails: a stream that runs out of memory
// must not hand back what it managed to write.
TEST(AllocationFailure, TextsComeOutWholeOrNotAtAll) {
    SKIP_UNLESS_NEW_IS_REPLACED();
    const StackTrace trace;
    const std::string longText(200, 'x');
    const auto digestOf = [](const std::string& bytes) {
        const std::vector<unsigned char> digest = MD5Generate(MemoryDataInput::Create(bytes), "");
        return std::string(digest.begin(), digest.end());
    };
    const struct {
        const char* what;
        std::function<std::string()> make;
    } cases[] = {
        {"StackTrace::ToString", [&] { return trace.ToString(); }},
        {"the call stack of a throw",
         [] {
             try {
                 Property("x", 1).GetBool();
             } catch (const WrongTypeIsRequested& e) {
                 return *boost::get_error_info<TagCallStack>(e);
             }
             return std::string("no exception");
         }},
        {"PropertyValueToString", [&] { return PropertyValueToString(Property("x", longText)); }},
        {"StringFromRatio", [] { return StringFromRatio(Ratio(-9223372036854775807LL, 9223372036854775806LL)); }},
        {"MD5Generate", [&] { return digestOf(longText); }},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        // The round without a failure gives the whole text; a call stack is
        // the same only when taken through the same calls.
        std::string whole;
        ForEveryAllocation([&](Injection at) {
            std::string text;
            const Outcome outcome = RunUnder(at, [&] { text = c.make(); });
            if (at.failAt == 0) {
                whole = text;
            }
            EXPECT_EQ(text, outcome.completed ? whole : "");
            return outcome;
        });
        EXPECT_GT(whole.size(), 10u);
    }
}

// --- Streams that fail ----------------------------------------------------------

namespace {

// What a failing stream throws: an exception of the caller's own type, which
// must reach the caller as it was thrown.
struct StreamFailure : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Counts the calls made to a stream; the failAt-th throws StreamFailure
// naming it.
class CallCounter {
public:
    explicit CallCounter(int failAt) : m_failAt(failAt) {}
    void Count(const char* what) {
        if (++m_calls == m_failAt) {
            throw StreamFailure(std::string(what) + " " + std::to_string(m_calls));
        }
    }
    int Calls() const { return m_calls; }

private:
    int m_failAt;
    int m_calls = 0;
};

class FailingInput : public RefCounted<IDataInput>, public CallCounter {
public:
    FailingInput(int failAt, std::string bytes) : CallCounter(failAt), m_bytes(std::move(bytes)) {}
    std::size_t GetSize() const override {
        const_cast<FailingInput*>(this)->Count("GetSize");
        return m_bytes.size();
    }
    std::size_t Read(void* data, std::size_t size) override {
        Count("Read");
        const std::size_t n = std::min(size, m_bytes.size());
        std::memcpy(data, m_bytes.data(), n);
        return n;
    }

private:
    std::string m_bytes;
};

class FailingOutput : public RefCounted<IDataOutput>, public CallCounter {
public:
    explicit FailingOutput(int failAt) : CallCounter(failAt) {}
    std::size_t Write(const void* data, std::size_t size) override {
        Count("Write");
        written.append(static_cast<const char*>(data), size);
        return size;
    }
    std::string written;
};

// Runs operation(stream, result) on a stream whose failAt-th call throws, for
// failAt = 1, 2, ... until no call throws, and lists each run as the text of
// the StreamFailure that reached the caller ("-" when none), ": " and the
// result. The stream must be left with the caller's reference alone. Leaks
// are LeakSanitizer's to find: the results themselves stay allocated.
template <class Stream>
std::vector<std::string> ForEveryCall(const std::function<Stream*(int)>& make,
                                      const std::function<void(Stream&, std::string&)>& operation) {
    std::vector<std::string> runs;
    for (int failAt = 1;; ++failAt) {
        const boost::intrusive_ptr<Stream> stream(make(failAt));
        std::string failure = "-";
        std::string result;
        try {
            operation(*stream, result);
        } catch (const StreamFailure& e) {
            failure = e.what();
        }
        EXPECT_EQ(stream->GetRefCount(), 1) << failAt;
        runs.push_back(failure + ": " + result);
        if (stream->Calls() < failAt || runs.size() > 10) {
            return runs;
        }
    }
}

std::string Hex(const std::vector<unsigned char>& bytes) {
    std::string text;
    for (const unsigned char byte : bytes) {
        text += "0123456789abcdef"[byte >> 4];
        text += "0123456789abcdef"[byte & 0xF];
    }
    return text;
}

}  // namespace

// Deserialize and MD5Generate call GetSize, then Read once; whichever
// throws, the exception reaches the caller as it was thrown, and a load
// leaves its target untouched.
TEST(FailingStream, ReadFailuresPassThroughDeserializeAndMD5Generate) {
    const auto input = [](const char* bytes) {
        return std::function<FailingInput*(int)>([bytes](int failAt) { return new FailingInput(failAt, bytes); });
    };
    EXPECT_EQ(ForEveryCall<FailingInput>(input(R"({"a":1})"),
                                         [](FailingInput& in, std::string& result) {
                                             Property target("root");
                                             try {
                                                 PropertySerializer::Deserialize(target, &in, false);
                                             } catch (...) {
                                                 result = Describe(target);
                                                 throw;
                                             }
                                             result = Describe(target);
                                         }),
              (std::vector<std::string>{"GetSize 1: root<6>{}", "Read 2: root<6>{}", "-: root<6>{a<3>1}"}));
    // MD5 of "a", the bytes before the marker "b" (RFC 1321's test suite).
    EXPECT_EQ(ForEveryCall<FailingInput>(
                  input("abc"), [](FailingInput& in, std::string& result) { result = Hex(MD5Generate(&in, "b")); }),
              (std::vector<std::string>{"GetSize 1: ", "Read 2: ", "-: 0cc175b9c0f1b6a831c399e269772661"}));
}

// Serialize writes the whole text in one call; when it throws, the caller
// gets that exception.
TEST(FailingStream, WriteFailuresPassThroughSerialize) {
    const auto reference = MemoryDataOutput::Create();
    PropertySerializer::Serialize(Sample(), reference, false);
    EXPECT_EQ(ForEveryCall<FailingOutput>([](int failAt) { return new FailingOutput(failAt); },
                                          [](FailingOutput& out, std::string& result) {
                                              PropertySerializer::Serialize(Sample(), &out, false);
                                              result = out.written;
                                          }),
              (std::vector<std::string>{"Write 1: ", "-: " + reference->GetData()}));
}
