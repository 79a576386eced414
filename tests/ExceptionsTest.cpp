#include <Core/Interfaces/DataStream.h>
#include <Core/Interfaces/Exceptions.h>
#include <Core/Interfaces/Property.h>
#include <Core/Interfaces/PropertySerializer.h>
#include <Core/Interfaces/StackTrace.h>

#include "support/CatchAs.h"

#include <boost/exception/diagnostic_information.hpp>
#include <boost/exception/get_error_info.hpp>
#include <gtest/gtest.h>

#include <dlfcn.h>

#include <algorithm>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

using namespace Tarsel;
using namespace Tarsel::Core;
using TarselTest::CatchAs;

namespace {

const std::string kGenericWhat = std::exception().what();

// AddressSanitizer and ThreadSanitizer intercept backtrace(), and the
// interceptor's frame takes one of the two that GetCallStack skips.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kBacktraceIntercepted = true;
#elif defined(__has_feature)
constexpr bool kBacktraceIntercepted = __has_feature(address_sanitizer) || __has_feature(thread_sanitizer);
#else
constexpr bool kBacktraceIntercepted = false;
#endif

// what() of the exception f throws when a handler for Base catches it.
template <class Base>
std::string WhatCaughtAs(const std::function<void()>& f) {
    try {
        f();
    } catch (const Base& e) {
        return dynamic_cast<const std::exception&>(e).what();
    } catch (...) {
        return "caught by another handler";
    }
    return "nothing thrown";
}

template <class... E>
std::vector<std::function<void()>> DefaultThrowers() {
    return {[] { throw E(); }...};
}

// boost::diagnostic_information of what f throws, caught as boost::exception,
// with the parts that vary from build to build and run to run written as
// placeholders: the throw line as "<line>", the call stack as "<stack>".
std::string DiagnosticTextOf(const std::function<void()>& f) {
    const auto replace = [](std::string& text, const std::string& from, const std::string& to) {
        const std::size_t at = text.find(from);
        if (at != std::string::npos) {
            text.replace(at, from.size(), to);
        }
    };
    try {
        f();
    } catch (const boost::exception& e) {
        std::string text = boost::diagnostic_information(e);
        if (const int* line = boost::get_error_info<boost::throw_line>(e)) {
            replace(text, "(" + std::to_string(*line) + "): ", "(<line>): ");
        }
        if (const std::string* stack = boost::get_error_info<TagCallStack>(e)) {
            replace(text, "*] = " + *stack + "\n", "*] = <stack>\n");
        }
        return text;
    }
    ADD_FAILURE() << "nothing was thrown";
    return std::string();
}

// Checks that text is header followed by each of records exactly once, one
// after another. Boost orders records by std::type_info::before, which
// libstdc++ bases on type names and libc++ may base on addresses, so only
// their order is left open; every line is matched to the character.
void ExpectDiagnosticText(const std::string& text, const std::string& header, std::vector<std::string> records) {
    ASSERT_EQ(text.substr(0, header.size()), header) << text;
    std::string_view rest(text);
    rest.remove_prefix(header.size());
    while (!rest.empty()) {
        const auto record = std::find_if(records.begin(), records.end(),
                                         [&](const std::string& r) { return rest.substr(0, r.size()) == r; });
        ASSERT_TRUE(record != records.end()) << "unexpected record text: " << rest;
        rest.remove_prefix(record->size());
        records.erase(record);
    }
    EXPECT_TRUE(records.empty()) << "missing record: " << records.front();
}

}  // namespace

TEST(WrongTypeIsRequested, CarriesNodeFactsStackAndThrowSite) {
    const auto e = CatchAs<WrongTypeIsRequested>([] { Property("settings").GetBool(); });
    EXPECT_EQ(*boost::get_error_info<PropertyException::TagPropertyName>(e), "settings");
    const std::string* stack = boost::get_error_info<TagCallStack>(e);
    ASSERT_NE(stack, nullptr);
    EXPECT_NE(stack->find("Tarsel::Core::Property::GetBool() const"), std::string::npos) << *stack;
    // The capture's own frames are skipped: the stack starts in the throw path.
    const std::string firstFrame = stack->substr(0, stack->find('\n'));
    EXPECT_NE(firstFrame.find(kBacktraceIntercepted ? "Tarsel::GetCallStack" : "Tarsel::AddStack"), std::string::npos)
        << *stack;

    EXPECT_STREQ(*boost::get_error_info<boost::throw_function>(e), "bool Tarsel::Core::Property::GetBool() const");
    EXPECT_STREQ(*boost::get_error_info<boost::throw_file>(e), "Core/Interfaces/Property.cpp");
    EXPECT_GT(*boost::get_error_info<boost::throw_line>(e), 0);
    // The type tags by their numbers, as a log shows them: Array is 6, Bool 1.
    const std::string text = boost::diagnostic_information(e);
    EXPECT_NE(text.find("TagPropertyType*] = 6"), std::string::npos) << text;
    EXPECT_NE(text.find("TagRequestedType*] = 1"), std::string::npos) << text;
}

