// This file implements the serializer's public entry points: the text and
// value writers are in PropertySerializerWriter.cpp, the reader in
// PropertySerializerReader.cpp. A failed parse is recorded as thrown here.
#include <Core/Interfaces/PropertySerializer.h>

#include <Core/Interfaces/internal/JsonTextStream.h>
#include <Core/Interfaces/internal/RequireStream.h>
#include <Core/Interfaces/internal/SerializerAccess.h>
#include <Core/Interfaces/internal/ThrowSignatures.h>
#include <Core/Interfaces/internal/WholeInput.h>

#include <utility>

namespace Tarsel::Core {

JsonTarselStreamOut::JsonTarselStreamOut(boost::intrusive_ptr<IDataOutput> output) : m_output(std::move(output)) {
    RequireStream(m_output, "output", TARSEL_THROW_SITE(Signatures::JsonTarselStreamOut));
}

namespace {

// Deserialize, whichever overload: site is the public function's.
void LoadFromInput(Property& property, boost::intrusive_ptr<IDataInput> input, bool wrapRoot,
                   PropertySerializer::JsonSyntax syntax, const ThrowSite& site) {
    // The text ends at the first zero byte; the reader may look a few
    // bytes past it.
    const WholeInput text = ReadWholeInput(RequireStream(input, "input", site), Json::kTextPadding);
    Json::LoadJsonText(property, text.bytes.get(), syntax, site);
    if (wrapRoot) {
        // The property becomes its first child, moved out rather than copied.
        Property& first = property[std::size_t{0}];
        Property detached{std::string()};
        detached.Swap(first);
        property.Swap(detached);
    }
}

}  // namespace

void PropertySerializer::Serialize(const Property& property, boost::intrusive_ptr<IDataOutput> output, bool wrapRoot) {
    Json::WriteJsonText(property, wrapRoot, DoubleText::SixDigits,
                        RequireStream(output, "output", TARSEL_THROW_SITE(Signatures::Serialize)));
}

void PropertySerializer::Serialize(const Property& property, boost::intrusive_ptr<IDataOutput> output, bool wrapRoot,
                                   DoubleText doubleText) {
    Json::WriteJsonText(property, wrapRoot, doubleText,
                        RequireStream(output, "output", TARSEL_THROW_SITE(Signatures::SerializeWithDoubleText)));
}

void PropertySerializer::SerializeToFile(const Property& property, const ioPath& path, bool wrapRoot) {
    SerializeToFile(property, path, wrapRoot, DoubleText::SixDigits);
}

void PropertySerializer::SerializeToFile(const Property& property, const ioPath& path, bool wrapRoot,
                                         DoubleText doubleText) {
    const auto output = AtomicFileDataOutput::Create(path);
    Json::WriteJsonText(property, wrapRoot, doubleText, *output);
    output->Commit();
}

void PropertySerializer::Save(const Property& property, JsonValue& value, JsonAllocator& allocator) {
    Json::SaveJsonValue(property, value, allocator);
}

void PropertySerializer::Deserialize(Property& property, boost::intrusive_ptr<IDataInput> input, bool wrapRoot) {
    LoadFromInput(property, std::move(input), wrapRoot, JsonSyntax::Strict, TARSEL_THROW_SITE(Signatures::Deserialize));
}

void PropertySerializer::Deserialize(Property& property, boost::intrusive_ptr<IDataInput> input, bool wrapRoot,
                                     JsonSyntax syntax) {
    LoadFromInput(property, std::move(input), wrapRoot, syntax, TARSEL_THROW_SITE(Signatures::DeserializeWithSyntax));
}

void PropertySerializer::Load(Property& property, const JsonValue& value) {
    Json::LoadJsonValue(property, value, TARSEL_THROW_SITE(Signatures::Load));
}

}  // namespace Tarsel::Core
