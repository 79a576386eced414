// This file starts the tool with fork and exec and collects what it does.
#include "support/ToolProcess.h"

#include <boost/filesystem/operations.hpp>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <mutex>
#include <string_view>
#include <thread>
#include <utility>

#include <fcntl.h>
#include <grp.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#if !defined(TARSEL_TOOL_PATH) || !defined(TARSEL_LIBRARY_PATH) || !defined(TARSEL_LIBRARY_SONAME)
#error "the target that compiles ToolProcess.cpp names the tool and its library (tests/CMakeLists.txt)"
#endif

extern char** environ;

namespace TarselTest {
namespace {

namespace fs = boost::filesystem;

std::vector<char*> Pointers(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    for (std::string& text : texts) {
        pointers.push_back(text.data());
    }
    pointers.push_back(nullptr);
    return pointers;
}

// In the child, between fork and exec: only async-signal-safe calls.
[[noreturn]] void BecomeTool(const char* tool, const Launch& launch, const int (&in)[2], const int (&out)[2],
                             const int (&err)[2], const char* folder, char** argv, char** envp) {
    dup2(in[0], 0);
    dup2(out[1], 1);
    dup2(err[1], 2);
    for (const int fd : {in[0], in[1], out[0], out[1], err[0], err[1]}) {
        close(fd);
    }
    if (chdir(folder) != 0) {
        _exit(126);
    }
    if (launch.unprivileged && geteuid() == 0) {
        const gid_t nobody = 65534;
        if (setgroups(0, nullptr) != 0 || setgid(nobody) != 0 || setuid(nobody) != 0) {
            _exit(126);
        }
    }
    if (launch.fileSizeLimit != 0) {
        rlimit limit{};
        limit.rlim_cur = limit.rlim_max = launch.fileSizeLimit;
        signal(SIGXFSZ, SIG_IGN);  // an ignored signal stays ignored across exec
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    execve(tool, argv, envp);
    _exit(127);
}

// Reads the child's standard output and error to their ends.
void Collect(int outFd, int errFd, Result* result) {
    pollfd fds[2] = {{outFd, POLLIN, 0}, {errFd, POLLIN, 0}};
    std::string* sinks[2] = {&result->out, &result->err};
    int open = 2;
    while (open > 0) {
        if (poll(fds, 2, -1) < 0) {
            ASSERT_EQ(errno, EINTR);
            continue;
        }
        for (int i = 0; i < 2; ++i) {
            if (fds[i].fd < 0 || fds[i].revents == 0) {
                continue;
            }
            char buffer[65536];
            const ssize_t count = read(fds[i].fd, buffer, sizeof buffer);
            if (count <= 0) {
                close(fds[i].fd);
                fds[i].fd = -1;
                --open;
            } else {
                sinks[i]->append(buffer, static_cast<std::size_t>(count));
            }
        }
    }
}

// In the coverage build every process writes a profile as it exits; a tool
// run as nobody or under a file size limit cannot, and the profile runtime
// says so on standard error. Those lines are the build's, not the tool's.
void DropProfileErrors(std::string* err) {
    static const std::string kPrefix = "LLVM Profile Error: ";
    std::string kept;
    std::size_t start = 0;
    while (start < err->size()) {
        std::size_t end = err->find('\n', start);
        end = end == std::string::npos ? err->size() : end + 1;
        if (err->compare(start, kPrefix.size(), kPrefix) != 0) {
            kept.append(*err, start, end - start);
        }
        start = end;
    }
    err->swap(kept);
}

// The command that starts a program of this build: nothing on the machine
// it was built for, the emulator elsewhere (TARSEL_TOOL_EMULATOR, its words
// "|"-separated, the program's path first).
std::vector<std::string> EmulatorCommand() {
    std::vector<std::string> words;
#ifdef TARSEL_TOOL_EMULATOR
    std::string_view text = TARSEL_TOOL_EMULATOR;
    for (std::size_t bar = text.find('|'); !text.empty(); bar = text.find('|')) {
        words.emplace_back(text.substr(0, bar));
        text.remove_prefix(bar == std::string_view::npos ? text.size() : bar + 1);
    }
#endif
    return words;
}

// Makes the run's three pipes, every end closed on exec, and forks. A child
// that another thread starts must not keep this run's pipes open: the tool
// here would wait for an end of input that never comes, while that child's
// own tool, holding this one's ends, waits in turn.
pid_t ForkWithPipes(int (&in)[2], int (&out)[2], int (&err)[2]) {
#ifdef TARSEL_HAVE_PIPE2
    // The ends are closed on exec from the moment they exist.
    for (int* ends : {in, out, err}) {
        EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
    }
    return fork();
#else
    // Without pipe2 (macOS), no other run may fork between making a pipe
    // and marking its ends.
    static std::mutex forking;
    const std::lock_guard<std::mutex> lock(forking);
    for (int* ends : {in, out, err}) {
        EXPECT_EQ(pipe(ends), 0);
        EXPECT_EQ(fcntl(ends[0], F_SETFD, FD_CLOEXEC), 0);
        EXPECT_EQ(fcntl(ends[1], F_SETFD, FD_CLOEXEC), 0);
    }
    return fork();
#endif
}

Result RunIn(const std::string& tool, const fs::path& folder, const std::vector<std::string>& args,
             const Launch& launch) {
    static const std::vector<std::string> emulator = EmulatorCommand();
    std::vector<std::string> argvTexts = emulator;
    argvTexts.push_back(emulator.empty() ? "tarsel" : tool);
    argvTexts.insert(argvTexts.end(), args.begin(), args.end());
    const std::string program = emulator.empty() ? tool : emulator[0];
    std::vector<std::string> envTexts(launch.extraEnvironment);
    for (char** variable = environ; *variable != nullptr; ++variable) {
        envTexts.emplace_back(*variable);
    }
    std::vector<char*> argv = Pointers(argvTexts);
    std::vector<char*> envp = Pointers(envTexts);
    const std::string folderText = folder.string();

    int in[2];
    int out[2];
    int err[2];
    const pid_t child = ForkWithPipes(in, out, err);
    if (child == 0) {
        BecomeTool(program.c_str(), launch, in, out, err, folderText.c_str(), argv.data(), envp.data());
    }
    close(in[0]);
    close(out[1]);
    close(err[1]);
    // The tool may not read all of its input (or any): a refused write must
    // not kill the test.
    signal(SIGPIPE, SIG_IGN);
    std::thread feeder([&] {
        for (std::size_t done = 0; done < launch.input.size();) {
            const ssize_t count = write(in[1], launch.input.data() + done, launch.input.size() - done);
            if (count <= 0) {
                break;
            }
            done += static_cast<std::size_t>(count);
        }
        close(in[1]);
    });
    Result result{-1, "", ""};
    Collect(out[0], err[0], &result);
    feeder.join();
    DropProfileErrors(&result.err);
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return result;
}

// A sanitizer build names its suppressions file in UBSAN_OPTIONS, and a
// runtime that cannot read it aborts the tool: that file travels with the
// copy. Returns the variable to give the copy, empty if none names one.
std::string CopySanitizerSuppressions(const fs::path& folder) {
    const char* options = std::getenv("UBSAN_OPTIONS");
    const std::string key = "suppressions=";
    const std::string text = options != nullptr ? options : "";
    const std::size_t start = text.find(key);
    if (start == std::string::npos) {
        return {};
    }
    const std::size_t pathStart = start + key.size();
    const std::size_t pathEnd = std::min(text.find(':', pathStart), text.size());
    const fs::path copy = folder / "ubsan.supp";
    fs::copy_file(text.substr(pathStart, pathEnd - pathStart), copy);
    return "UBSAN_OPTIONS=" + text.substr(0, pathStart) + copy.string() + text.substr(pathEnd);
}

}  // namespace

ToolProcess::ToolProcess(fs::path folder, fs::path aside) : m_folder(std::move(folder)), m_aside(std::move(aside)) {}

Result ToolProcess::Run(const std::vector<std::string>& args, Launch launch) {
    if (!launch.unprivileged || geteuid() != 0) {
        return RunIn(TARSEL_TOOL_PATH, m_folder, args, launch);
    }
    const fs::path& copy = Copy();
    launch.extraEnvironment.insert(launch.extraEnvironment.begin(), "LD_LIBRARY_PATH=" + copy.string());
    if (!m_sanitizerOptions.empty()) {
        launch.extraEnvironment.insert(launch.extraEnvironment.begin(), m_sanitizerOptions);
    }
    return RunIn((copy / "tarsel").string(), m_folder, args, launch);
}

// Root runs the tool as nobody, who may not reach the build tree (a clone
// under /root, say): such runs start a copy of the tool and its library.
const fs::path& ToolProcess::Copy() {
    std::call_once(m_copied, [this] {
        fs::create_directory(m_aside);
        fs::permissions(m_aside, fs::perms(0755));
        fs::copy_file(TARSEL_TOOL_PATH, m_aside / "tarsel");
        fs::copy_file(TARSEL_LIBRARY_PATH, m_aside / TARSEL_LIBRARY_SONAME);
        m_sanitizerOptions = CopySanitizerSuppressions(m_aside);
    });
    return m_aside;
}

}  // namespace TarselTest