// One exception of each family, as a log shows it: each record is named by
// the tag a client reads it with, the nested ones by their exception.
TEST(DiagnosticInformation, NamesEachRecordByItsTagAsClientsSpellIt) {
    const ThrowSite site{"void Tarsel::Demo::Fail()", "Demo.cpp", 42};
    const std::string what = "std::exception::what: " + kGenericWhat + "\n";

    ExpectDiagnosticText(DiagnosticTextOf([&] {
                             ThrowAt(site, MemoryException("cannot map frame buffer", 4096)
                                               << TagCallStack("#0 Tarsel::Demo::Fail()"));
                         }),
                         "Demo.cpp(<line>): Throw in function void Tarsel::Demo::Fail()\n"
                         "Dynamic exception type: boost::wrapexcept<Tarsel::Core::MemoryException>\n" +
                             what,
                         {"[Tarsel::TagDescription*] = cannot map frame buffer\n",
                          "[Tarsel::Core::MemoryException::TagBlockSize*] = 4096\n",
                          "[Tarsel::TagCallStack*] = <stack>\n"});

    // Every property tag at once; the types print as their numbers.
    ExpectDiagnosticText(DiagnosticTextOf([&] {
                             ThrowAt(site, PropertyException() << PropertyException::TagPropertyName("settings")
                                                               << PropertyException::TagPropertyType(TypeBool)
                                                               << PropertyException::TagMethodName("Count")
                                                               << PropertyException::TagRequestedType(TypeDouble)
                                                               << PropertyException::TagOtherPropertyType(TypeArray)
                                                               << PropertyException::TagRequestedChildName("width")
                                                               << PropertyException::TagRequestedChildIndex(3)
                                                               << PropertyException::TagChildCount(2));
                         }),
                         "Demo.cpp(<line>): Throw in function void Tarsel::Demo::Fail()\n"
                         "Dynamic exception type: boost::wrapexcept<Tarsel::Core::PropertyException>\n" +
                             what,
                         {"[Tarsel::Core::PropertyException::TagPropertyName*] = settings\n",
                          "[Tarsel::Core::PropertyException::TagPropertyType*] = 1\n",
                          "[Tarsel::Core::PropertyException::TagMethodName*] = Count\n",
                          "[Tarsel::Core::PropertyException::TagRequestedType*] = 2\n",
                          "[Tarsel::Core::PropertyException::TagOtherPropertyType*] = 6\n",
                          "[Tarsel::Core::PropertyException::TagRequestedChildName*] = width\n",
                          "[Tarsel::Core::PropertyException::TagRequestedChildIndex*] = 3\n",
                          "[Tarsel::Core::PropertyException::TagChildCount*] = 2\n"});

    // As the library throws them.
    ExpectDiagnosticText(DiagnosticTextOf([] { Property("settings").GetBool(); }),
                         "Core/Interfaces/Property.cpp(<line>): Throw in function bool "
                         "Tarsel::Core::Property::GetBool() const\n"
                         "Dynamic exception type: boost::wrapexcept<Tarsel::Core::WrongTypeIsRequested>\n" +
                             what,
                         {"[Tarsel::Core::PropertyException::TagPropertyName*] = settings\n",
                          "[Tarsel::Core::PropertyException::TagPropertyType*] = 6\n",
                          "[Tarsel::Core::PropertyException::TagRequestedType*] = 1\n",
                          "[Tarsel::TagCallStack*] = <stack>\n"});
    Property target("target");
    ExpectDiagnosticText(
        DiagnosticTextOf([&] { PropertySerializer::Deserialize(target, MemoryDataInput::Create("{"), false); }),
        "Core/Interfaces/PropertySerializer.cpp(<line>): Throw in function static void "
        "Tarsel::Core::PropertySerializer::Deserialize(Core::Property &, "
        "boost::intrusive_ptr<Tarsel::Core::IDataInput>, bool)\n"
        "Dynamic exception type: boost::wrapexcept<Tarsel::Core::JsonException>\n" +
            what,
        {"[Tarsel::Core::JsonException::TagParseError*] = Parse error\n"});
}

