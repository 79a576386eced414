// The tarsel tool as a user meets it: the built binary run in a child
// process, with its standard input, output, error and exit status.
#include <Core/Interfaces/Digest.h>
#include <Core/Interfaces/PropertySerializer.h>
#include <Core/Interfaces/Version.h>

#include "support/FileAttributes.h"
#include "support/TempFolder.h"
#include "support/ToolProcess.h"

#include <boost/algorithm/hex.hpp>
#include <boost/filesystem.hpp>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <functional>
#include <iterator>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Tarsel;
using namespace Tarsel::Core;
using TarselTest::Launch;
using TarselTest::Result;
namespace fs = boost::filesystem;

namespace {

std::string Md5Hex(const std::string& bytes) {
    const std::vector<unsigned char> digest = MD5Generate(MemoryDataInput::Create(bytes), "");
    return boost::algorithm::hex_lower(std::string(digest.begin(), digest.end())) + "\n";
}

// The tool runs in the test's folder, so that reports name files as given
// here.
class ToolTest : public TarselTest::TempFolderTest {
protected:
    Result Run(const std::vector<std::string>& args, const Launch& launch = {}) { return m_tool.Run(args, launch); }
    // Runs the tool with args, then more: a table's row after the command.
    Result RunWith(std::vector<std::string> args, const std::vector<std::string>& more) {
        args.insert(args.end(), more.begin(), more.end());
        return Run(args);
    }

    std::size_t EntryCount(const std::string& folder) const {
        return static_cast<std::size_t>(
            std::distance(fs::directory_iterator(m_dir / folder), fs::directory_iterator()));
    }

    // What a run paused by set's test hook did, and whether it paused.
    struct Paused {
        Result result;
        bool paused;
    };

