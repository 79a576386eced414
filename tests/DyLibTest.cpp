#include <Core/Interfaces/DyLib.h>

#include <boost/exception/get_error_info.hpp>
#include <gtest/gtest.h>

#include <dlfcn.h>
#include <stdlib.h>

#include <string>

using namespace Tarsel;
using namespace Tarsel::Core;

namespace {

using TwiceAndOne = int (*)(int);
const char kFunction[] = "TarselTestModuleTwiceAndOne";
const ioPath kShortNamePath = GetLibraryPath(SysPathFrameworks) + GetPlatformModuleName(TARSEL_TEST_MODULE_NAME);
// Never created: the build makes no such file beside the module.
const ioPath kMissingPath = ioPath(TARSEL_TEST_MODULE_PATH) + ".missing";

// Asks the loader without loading anything.
bool IsLoaded(const char* path) {
    void* handle = dlopen(path, RTLD_NOW | RTLD_NOLOAD);
    return handle != nullptr && dlclose(handle) == 0;
}

// The error text is our prefix, then the loader's own non-empty words.
void ExpectLoaderFailure(const std::string& error, const std::string& prefix) {
    EXPECT_EQ(error.substr(0, prefix.size()), prefix) << error;
    EXPECT_GT(error.size(), prefix.size()) << error;
}

}  // namespace

TEST(DyLib, FindsExportedFunctionsByFullPathAndByShortName) {
    for (const ioPath& path : {ioPath(TARSEL_TEST_MODULE_PATH), kShortNamePath}) {
        DyLib module(path);
        EXPECT_EQ(module.GetProc("NoSuchFunction"), nullptr);
        ExpectLoaderFailure(module.GetLastError(), "Can't load API 'NoSuchFunction' from module '" + path.utf8string() +
                                                       "', additional info: ");
        const auto function = reinterpret_cast<TwiceAndOne>(module.GetProc(kFunction));
        ASSERT_NE(function, nullptr) << module.GetLastError();
        EXPECT_EQ(module.GetLastError(), "");  // the success clears the failure before it
        EXPECT_EQ(function(20), 41);
        EXPECT_TRUE(IsLoaded(TARSEL_TEST_MODULE_PATH)) << path.utf8string() << " is another file";
    }
    EXPECT_FALSE(IsLoaded(TARSEL_TEST_MODULE_PATH)) << "the destructor left it loaded";
}

TEST(DyLib, ReopenClosesTheFirstModuleAndAFailedOneLeavesTheObjectClosedAndEmpty) {
    DyLib module(TARSEL_TEST_MODULE_PATH);
    // The same file under its short name, then a missing file: had either reopen
    // kept the module before it, the loader would still count a reference.
    ASSERT_TRUE(module.Open(kShortNamePath)) << module.GetLastError();
    EXPECT_FALSE(module.Open(kMissingPath));
    EXPECT_FALSE(module.IsOpen());
    EXPECT_FALSE(IsLoaded(TARSEL_TEST_MODULE_PATH));
    ExpectLoaderFailure(module.GetLastError(),
                        "Can't load module with name '" + kMissingPath.utf8string() + "', additional info: ");
    EXPECT_EQ(module.GetProc(kFunction), nullptr);
    EXPECT_EQ(module.GetLastError(), "Can't load function from empty module");
    module.Close();
    EXPECT_EQ(module.GetLastError(), "");
}

// A module of its own: the one it leaves loaded must not be one that other
// tests expect to see unloaded.
TEST(DyLib, DetachKeepsTheModuleLoadedAndEarlierFunctionsCallable) {
    TwiceAndOne function = nullptr;
    {
        DyLib module(TARSEL_TEST_DETACHED_MODULE_PATH);
        function = reinterpret_cast<TwiceAndOne>(module.GetProc(kFunction));
        ASSERT_NE(function, nullptr) << module.GetLastError();
        module.GetProc("NoSuchFunction");
        module.Detach();
        EXPECT_EQ(module.GetLastError(), "");
    }
    EXPECT_TRUE(IsLoaded(TARSEL_TEST_DETACHED_MODULE_PATH));
    EXPECT_EQ(function(5), 11);
}

TEST(GetLibraryPath, UndefinedValueThrowsLogicErrorWithStackAndThrowSite) {
    try {
        GetLibraryPath(SysPaths(2));
        FAIL() << "nothing was thrown";
    } catch (const std::logic_error& e) {
        // The message, a line break, then the call stack with our own frame in it.
        const std::string what = e.what();
        EXPECT_EQ(what.rfind("undefined value of variable 'sysPath'\n", 0), 0u) << what;
        EXPECT_NE(what.find("Tarsel::Core::GetLibraryPath", what.find('\n')), std::string::npos) << what;
        EXPECT_STREQ(*boost::get_error_info<boost::throw_function>(dynamic_cast<const boost::exception&>(e)),
                     "Tarsel::ioPath Tarsel::Core::GetLibraryPath(Tarsel::Core::SysPaths)");
    }
}

TEST(GetPlatformModuleName, AddsPrefixAndSuffixUnconditionally) {
    EXPECT_EQ(GetLibraryPath(SysPathLocalLib) + GetPlatformModuleName("codec"),
              ioPath("/usr/local/lib/libcodec" TARSEL_MODULE_SUFFIX));
    EXPECT_EQ(GetPlatformModuleName("libcodec"), ioPath("liblibcodec" TARSEL_MODULE_SUFFIX));
    EXPECT_EQ(GetPlatformModuleName("dir/codec"), ioPath("libdir/codec" TARSEL_MODULE_SUFFIX));
}

TEST(SetSysEnvironmentVariable, OverwritesAndReturnsTheSetenvStatus) {
    const char name[] = "TARSEL_DYLIB_TEST_VARIABLE";
    EXPECT_EQ(SetSysEnvironmentVariable(name, "first"), 0);
    EXPECT_EQ(SetSysEnvironmentVariable(name, "second"), 0);
    EXPECT_STREQ(getenv(name), "second");
    unsetenv(name);
    EXPECT_EQ(SetSysEnvironmentVariable("A=B", "x"), -1);
}
