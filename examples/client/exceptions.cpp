// A client of Tarsel Core that catches every kind of exception a library
// call can throw by its own type, as an application or a plugin built apart
// from the library does: the library's own classes, and the exceptions of
// utf8-cpp, boost and the standard library that it lets through. A type
// caught only as std::exception, or not at all, fails the run (exit 1).
//   exceptions-client
// Built by CMakeLists.txt beside it; it also needs utf8-cpp's headers, since
// it names utf8-cpp's exception types itself.
//
// Where the platform compares type identities by address (macOS on x86_64),
// a catch matches only when the thrown object's type identity is the one the
// client sees; elsewhere the names are compared and a type hidden in the
// library would still be caught. So each caught exception's type identity
// is also checked to be the one the process shares: the object that the
// dynamic linker finds under its name ("_ZTI..."), to which every module's
// reference is bound. A copy private to the library fails the check here too.
#include <Core/Interfaces/Tarsel.h>

#include <boost/exception/get_error_info.hpp>
#include <boost/filesystem/exception.hpp>
#include <boost/thread/exceptions.hpp>
#include <utf8.h>

#include <dlfcn.h>
#include <stdlib.h>
#include <unistd.h>

#include <exception>
#include <functional>
#include <iostream>
#include <stdexcept>
#include <string>
#include <typeinfo>

using namespace Tarsel::Core;

namespace {

int g_failures = 0;

void Fail(const std::string& what, const std::string& why) {
    std::cerr << "exceptions-client: " << what << ": " << why << "\n";
    ++g_failures;
}

// Whether type is the type identity every module of the process binds to.
bool IsTheSharedIdentity(const std::type_info& type) {
    std::string name = type.name();
    // libstdc++ marks a name that is private to one module with "*".
    if (!name.empty() && name[0] == '*') {
        return false;
    }
    return dlsym(RTLD_DEFAULT, ("_ZTI" + name).c_str()) == &type;
}

// Calls call, which must throw an E (or a class derived from it), and
// checks what was caught with check; what says which call and type.
template <class E>
void ExpectCaught(const std::string& what, const std::function<void()>& call,
                  const std::function<void(const E&)>& check = nullptr) {
    try {
        call();
    } catch (const E& e) {
        const int failures = g_failures;
        if (!IsTheSharedIdentity(typeid(e))) {
            Fail(what, std::string("caught, but its type identity (") + typeid(e).name() +
                           ") is not the one the process shares");
        } else if (check) {
            check(e);
        }
        if (g_failures == failures) {
            std::cout << "exceptions-client: " << what << ": caught by its type\n";
        }
        return;
    } catch (const std::exception& e) {
        Fail(what, std::string("caught only as std::exception, as ") + typeid(e).name() + ": " + e.what());
        return;
    } catch (...) {
        Fail(what, "caught only by catch (...)");
        return;
    }
    Fail(what, "nothing was thrown");
}

// The standard logic errors carry their call stack after the first line of
// their message; it names the library's public function that threw.
void ExpectMessageAndStack(const std::string& what, const std::exception& e, const std::string& firstLine,
                           const std::string& frame) {
    const std::string message = e.what();
    if (message.compare(0, firstLine.size() + 1, firstLine + "\n") != 0) {
        Fail(what, "the message does not start with \"" + firstLine + "\" and a line break: " + message);
    } else if (message.find(frame, firstLine.size()) == std::string::npos) {
        Fail(what, "the call stack does not name " + frame + ": " + message);
    }
}

// A lockable whose Lock fails as a mutex the system refuses does.
class RefusingLock : public Tarsel::ILockable {
public:
    void Lock() override { boost::throw_exception(boost::lock_error(EINVAL, "the system refused the lock")); }
    bool TryLock() override { return false; }
    void Unlock() override {}
};

}  // namespace