    // Runs args with set paused between its write and its rename (its hook
    // TARSEL_TEST_PAUSE, a FIFO), calls during there, then lets it go on. A
    // set that never pauses is reported as such instead of hanging.
    Paused RunPaused(const std::vector<std::string>& args, const std::function<void()>& during, Launch launch = {}) {
        const std::string fifo = Aside("pause").string();
        fs::remove(fifo);
        EXPECT_EQ(mkfifo(fifo.c_str(), 0666), 0);
        EXPECT_EQ(chmod(fifo.c_str(), 0666), 0);  // for a set run as nobody
        launch.extraEnvironment.push_back("TARSEL_TEST_PAUSE=" + fifo);
        Paused paused{{-1, "", ""}, false};
        std::atomic<bool> ended{false};
        int unblock = -1;
        std::thread tool([&] {
            paused.result = Run(args, launch);
            ended = true;
            // Lets the open below return when set never opened the FIFO.
            unblock = open(fifo.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
        });
        const int release = open(fifo.c_str(), O_WRONLY | O_CLOEXEC);
        paused.paused = !ended;
        if (paused.paused) {
            during();  // set waits in its read of the FIFO until it is closed
        }
        close(release);
        tool.join();
        close(unblock);
        return paused;
    }

private:
    TarselTest::ToolProcess m_tool{m_dir, Aside("tool")};
};

constexpr const char* kSettings = R"({"playback":{"frameRate":29.97,"frameRateRatio":"30000/1001","volume":0.8},)"
                                  R"("video":{"width":1920,"codec":"h264","hardwareDecoding":true}})";

}  // namespace

TEST_F(ToolTest, EachInputGivesItsExitStatusAndAtMostOneErrorLineNamingTheFile) {
    WriteFile("settings.json", kSettings);
    // An npm lockfile names its root package "".
    WriteFile("package-lock.json", "{\"name\":\"x\",\n \"packages\": {\"\": {\"version\": \"1.0.0\"}}}");
    WriteFile("ratio.json", R"({"playback":{"frameRateRatio":"1/0"}})");
    WriteFile("truncated.json", R"({"a":[1,2)");
    WriteFile("deep.json", std::string(100000, '[') + std::string(100000, ']'));
    WriteFile("scalar.json", "42");
    // The library locates by byte; the report counts characters ("é" is two bytes).
    const std::string accents = "{\"caf\xC3\xA9\":1,\n \"\xC3\xA9t\xC3\xA9\":2 x}";
    WriteFile("accents.json", accents);
    WriteFile("latin1.json", "{\"s\":\"caf\xE9\"}");  // Latin-1, not UTF-8
    WriteFile("two.json", R"({"a":1,"b":2})");
    WriteFile("secret.json", kSettings);
    ASSERT_EQ(chmod(At("secret.json").c_str(), 0), 0);
    fs::create_directory(At("folder"));
    // One case a line, however its fields wrap.
    // clang-format off
    const struct {
        std::vector<std::string> args;
        std::string input;
        bool unprivileged;
        int status;
        std::string out;  // "*": not checked
        std::string err;  // the whole of stderr
    } cases[] = {
        // A valid file, a pipe named as a file, standard input.
        {{"show", "settings.json"}, "", false, 0, "*", ""},
        {{"show", "/dev/stdin"}, R"({"a":1})", false, 0, "settings: Array\n\ta: 1\n\n", ""},
        {{"get", "-", "a"}, R"({"a":52.520008})", false, 0, "52.520008\n", ""},
        {{"md5", "/dev/stdin"}, "hello\n", false, 0, "b1946ac92492d2347c6235b4d2611184\n", ""},  // md5sum's
        {{"md5", "-"}, "", false, 0, "d41d8cd98f00b204e9800998ecf8427e\n", ""},
        // Data the library refuses, located.
        {{"show", "package-lock.json"}, "", false, 3, "",
         "tarsel: package-lock.json:2:15: packages: a member has an empty name, which a settings tree cannot "
         "hold\n"},
        {{"show", "ratio.json"}, "", false, 3, "",
         "tarsel: ratio.json:1:31: playback/frameRateRatio: the ratio 1/0 has a zero denominator\n"},
        {{"show", "truncated.json"}, "", false, 3, "",
         "tarsel: truncated.json:1:10: missing a comma or ']' after an array element\n"},
        {{"get", "deep.json", "a"}, "", false, 3, "", "tarsel: deep.json:1:513: nesting deeper than 512 levels\n"},
        {{"show", "scalar.json"}, "", false, 3, "",
         "tarsel: scalar.json:1:1: the document is a single value; a settings file holds an object or an array\n"},
        {{"diff", "settings.json", "-"}, "{", false, 3, "",
         "tarsel: standard input:1:2: missing a member name in double quotes\n"},
        {{"show", "accents.json"}, "", false, 3, "",
         "tarsel: accents.json:2:10: missing a comma or '}' after an object member\n"},
        {{"show", "-"}, accents, false, 3, "",
         "tarsel: standard input:2:10: missing a comma or '}' after an object member\n"},
        {{"show", "-"}, "[\"a\tb\"]", false, 3, "",
         "tarsel: standard input:1:4: a control character in a string must be escaped\n"},
        {{"show", "latin1.json"}, "", false, 3, "", "tarsel: latin1.json:1:10: invalid UTF-8\n"},
        {{"diff", "latin1.json", "two.json"}, "", false, 3, "", "tarsel: latin1.json:1:10: invalid UTF-8\n"},
        {{"show", "two.json", "--wrap"}, "", false, 3, "",
         "tarsel: two.json: --wrap unwraps a document of one member, and this one has 2\n"},
        // Files that cannot be read.
        {{"show", "missing.json"}, "", false, 3, "", "tarsel: missing.json: no such file or folder\n"},
        {{"md5", "folder"}, "", false, 3, "", "tarsel: folder: is a folder, not a file\n"},
        {{"get", "secret.json", "video"}, "", true, 3, "", "tarsel: secret.json: permission denied\n"},
        // Names that cannot be files.
        {{"freename", "   ", "--ext", ""}, "", false, 3, "",
         "tarsel: '   ': no valid file name can be made from this name\n"},
        // Negative answers and usage errors.
        {{"get", "settings.json", "video/bitrate"}, "", false, 1, "",
         "tarsel: settings.json: no such path video/bitrate: 'bitrate' is not in video\n"},
        {{"get", "settings.json", "video/codec/x"}, "", false, 1, "",
         "tarsel: settings.json: no such path video/codec/x: video/codec is a string, not an object\n"},
        {{"show"}, "", false, 2, "", "tarsel show: missing FILE; usage: tarsel show FILE [--wrap] [--json] [--comments]\n"},
        {{"md5", "a", "b"}, "", false, 2, "",
         "tarsel md5: too many arguments; usage: tarsel md5 FILE [--stop MARKER]\n"},
        {{"set", "-", "a", "1"}, "", false, 2, "",
         "tarsel set: set saves FILE back, so FILE cannot be standard input\n"},
        {{"set", "settings.json", "a", "1", "--wait", "-1"}, "", false, 2, "",
         "tarsel set: --wait takes whole seconds from 0 to 86400, not '-1'\n"},
        {{"set", "settings.json", "a", "1", "--wait", "86401"}, "", false, 2, "",
         "tarsel set: --wait takes whole seconds from 0 to 86400, not '86401'\n"},
        {{"set", "settings.json", "a", "1", "--wait", "99999999999999999999"}, "", false, 2, "",
         "tarsel set: --wait takes whole seconds from 0 to 86400, not '99999999999999999999'\n"},
        {{"set", "settings.json", "a", "1", "--wait", "0.5"}, "", false, 2, "",
         "tarsel set: --wait takes whole seconds from 0 to 86400, not '0.5'\n"},
        {{"ratio", "0.333", "--max", "-1"}, "", false, 2, "",
         "tarsel ratio: the largest denominator must be 1 or more\n"},
        {{"freename", "", "--ext", "mkv"}, "", false, 2, "", "tarsel freename: PATH must not be empty\n"},
        {{"freename", "x", "--ext", "a/b"}, "", false, 2, "",
         "tarsel freename: EXT is an extension, which cannot hold \"/\"\n"},
    };
    // clang-format on
    for (const auto& c : cases) {
        Launch launch;
        launch.input = c.input;
        launch.unprivileged = c.unprivileged;
        const Result result = Run(c.args, launch);
        const std::string command = c.args.size() > 1 ? c.args[0] + " " + c.args[1] : c.args[0];
        EXPECT_EQ(result.status, c.status) << command << "\n" << result.err;
        EXPECT_EQ(result.err, c.err) << command;
        if (c.out != "*") {
            EXPECT_EQ(result.out, c.out) << command;
        }
    }
}

// A name too long to show whole keeps its first 100 and last 40
// characters, never part of one, and says how many characters it has.
TEST_F(ToolTest, ANameTooLongIsReportedAsSuchOnOneLine) {
    std::string accented = "x";
    for (int i = 0; i < 1000; ++i) {
        accented += "\xC3\xA9";  // U+00E9, two bytes, each starting at an odd byte
    }
    const struct {
        std::string name;
        std::string start;
        std::string end;
    } cases[] = {
        {std::string(2000, 'n'), "tarsel: " + std::string(100, 'n') + "...",
         std::string(36, 'n') + ".txt (2004 characters): the name is too long for the file system\n"},
        {accented, "tarsel: " + accented.substr(0, 199) + "...",
         accented.substr(accented.size() - 72) + ".txt (1005 characters): the name is too long for the file system\n"},
    };
    for (const auto& c : cases) {
        const Result result = Run({"freename", c.name, "--ext", "txt"});
        EXPECT_EQ(result.status, 3);
        EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
        EXPECT_EQ(result.err.rfind(c.start, 0), 0u) << result.err;
        ASSERT_GE(result.err.size(), c.end.size());
        EXPECT_EQ(result.err.substr(result.err.size() - c.end.size()), c.end) << result.err;
        EXPECT_EQ(result.err.size(), c.start.size() + c.end.size()) << result.err;
    }
}

TEST_F(ToolTest, Md5OfAProcFileIsItsWholeContent) {
    // The tool's own command line, which /proc reports with a size of 0.
    const Result result = Run({"md5", "/proc/self/cmdline"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, Md5Hex(std::string("tarsel\0md5\0/proc/self/cmdline\0", 30)));
}

TEST_F(ToolTest, VerboseAddsTheDiagnosticInformationWithTheCallStack) {
    WriteFile("package-lock.json", R"({"packages":{"":{}}})");
    const Result result = Run({"show", "package-lock.json", "--verbose"});
    EXPECT_EQ(result.status, 3);
    const std::string first = result.err.substr(0, result.err.find('\n') + 1);
    EXPECT_EQ(first, "tarsel: package-lock.json:1:14: packages: a member has an empty name, which a settings tree "
                     "cannot hold\n");
    // Then boost's account of the library's exception, whose message carries
    // the call stack down to the throwing function.
    EXPECT_NE(result.err.find("Dynamic exception type: boost::wrapexcept<std::invalid_argument>"), std::string::npos)
        << result.err;
    EXPECT_NE(result.err.find("Tarsel::Core::Property::SetChild("), std::string::npos) << result.err;
}

// get prints what the text holds, whatever a load would make of it: values
// exactly as written, null and empty containers as such, and a container as
// a tree of its members.
TEST_F(ToolTest, GetPrintsWhatTheTextHoldsExactly) {
    WriteFile("values.json", R"({"lat":52.520008,"time":1700000000.123,"tenth":0.1,"huge":1e300,"yes":true,"no":false,)"
                             R"("n":-42,"s":"a b","playback":{"frameRateRatio":"30000/1001"},"list":[1,"x"],)"
                             R"("dependencies":{"@scope/name":"^1.0","a~b":2},"null":null,"none":{},"empty":[ ],)"
                             R"("text":"x\ty\u00e9","int30":123456789012345678901234567890,)"
                             R"("d30":1.2345678901234567890123456789e29,"u64":18446744073709551615,"over":2e308,)"
                             R"("frameRateRatio":"1/0","":"empty name","k":1,)"
                             R"("tree":{"x":null,"y":{},"z":[],"w":[1.50,{"k":"first","k":"last"}],"b":true},"k":2})");
    const struct {
        std::vector<std::string> path;
        std::string out;
    } cases[] = {
        {{"lat"}, "52.520008\n"},        // not 52.52
        {{"time"}, "1700000000.123\n"},  // not 1.7e+09
        {{"tenth"}, "0.1\n"},
        {{"huge"}, "1e300\n"},  // as written
        {{"yes"}, "true\n"},
        {{"no"}, "false\n"},
        {{"n"}, "-42\n"},
        {{"s"}, "a b\n"},
        {{"text"}, "x\ty\xC3\xA9\n"},  // a string's text, decoded
        {{"null"}, "null\n"},
        {{"none"}, "{}\n"},
        {{"empty"}, "[]\n"},
        {{"int30"}, "123456789012345678901234567890\n"},
        {{"d30"}, "1.2345678901234567890123456789e29\n"},
        {{"u64"}, "18446744073709551615\n"},
        // What a load refuses, the text still holds.
        {{"over"}, "2e308\n"},
        {{"frameRateRatio"}, "1/0\n"},
        {{"--pointer", "/"}, "empty name\n"},
        // A repeated name: the last, as a load keeps it.
        {{"k"}, "2\n"},
        {{"tree/w/1/k"}, "last\n"},
        {{"playback/frameRateRatio"}, "30000/1001\n"},
        {{"/playback//frameRateRatio/"}, "30000/1001\n"},  // empty segments dropped, as the library's paths do
        // A container as its subtree, empty ones and nulls as such.
        {{"list"}, "list: Array\n\t0: 1\n\t1: x\n\n"},
        {{"tree"},
         "tree: Array\n\tx: null\n\ty: {}\n\tz: []\n\tw: Array\n\t\t0: 1.50\n\t\t1: Array\n\t\t\tk: last\n\n\n"
         "\tb: true\n\n"},
        {{"list/1"}, "x\n"},
        // RFC 6901 pointers: ~1 is "/", ~0 is "~".
        {{"--pointer", "/dependencies/@scope~1name"}, "^1.0\n"},
        {{"--pointer", "/dependencies/a~0b"}, "2\n"},
        {{"--pointer", "/list/0"}, "1\n"},
    };
    for (const auto& c : cases) {
        const Result result = RunWith({"get", "values.json"}, c.path);
        EXPECT_EQ(result.status, 0) << c.path.back() << "\n" << result.err;
        EXPECT_EQ(result.out, c.out) << c.path.back();
    }
    // A document of one value.
    WriteFile("five.json", " 5e0 ");
    EXPECT_EQ(Run({"get", "five.json", ""}).out, "5e0\n");

    EXPECT_EQ(Run({"get", "values.json", "--pointer", "dependencies"}).err,
              "tarsel get: the JSON pointer 'dependencies' must start with '/'\n");
    EXPECT_EQ(Run({"get", "values.json", "--pointer", "/a~2"}).status, 2);
    EXPECT_EQ(Run({"get", "values.json", "--pointer", "/dependencies/@scope/name"}).status, 1);
}

// A path that leads nowhere is told from the text, on one line whatever the
// names hold.
TEST_F(ToolTest, GetSaysWhereAPathLeadsNowhere) {
    WriteFile("text.json", R"({"n":null,"o":{},"tree":{"w":[1,2],"b":true}})");
    const struct {
        std::vector<std::string> path;
        std::string err;
    } cases[] = {
        {{"n/x"}, "no such path n/x: n is null, not an object"},
        {{"tree/w/2"}, "no such path tree/w/2: '2' is not in tree/w"},
        {{"tree/w/x"}, "no such path tree/w/x: 'x' is not in tree/w"},
        {{"tree/b/c"}, "no such path tree/b/c: tree/b is a boolean, not an object"},
        {{"--pointer", "\"/tree/a\\nb\""}, "no such path \"/tree/a\\nb\": \"a\\nb\" is not in tree"},
        {{"--pointer", "/o/~1"}, "no such path /o/~1: '/' is not in o"},
    };
    for (const auto& c : cases) {
        const Result result = RunWith({"get", "text.json"}, c.path);
        EXPECT_EQ(result.status, 1) << c.path.back();
        EXPECT_EQ(result.err, "tarsel: text.json: " + c.err + "\n") << c.path.back();
    }
}

TEST_F(ToolTest, ShowPrintsTheLibrarysTreeTextOrItsJsonText) {
    WriteFile("settings.json", kSettings);
    Property tree("settings");
    PropertySerializer::Deserialize(tree, MemoryDataInput::Create(kSettings), false);
    std::ostringstream text;
    PrintPropertyValue(tree, 0, text, true, true);
    const auto json = MemoryDataOutput::Create();
    PropertySerializer::Serialize(tree, json, false);

    EXPECT_EQ(Run({"show", "settings.json"}).out, text.str());
    EXPECT_EQ(Run({"show", "settings.json", "--json"}).out, json->GetData() + "\n");
    // A large tree comes out whole through the buffer.
    std::string many = "{";
    for (int i = 0; i < 20000; ++i) {
        many += (i > 0 ? ",\"k" : "\"k") + std::to_string(i) + "\":" + std::to_string(i);
    }
    WriteFile("many.json", many + "}");
    const Result result = Run({"show", "many.json"});
    EXPECT_EQ(std::count(result.out.begin(), result.out.end(), '\n'), 20002);
    EXPECT_EQ(result.out.substr(result.out.size() - 16), "\tk19999: 19999\n\n");
}

TEST_F(ToolTest, SetChangesOneValueInfersItsTypeAndKeepsThePermissions) {
    WriteFile("settings.json", kSettings);
    ASSERT_EQ(chmod(At("settings.json").c_str(), 0640), 0);
    const struct {
        std::vector<std::string> args;
        std::string describedAs;  // what get then prints
    } cases[] = {
        {{"video/width", "1280"}, "1280"},
        {{"video/hardwareDecoding", "false"}, "false"},
        {{"playback/volume", "0.25"}, "0.25"},
        {{"playback/gain", "--", "-3e-2"}, "-3e-2"},  // after --, as it starts with -; written as given
        {{"playback/frameRateRatio", "24000/1001"}, "24000/1001"},
        {{"video/codec", "av1"}, "av1"},
        {{"video/label", "1280", "--type", "string"}, "1280"},
        {{"new/deeper/flag", "true"}, "true"},  // the containers on the way are made
    };
    for (const auto& c : cases) {
        std::vector<std::string> args = {"set", "settings.json"};
        args.insert(args.end(), c.args.begin(), c.args.end());
        const Result set = Run(args);
        EXPECT_EQ(set.status, 0) << c.args[0] << "\n" << set.err;
        EXPECT_EQ(set.out + set.err, "");
        EXPECT_EQ(Run({"get", "settings.json", c.args[0]}).out, c.describedAs + "\n") << c.args[0];
    }
    // Types as saved and loaded again: a string stays a string.
    Property tree("settings");
    PropertySerializer::Deserialize(tree, FileDataInput::Create(At("settings.json")), false);
    EXPECT_EQ(tree.ChildByPath("video/label").GetType(), TypeString);
    EXPECT_EQ(tree.ChildByPath("video/width").GetType(), TypeInt64);
    EXPECT_EQ(tree.ChildByPath("playback/gain").GetType(), TypeDouble);
    EXPECT_EQ(tree.ChildByPath("playback/frameRateRatio").GetType(), TypeRatio);
    struct stat info {};
    ASSERT_EQ(stat(At("settings.json").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0640u);
    EXPECT_EQ(EntryCount(""), 1u);

    // Refusals: the value for the type, a path through a value.
    EXPECT_EQ(Run({"set", "settings.json", "a", "x", "--type", "int"}).err,
              "tarsel set: 'x' is not an integer within 64 bits\n");
    EXPECT_EQ(Run({"set", "settings.json", "a", "1/0"}).status, 2);
    const Result through = Run({"set", "settings.json", "video/width/x", "1"});
    EXPECT_EQ(through.status, 3);
    EXPECT_EQ(through.err, "tarsel: settings.json: video/width is an integer, not an object: nothing can be set "
                           "inside it\n");
}

// set changes the bytes of the value it names and nothing else: layout,
// order, arrays, nulls, numbers and escapes elsewhere stay as they were, and
// what it adds copies the layout of its neighbours.
TEST_F(ToolTest, SetEditsOnlyTheBytesOfTheValueItNames) {
    const std::string indented2 = "{\n  \"name\": \"x\",\n  \"video\": {\n    \"width\": 1920\n  }\n}\n";
    const std::string indented4 = "{\n    \"a\": [\n        1,\n        2\n    ]\n}";
    const std::string compact = R"({"t":1700000000.123,"files":["a","b"],"n":null})";
    const struct {
        std::string before;
        std::vector<std::string> args;  // PATH VALUE [options]
        std::string after;
    } cases[] = {
        // Compact text: an existing value, a new key, a new nested path.
        {compact, {"t", "5"}, R"({"t":5,"files":["a","b"],"n":null})"},
        {compact, {"x", "1"}, R"({"t":1700000000.123,"files":["a","b"],"n":null,"x":1})"},
        {R"({"a":1})", {"b/c/d", "x"}, R"({"a":1,"b":{"c":{"d":"x"}}})"},
        {R"({ "a" : 1 })", {"b", "2"}, R"({ "a" : 1, "b" : 2 })"},
        // Arrays: an element, the next one, and through one.
        {compact, {"files/1", "c"}, R"({"t":1700000000.123,"files":["a","c"],"n":null})"},
        {compact, {"/files/2", "d", "--pointer"}, R"({"t":1700000000.123,"files":["a","b","d"],"n":null})"},
        {R"({"l":[{"k":1}]})", {"l/0/k", "2"}, R"({"l":[{"k":2}]})"},
        {R"({"l":[]})", {"l/0/k", "2"}, R"({"l":[{"k":2}]})"},
        {"[1,2]", {"2", "3"}, "[1,2,3]"},
        // Indented with 2 and 4 spaces and with tabs.
        {indented2, {"video/width", "1280"}, "{\n  \"name\": \"x\",\n  \"video\": {\n    \"width\": 1280\n  }\n}\n"},
        {indented2,
         {"video/height", "720"},
         "{\n  \"name\": \"x\",\n  \"video\": {\n    \"width\": 1920,\n    \"height\": 720\n  }\n}\n"},
        {indented2,
         {"audio/rate", "48000"},
         "{\n  \"name\": \"x\",\n  \"video\": {\n    \"width\": 1920\n  },\n  \"audio\": {\n    \"rate\": "
         "48000\n  }\n}\n"},
        {indented4, {"a/2", "3"}, "{\n    \"a\": [\n        1,\n        2,\n        3\n    ]\n}"},
        {indented4, {"b", "true"}, "{\n    \"a\": [\n        1,\n        2\n    ],\n    \"b\": true\n}"},
        {"{\n\t\"a\": 1\n}", {"b/c", "x"}, "{\n\t\"a\": 1,\n\t\"b\": {\n\t\t\"c\": \"x\"\n\t}\n}"},
        {"{\n}", {"a", "1"}, "{\n  \"a\": 1\n}"},
        {"{}", {"a", "1"}, R"({"a":1})"},
        // CRLF line ends stay CRLF.
        {"{\r\n  \"a\": 1\r\n}\r\n", {"b/c", "2"}, "{\r\n  \"a\": 1,\r\n  \"b\": {\r\n    \"c\": 2\r\n  }\r\n}\r\n"},
        // Nulls, integers beyond 2^64, doubles of 17 digits and escapes elsewhere.
        {R"({"n":null,"big":18446744073709551616,"d":0.30000000000000004,"s":"caf\u00e9\n","m":1})",
         {"m", "2"},
         R"({"n":null,"big":18446744073709551616,"d":0.30000000000000004,"s":"caf\u00e9\n","m":2})"},
        // A repeated key: the occurrence a load keeps, the last.
        {R"({"k":1,"j":0,"k":2})", {"k", "3"}, R"({"k":1,"j":0,"k":3})"},
        // A key holding "/", through a pointer.
        {R"({"dependencies":{"@scope/name":"^1.0"}})",
         {"/dependencies/@scope~1name", "^2.0", "--pointer"},
         R"({"dependencies":{"@scope/name":"^2.0"}})"},
        // Values of every type, doubles exactly, strings escaped.
        {R"({"v":0})", {"v", "0.1"}, R"({"v":0.1})"},
        {R"({"v":0})", {"v", "1700000000.123"}, R"({"v":1700000000.123})"},
        {R"({"v":0})", {"v", "3", "--type", "double"}, R"({"v":3.0})"},
        {R"({"v":0})", {"v", "say \"hi\"\\"}, R"({"v":"say \"hi\"\\"})"},
        {R"({"frameRateRatio":"30/1"})", {"frameRateRatio", "24000/1001"}, R"({"frameRateRatio":"24000/1001"})"},
        {R"({"v":{"deep":[1]}})", {"v", "false"}, R"({"v":false})"},
        // VALUE as the JSON the user typed: numbers of any size as their
        // digits, ratios as typed, null as null; what JSON cannot spell is a
        // string. New members take the separator the file uses.
        {R"({"v":0})", {"v", "null"}, R"({"v":null})"},
        {R"({"v":0})", {"v", "null", "--type", "string"}, R"({"v":"null"})"},
        {R"({"v":0})", {"v", "007"}, R"({"v":"007"})"},
        {R"({"v":0})", {"v", "+5"}, R"({"v":"+5"})"},
        {R"({"v":0})", {"v", "00"}, R"({"v":"00"})"},
        {R"({"v":0})", {"v", "007", "--type", "int"}, R"({"v":7})"},
        {R"({"v":0})", {"v", "18446744073709551615"}, R"({"v":18446744073709551615})"},
        {R"({"v":0})", {"v", "123456789012345678901234567890"}, R"({"v":123456789012345678901234567890})"},
        {R"({"v":0})", {"v", "1e5"}, R"({"v":1e5})"},
        {R"({"v":0})", {"v", "1e400"}, R"({"v":"1e400"})"},  // beyond the doubles: text
        {R"({"v":0})", {"v", ".5", "--type", "double"}, R"({"v":0.5})"},
        {R"({"v":0})", {"v", "12/24"}, R"({"v":"12/24"})"},
        {R"({"v":0})", {"v", "0/5"}, R"({"v":"0/5"})"},
        {R"({"frameRateRatio":"1/1"})",
         {"frameRateRatio", "12/24", "--type", "ratio"},
         R"({"frameRateRatio":"12/24"})"},
        // One member, or none, on one line: the separator of the file's other containers.
        {R"({"x": {"a": 1}, "y": [1, 2]})", {"x/b", "2"}, R"({"x": {"a": 1, "b": 2}, "y": [1, 2]})"},
        {R"({"x": [1], "y": [1, 2]})", {"x/1", "2"}, R"({"x": [1, 2], "y": [1, 2]})"},
        {R"({"x": [], "y": {"a": 1, "b": 2}})", {"x/0", "1"}, R"({"x": [1], "y": {"a": 1, "b": 2}})"},
        {R"({"x": { }, "y": 2})", {"x/a", "1"}, R"({"x": { "a": 1 }, "y": 2})"},
        // A key cut at a zero byte is the name a load reads: the last "a" here.
        {R"({"a":1,"a\u0000b":5})", {"a", "2"}, R"({"a":1,"a\u0000b":2})"},
        // Comments in a .jsonc file, or with --comments, stay.
        {"{\n  // volume\n  \"v\": 1, /* one */\n}",
         {"v", "2", "--comments"},
         "{\n  // volume\n  \"v\": 2, /* one */\n}"},
    };
    for (const auto& c : cases) {
        WriteFile("edit.json", c.before);
        std::vector<std::string> args = {"set", "edit.json"};
        args.insert(args.end(), c.args.begin(), c.args.end());
        const Result result = Run(args);
        EXPECT_EQ(result.status, 0) << c.before << " " << c.args[0] << "\n" << result.err;
        const std::string after = ReadFile("edit.json");
        EXPECT_EQ(after, c.after) << c.before << " " << c.args[0];
        Property loaded("settings");
        EXPECT_NO_THROW(PropertySerializer::Deserialize(loaded, MemoryDataInput::Create(after), false,
                                                        PropertySerializer::JsonSyntax::WithComments))
            << after;
    }
    EXPECT_EQ(EntryCount(""), 1u);

    // Paths that lead nowhere: the file stays as it was.
    WriteFile("edit.json", compact);
    const struct {
        std::vector<std::string> args;
        std::string err;
    } refusals[] = {
        {{"files/x", "1"}, "tarsel: edit.json: files is an array: 'x' is not an index of it\n"},
        {{"files/3", "1"}, "tarsel: edit.json: files has 2 elements: only an index up to 2 can be set\n"},
        {{"t/x", "1"}, "tarsel: edit.json: t is a double, not an object: nothing can be set inside it\n"},
        {{"frameRateRatio", "1/0", "--type", "string"},
         "tarsel: edit.json: cannot set: the file would no longer load: frameRateRatio: the ratio 1/0 has a zero "
         "denominator\n"},
    };
    for (const auto& refusal : refusals) {
        std::vector<std::string> args = {"set", "edit.json"};
        args.insert(args.end(), refusal.args.begin(), refusal.args.end());
        const Result result = Run(args);
        EXPECT_EQ(result.status, 3) << refusal.args[0];
        EXPECT_EQ(result.err, refusal.err);
        EXPECT_EQ(ReadFile("edit.json"), compact);
    }
}

// A key cut at a zero byte is set as a load reads it, and a .jsonc file
// keeps its comments.
TEST_F(ToolTest, SetReadsNamesAndCommentsAsTheLibraryDoes) {
    WriteFile("zero.json", R"({"a":1,"a\u0000b":5})");
    ASSERT_EQ(Run({"set", "zero.json", "a", "2"}).status, 0);
    Property loaded("settings");
    PropertySerializer::Deserialize(loaded, FileDataInput::Create(At("zero.json")), false);
    EXPECT_EQ(loaded["a"].GetInt64(), 2);

    WriteFile("settings.jsonc", "{\"v\": 1, // one\n}");
    ASSERT_EQ(Run({"set", "settings.jsonc", "w", "2"}).status, 0);
    EXPECT_EQ(ReadFile("settings.jsonc"), "{\"v\": 1, // one\n  \"w\": 2,\n}");
}

// What set cannot write as JSON text, or would misplace, is refused and the
// file stays as it was.
TEST_F(ToolTest, SetRefusesTextThatIsNotUtf8AndDocumentsWithAZeroByte) {
    const std::string original = R"({"a":1})";
    WriteFile("edit.json", original);
    const struct {
        std::vector<std::string> args;
        int status;
        std::string err;
    } cases[] = {
        {{"set", "edit.json", "a", "\xff"}, 2, "tarsel set: VALUE is not UTF-8 text, which JSON text must be\n"},
        {{"set", "edit.json", "a", "caf\xe9"}, 2, "tarsel set: VALUE is not UTF-8 text, which JSON text must be\n"},
        {{"set", "edit.json", "k\xff", "1"}, 2, "tarsel set: PATH is not UTF-8 text, which JSON text must be\n"},
    };
    for (const auto& c : cases) {
        const Result result = Run(c.args);
        EXPECT_EQ(result.status, c.status) << c.args[2];
        EXPECT_EQ(result.err.substr(0, c.err.size()), c.err) << c.args[2];
        EXPECT_EQ(ReadFile("edit.json"), original);
    }
    const std::string tailed = std::string("{\"a\":1}\n\0{\"b\":2}", 16);
    WriteFile("tailed.json", tailed);
    const Result result = Run({"set", "tailed.json", "a", "2"});
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(result.err, "tarsel: tailed.json:2:1: a zero byte, which JSON text cannot hold\n");
    EXPECT_EQ(ReadFile("tailed.json"), tailed);
}

// Two writers at once: each set holds a lock on the folder while it reads
// and replaces the file, so no change is lost, and nothing is left behind.
TEST_F(ToolTest, ConcurrentSetsOfOneFileLoseNothing) {
    WriteFile("shared.json", "{\n  \"start\": 0\n}\n");
    constexpr int kSets = 100;
    std::vector<std::thread> writers;
    for (int writer = 0; writer < 2; ++writer) {
        writers.emplace_back([this, writer] {
            for (int i = 0; i < kSets; ++i) {
                const Result result =
                    Run({"set", "shared.json", "w" + std::to_string(writer) + "_" + std::to_string(i), "1"});
                EXPECT_EQ(result.status, 0) << result.err;
            }
        });
    }
    for (std::thread& writer : writers) {
        writer.join();
    }
    Property loaded("settings");
    PropertySerializer::Deserialize(loaded, FileDataInput::Create(At("shared.json")), false);
    EXPECT_EQ(loaded.Count(), 2u * kSets + 1);
    for (int writer = 0; writer < 2; ++writer) {
        for (int i = 0; i < kSets; ++i) {
            EXPECT_TRUE(loaded.ChildExists("w" + std::to_string(writer) + "_" + std::to_string(i)));
        }
    }
    EXPECT_EQ(EntryCount(""), 1u);
}

// Runs from several threads at once, each with its own standard input, end
// when their input does: no run's child holds another run's pipe open.
TEST_F(ToolTest, ConcurrentRunsEachReadTheirOwnStandardInput) {
    constexpr int kThreads = 4;
    constexpr int kRuns = 50;
    std::vector<std::thread> runners;
    for (int runner = 0; runner < kThreads; ++runner) {
        runners.emplace_back([this, runner] {
            for (int i = 0; i < kRuns; ++i) {
                Launch launch;
                // More than a pipe holds, so that writing it takes a while.
                launch.input = "runner " + std::to_string(runner) + ", run " + std::to_string(i) + "\n";
                launch.input.resize(256 * 1024, static_cast<char>('a' + runner));
                const Result result = Run({"md5", "-"}, launch);
                EXPECT_EQ(result.status, 0) << result.err;
                EXPECT_EQ(result.out, Md5Hex(launch.input)) << "runner " << runner << ", run " << i;
            }
        });
    }
    for (std::thread& runner : runners) {
        runner.join();
    }
}

// What replacing would damage is refused, and the file stays byte for
// byte: a FIFO (its writer's data), a file with other hard links (they
// would be split off), and, for a user allowed to write the folder, a file
// the user may not write or does not own (the replacement would be theirs).
TEST_F(ToolTest, SetRefusesWhatReplacingWouldDamage) {
    const std::string original = std::string(kSettings);
    ASSERT_EQ(mkfifo(At("pipe.json").c_str(), 0644), 0);
    WriteFile("linked.json", original);
    ASSERT_EQ(link(At("linked.json").c_str(), At("link2.json").c_str()), 0);
    const struct {
        std::string file;
        bool unprivileged;
        bool rootMakesIt;  // another user's file or link
        std::string err;
    } cases[] = {
        {"pipe.json", false, false, "tarsel: pipe.json: cannot set: it is a FIFO, not a regular file\n"},
        {"linked.json", false, false,
         "tarsel: linked.json: cannot set: it has 1 other hard link, which replacing it would split off\n"},
        {"open/readonly.json", true, true, "tarsel: open/readonly.json: cannot set: you may not write this file\n"},
        {"open/theirs.json", true, true,
         "tarsel: open/theirs.json: cannot set: it belongs to another user, and replacing it would make it yours\n"},
        // The user's own file in a group the user is not in.
        {"open/group.json", true, true,
         "tarsel: open/group.json: cannot set: its group is one you are not in, and replacing it would give it "
         "yours\n"},
        // A folder the user may write but not read cannot be locked.
        {"dropbox/settings.json", true, true,
         "tarsel: dropbox/settings.json: cannot set: you may write in its folder " + fs::canonical(m_dir).string() +
             "/dropbox but not read it, and set must read a folder to lock it against "
             "other sets\n"},
        // Root, through nobody's link to root's own file.
        {"open/foreign.json", false, true,
         "tarsel: open/foreign.json: cannot set: is a link of another user to a file that is not theirs, which a "
         "save does not follow\n"},
    };
    // A folder anyone may write, holding files of this test's user.
    fs::create_directory(At("open"));
    ASSERT_EQ(chmod(At("open").c_str(), 0777), 0);
    WriteFile("open/readonly.json", original);
    ASSERT_EQ(chmod(At("open/readonly.json").c_str(), 0644), 0);
    WriteFile("open/theirs.json", original);
    ASSERT_EQ(chmod(At("open/theirs.json").c_str(), 0666), 0);
    WriteFile("open/group.json", original);
    ASSERT_EQ(chmod(At("open/group.json").c_str(), 0666), 0);
    fs::create_directory(At("dropbox"));
    WriteFile("dropbox/settings.json", original);
    ASSERT_EQ(chmod(At("dropbox/settings.json").c_str(), 0666), 0);
    ASSERT_EQ(chmod(At("dropbox").c_str(), 0733), 0);
    if (geteuid() == 0) {
        ASSERT_EQ(chown(At("open/group.json").c_str(), 65534, 0), 0);
        ASSERT_EQ(chown(At("dropbox/settings.json").c_str(), 65534, 65534), 0);
        fs::create_symlink(At("linked.json"), At("open/foreign.json"));
        ASSERT_EQ(lchown(At("open/foreign.json").c_str(), 65534, 65534), 0);
    }
    for (const auto& c : cases) {
        if (c.rootMakesIt && geteuid() != 0) {
            continue;  // another user's file needs root to make
        }
        Launch launch;
        launch.unprivileged = c.unprivileged;
        const Result result = Run({"set", c.file, "video/width", "1"}, launch);
        EXPECT_EQ(result.status, 3) << c.file;
        EXPECT_EQ(result.err, c.err);
        if (c.file != "pipe.json") {
            EXPECT_EQ(ReadFile(c.file), original) << c.file;
        }
    }
    EXPECT_EQ(EntryCount(""), 5u);  // the FIFO, the two links and the folders: no temporary file
    EXPECT_EQ(EntryCount("open"), geteuid() == 0 ? 4u : 3u);
    EXPECT_EQ(EntryCount("dropbox"), 1u);
}

TEST_F(ToolTest, SetThatCannotSaveLeavesTheFileByteForByte) {
    fs::create_directory(At("locked"));
    const std::string original = std::string(kSettings) + "\n";
    WriteFile("locked/settings.json", original);
    // A folder the user may not write in, holding the user's own file: no
    // temporary file can be made. (Root runs the tool as nobody.)
    Launch asUser;
    asUser.unprivileged = true;
    if (geteuid() == 0) {
        ASSERT_EQ(chown(At("locked/settings.json").c_str(), 65534, 65534), 0);
    }
    ASSERT_EQ(chmod(At("locked").c_str(), 0555), 0);
    const Result readOnly = Run({"set", "locked/settings.json", "video/width", "1"}, asUser);
    EXPECT_EQ(readOnly.status, 3);
    EXPECT_EQ(readOnly.err, "tarsel: locked/settings.json: cannot set: you may not write in its folder " +
                                fs::canonical(m_dir).string() + "/locked\n");
    ASSERT_EQ(chmod(At("locked").c_str(), 0755), 0);
    EXPECT_EQ(ReadFile("locked/settings.json"), original);
    EXPECT_EQ(EntryCount("locked"), 1u);

    // Interrupted after the temporary file was begun: the system refuses
    // bytes past the file size limit, as on a full disk.
    Launch limited;
    limited.fileSizeLimit = 64;
    const Result interrupted = Run({"set", "locked/settings.json", "video/width", "1"}, limited);
    EXPECT_EQ(interrupted.status, 3);
    EXPECT_EQ(interrupted.err, "tarsel: locked/settings.json: cannot save: the file would exceed the allowed size\n");
    EXPECT_EQ(ReadFile("locked/settings.json"), original);
    EXPECT_EQ(EntryCount("locked"), 1u);
}

// set records the file at its read and renames only over that file,
// unchanged: what took its place or changed it since is left as it is,
// and nothing is written through a link.
TEST_F(ToolTest, AFileSwappedOrChangedBeforeSetsRenameIsLeftAndNothingWritten) {
    const std::string secret = (Aside("other") / "secret.json").string();
    const std::string changed = std::string(kSettings).replace(10, 4, "rate");  // the same size
    const struct {
        const char* what;
        std::function<void()> action;
        std::string left;  // what settings.json then holds
    } cases[] = {
        {"a link to another folder's file",
         [&] {
             fs::rename(At("settings.json"), At("moved.json"));
             fs::create_symlink(secret, At("settings.json"));
         },
         "{\"secret\":1}"},
        {"a change in place", [&] { std::ofstream(At("settings.json"), std::ios::in) << changed; }, changed},
    };
    fs::create_directory(Aside("other"));
    for (const auto& c : cases) {
        fs::remove(At("moved.json"));
        fs::remove(At("settings.json"));
        WriteFile("settings.json", kSettings);
        std::ofstream(secret, std::ios::trunc) << "{\"secret\":1}";
        const Paused run = RunPaused({"set", "settings.json", "video/width", "1"}, c.action);
        EXPECT_TRUE(run.paused) << c.what << ": set did not stop at its hook";
        EXPECT_EQ(run.result.status, 3) << c.what;
        EXPECT_EQ(run.result.err, "tarsel: settings.json: changed while it was being edited; nothing written\n")
            << c.what;
        EXPECT_EQ(ReadFile("settings.json"), c.left) << c.what;
        std::ifstream in(secret);
        EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()), "{\"secret\":1}")
            << c.what;
        for (const std::string& name : Entries()) {
            EXPECT_TRUE(name == "settings.json" || name == "moved.json") << c.what << ": " << name;
        }
    }
}

