// The tarsel tool of this build started in a child process as a user starts
// it: its arguments, standard input, output and error, and exit status.
// Compiled into the tool tests only, whose target names the tool, its library
// and, in a build for another machine, the emulator (tests/CMakeLists.txt).
#pragma once

#include <boost/filesystem/path.hpp>

#include <mutex>
#include <string>
#include <vector>

#include <sys/resource.h>

namespace TarselTest {

// What a run of the tool did.
struct Result {
    int status;       // the exit status, or 128 + the signal that ended the tool
    std::string out;  // standard output
    std::string err;  // standard error, less the coverage runtime's own lines
};

// How the child runs, besides its arguments.
struct Launch {
    std::string input;  // standard input, always a pipe
    // As an ordinary user, so that file permissions apply: root ignores
    // them. Tests run as root drop to nobody (65534) before exec.
    bool unprivileged = false;
    // A file size limit in bytes, 0 for none: writes past it fail (EFBIG),
    // as on a full disk.
    rlim_t fileSizeLimit = 0;
    std::vector<std::string> extraEnvironment;
};

// Starts the tool in one folder, as many times as a test asks, from any
// number of threads at once.
class ToolProcess {
public:
    // Runs start in folder, so that reports name files as a test gives
    // them. aside is a folder of the test's own outside folder, made when
    // needed, for the copy of the tool that root's unprivileged runs start.
    ToolProcess(boost::filesystem::path folder, boost::filesystem::path aside);

    // Runs the tool with args and waits for it to end.
    Result Run(const std::vector<std::string>& args, Launch launch = {});

private:
    const boost::filesystem::path& Copy();

    const boost::filesystem::path m_folder;
    const boost::filesystem::path m_aside;
    std::once_flag m_copied;
    std::string m_sanitizerOptions;  // the variable the copy needs, if any
};

}  // namespace TarselTest