int main() {
    // The library's own exceptions, caught by their class and by the bases a
    // client catches them with; records read by their tags.
    ExpectCaught<WrongTypeIsRequested>(
        "Property::GetDouble on an integer", [] { Property("volume", 1).GetDouble(); },
        [](const WrongTypeIsRequested& e) {
            const std::string* name = boost::get_error_info<PropertyException::TagPropertyName>(e);
            if (name == nullptr || *name != "volume") {
                Fail("Property::GetDouble on an integer", "TagPropertyName is not \"volume\"");
            }
        });
    ExpectCaught<ChildNameIsNotFound>("Property::operator[] of a missing name", [] { Property("video")["width"]; });
    ExpectCaught<IndexIsOutOfBound>("Property::operator[] past the end", [] { Property("list")[3]; });
    ExpectCaught<MethodIsNotApplicable>("Property::Count on an integer", [] { Property("n", 1).Count(); });
    ExpectCaught<ComparedPropertiesHaveDifferentTypes>("Property::operator== of an integer and a bool",
                                                       [] { (void)(Property("a", 1) == Property("a", true)); });
    ExpectCaught<PropertyException>("PropertyValueToString of a container",
                                    [] { PropertyValueToString(Property("video")); });
    ExpectCaught<CoreException>("a property exception as CoreException", [] { Property("video").GetBool(); });
    ExpectCaught<Tarsel::Exception>("a property exception as Tarsel::Exception", [] { Property("video").GetBool(); });
    ExpectCaught<boost::exception>("a property exception as boost::exception", [] { Property("video").GetBool(); });
    ExpectCaught<JsonException>(
        "PropertySerializer::Deserialize of text that does not parse",
        [] {
            Property settings("settings");
            PropertySerializer::Deserialize(settings, MemoryDataInput::Create("{\"a\":1,}"), false);
        },
        [](const JsonException& e) {
            const std::string* error = boost::get_error_info<JsonException::TagParseError>(e);
            const std::size_t* column = boost::get_error_info<JsonException::TagParseColumn>(e);
            if (error == nullptr || *error != "Parse error" || column == nullptr || *column != 8) {
                Fail("PropertySerializer::Deserialize", "the records are not \"Parse error\" at column 8");
            }
        });

    // utf8-cpp's exceptions, which the text conversions let through.
    ExpectCaught<utf8::not_enough_room>("Utf16FromUtf8 of a sequence cut off", [] { Utf16FromUtf8("\xE2\x82"); });
    ExpectCaught<utf8::invalid_utf8>("Utf16FromUtf8 of the byte 0xFF", [] { Utf16FromUtf8("\xFF"); });
    ExpectCaught<utf8::invalid_code_point>("WstringFromUtf8 of an encoded surrogate",
                                           [] { WstringFromUtf8("\xED\xA0\x80"); });
    ExpectCaught<utf8::invalid_utf16>("Utf8FromUtf16 of a lone trail surrogate",
                                      [] { Utf8FromUtf16(Utf16String(1, static_cast<short>(0xDC00))); });
    ExpectCaught<utf8::exception>("Utf8FromWstring of a lone lead surrogate, as utf8::exception",
                                  [] { Utf8FromWstring(std::wstring(1, L'\xD800')); });

    // boost's, let through unchanged.
    ExpectCaught<boost::bad_rational>("RatioFromString of a zero denominator", [] {
        Tarsel::Ratio ratio;
        RatioFromString("1/0", ratio);
    });
    ExpectCaught<boost::bad_rational>(
        "PropertySerializer::Deserialize of a frameRateRatio of 1/0",
        [] {
            Property settings("settings");
            PropertySerializer::Deserialize(settings, MemoryDataInput::Create("{\"frameRateRatio\":\"1/0\"}"), false);
        },
        [](const boost::bad_rational& e) {
            const std::size_t* line = boost::get_error_info<JsonException::TagParseLine>(e);
            if (line == nullptr || *line != 1) {
                Fail("PropertySerializer::Deserialize of 1/0", "TagParseLine is not 1");
            }
        });
    const char* temporary = getenv("TMPDIR");
    std::string folder = std::string(temporary != nullptr && *temporary != '\0' ? temporary : "/tmp") +
                         "/tarsel-exceptions-client-XXXXXX";
    if (mkdtemp(&folder[0]) == nullptr) {
        Fail("a temporary folder", "mkdtemp failed");
    } else {
        const std::string missing = folder + "/missing.json";
        ExpectCaught<boost::filesystem::filesystem_error>(
            "FileDataInput::Create of a missing file", [&] { FileDataInput::Create(missing); },
            [&](const boost::filesystem::filesystem_error& e) {
                if (e.path1().string() != missing || e.code().value() != ENOENT) {
                    Fail("FileDataInput::Create", "the error does not carry the path and ENOENT");
                }
            });
        rmdir(folder.c_str());
    }
    // No call of the library throws boost::lock_error in a working process:
    // LockImpl throws it only when the system refuses to lock a valid mutex.
    // It is thrown here by a client's lockable, through the library's
    // AutoLock, and caught by its type.
    ExpectCaught<boost::lock_error>("AutoLock over a lockable that refuses", [] {
        RefusingLock lock;
        Tarsel::AutoLock hold(&lock);
    });

    // The standard logic errors, with the call stack in their message.
    ExpectCaught<std::invalid_argument>(
        "Property::SetChild with an empty name", [] { Property("settings").SetChild(""); },
        [](const std::invalid_argument& e) {
            ExpectMessageAndStack("Property::SetChild", e, "name is empty", "Tarsel::Core::Property::SetChild");
        });
    ExpectCaught<std::logic_error>(
        "GetLibraryPath of an undefined folder", [] { GetLibraryPath(static_cast<SysPaths>(2)); },
        [](const std::logic_error& e) {
            if (dynamic_cast<const std::invalid_argument*>(&e) != nullptr) {
                Fail("GetLibraryPath", "a std::invalid_argument, not a plain std::logic_error");
            }
            ExpectMessageAndStack("GetLibraryPath", e, "undefined value of variable 'sysPath'",
                                  "Tarsel::Core::GetLibraryPath");
        });

    if (g_failures != 0) {
        std::cerr << "exceptions-client: " << g_failures << " failure(s)\n";
        return 1;
    }
    std::cout << "exceptions-client: every exception was caught by its type\n";
    return 0;
}