// While set saves a file only its owner may read, no entry of its folder
// can be read by another user.
TEST_F(ToolTest, NoEntryOfTheFolderIsReadableByAnotherUserWhileSetSavesASecret) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs root, to read as another user";
    }
    WriteFile("secret.json", R"({"password":"old"})");
    ASSERT_EQ(chmod(At("secret.json").c_str(), 0600), 0);
    std::vector<std::string> seen;
    std::vector<std::string> readable;
    const Paused run = RunPaused({"set", "secret.json", "password", "new"}, [&] {
        Launch asNobody;
        asNobody.unprivileged = true;
        for (const std::string& name : Entries()) {
            seen.push_back(name);
            if (Run({"md5", name}, asNobody).status == 0) {
                readable.push_back(name);
            }
        }
    });
    EXPECT_TRUE(run.paused) << "set did not stop at its hook";
    EXPECT_EQ(run.result.status, 0) << run.result.err;
    EXPECT_FALSE(seen.empty());
    EXPECT_EQ(readable, std::vector<std::string>{});
    EXPECT_EQ(ReadFile("secret.json"), R"({"password":"new"})");
    struct stat info {};
    ASSERT_EQ(stat(At("secret.json").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0600u);
}

TEST_F(ToolTest, SetKeepsExtendedAttributesAndTheAcl) {
    WriteFile("settings.json", kSettings);
    if (!TarselTest::SetAttribute(At("settings.json"), "user.tarsel.tag", "blue") ||
        !TarselTest::GrantUserAccess(At("settings.json"), 65534)) {
        GTEST_SKIP() << "the test folder's file system holds no extended attributes or ACLs here: "
                     << std::strerror(errno);
    }
    const std::string acl = TarselTest::AclOf(At("settings.json"));
    const Result result = Run({"set", "settings.json", "video/width", "1"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(TarselTest::AttributeOf(At("settings.json"), "user.tarsel.tag"), std::string("blue"));
    EXPECT_EQ(TarselTest::AclOf(At("settings.json")), acl);
    EXPECT_EQ(Run({"get", "settings.json", "video/width"}).out, "1\n");
}

// Temporary files that killed saves left (where they have names) are
// removed by the next set of that file, under its lock; others' stay.
TEST_F(ToolTest, SetRemovesTheLeftoversOfTheFileItEdits) {
    WriteFile("settings.json", kSettings);
    WriteFile(".settings.json.tarsel-a1B2c3", "leftover");
    WriteFile(".other.json.tarsel-a1B2c3", "another file's");
    const Result result = Run({"set", "settings.json", "video/width", "1"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(Entries(), (std::vector<std::string>{".other.json.tarsel-a1B2c3", "settings.json"}));
}

TEST_F(ToolTest, SetSavesAFileWhoseNameIsAsLongAsTheFileSystemAllows) {
    std::string name = "x";
    while (name.size() < 255) {
        name += "\xC3\xA9";  // byte 240 falls inside a character
    }
    WriteFile(name, kSettings);
    const Result result = Run({"set", name, "video/width", "1"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(Run({"get", name, "video/width"}).out, "1\n");
    EXPECT_EQ(Entries(), std::vector<std::string>{name});
}

// Anyone who may read a folder may lock it: set waits for the lock at most
// --wait seconds (10 by default), says after a second that it waits, and
// gives up naming the folder.
TEST_F(ToolTest, SetWaitsForAnotherProcesssLockOnTheFolderAtMostWaitSeconds) {
    WriteFile("settings.json", kSettings);
    const std::string folder = fs::canonical(m_dir).string();
    const int lock = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ASSERT_GE(lock, 0);
    ASSERT_EQ(flock(lock, LOCK_EX), 0);
    const Result now = Run({"set", "settings.json", "video/width", "1", "--wait", "0"});
    EXPECT_EQ(now.status, 3);
    EXPECT_EQ(now.err, "tarsel: settings.json: cannot set: another process holds the lock on its folder " + folder +
                           " (see --wait)\n");
    const Result later = Run({"set", "settings.json", "video/width", "1", "--wait", "2"});
    EXPECT_EQ(later.status, 3);
    EXPECT_EQ(later.err,
              "tarsel: waiting for another process's lock on " + folder +
                  "\ntarsel: settings.json: cannot set: another process still holds the lock on its folder " + folder +
                  " after 2 seconds (see --wait)\n");
    EXPECT_EQ(ReadFile("settings.json"), kSettings);
    close(lock);
    EXPECT_EQ(Run({"set", "settings.json", "video/width", "1", "--wait", "0"}).status, 0);
}

TEST_F(ToolTest, DiffLibraryUsesTheLibrarysEqualityAndPrintsTheFirstDifference) {
    WriteFile("a.json", kSettings);
    // The same settings in another order, a double within 1e-05.
    WriteFile("same.json", R"({"video":{"hardwareDecoding":true,"codec":"h264","width":1920},)"
                           R"("playback":{"volume":0.800001,"frameRateRatio":"60000/2002","frameRate":29.97}})");
    WriteFile("rate.json", R"({"playback":{"frameRate":29.97,"frameRateRatio":"24000/1001","volume":0.8},)"
                           R"("video":{"width":1920,"codec":"h264","hardwareDecoding":true}})");
    WriteFile("fewer.json", R"({"playback":{"frameRate":29.97,"frameRateRatio":"30000/1001","volume":0.8},)"
                            R"("video":{"width":1920,"hardwareDecoding":true}})");
    WriteFile("types.json", R"({"playback":{"frameRate":29.97,"frameRateRatio":"30000/1001","volume":0.8},)"
                            R"("video":{"width":"1920","codec":"h264","hardwareDecoding":true}})");
    const struct {
        std::string other;
        int status;
        std::string out;
    } cases[] = {
        {"same.json", 0, ""},
        {"rate.json", 1, "playback/frameRateRatio: 30000/1001 vs 24000/1001\n"},
        {"fewer.json", 1, "video/codec: h264 vs (missing)\n"},
        {"types.json", 1, "video/width: 1920 (an integer) vs 1920 (a string)\n"},
        // The library does not compare the names of value children.
        {"renamed.json", 0, ""},
    };
    WriteFile("renamed.json", R"({"playback":{"frameRate":29.97,"frameRateRatio":"30000/1001","loudness":0.8},)"
                              R"("video":{"width":1920,"codec":"h264","hardwareDecoding":true}})");
    for (const auto& c : cases) {
        const Result result = Run({"diff", "a.json", c.other, "--library"});
        EXPECT_EQ(result.status, c.status) << c.other << "\n" << result.err;
        EXPECT_EQ(result.out, c.out) << c.other;
        EXPECT_EQ(result.err, "") << c.other;
    }
    Launch piped;
    piped.input = kSettings;
    EXPECT_EQ(Run({"diff", "-", "rate.json", "--library"}, piped).out,
              "playback/frameRateRatio: 30000/1001 vs 24000/1001\n");
    EXPECT_EQ(Run({"diff", "-", "-"}).status, 2);
}

// Every difference of the two JSON texts, one a line: names always
// compared, objects by key in any order, arrays by position, types told
// apart, doubles exactly unless a tolerance is given.
TEST_F(ToolTest, DiffComparesTheJsonTextsAndPrintsEveryDifference) {
    const struct {
        std::string a;
        std::string b;
        std::vector<std::string> options;
        int status;
        std::string out;
    } cases[] = {
        {R"({"a":1,"b":2})", "{\n  \"b\": 2,\n  \"a\": 1\n}\n", {}, 0, ""},  // order and layout do not count
        {R"({"a":1,"b":2})", R"({"c":1,"d":2})", {}, 1, "only in A: a\nonly in A: b\nonly in B: c\nonly in B: d\n"},
        {R"({"A":1})", R"({"a":1})", {}, 1, "only in A: A\nonly in B: a\n"},
        {R"({"x":{"a":1}})", R"({"x":{"b":1}})", {}, 1, "only in A: x/a\nonly in B: x/b\n"},
        {R"({"l":[1,2]})", R"({"l":[2,1]})", {}, 1, "l/0: 1 vs 2\nl/1: 2 vs 1\n"},
        {R"({"files":["a"]})", R"({"files":["a","b","c"]})", {}, 1, "only in B: files/1\nonly in B: files/2\n"},
        {R"({"video":{"fps":29.97}})",
         R"({"video":{"fps":"29.97"}})",
         {},
         1,
         "video/fps: double 29.97 vs string \"29.97\"\n"},
        {R"({"n":null,"o":{"k":1}})",
         R"({"n":{},"o":[1]})",
         {},
         1,
         "n: null vs an object of 0 members\no: an object of 1 member vs an array of 1 element\n"},
        {R"({"w":1})", R"({"w":1.0})", {}, 1, "w: integer 1 vs double 1.0\n"},
        {R"({"w":1})", R"({"w":1.0})", {"--numeric"}, 0, ""},
        {R"({"d":1e-7})", R"({"d":2e-7})", {}, 1, "d: 1e-7 vs 2e-7\n"},
        {R"({"d":1e-7})", R"({"d":2e-7})", {"--tolerance", "1e-6"}, 0, ""},
        {R"({"d":1e-7})", R"({"d":2e-7})", {"--relative", "0.1"}, 1, "d: 1e-7 vs 2e-7\n"},
        {R"({"d":1e-7})", R"({"d":2e-7})", {"--relative", "0.6"}, 0, ""},
        {R"({"d":1e20})", R"({"d":1.00001e20})", {"--relative", "1e-4"}, 0, ""},
        // Two decimals, one double: the values differ, but not by more than 0.
        {R"({"d":0.1})", R"({"d":0.10000000000000001})", {}, 1, "d: 0.1 vs 0.10000000000000001\n"},
        {R"({"d":0.1})", R"({"d":0.10000000000000001})", {"--tolerance", "0"}, 0, ""},
        // Beyond the library's numbers: integers of any size, exactly.
        {R"({"big":18446744073709551616})",
         R"({"big":18446744073709551617})",
         {},
         1,
         "big: 18446744073709551616 vs 18446744073709551617\n"},
        {R"({"k":1,"k":2})", R"({"k":2})", {}, 0, ""},  // a repeated key: the last one, as a load keeps
        {"[1]", "[2]", {}, 1, "0: 1 vs 2\n"},
        {R"({"a":1,"b":2,"c":3,"d":4,"e":5})",
         R"({"a":0,"b":0,"c":0,"d":0,"e":0})",
         {"--max", "2"},
         1,
         "a: 1 vs 0\nb: 2 vs 0\n\u2026 and 3 more\n"},
    };
    for (const auto& c : cases) {
        WriteFile("a.json", c.a);
        WriteFile("b.json", c.b);
        const Result result = RunWith({"diff", "a.json", "b.json"}, c.options);
        EXPECT_EQ(result.status, c.status) << c.a << " / " << c.b << "\n" << result.err;
        EXPECT_EQ(result.out, c.out) << c.a << " / " << c.b;
        EXPECT_EQ(result.err, "") << c.a << " / " << c.b;
    }
    WriteFile("a.json", "{}");
    EXPECT_EQ(Run({"diff", "a.json", "a.json", "--relative", "-1"}).status, 2);
    EXPECT_EQ(Run({"diff", "a.json", "a.json", "--max", "-1"}).status, 2);
    // A file that does not parse is reported where it fails.
    WriteFile("b.json", "{\"a\":1,}");
    EXPECT_EQ(Run({"diff", "a.json", "b.json"}).err,
              "tarsel: b.json:1:8: missing a member name in double quotes; comments and trailing commas are read "
              "with --comments, or in a file named *.jsonc\n");
}

// Every path diff prints is one line that get reads back: plain while the
// names allow it, else a JSON pointer, else that pointer as a JSON string;
// nothing from the files reaches the terminal unescaped.
TEST_F(ToolTest, DiffPathsAreOneLineAndReadBackWithGet) {
    const struct {
        std::string document;  // @ stands for the value: 1 in A, 2 in B
        std::string path;
    } cases[] = {
        {R"({"video":{"width":@}})", "video/width"},
        {R"({"caf\u00e9":@})", "caf\xC3\xA9"},        // characters beyond ASCII stay as they are
        {R"({"say \"hi\" \\":@})", R"(say "hi" \)"},  // so do quotes and backslashes
        {R"({"\"q\"":@})", R"(/"q")"},                // but a first quote, which would begin a JSON string
        {R"({"a\nb":@})", R"("/a\nb")"},              // a newline: one line all the same
        {R"({"\u001b[31m":@})", R"("/\u001b[31m")"},  // a terminal's escape sequence
        {R"({"t\tq":@})", R"("/t\tq")"},
        {R"({"a/b":@})", "/a~1b"},
        {R"({"a~b":@})", "/a~0b"},
        {R"({"":@})", "/"},  // the empty name
        {R"({"x":{"":{"y/z":@}}})", "/x//y~1z"},
        {R"({"p":{"a\nb":@}})", R"("/p/a\nb")"},
        {"{\"d\x7f\":@}", R"("/d\u007f")"},           // DEL, as the file holds it
        {"{\"c\xC2\x9B\":@}", R"("/c\u009b")"},       // C1's CSI, as the file holds it
        {R"({"c\u009b":@})", R"("/c\u009b")"},        // C1's CSI, escaped in the file
        {R"({"\u202eevil":@})", R"("/\u202eevil")"},  // a direction control, which reorders a line
        {R"({"\udc00":@})", R"("/\udc00")"},          // a lone surrogate, which is not UTF-8
        {R"({"l":[0,{"/":@}]})", "/l/1/~1"},
        {R"({"~1":@})", "/~01"},                // a name that looks like an escape
        {R"({"q\"\\\n":@})", R"("/q\"\\\n")"},  // a quote and a backslash in a JSON string
    };
    for (const auto& c : cases) {
        std::string a = c.document;
        std::string b = c.document;
        a.replace(a.find('@'), 1, "1");
        b.replace(b.find('@'), 1, "2");
        WriteFile("a.json", a);
        WriteFile("b.json", b);
        const Result diff = Run({"diff", "a.json", "b.json"});
        EXPECT_EQ(diff.status, 1) << c.document << "\n" << diff.err;
        EXPECT_EQ(diff.out, c.path + ": 1 vs 2\n") << c.document;
        // Pasted into get, the path reads the same value.
        const bool pointer = c.path[0] == '/' || c.path[0] == '"';
        const Result get = pointer ? Run({"get", "a.json", "--pointer", c.path}) : Run({"get", "a.json", c.path});
        EXPECT_EQ(get.status, 0) << c.path << "\n" << get.err;
        EXPECT_EQ(get.out, "1\n") << c.path;
    }

    // Names on one side, strings escaped where JSON allows them raw.
    WriteFile("a.json", "{\"a\\nb\":1,\"\":2,\"s\":\"a\x7f"
                        "b\xC2\x9B\",\"e\":\"\\u001b[0m\"}");
    WriteFile("b.json", R"({"s":"x","e":"\u001b[31m"})");
    const Result sides = Run({"diff", "a.json", "b.json"});
    EXPECT_EQ(sides.out, "only in A: \"/a\\nb\"\nonly in A: /\n"
                         "s: \"a\\u007fb\\u009b\" vs \"x\"\n"
                         "e: \"\\u001b[0m\" vs \"\\u001b[31m\"\n");
    // The library's comparison prints its paths and strings so too.
    WriteFile("a.json", R"({"k":{"a\nb":"\u001b[0m"}})");
    WriteFile("b.json", R"({"k":{"a\nb":"plain"}})");
    EXPECT_EQ(Run({"diff", "a.json", "b.json", "--library"}).out, "\"/k/a\\nb\": \"\\u001b[0m\" vs plain\n");

    // A pointer that begins with a quote must be one JSON string.
    const struct {
        std::string pointer;
        std::string err;
    } refusals[] = {
        {R"("/a)", "tarsel get: the JSON pointer starts with '\"' but is not a JSON string: missing the closing "
                   "quotation mark of a string\n"},
        {R"("/a" x)",
         "tarsel get: the JSON pointer starts with '\"' but is not a JSON string: text after the end of the "
         "document\n"},
        {R"("a\nb")", "tarsel get: the JSON pointer \"a\\nb\" must start with '/'\n"},
    };
    for (const auto& refusal : refusals) {
        const Result result = Run({"get", "b.json", "--pointer", refusal.pointer});
        EXPECT_EQ(result.status, 2) << refusal.pointer;
        EXPECT_EQ(result.err, refusal.err) << refusal.pointer;
    }
}

// Numbers are equal when their decimal values are, whatever their size or
// spelling; a double's rounding never makes two numbers one. Tolerances
// apply where both are finite doubles.
TEST_F(ToolTest, DiffComparesNumbersByTheirExactValues) {
    const struct {
        std::string a;
        std::string b;
        std::vector<std::string> options;
        bool equal;
    } cases[] = {
        {"2e308", "3e308", {}, false},  // both beyond the doubles
        {"2e308", "3e308", {"--relative", "1"}, false},
        {"1e400", "10e399", {}, true},
        {"0.10", "0.1", {}, true},
        {"1E+2", "100.00e0", {}, true},
        {"-0", "0", {}, true},
        {"-0.0", "0e5", {}, true},
        {"0.1", "0.10000000000000001", {}, false},  // one double, two values
        {"123456789012345678901234567890", "123456789012345678901234567891", {}, false},
        // Exponents beyond 64 bits, and across 18 digits.
        {"1e1000000000000000000000", "10e999999999999999999999", {}, true},
        {"1e-1000000000000000000000", "1e-999999999999999999999", {}, false},
        {"1e999999999999999999", "0.1e1000000000000000000", {}, true},
        {"-5e-9223372036854775809", "-50e-9223372036854775810", {}, true},
        // An integer and a double: different types, or with --numeric,
        // compared exactly.
        {"1", "1.0", {}, false},
        {"1", "1.0", {"--numeric"}, true},
        {"100", "1e2", {"--numeric"}, true},
        {"9007199254740993", "9007199254740992.0", {"--numeric"}, false},
        {"18446744073709551617", "1.8446744073709552e19", {"--numeric"}, false},
        {"12345678901234567891", "12345678901234567890.0", {"--numeric"}, false},
        {"18446744073709551617", "1.8446744073709552e19", {"--numeric", "--tolerance", "1"}, true},
        // Tolerances are for doubles: two integers compare exactly.
        {"1", "2", {"--tolerance", "5"}, false},
        {"1.0", "2", {"--tolerance", "5", "--numeric"}, true},
    };
    for (const auto& c : cases) {
        WriteFile("a.json", c.a);
        WriteFile("b.json", c.b);
        const Result result = RunWith({"diff", "a.json", "b.json"}, c.options);
        const std::string label = c.a + " / " + c.b + " " + testing::PrintToString(c.options);
        EXPECT_EQ(result.status, c.equal ? 0 : 1) << label << "\n" << result.err;
        if (!c.equal) {
            // Each as written; with its type when the types differ.
            const bool types =
                (c.a.find_first_of(".eE") == std::string::npos) != (c.b.find_first_of(".eE") == std::string::npos);
            const std::string a = types ? "integer " + c.a : c.a;
            const std::string b = types ? "double " + c.b : c.b;
            EXPECT_EQ(result.out, "(the whole document): " + a + " vs " + b + "\n") << label;
        }
    }
}

// diff and get read any JSON text, so their errors are the syntax's own, not
// a settings file's rules.
TEST_F(ToolTest, DiffAndGetNameSyntaxErrorsAsWhatTheyAre) {
    WriteFile("five.json", "5");
    const struct {
        std::string text;
        std::string err;  // after "tarsel: bad.json:"
    } cases[] = {
        {"5 x", "1:3: text after the end of the document"},
        {"[2e308, }", "1:9: not a valid JSON value"},
        {R"({"a":1 "b":2})", "1:8: missing a comma or '}' after an object member"},
        {"[1 2]", "1:4: missing a comma or ']' after an array element"},
        {R"({"a":"open)", "1:6: missing the closing quotation mark of a string"},
    };
    for (const auto& c : cases) {
        WriteFile("bad.json", c.text);
        for (const std::vector<std::string>& args : {std::vector<std::string>{"diff", "bad.json", "five.json"},
                                                     std::vector<std::string>{"get", "bad.json", "a"}}) {
            const Result result = Run(args);
            EXPECT_EQ(result.status, 3) << c.text << " " << args[0];
            EXPECT_EQ(result.err, "tarsel: bad.json:" + c.err + "\n") << c.text << " " << args[0];
        }
    }
}

// Comments and trailing commas are read in a file named *.jsonc, or in any
// file with --comments, by show, get and diff alike.
TEST_F(ToolTest, CommentsAreReadInAJsoncFileOrWhenAsked) {
    const std::string text = "{\n  // the width\n  \"w\": 1, /* pixels */\n  \"l\": [1, 2,],\n}\n";
    WriteFile("c.jsonc", text);
    WriteFile("c.json", text);
    WriteFile("plain.json", R"({"w":1,"l":[1,2]})");
    const std::string strictError = "tarsel: c.json:2:3: missing a member name in double quotes; comments and "
                                    "trailing commas are read with --comments, or in a file named *.jsonc\n";
    const struct {
        std::vector<std::string> args;
        std::string input;
        int status;
        std::string out;
        std::string err;
    } cases[] = {
        {{"show", "c.jsonc"}, "", 0, "settings: Array\n\tw: 1\n\tl: Array\n\t\t0: 1\n\t\t1: 2\n\n\n", ""},
        {{"show", "c.json", "--comments"}, "", 0, "settings: Array\n\tw: 1\n\tl: Array\n\t\t0: 1\n\t\t1: 2\n\n\n", ""},
        {{"get", "c.jsonc", "l/1"}, "", 0, "2\n", ""},
        {{"get", "-", "w", "--comments"}, text, 0, "1\n", ""},
        {{"diff", "c.jsonc", "plain.json"}, "", 0, "", ""},
        {{"diff", "c.json", "plain.json", "--comments"}, "", 0, "", ""},
        {{"diff", "c.jsonc", "plain.json", "--library"}, "", 0, "", ""},
        // Without either, a comment is the syntax error it is, and the
        // report says how to have it read.
        {{"show", "c.json"}, "", 3, "", strictError},
        {{"get", "c.json", "w"}, "", 3, "", strictError},
        {{"diff", "c.json", "plain.json"}, "", 3, "", strictError},
        {{"diff", "plain.json", "c.json", "--library"}, "", 3, "", strictError},
    };
    for (const auto& c : cases) {
        Launch launch;
        launch.input = c.input;
        const Result result = Run(c.args, launch);
        const std::string label = testing::PrintToString(c.args);
        EXPECT_EQ(result.status, c.status) << label << "\n" << result.err;
        EXPECT_EQ(result.out, c.out) << label;
        EXPECT_EQ(result.err, c.err) << label;
    }
    // A text that is wrong with comments too is not sent to --comments.
    WriteFile("wrong.json", "{\"a\" 1}");
    EXPECT_EQ(Run({"get", "wrong.json", "a"}).err, "tarsel: wrong.json:1:6: missing a colon after a member name\n");
}

TEST_F(ToolTest, VersionIsTheLibrarysVersion) {
    const Result result = Run({"--version"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, std::string("tarsel ") + TARSEL_VERSION_STRING + "\n");
    EXPECT_EQ(TARSEL_VERSION_STRING, std::to_string(TARSEL_VERSION_MAJOR) + "." + std::to_string(TARSEL_VERSION_MINOR) +
                                         "." + std::to_string(TARSEL_VERSION_PATCH));
}

TEST_F(ToolTest, ModuleLooksInTheLibraryFoldersThenWhereTheDynamicLinkerLooks) {
    // This module lies in none of the library folders.
    Launch withPath;
    withPath.extraEnvironment = {"LD_LIBRARY_PATH=" TARSEL_TOOL_MODULE_FOLDER};
    const Result found = Run({"module", "TarselToolTestModule", "TarselTestModuleTwiceAndOne"}, withPath);
    EXPECT_EQ(found.status, 0) << found.err;
    const std::string expected =
        "module libTarselToolTestModule" TARSEL_MODULE_SUFFIX "\nTarselTestModuleTwiceAndOne 0x";
    EXPECT_EQ(found.out.rfind(expected, 0), 0u) << found.out;

    const Result missingSymbol = Run({"module", "TarselToolTestModule", "nothing"}, withPath);
    EXPECT_EQ(missingSymbol.status, 1);
    EXPECT_EQ(missingSymbol.err, "tarsel: module TarselToolTestModule: does not export nothing\n");

    // Without the path it is nowhere: one line, the folders written out.
    const Result missing = Run({"module", "TarselToolTestModule"});
    EXPECT_EQ(missing.status, 3);
    EXPECT_EQ(std::count(missing.err.begin(), missing.err.end(), '\n'), 1) << missing.err;
    EXPECT_EQ(missing.err.find("$ORIGIN"), std::string::npos) << missing.err;
    const std::string libraryFolder = fs::path(TARSEL_LIBRARY_PATH).parent_path().string();
    EXPECT_NE(missing.err.find(": " + libraryFolder + "/libTarselToolTestModule"), std::string::npos) << missing.err;
}
