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

std::string FirstLine(const std::string& text) {
    return text.substr(0, text.find('\n'));
}

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

}  // namespace

TEST(WrongTypeIsRequested, CarriesNodeFactsStackAndThrowSite) {
    const Property node("settings");
    const auto e = CatchAs<WrongTypeIsRequested>([&] { node.GetBool(); });

    EXPECT_EQ(*boost::get_error_info<PropertyException::TagPropertyName>(e), "settings");
    EXPECT_EQ(*boost::get_error_info<PropertyException::TagPropertyType>(e), TypeArray);
    EXPECT_EQ(*boost::get_error_info<PropertyException::TagRequestedType>(e), TypeBool);
    const std::string* stack = boost::get_error_info<TagCallStack>(e);
    ASSERT_NE(stack, nullptr);
    EXPECT_NE(stack->find("Tarsel::Core::Property::GetBool() const"), std::string::npos) << *stack;
    EXPECT_EQ(stack->find("_ZNK6Tarsel"), std::string::npos) << "mangled name left in:\n" << *stack;
    // The capture's own frames are skipped: the stack starts in the throw path.
    EXPECT_EQ(stack->find("StackTrace::StackTrace"), std::string::npos) << *stack;
    EXPECT_NE(FirstLine(*stack).find(kBacktraceIntercepted ? "Tarsel::GetCallStack" : "Tarsel::AddStack"),
              std::string::npos)
        << *stack;

    EXPECT_STREQ(*boost::get_error_info<boost::throw_function>(e), "bool Tarsel::Core::Property::GetBool() const");
    EXPECT_STREQ(*boost::get_error_info<boost::throw_file>(e), "Core/Interfaces/Property.cpp");
    EXPECT_GT(*boost::get_error_info<boost::throw_line>(e), 0);
    EXPECT_EQ(e.what(), kGenericWhat);

    const std::string text = boost::diagnostic_information(e);
    EXPECT_NE(text.find("TagPropertyType*] = 6"), std::string::npos) << text;
    EXPECT_NE(text.find("TagRequestedType*] = 1"), std::string::npos) << text;
}

TEST(WrongTypeIsRequested, IsCaughtByEveryBase) {
    const Property node("x");
    const auto get = [&] { node.GetBool(); };
    EXPECT_THROW(get(), CoreException);
    EXPECT_THROW(get(), Tarsel::Exception);
    EXPECT_THROW(get(), PropertyException);
    EXPECT_THROW(get(), std::exception);
    EXPECT_THROW(get(), boost::exception);
}

TEST(ExceptionTree, BoostExceptionCatchesAllAndCoreExceptionAllButTheRoot) {
    const std::vector<std::function<void()>> throwers = {
        [] { throw CoreException(); },
        [] { throw IOException(); },
        [] { throw MemoryException("d", 1); },
        [] { throw PropertyException(); },
        [] { throw MethodIsNotApplicable(); },
        [] { throw WrongTypeIsRequested(); },
        [] { throw ChildNameIsNotFound(); },
        [] { throw IndexIsOutOfBound(); },
        [] { throw ComparedPropertiesHaveDifferentTypes(); },
        [] { throw JsonException(); },
    };
    for (const auto& thrower : throwers) {
        EXPECT_THROW(thrower(), boost::exception);
        EXPECT_THROW(thrower(), std::exception);
        EXPECT_THROW(thrower(), CoreException);
        try {
            thrower();
        } catch (const std::exception& e) {
            EXPECT_EQ(e.what(), kGenericWhat);
        }
    }
    EXPECT_THROW(throw Tarsel::Exception(), boost::exception);
    EXPECT_THROW(
        {
            try {
                throw Tarsel::Exception();
            } catch (const CoreException&) {
                FAIL() << "the root is not a CoreException";
            }
        },
        Tarsel::Exception);
}

TEST(MemoryException, DescriptionAndBlockSizeAreRecordsNotMessage) {
    const MemoryException e("cannot map frame buffer", 4096);
    EXPECT_EQ(e.what(), kGenericWhat);
    EXPECT_EQ(*boost::get_error_info<TagDescription>(e), "cannot map frame buffer");
    EXPECT_EQ(*boost::get_error_info<MemoryException::TagBlockSize>(e), 4096);
}

TEST(AddStack, LogicErrorGetsANewMessageWithTheStackAndTheArgumentIsUnchanged) {
    const std::invalid_argument original("bad");
    const std::invalid_argument withStack = AddStack(original);
    EXPECT_STREQ(original.what(), "bad");
    const std::string message = withStack.what();
    ASSERT_EQ(message.rfind("bad\n", 0), 0u) << message;
    EXPECT_NE(message.find("AddStack"), std::string::npos) << message;
}

TEST(AddStack, LibraryExceptionIsReturnedItselfHoldingTheStack) {
    const PropertyException e;
    EXPECT_EQ(boost::get_error_info<TagCallStack>(e), nullptr);
    const PropertyException& same = AddStack(e);
    EXPECT_EQ(&same, &e);
    ASSERT_NE(boost::get_error_info<TagCallStack>(e), nullptr);
    EXPECT_FALSE(boost::get_error_info<TagCallStack>(e)->empty());
}

TEST(SetCallStackEnabled, PublishesTheFlagButStacksAreAlwaysCaptured) {
    SetCallStackEnabled(false);
    EXPECT_FALSE(StackTrace::s_enabled);
    const Property node("x", true);
    const auto e = CatchAs<WrongTypeIsRequested>([&] { node.GetString(); });
    EXPECT_NE(boost::get_error_info<TagCallStack>(e), nullptr);
    SetCallStackEnabled(true);
    EXPECT_TRUE(StackTrace::s_enabled);
}

TEST(ThrowWithCallStack, StandardLogicErrorIsWrappedWithLocationAndStackInMessage) {
    try {
        ThrowWithCallStack(ThrowSite{"void f()", "f.cpp", 7}, std::logic_error("broken"));
    } catch (const std::logic_error& e) {
        const auto* boostPart = dynamic_cast<const boost::exception*>(&e);
        ASSERT_NE(boostPart, nullptr);
        EXPECT_STREQ(*boost::get_error_info<boost::throw_function>(*boostPart), "void f()");
        EXPECT_STREQ(*boost::get_error_info<boost::throw_file>(*boostPart), "f.cpp");
        EXPECT_EQ(*boost::get_error_info<boost::throw_line>(*boostPart), 7);
        EXPECT_EQ(std::string(e.what()).rfind("broken\n", 0), 0u);
    }
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
