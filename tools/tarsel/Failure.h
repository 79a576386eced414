// How the tool reports a failure: one line on stderr that names what it
// concerns and says what is wrong in the user's words, and an exit status.
// Commands throw; the one mapping from exceptions to that line and status
// lives in Failure.cpp.
#pragma once

#include <memory>
#include <stdexcept>
#include <string>

namespace TarselTool {

// A failure the tool words itself: what it concerns (a file, a path inside
// one; may be empty), the reason, and the exit status it calls for.
class ToolFailure : public std::runtime_error {
public:
    ToolFailure(int status, std::string subject, const std::string& reason);

    int Status() const noexcept { return m_status; }
    const std::string& Subject() const noexcept { return m_subject; }

private:
    int m_status;
    std::string m_subject;
};

// Rethrows the exception in flight wrapped with the file it concerns, so
// that the report names the file: name as the user wrote it ("standard
// input" for "-"), doing what was being attempted ("cannot save"; empty
// while reading), and, for a JSON document, its text, so that a located
// failure to load it is reported by line and character. Call only inside a
// catch block.
[[noreturn]] void RethrowAbout(const std::string& name, const char* doing,
                               std::shared_ptr<const std::string> text = nullptr);

// Why the library refused to load a text, as a report words it: where it
// located the failure, its reason ("playback/frameRateRatio: the ratio 1/0
// has a zero denominator"); otherwise its message.
std::string LoadRefusalReason(const std::exception& e);

// The system's error number errorNumber in the user's words: "permission
// denied", "is a folder, not a file", "no space left on the disk".
std::string SystemReason(int errorNumber);

// Prints the exception in flight as one line, "tarsel: SUBJECT: REASON" (or
// "tarsel COMMAND: ..." for a usage error), followed with verbose by the
// exception's full diagnostic information and call stack, and returns the
// exit status it calls for. Call only inside a catch block.
int ReportFailure(const std::string& command, bool verbose);

}  // namespace TarselTool
