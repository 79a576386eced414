// This file maps every failure of the tool to its one-line report and exit
// status. The library words its own exceptions (Tarsel::ErrorMessage); this
// adds what the tool knows: the file concerned, as the user named it, and
// what was being done. Internal names (classes, functions, call stacks)
// never reach the line; --verbose prints them after it.
#include "Failure.h"

#include "Command.h"

#include <Core/Interfaces/Exceptions.h>
#include <Core/Interfaces/PropertySerializer.h>

#include <boost/exception/diagnostic_information.hpp>
#include <boost/exception/get_error_info.hpp>
#include <boost/filesystem/exception.hpp>
#include <boost/rational.hpp>

#include <exception>
#include <iostream>
#include <new>
#include <optional>
#include <system_error>
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

}  // namespace

std::string SystemReason(int errorNumber) {
    return Tarsel::ErrorMessage(std::system_error(errorNumber, std::generic_category()));
}

namespace {

// A file error's code in the user's words, as the library words it: the
// system's error number, or a save's refusal (Tarsel::Core::SaveError).
std::string CodeReason(const boost::system::error_code& code) {
    return Tarsel::ErrorMessage(boost::filesystem::filesystem_error("", code));
}

bool StartsCharacter(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0) != 0x80;
}

// The characters (UTF-8 sequences; any byte that starts none counts as
// one) in text's bytes [begin, end).
std::size_t Characters(const std::string& text, std::size_t begin, std::size_t end) {
    std::size_t count = 0;
    for (std::size_t i = begin; i < end; ++i) {
        count += StartsCharacter(text[i]) ? 1 : 0;
    }
    return count;
}

// The byte where text's character number index (from 0) starts; the size
// when there are not that many.
std::size_t CharacterStart(const std::string& text, std::size_t index) {
    std::size_t seen = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (StartsCharacter(text[i]) && seen++ == index) {
            return i;
        }
    }
    return text.size();
}

// A very long name (freename is given some) is shortened in the middle,
// whole characters kept, and its length given in characters.
std::string Elided(const std::string& subject) {
    constexpr std::size_t kLimit = 160;
    constexpr std::size_t kHead = 100;
    constexpr std::size_t kTail = 40;
    const std::size_t characters = Characters(subject, 0, subject.size());
    if (characters <= kLimit) {
        return subject;
    }
    return subject.substr(0, CharacterStart(subject, kHead)) + "..." +
           subject.substr(CharacterStart(subject, characters - kTail)) + " (" + std::to_string(characters) +
           " characters)";
}

// Where the library located a failure to load a text, and why.
struct Located {
    std::size_t offset;
    std::size_t line;
    std::size_t column;  // in bytes
    std::string reason;
};

std::optional<Located> LocationOf(const boost::exception& e) {
    const auto* offset = boost::get_error_info<JsonException::TagParseOffset>(e);
    const auto* line = boost::get_error_info<JsonException::TagParseLine>(e);
    const auto* column = boost::get_error_info<JsonException::TagParseColumn>(e);
    const auto* reason = boost::get_error_info<JsonException::TagParseReason>(e);
    if (offset != nullptr && line != nullptr && column != nullptr && reason != nullptr) {
        return Located{*offset, *line, *column, *reason};
    }
    return std::nullopt;
}

std::optional<Located> LocationOf(const std::exception_ptr& cause) {
    try {
        std::rethrow_exception(cause);
    } catch (const boost::exception& e) {
        return LocationOf(e);
    } catch (...) {
    }
    return std::nullopt;
}

// The column of a located failure counted in characters (UTF-8 sequences),
// as an editor shows it; in bytes when the text was not kept.
std::size_t CharacterColumn(const std::shared_ptr<const std::string>& text, const Located& where) {
    const std::size_t lineStart = where.offset - (where.column - 1);
    if (!text || where.offset > text->size()) {
        return where.column;
    }
    return 1 + Characters(*text, lineStart, where.offset);
}

// What loading a document refused, in the user's words, when cause is a
// refusal the library does not word for a document.
std::optional<std::string> LoadFailureReason(const std::exception_ptr& cause) {
    try {
        std::rethrow_exception(cause);
    } catch (const JsonException&) {
        return "not valid JSON";
    } catch (const boost::bad_rational&) {
        return std::string("a ") + PropertySerializer::kRatioKey + " has a zero denominator";
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
        if (const auto where = LocationOf(cause)) {
            report.subject +=
                ":" + std::to_string(where->line) + ":" + std::to_string(CharacterColumn(about.text, *where));
            report.reason = where->reason;
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
        // The path becomes the subject, which the report may shorten.
        return {e.path1().string(), CodeReason(e.code()), kFailed};
    } catch (const std::exception& e) {
        return {"", Tarsel::ErrorMessage(e), kFailed};
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

std::string LoadRefusalReason(const std::exception& e) {
    if (const auto* records = dynamic_cast<const boost::exception*>(&e)) {
        if (const auto where = LocationOf(*records)) {
            return where->reason;
        }
    }
    return Tarsel::ErrorMessage(e);
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
