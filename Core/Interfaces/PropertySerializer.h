/// @file
/// JSON save and load of Property trees over the library's byte streams.
///
/// The text is compact UTF-8 JSON:
/// - a container is an object, one member per child, keyed by the child's
///   name up to its first zero character (arrays built with Add too: their
///   keys are "0", "1", ...). Children that share a key all write into the
///   first member with that key, the last one winning, and leave their own
///   members null;
/// - doubles are written as DoubleText says, SixDigits unless an exact save
///   is asked for;
/// - ratios are "n/d" strings, which read back as ratios only under the key
///   PropertySerializer::kRatioKey, "frameRateRatio";
/// - the root may be wrapped in a one-member object {name: value}.
/// Every number is read as the nearest double to its text.
///
/// Every function that takes a stream throws std::invalid_argument ("input is
/// null", "output is null", the call stack appended) for a null one, before
/// anything is touched.
#pragma once

#include <Core/Interfaces/DataStream.h>
#include <Core/Interfaces/Export.h>
#include <Core/Interfaces/Property.h>

#include <boost/intrusive_ptr.hpp>
#include <rapidjson/fwd.h>

#include <cstddef>
#include <string>

namespace Tarsel::Core {

/// The character stream a rapidjson::Writer writes into, over an IDataOutput:
/// for clients that write Save's values with rapidjson's own writer. It holds
/// a reference to the sink for its lifetime and holds back nothing: each
/// character reaches the sink at once, as one Write of one byte.
class TARSEL_API JsonTarselStreamOut {
public:
    /// The character type rapidjson's writer asks of its stream.
    using Ch = char;

    /// Throws std::invalid_argument ("output is null") for a null output.
    explicit JsonTarselStreamOut(boost::intrusive_ptr<IDataOutput> output);

    /// Writes c: Write with its address and the count 1, whose result is
    /// ignored. What Write throws passes through.
    void Put(char c) { m_output->Write(&c, 1); }
    /// Called by the writer when a document is complete: nothing is pending.
    void Flush() {}

private:
    boost::intrusive_ptr<IDataOutput> m_output;
};

/// Saves and loads Property trees as JSON. Stateless; concurrent calls on
/// different trees and streams are independent.
class TARSEL_API PropertySerializer {
public:
    /// The allocator of the values Save fills: a rapidjson::Document's.
    using JsonAllocator = rapidjson::MemoryPoolAllocator<rapidjson::CrtAllocator>;
    /// The JSON value Save fills and Load reads: a rapidjson::Value, or a
    /// rapidjson::Document.
    using JsonValue = rapidjson::GenericValue<rapidjson::UTF8<char>, JsonAllocator>;

    /// How doubles are written. Doubles that are not finite are written as
    /// null either way, since JSON has no text for them.
    enum class DoubleText {
        /// printf's "%#g": six significant digits, trailing zeros kept, always
        /// a point (1.0 gives 1.00000, 29.97 gives 29.9700, 1e-05 gives
        /// 1.00000e-05), except that a bare final point gets a zero
        /// (192000.0, not 192000.), which JSON requires. Loading the text
        /// gives back the double rounded to six digits: 1700000000.123 is
        /// saved as 1.70000e+09.
        SixDigits,
        /// The shortest text that reads back as the same double, always with
        /// a point or an exponent, so that it reads back as a double: 3.0,
        /// 0.1, 1700000000.123, 1e+300, -0.0, 5e-324. A tree saved so and
        /// loaded again has every double bit for bit.
        RoundTrip,
    };

    /// Writes property as JSON to output, wrapped in {name: value} when
    /// wrapRoot is set, doubles as DoubleText::SixDigits. The whole
    /// text is built before anything is written, so a failure writes
    /// nothing; then output receives it in one Write. A non-container
    /// property without wrapping is written as a bare value.
    static void Serialize(const Property& property, boost::intrusive_ptr<IDataOutput> output, bool wrapRoot);
    /// The same, doubles written as doubleText says.
    static void Serialize(const Property& property, boost::intrusive_ptr<IDataOutput> output, bool wrapRoot,
                          DoubleText doubleText);

    /// Saves property as Serialize does into the file at path, replacing it
    /// all at once through an AtomicFileDataOutput: on any failure the file
    /// is left as it was, byte for byte, and no temporary file stays behind.
    /// The new file keeps the old one's owner, group, mode, ACL and extended
    /// attributes. Throws boost::filesystem::filesystem_error, carrying the
    /// path and an error code, when the file cannot be written or replaced
    /// (a read-only folder, a full disk: the system's error number) or is
    /// refused (a FIFO, an owner that cannot be kept: a SaveError; see
    /// AtomicFileDataOutput), and std::bad_alloc when the text does not fit
    /// in memory.
    static void SerializeToFile(const Property& property, const ioPath& path, bool wrapRoot);
    /// The same, doubles written as doubleText says.
    static void SerializeToFile(const Property& property, const ioPath& path, bool wrapRoot, DoubleText doubleText);

    /// Which texts a load accepts.
    enum class JsonSyntax {
        /// JSON as it is defined (RFC 8259): what every function without a
        /// JsonSyntax argument reads.
        Strict,
        /// JSON with the comments and trailing commas of code editors'
        /// settings files: `//` to the end of its line and `/* */` wherever
        /// white space may stand, and a comma after the last member of an
        /// object or element of an array. A comment that is never closed is a
        /// parse error located at its `/*`.
        WithComments,
    };

