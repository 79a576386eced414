// Private to the library, not installed: the function text that each throw
// site records (boost's throw_function), in clang's spelling, whatever the
// compiler. Clients match these texts, so renaming or re-declaring a
// function means changing its text here, and only here.
#pragma once

namespace Tarsel::Core::Signatures {

// Property's values.
inline constexpr char GetBool[] = "bool Tarsel::Core::Property::GetBool() const";
inline constexpr char GetDouble[] = "double Tarsel::Core::Property::GetDouble() const";
inline constexpr char GetInt64[] = "boost::int64_t Tarsel::Core::Property::GetInt64() const";
inline constexpr char GetString[] = "std::string Tarsel::Core::Property::GetString() const";
inline constexpr char GetRatio[] = "Ratio Tarsel::Core::Property::GetRatio() const";
inline constexpr char DifferentTypeError[] =
    "void Tarsel::Core::Property::DifferentTypeError(Tarsel::PropertyTypes) const";
inline constexpr char Equals[] = "bool Tarsel::Core::Property::operator==(const Tarsel::Core::Property &) const";

// Property's children. The child templates' texts name their value's type
// where T stands (Property::ChildTFunction).
inline constexpr char SetChild[] = "Tarsel::Core::Property &Tarsel::Core::Property::SetChild(const std::string &)";
inline constexpr char SetChildToValue[] =
    "Tarsel::Core::Property &Tarsel::Core::Property::SetChild(const std::string &, const Tarsel::Core::Property &)";
inline constexpr char SetChildT[] =
    "Tarsel::Core::Property &Tarsel::Core::Property::SetChildT(const std::string &, const T &)";
inline constexpr char CreateChildT[] =
    "Tarsel::Core::Property &Tarsel::Core::Property::CreateChildT(const std::string &, const T &)";
inline constexpr char Add[] = "Tarsel::Core::Property &Tarsel::Core::Property::Add(const Tarsel::Core::Property &)";
inline constexpr char AddWithName[] =
    "Tarsel::Core::Property &Tarsel::Core::Property::AddWithName(const std::string &, Tarsel::Core::Property)";
inline constexpr char RemoveChildByName[] = "void Tarsel::Core::Property::RemoveChild(const std::string &)";
inline constexpr char RemoveChildAt[] = "void Tarsel::Core::Property::RemoveChild(size_t)";
inline constexpr char GetItemIterator[] =
    "Property::ChildListType::iterator Tarsel::Core::Property::GetItemIterator(size_t)";
inline constexpr char GetItemIteratorConst[] =
    "Property::ChildListType::const_iterator Tarsel::Core::Property::GetItemIterator(size_t) const";
inline constexpr char Count[] = "size_t Tarsel::Core::Property::Count() const";
inline constexpr char RemoveAll[] = "void Tarsel::Core::Property::RemoveAll()";
inline constexpr char ChildExists[] = "bool Tarsel::Core::Property::ChildExists(const std::string &) const";
inline constexpr char ChildByName[] =
    "const Tarsel::Core::Property &Tarsel::Core::Property::operator[](const std::string &) const";
inline constexpr char ChildAt[] = "const Tarsel::Core::Property &Tarsel::Core::Property::operator[](size_t) const";
inline constexpr char Begin[] = "Property::iterator Tarsel::Core::Property::begin()";
inline constexpr char BeginConst[] = "Property::const_iterator Tarsel::Core::Property::begin() const";
inline constexpr char End[] = "Property::iterator Tarsel::Core::Property::end()";
inline constexpr char EndConst[] = "Property::const_iterator Tarsel::Core::Property::end() const";
inline constexpr char ReverseBegin[] = "Property::reverse_iterator Tarsel::Core::Property::rbegin()";
inline constexpr char ReverseBeginConst[] = "Property::const_reverse_iterator Tarsel::Core::Property::rbegin() const";
inline constexpr char ReverseEnd[] = "Property::reverse_iterator Tarsel::Core::Property::rend()";
inline constexpr char ReverseEndConst[] = "Property::const_reverse_iterator Tarsel::Core::Property::rend() const";

// Ratios and value text.
inline constexpr char RatioFromDoubleApprox[] = "Ratio Tarsel::Core::RatioFromDoubleApprox(double, long long)";
inline constexpr char PropertyValueToString[] =
    "std::string Tarsel::Core::PropertyValueToString(const Core::Property &)";

// The JSON serializer.
inline constexpr char JsonTarselStreamOut[] =
    "Tarsel::Core::JsonTarselStreamOut::JsonTarselStreamOut(boost::intrusive_ptr<IDataOutput>)";
inline constexpr char Serialize[] = "static void Tarsel::Core::PropertySerializer::Serialize(const Core::Property &, "
                                    "boost::intrusive_ptr<Tarsel::Core::IDataOutput>, bool)";
inline constexpr char SerializeWithDoubleText[] =
    "static void Tarsel::Core::PropertySerializer::Serialize(const Core::Property &, "
    "boost::intrusive_ptr<Tarsel::Core::IDataOutput>, bool, Tarsel::Core::PropertySerializer::DoubleText)";
inline constexpr char Deserialize[] = "static void Tarsel::Core::PropertySerializer::Deserialize(Core::Property &, "
                                      "boost::intrusive_ptr<Tarsel::Core::IDataInput>, bool)";
inline constexpr char DeserializeWithSyntax[] =
    "static void Tarsel::Core::PropertySerializer::Deserialize(Core::Property &, "
    "boost::intrusive_ptr<Tarsel::Core::IDataInput>, bool, Tarsel::Core::PropertySerializer::JsonSyntax)";
inline constexpr char UpdateText[] =
    "static std::string Tarsel::Core::PropertySerializer::UpdateText(const Core::Property &, const std::string &, "
    "bool, Tarsel::Core::PropertySerializer::DoubleText, Tarsel::Core::PropertySerializer::JsonSyntax)";
inline constexpr char UpdateFile[] =
    "static void Tarsel::Core::PropertySerializer::UpdateFile(const Core::Property &, const Tarsel::ioPath &, bool, "
    "Tarsel::Core::PropertySerializer::DoubleText, Tarsel::Core::PropertySerializer::JsonSyntax)";
inline constexpr char JsonTextConstructor[] =
    "Tarsel::Core::JsonText::JsonText(const std::string &, Tarsel::Core::PropertySerializer::JsonSyntax, "
    "Tarsel::Core::JsonText::Rules)";
inline constexpr char Load[] =
    "static void Tarsel::Core::PropertySerializer::Load(Core::Property &, const "
    "rapidjson::GenericValue<rapidjson::UTF8<char>, rapidjson::MemoryPoolAllocator<rapidjson::CrtAllocator>> &)";

// Digests and the module loader's folders.
inline constexpr char MD5Generate[] =
    "std::vector<unsigned char> Tarsel::Core::MD5Generate(boost::intrusive_ptr<IDataInput>, const std::string &)";
inline constexpr char GetLibraryPath[] = "Tarsel::ioPath Tarsel::Core::GetLibraryPath(Tarsel::Core::SysPaths)";

}  // namespace Tarsel::Core::Signatures
