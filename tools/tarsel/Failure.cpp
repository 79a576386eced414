// This file maps every failure of the tool to its one-line report and exit
// status. Internal names (classes, functions, call stacks) never reach the
// line; --verbose prints them after it.
#include "Failure.h"

#include "Command.h"
#include "JsonDiagnosis.h"

#include <Core/Interfaces/Exceptions.h>

#include <boost/exception/diagnostic_information.hpp>
#include <boost/filesystem/exception.hpp>
#include <boost/rational.hpp>

#include <cctype>
#include <cerrno>
#include <cstring>
#include <exception>
#include <iostream>
#include <new>
#include <optional>
#include <utility>

namespace TarselTool {

using namespace Tarsel::Core;

ToolFailure::ToolFailure(int status, std::string subject, const std::string& reason)
    : std::runtime_error(reason), m_status(status), m_subject(std::move(subject)) {}

namespace {

// The file a failure concerns, and the failure itself.
struct AboutFile {
    std::string name;
    const char* doing;
    std::shared_ptr<const std::string> text;
    std::exception_ptr cause;
};

struct Report {
    std::string subject;
    std::string reason;
    int status;
};

std::string FirstLine(const std::string& text) {
    return text.substr(0, text.find('\n'));
}

}  // namespace

std::string SystemReason(int errorNumber) {
    switch (errorNumber) {
    case ENOENT:
        return "no such file or folder";
    case EACCES:
    case EPERM:
        return "permission denied";
    case EISDIR:
        return "is a folder, not a file";
    case ENOTDIR:
        return "a part of the path is not a folder";
    case ENAMETOOLONG:
        return "the name is too long for the file system";
    case EROFS:
        return "the file system is read-only";
    case ENOSPC:
        return "no space left on the disk";
    case EFBIG:
        return "the file would exceed the allowed size";
    default: {
        std::string text = std::strerror(errorNumber);
        if (!text.empty()) {
            text[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(text[0])));
        }
        return text;
    }
    }
}

namespace {

// A very long name (freename is given some) is shortened in the middle.
std::string Elided(const std::string& subject) {
    constexpr std::size_t kLimit = 160;
    if (subject.size() <= kLimit) {
        return subject;
    }
    return subject.substr(0, 100) + "..." + subject.substr(subject.size() - 40) + " (" +
           std::to_string(subject.size()) + " characters)";
}

// What loading a document refused, when cause is such a refusal.
std::optional<std::string> LoadFailureReason(const std::exception_ptr& cause) {
    try {
        std::rethrow_exception(cause);
    } catch (const JsonException&) {
        return "not valid JSON";
    } catch (const boost::bad_rational&) {
        return "a frameRateRatio has a zero denominator";
    } catch (const std::invalid_argument&) {
        return "an object member has an empty name, which a settings tree cannot hold";
    } catch (const IndexIsOutOfBound&) {
        return "nothing to unwrap: the document has no member";
    } catch (const PropertyException&) {
        return "the document does not fit a settings tree";
    } catch (...) {
        return std::nullopt;
    }
}

Report Classify(const std::exception_ptr& error);

Report ClassifyAbout(const AboutFile& about) {
    const std::exception_ptr& cause = about.cause;
    Report report = Classify(cause);
    // An inner subject is this file under another spelling ("/dev/stdin").
    report.subject = about.name;
    if (const auto reason = LoadFailureReason(cause)) {
        report.reason = *reason;
        report.status = kFailed;
        if (about.text) {
            if (const auto problem = DiagnoseJson(*about.text)) {
                report.subject += ":" + std::to_string(problem->line) + ":" + std::to_string(problem->column);
                report.reason = problem->reason;
            }
        }
    }
    if (*about.doing != '\0') {
        report.reason = std::string(about.doing) + ": " + report.reason;
    }
    return report;
}

Report Classify(const std::exception_ptr& error) {
    try {
        std::rethrow_exception(error);
    } catch (const ToolFailure& e) {
        return {e.Subject(), e.what(), e.Status()};
    } catch (const UsageError& e) {
        return {"", e.what(), kUsage};
    } catch (const AboutFile& e) {
        return ClassifyAbout(e);
    } catch (const boost::filesystem::filesystem_error& e) {
        return {e.path1().string(), SystemReason(e.code().value()), kFailed};
    } catch (const std::bad_alloc&) {
        return {"", "out of memory", kFailed};
    } catch (const std::exception& e) {
        return {"", FirstLine(e.what()), kFailed};
    } catch (...) {
        return {"", "an unexpected failure", kFailed};
    }
}

// The innermost exception: the one the library or the system raised.
std::exception_ptr Cause(const std::exception_ptr& error) {
    try {
        std::rethrow_exception(error);
    } catch (const AboutFile& e) {
        return e.cause;
    } catch (...) {
        return error;
    }
}

std::string DiagnosticInformation(const std::exception_ptr& error) {
    try {
        std::rethrow_exception(error);
    } catch (...) {
        return boost::current_exception_diagnostic_information();
    }
}

}  // namespace

void RethrowAbout(const std::string& name, const char* doing, std::shared_ptr<const std::string> text) {
    throw AboutFile{name, doing, std::move(text), std::current_exception()};
}

int ReportFailure(const std::string& command, bool verbose) {
    const std::exception_ptr error = std::current_exception();
    const Report report = Classify(error);
    std::cerr << (report.status == kUsage ? "tarsel " + command : std::string("tarsel")) << ": "
              << (report.subject.empty() ? "" : Elided(report.subject) + ": ") << report.reason << std::endl;
    if (verbose) {
        std::cerr << DiagnosticInformation(Cause(error)) << std::endl;
    }
    return report.status;
}

}  // namespace TarselTool