    /// Saves property into text, a JSON text a person may have edited by
    /// hand, changing only what must change: the text returned loads (with
    /// wrapRoot and syntax) to exactly the tree that loading
    /// Serialize(property, wrapRoot, doubleText) gives, but that a double the
    /// text already held with exactly the property's value keeps its text,
    /// and so its exact value (with DoubleText::RoundTrip there is no
    /// difference at all).
    ///
    /// Where a value of the text already loads to what the property holds
    /// (doubles bit for bit, types, names and order), its bytes are kept:
    /// spacing, key order, escapes, number texts, an array (while the
    /// children are still "0", "1", ... in order, as an array loads), a null
    /// (while the child is an empty container), a ratio's text, repeated
    /// keys, comments. A changed scalar replaces only its value's bytes. A
    /// new child becomes a member appended at the end of its container (or
    /// before the member of the next child that was already there), laid out
    /// as its neighbours are, in a container of one member or none as the
    /// text's other containers are; a removed child's member goes with its
    /// separator and the comment on its line. A container whose children
    /// changed order, or an array that must become an object, is written
    /// anew in its own layout, comments between its members lost. New values
    /// are written as doubleText says. A text with nothing but white space
    /// (and comments) gets the plain save after what it holds.
    ///
    /// Throws JsonException, located as Deserialize locates it, for a text
    /// that does not parse in syntax; std::bad_alloc when memory runs out.
    static std::string UpdateText(const Property& property, const std::string& text, bool wrapRoot,
                                  DoubleText doubleText, JsonSyntax syntax);
    /// UpdateText for the file at path, replaced through an
    /// AtomicFileDataOutput as SerializeToFile replaces it, and read from the
    /// very file it replaces (AtomicFileDataOutput::ReadTarget). A file that
    /// does not exist is written as SerializeToFile writes it; one that does
    /// not parse is refused with the located JsonException and left
    /// untouched. Throws boost::filesystem::filesystem_error, with the path
    /// and an error code, when the file cannot be read or replaced (as
    /// SerializeToFile throws it), and with SaveError::TargetChanged or
    /// TargetReplaced when another program changed or replaced the file
    /// between the read and the replacement, which is then left as that
    /// program made it.
    static void UpdateFile(const Property& property, const ioPath& path, bool wrapRoot, DoubleText doubleText,
                           JsonSyntax syntax);

    /// Fills value from property with the structure of Serialize's text (see
    /// above), doubles held as they are; an Empty node leaves value untouched.
    static void Save(const Property& property, JsonValue& value, JsonAllocator& allocator);

    /// Reads the whole input (GetSize, then one Read) and loads the JSON text
    /// into property, merging it into the children property already has; with
    /// wrapRoot, property then becomes its first child. The text ends at the
    /// first zero byte. Each number becomes the nearest double to its text
    /// (full precision; RapidJSON's default reading lands up to 3 ulp off).
    ///
    /// Throws JsonException with TagParseError "Parse error", leaving property
    /// untouched, for any syntax error, a root that is not an object or an
    /// array, nesting deeper than 512 levels, or a number beyond the range of
    /// a double (2e308); it also carries where the text fails (TagParseOffset,
    /// TagParseLine, TagParseColumn: the first byte at which it cannot go on)
    /// and why (TagParseReason: "missing a comma or '}' after an object
    /// member"). A failure while loading (see Load) keeps what was loaded
    /// before it; from text, it carries the same four records, the reason
    /// naming the member ("playback/frameRateRatio: the ratio 1/0 has a zero
    /// denominator"). With wrapRoot, a document that loads no child throws
    /// IndexIsOutOfBound. A size that cannot be buffered throws
    /// std::bad_alloc; exceptions of the input pass through.
    static void Deserialize(Property& property, boost::intrusive_ptr<IDataInput> input, bool wrapRoot);
    /// The same, reading the text as syntax says.
    static void Deserialize(Property& property, boost::intrusive_ptr<IDataInput> input, bool wrapRoot,
                            JsonSyntax syntax);

    /// Loads value into property. Each object member becomes the child
    /// SetChild(name) gives (the first child of that name, reset, or a new
    /// one), each array element the child named by the current count; scalars
    /// are assigned; null, an empty object or array, and integers the DOM
    /// holds as unsigned, beyond the signed 64-bit range (2^63 to 2^64 - 1),
    /// assign nothing; a string under the name
    /// kRatioKey becomes a ratio when it reads as one.
    ///
    /// Every double is assigned as it is, infinities and NaN too (which no
    /// JSON text can hold, see Deserialize), nested or bare.
    ///
    /// Throws MethodIsNotApplicable when members or elements meet a property
    /// that is not a container, std::invalid_argument ("name is empty") for an
    /// empty key, boost::bad_rational for a kRatioKey of "n/0"; what was
    /// loaded before the failure stays. A value nested deeper than 512 levels
    /// throws JsonException "Parse error" (TagParseReason "nesting deeper than
    /// 512 levels") and loads nothing.
    static void Load(Property& property, const JsonValue& value);

    /// The one key under which a string loads as a ratio.
    static constexpr char kRatioKey[] = "frameRateRatio";

    /// The deepest nesting of objects and arrays that is accepted.
    static constexpr unsigned kMaxDepth = 512;
};

}  // namespace Tarsel::Core
