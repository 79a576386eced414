// This file implements reading inputs, loading documents and the buffered
// standard output of the tool.
#include "Input.h"

#include "Command.h"
#include "Failure.h"
#include "TextPlace.h"

#include <Core/Interfaces/PropertySerializer.h>

#include <boost/exception/get_error_info.hpp>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <new>
#include <streambuf>

namespace TarselTool {

using namespace Tarsel;
using namespace Tarsel::Core;

namespace {

// A byte source over a text that the caller keeps, read without a copy.
class TextInput : public RefCounted<IDataInput> {
public:
    explicit TextInput(std::shared_ptr<const std::string> text) : m_text(std::move(text)) {}

    std::size_t GetSize() const override { return m_text->size() - m_position; }
    std::size_t Read(void* data, std::size_t size) override {
        const std::size_t count = std::min(size, GetSize());
        std::memcpy(data, m_text->data() + m_position, count);
        m_position += count;
        return count;
    }

private:
    std::shared_ptr<const std::string> m_text;
    std::size_t m_position = 0;
};

class StdoutBuffer : public std::streambuf {
public:
    StdoutBuffer() { setp(m_buffer, m_buffer + sizeof m_buffer); }

    // Writes the buffered bytes; false, with the error kept, when standard
    // output refuses them.
    bool Drain() {
        const std::size_t count = static_cast<std::size_t>(pptr() - pbase());
        if (m_error == 0 && count > 0 && std::fwrite(pbase(), 1, count, stdout) != count) {
            m_error = errno != 0 ? errno : EIO;
        }
        setp(m_buffer, m_buffer + sizeof m_buffer);
        return m_error == 0;
    }

    int Error() const { return m_error; }

protected:
    int_type overflow(int_type c) override {
        if (!Drain()) {
            return traits_type::eof();
        }
        if (!traits_type::eq_int_type(c, traits_type::eof())) {
            *pptr() = traits_type::to_char_type(c);
            pbump(1);
        }
        return traits_type::not_eof(c);
    }

    // Deliberately nothing: a flush per printed line is what this buffer is
    // for. FinishOutput drains it.
    int sync() override { return 0; }

private:
    char m_buffer[1 << 16];
    int m_error = 0;
};

StdoutBuffer& Buffer() {
    static StdoutBuffer buffer;
    return buffer;
}

class OutOutput : public RefCounted<IDataOutput> {
public:
    std::size_t Write(const void* data, std::size_t size) override {
        Out().write(static_cast<const char*>(data), static_cast<std::streamsize>(size));
        return size;
    }
};

}  // namespace

std::string DisplayName(const std::string& file) {
    return file == "-" ? "standard input" : file;
}

boost::intrusive_ptr<IDataInput> OpenInput(const std::string& file) {
    try {
        return FileDataInput::Create(file == "-" ? "/dev/stdin" : file);
    } catch (...) {
        RethrowAbout(DisplayName(file), "");
    }
}

namespace {

std::shared_ptr<std::string> ReadText(IDataInput& input) {
    auto text = std::make_shared<std::string>(input.GetSize(), '\0');
    text->resize(input.Read(text->data(), text->size()));
    return text;
}

}  // namespace

namespace {

[[noreturn]] void ThrowAt(const std::string& file, const std::string& text, std::size_t offset, const char* why) {
    const TextPlace place = PlaceOf(text, offset);
    throw ToolFailure(kFailed,
                      DisplayName(file) + ":" + std::to_string(place.line) + ":" + std::to_string(place.column), why);
}

}  // namespace

std::shared_ptr<std::string> ReadDocumentText(const std::string& file) {
    return ReadDocumentText(file, OpenInput(file));
}

std::shared_ptr<std::string> ReadDocumentText(const std::string& file, boost::intrusive_ptr<IDataInput> input) {
    std::shared_ptr<std::string> text;
    try {
        text = ReadText(*input);
    } catch (...) {
        RethrowAbout(DisplayName(file), "");
    }
    const std::size_t invalid = FirstInvalidUtf8(*text);
    if (invalid != std::string::npos) {
        ThrowAt(file, *text, invalid, "invalid UTF-8");
    }
    const std::size_t zero = text->find('\0');
    if (zero != std::string::npos) {
        ThrowAt(file, *text, zero, "a zero byte, which JSON text cannot hold");
    }
    return text;
}

PropertySerializer::JsonSyntax SyntaxOf(const std::string& file, bool comments) {
    const bool jsonc = file.size() >= 6 && file.compare(file.size() - 6, 6, ".jsonc") == 0;
    return comments || jsonc ? PropertySerializer::JsonSyntax::WithComments : PropertySerializer::JsonSyntax::Strict;
}

Document LoadDocument(const std::string& file, bool wrap, PropertySerializer::JsonSyntax syntax) {
    Document document;
    document.name = DisplayName(file);
    document.text = ReadDocumentText(file);
    try {
        PropertySerializer::Deserialize(document.tree, new TextInput(document.text), false, syntax);
    } catch (...) {
        if (syntax == PropertySerializer::JsonSyntax::Strict) {
            ExplainComments(*document.text, JsonText::Rules::Settings);
        }
        RethrowAbout(document.name, "", document.text);
    }
    if (wrap) {
        const std::size_t members = document.tree.Count();
        if (members != 1) {
            throw ToolFailure(kFailed, document.name,
                              members == 0 ? std::string("nothing to unwrap: the document has no member")
                                           : "--wrap unwraps a document of one member, and this one has " +
                                                 std::to_string(members));
        }
        Property first(std::string{});
        first.Swap(document.tree[std::size_t{0}]);
        document.tree.Swap(first);
    }
    return document;
}

namespace {

// Where the failure e is located in its text, if it is.
const std::size_t* FailureOffset(const std::exception& e) {
    const auto* records = dynamic_cast<const boost::exception*>(&e);
    return records == nullptr ? nullptr : boost::get_error_info<JsonException::TagParseOffset>(*records);
}

// Whether text, read with comments and trailing commas under rules, gets
// past offset: it parses, or fails later than offset, or fails only on what
// the rules refuse once the whole text has parsed (an empty name, say).
bool CommentsGetPast(const std::string& text, JsonText::Rules rules, std::size_t offset) {
    try {
        const JsonText json(text, PropertySerializer::JsonSyntax::WithComments, rules);
        return true;
    } catch (const JsonException& e) {
        const std::size_t* failure = FailureOffset(e);
        return failure != nullptr && *failure > offset;
    } catch (const std::bad_alloc&) {
        return false;
    } catch (const std::exception&) {
        return true;
    }
}

}  // namespace

void ExplainComments(const std::string& text, JsonText::Rules rules) {
    try {
        throw;
    } catch (JsonException& e) {
        const std::size_t* offset = FailureOffset(e);
        const auto* reason = boost::get_error_info<JsonException::TagParseReason>(e);
        if (offset != nullptr && reason != nullptr && CommentsGetPast(text, rules, *offset)) {
            e << JsonException::TagParseReason(
                *reason + "; comments and trailing commas are read with --comments, or in a file named *.jsonc");
        }
    } catch (...) {
    }
}

std::ostream& Out() {
    static std::ostream out(&Buffer());
    return out;
}

void FinishOutput() {
    if (!Buffer().Drain() || std::fflush(stdout) != 0) {
        const int error = Buffer().Error() != 0 ? Buffer().Error() : errno;
        throw ToolFailure(kFailed, "standard output", SystemReason(error));
    }
}

boost::intrusive_ptr<IDataOutput> OutputToOut() {
    return new OutOutput;
}

}  // namespace TarselTool
