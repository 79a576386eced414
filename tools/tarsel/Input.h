// What the commands read and where they write: files or standard input
// ("-"), JSON documents loaded into property trees, and a buffered standard
// output.
#pragma once

#include <Core/Interfaces/DataStream.h>
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

// The syntax to read file in: JSON with comments for a ".jsonc" file or
// when asked for, strict JSON otherwise.
Tarsel::Core::PropertySerializer::JsonSyntax SyntaxOf(const std::string& file, bool comments);

// Loads file ("-": standard input), the root unwrapped when wrap is set,
// which requires a root of exactly one member. Failures are reported
// against file, a JSON text's with the line and column where it fails (see
// RethrowAbout).
Document LoadDocument(const std::string& file, bool wrap);
// The same, file's text read from input, which was opened on it (by the
// replacement that will save it back, say).
Document LoadDocument(const std::string& file, boost::intrusive_ptr<Tarsel::Core::IDataInput> input, bool wrap);

// Standard output through one large buffer: the library's tree printer
// flushes after every line, which would otherwise cost a write per line.
// FinishOutput writes what is left; it throws ToolFailure when standard
// output could not take everything.
std::ostream& Out();
void FinishOutput();

// An IDataOutput over Out(), for the library's JSON writer.
boost::intrusive_ptr<Tarsel::Core::IDataOutput> OutputToOut();

}  // namespace TarselTool
