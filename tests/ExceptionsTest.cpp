#include <Core/Interfaces/Exceptions.h>
#include <Core/Interfaces/Property.h>
#include <Core/Interfaces/StackTrace.h>

#include <boost/exception/diagnostic_information.hpp>
#include <boost/exception/get_error_info.hpp>
#include <gtest/gtest.h>

#include <dlfcn.h>

#include <functional>
#include <string>
#include <vector>

using namespace Tarsel;
using namespace Tarsel::Core;

namespace {

const std::string kGenericWhat = std::exception().what();

// AddressSanitizer intercepts backtrace(), and its interceptor's frame takes
// one of the two that GetCallStack skips.
#if defined(__SANITIZE_ADDRESS__)
constexpr bool kBacktraceIntercepted = true;
#elif defined(__has_feature)
constexpr bool kBacktraceIntercepted = __has_feature(address_sanitizer);
#else
constexpr bool kBacktraceIntercepted = false;
#endif

template <class E>
E CatchAs(const std::function<void()>& f) {
    try {
        f();
    } catch (const E& e) {
        return e;
    }
    ADD_FAILURE() << "nothing was thrown";
    throw std::logic_error("unreachable");
}

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

TEST(SetCallStackEnabled, PublishesTheFlagButStacksAreAlwaysCaptured) {
    SetCallStackEnabled(false);
    EXPECT_FALSE(StackTrace::s_enabled);
    const auto e = CatchAs<WrongTypeIsRequested>([] { Property("x", true).GetString(); });
    EXPECT_NE(boost::get_error_info<TagCallStack>(e), nullptr);
    SetCallStackEnabled(true);
    EXPECT_TRUE(StackTrace::s_enabled);
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
