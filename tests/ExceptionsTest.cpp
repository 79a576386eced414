#include <Core/Interfaces/DataStream.h>
#include <Core/Interfaces/Digest.h>
#include <Core/Interfaces/DyLib.h>
#include <Core/Interfaces/Encoding.h>
#include <Core/Interfaces/Exceptions.h>
#include <Core/Interfaces/Property.h>
#include <Core/Interfaces/PropertySerializer.h>
#include <Core/Interfaces/StackTrace.h>

#include "support/CatchAs.h"
#include "support/TempFolder.h"

#include <boost/exception/diagnostic_information.hpp>
#include <boost/exception/get_error_info.hpp>
#include <boost/lexical_cast.hpp>
#include <gtest/gtest.h>
#include <rapidjson/document.h>

#include <dlfcn.h>

#include <algorithm>
#include <functional>
#include <limits>
#include <new>
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

    ExpectDiagnosticText(
        DiagnosticTextOf([&] {
            ThrowAt(site, MemoryException("cannot map frame buffer", 4096) << TagCallStack("#0 Tarsel::Demo::Fail()"));
        }),
        "Demo.cpp(<line>): Throw in function void Tarsel::Demo::Fail()\n"
        "Dynamic exception type: boost::wrapexcept<Tarsel::Core::MemoryException>\n" +
            what,
        {"[Tarsel::TagDescription*] = cannot map frame buffer\n",
         "[Tarsel::Core::MemoryException::TagBlockSize*] = 4096\n", "[Tarsel::TagCallStack*] = <stack>\n"});

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
        {"[Tarsel::Core::JsonException::TagParseError*] = Parse error\n",
         "[Tarsel::Core::JsonException::TagParseOffset*] = 1\n", "[Tarsel::Core::JsonException::TagParseLine*] = 1\n",
         "[Tarsel::Core::JsonException::TagParseColumn*] = 2\n",
         "[Tarsel::Core::JsonException::TagParseReason*] = missing a member name in double quotes\n"});
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
          "exportDummyException7", "in_signal_handler", "itoa_r"}) {
        EXPECT_NE(dlsym(RTLD_DEFAULT, name), nullptr) << name;
    }
    EXPECT_EQ(dlsym(RTLD_DEFAULT, "exportDummyException8"), nullptr);
}

// --- Messages -------------------------------------------------------------

namespace {

std::string MessageOf(const std::function<void()>& f) {
    try {
        f();
    } catch (const std::exception& e) {
        return ErrorMessage(e);
    }
    ADD_FAILURE() << "nothing was thrown";
    return std::string();
}

class ErrorMessageTest : public TarselTest::TempFolderTest {};

}  // namespace

// One exception of every kind a library call throws, as one line for a
// person, with the facts its records hold.
TEST_F(ErrorMessageTest, EveryKindOfExceptionBecomesOneLineFromItsRecords) {
    Property list("list");
    for (int i = 0; i < 3; ++i) {
        list.Add(Property("", i));
    }
    Property single("single");
    single.Add(Property("", 1));
    Property target("target");
    rapidjson::Document deep;
    deep.Parse(std::string(600, '[').append(600, ']').c_str());
    const std::string missing = At("missing.json");
    const std::string folder = m_dir.string();
    const struct {
        std::function<void()> thrower;
        std::string message;
    } cases[] = {
        {[] { Property("volume", 1).GetDouble(); }, "wrong type requested at 'volume': holds Int64, asked for Double"},
        {[] { Property("video")["width"]; }, "no child 'width' in 'video'"},
        {[&] { list[3]; }, "no child at index 3 in 'list', which has 3 children"},
        {[&] { single.RemoveChild(1); }, "no child at index 1 in 'single', which has 1 child"},
        {[] { Property("n", 1).Count(); }, "Count does not apply to 'n', which holds Int64"},
        {[] { (void)(Property("k", true) == Property("k", "x")); },
         "compared properties have different types at 'k': Bool vs String"},
        {[] { PropertyValueToString(Property("c")); }, "Wrong property type"},
        {[] { throw MemoryException("cannot map frame buffer", 4096); },
         "cannot map frame buffer (a block of 4096 bytes)"},
        {[] { throw IOException() << TagDescription("the device went away"); }, "the device went away"},
        {[] { throw CoreException(); }, "an error without a description"},
        // The serializer's: a text that does not parse, a DOM too deep, the
        // two failures a load meets part-way, and a null stream.
        {[&] { PropertySerializer::Deserialize(target, MemoryDataInput::Create("{\n\"a\" 1}"), false); },
         "JSON parse error at 2:5: missing a colon after a member name"},
        {[&] { PropertySerializer::Load(target, deep); }, "JSON parse error: nesting deeper than 512 levels"},
        {[&] { PropertySerializer::Deserialize(target, MemoryDataInput::Create(R"({"":1})"), false); },
         "JSON load error at 1:2: a member has an empty name, which a settings tree cannot hold"},
        {[&] {
             PropertySerializer::Deserialize(target, MemoryDataInput::Create(R"({"frameRateRatio":"1/0"})"), false);
         },
         "JSON load error at 1:19: frameRateRatio: the ratio 1/0 has a zero denominator"},
        {[&] { PropertySerializer::Deserialize(target, nullptr, false); }, "input is null"},
        // Standard logic errors: the first line, without the call stack.
        {[] { Property("p").SetChild(""); }, "name is empty"},
        {[] { RatioFromDoubleApprox(std::numeric_limits<double>::quiet_NaN(), 10); },
         "RatioFromDoubleApprox: the number must be finite and of a magnitude below 2^63"},
        {[] { GetLibraryPath(SysPaths(99)); }, "undefined value of variable 'sysPath'"},
        // Files: the path, then what the system said.
        {[&] { FileDataInput::Create(missing); }, missing + ": no such file or folder"},
        {[&] { PropertySerializer::SerializeToFile(Property("p"), folder, false); },
         folder + ": is a folder, not a file"},
        // Passed through from dependencies.
        {[] {
             Ratio ratio;
             RatioFromString("1/0", ratio);
         },
         "bad rational: zero denominator"},
        {[] { Utf16FromUtf8("a\xFF"); }, "invalid UTF-8: the byte 0xFF cannot stand there"},
        {[] { Utf16FromUtf8("a\xC3"); }, "invalid UTF-8: the text ends inside a character"},
        {[] { Utf8FromUtf16(Utf16String(1, static_cast<short>(0xDC00))); },
         "invalid UTF-16: the unit 0xDC00 is an unpaired surrogate"},
        {[] { Utf16FromUtf8("\xED\xA0\x80"); }, "invalid UTF-8: it encodes a surrogate or a code point above U+10FFFF"},
        {[] { throw std::bad_alloc(); }, "out of memory"},
        {[] { throw std::system_error(EACCES, std::generic_category()); }, "permission denied"},
        // Anything else: what() says it.
        {[] { boost::lexical_cast<int>("x"); }, boost::bad_lexical_cast().what()},
        {[] { throw std::runtime_error("a client's own failure"); }, "a client's own failure"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(MessageOf(c.thrower), c.message);
    }
}