TEST(ExceptionTree, EveryBaseCatchesEveryLibraryExceptionAndCoreExceptionAllButTheRoot) {
    auto throwers =
        DefaultThrowers<CoreException, IOException, PropertyException, MethodIsNotApplicable, WrongTypeIsRequested,
                        ChildNameIsNotFound, IndexIsOutOfBound, ComparedPropertiesHaveDifferentTypes, JsonException>();
    throwers.push_back([] { throw MemoryException("d", 1); });
    throwers.push_back([] { Property("settings").GetBool(); });  // as thrown, with its tags and stack
    for (const auto& thrower : throwers) {
        EXPECT_EQ(WhatCaughtAs<CoreException>(thrower), kGenericWhat);
        EXPECT_EQ(WhatCaughtAs<Tarsel::Exception>(thrower), kGenericWhat);
        EXPECT_EQ(WhatCaughtAs<std::exception>(thrower), kGenericWhat);
        EXPECT_EQ(WhatCaughtAs<boost::exception>(thrower), kGenericWhat);
    }
    const auto root = [] { throw Tarsel::Exception(); };
    EXPECT_EQ(WhatCaughtAs<boost::exception>(root), kGenericWhat);
    EXPECT_EQ(WhatCaughtAs<CoreException>(root), "caught by another handler");
}

TEST(MemoryException, DescriptionAndBlockSizeAreRecordsNotMessage) {
    const MemoryException e("cannot map frame buffer", 4096);
    EXPECT_EQ(e.what(), kGenericWhat);
    EXPECT_EQ(*boost::get_error_info<TagDescription>(e), "cannot map frame buffer");
    EXPECT_EQ(*boost::get_error_info<MemoryException::TagBlockSize>(e), 4096);
}

TEST(AddStack, LibraryExceptionIsReturnedItselfHoldingTheStack) {
    const PropertyException e;
    EXPECT_EQ(boost::get_error_info<TagCallStack>(e), nullptr);
    EXPECT_EQ(&AddStack(e), &e);
    ASSERT_NE(boost::get_error_info<TagCallStack>(e), nullptr);
    EXPECT_FALSE(boost::get_error_info<TagCallStack>(e)->empty());
}

TEST(SetCallStackEnabled, StacksAreCapturedWhateverTheFlag) {
    SetCallStackEnabled(false);
    const auto e = CatchAs<WrongTypeIsRequested>([] { Property("x", true).GetString(); });
    SetCallStackEnabled(true);
    ASSERT_NE(boost::get_error_info<TagCallStack>(e), nullptr);
    EXPECT_FALSE(boost::get_error_info<TagCallStack>(e)->empty());
}

TEST(ThrowWithCallStack, StandardLogicErrorGetsTheLocationAndANewMessageWithTheStack) {
    const std::logic_error original("broken");
    try {
        ThrowWithCallStack(ThrowSite{"void f()", "f.cpp", 7}, original);
    } catch (const std::logic_error& e) {
        const auto& located = dynamic_cast<const boost::exception&>(e);
        EXPECT_STREQ(*boost::get_error_info<boost::throw_function>(located), "void f()");
        EXPECT_STREQ(*boost::get_error_info<boost::throw_file>(located), "f.cpp");
        EXPECT_EQ(*boost::get_error_info<boost::throw_line>(located), 7);
        const std::string message = e.what();
        EXPECT_EQ(message.rfind("broken\n", 0), 0u) << message;
        EXPECT_NE(message.find("AddStack"), std::string::npos) << message;
    }
    EXPECT_STREQ(original.what(), "broken");
}

TEST(ExportedObjects, HaveUnmangledNames) {
    for (const char* name :
         {"exportDummyException", "exportDummyException0", "exportDummyException1", "exportDummyException2",
          "exportDummyException3", "exportDummyException4", "exportDummyException5", "exportDummyException6",
          "exportDummyException7", "in_signal_handler"}) {
        EXPECT_NE(dlsym(RTLD_DEFAULT, name), nullptr) << name;
    }
    EXPECT_EQ(dlsym(RTLD_DEFAULT, "exportDummyException8"), nullptr);
}
