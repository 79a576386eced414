// What the commands read and where they write: files or standard input
// ("-"), JSON documents loaded into property trees, and a buffered standard
// output.
#pragma once

#include <Core/Interfaces/DataStream.h>
#include <Core/Interfaces/JsonText.h>
#include <Core/Interfaces/Property.h>
#include <Core/Interfaces/PropertySerializer.h>

#include <boost/intrusive_ptr.hpp>

#include <memory>
#include <ostream>
#include <string>

namespace TarselTool {

// How reports name file: "standard input" for "-", otherwise as given.
std::string DisplayName(const std::string& file);

// Opens file ("-": standard input) whole, whatever kind of file it is.
// Failures are reported against file (see RethrowAbout).
boost::intrusive_ptr<Tarsel::Core::IDataInput> OpenInput(const std::string& file);

// A JSON settings file loaded into a tree, its text, and its name in
// reports.
struct Document {
    std::string name;
    std::shared_ptr<const std::string> text;
    Tarsel::Core::Property tree{"settings"};
};

// The text of file ("-": standard input), which must be UTF-8 and hold no
// zero byte: a byte that is not UTF-8 is reported as FILE:LINE:COLUMN
// "invalid UTF-8", a zero byte as "a zero byte, which JSON text cannot
// hold", whatever the library would make of it (it reads a text up to its
// first zero byte). Failures are reported against file.
std::shared_ptr<std::string> ReadDocumentText(const std::string& file);
// The same, file's text read from input, which was opened on it.
std::shared_ptr<std::string> ReadDocumentText(const std::string& file,
                                              boost::intrusive_ptr<Tarsel::Core::IDataInput> input);

// Loads file ("-": standard input) in syntax, the root unwrapped when wrap
// is set, which requires a root of exactly one member. Failures are reported
// against file, a JSON text's with the line and column where it fails (see
// RethrowAbout).
Document LoadDocument(
    const std::string& file, bool wrap,
    Tarsel::Core::PropertySerializer::JsonSyntax syntax = Tarsel::Core::PropertySerializer::JsonSyntax::Strict);

// The syntax file is read in: with comments and trailing commas when asked
// (comments) or when its name ends in ".jsonc", as code editors name such
// files; strict JSON otherwise.
Tarsel::Core::PropertySerializer::JsonSyntax SyntaxOf(const std::string& file, bool comments);

// Call inside a catch block, for text that failed to parse as strict JSON
// under rules: when the failure is a parse error that reading comments and
// trailing commas gets past, adds to its reason how to have them read. The
// caller then rethrows.
void ExplainComments(const std::string& text, Tarsel::Core::JsonText::Rules rules);

// Standard output through one large buffer: the library's tree printer
// flushes after every line, which would otherwise cost a write per line.
// FinishOutput writes what is left; it throws ToolFailure when standard
// output could not take everything.
std::ostream& Out();
void FinishOutput();

// An IDataOutput over Out(), for the library's JSON writer.
boost::intrusive_ptr<Tarsel::Core::IDataOutput> OutputToOut();

}  // namespace TarselTool
