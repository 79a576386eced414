// Streams that lie: an input whose GetSize disagrees with what its Read
// delivers (more, fewer, none, a size no buffer can hold) and whose Read
// reports any count at all, read through Deserialize and MD5Generate. The
// library must read exactly the reported size, take what Read wrote and
// zeros for the rest, ignore the count, and never touch memory past its
// buffer: the answer is the one an honest stream of those bytes gives.
#include "FuzzCheck.h"

#include <Core/Interfaces/DataStream.h>
#include <Core/Interfaces/Digest.h>
#include <Core/Interfaces/Property.h>
#include <Core/Interfaces/PropertySerializer.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <new>
#include <string>
#include <vector>

namespace {

using namespace Tarsel;
using namespace Tarsel::Core;

// Reports size from GetSize; Read writes at most the bytes it holds, never
// more than asked, and answers with count whatever it wrote.
class LyingInput : public RefCounted<IDataInput> {
public:
    LyingInput(std::size_t size, std::string bytes, std::size_t count)
        : m_size(size), m_bytes(std::move(bytes)), m_count(count) {}

    std::size_t GetSize() const override { return m_size; }

    std::size_t Read(void* data, std::size_t size) override {
        std::memcpy(data, m_bytes.data(), std::min(size, m_bytes.size()));
        return m_count;
    }

private:
    std::size_t m_size;
    std::string m_bytes;
    std::size_t m_count;
};

// What a truthful stream would have given: the first size bytes of what Read
// writes, zeros for those it does not.
std::string Honest(std::size_t size, const std::string& bytes) {
    std::string text = bytes.substr(0, std::min(size, bytes.size()));
    text.resize(size, '\0');
    return text;
}

// Reported sizes: near the real length, and past anything a buffer can hold.
std::size_t ReportedSize(std::uint8_t choice, std::size_t length) {
    switch (choice % 8) {
    case 0:
        return 0;
    case 1:
        return length;
    case 2:
        return length > 0 ? length - 1 : 0;
    case 3:
        return length + 1 + choice / 8;
    case 4:
        return choice / 8;
    case 5:
        return SIZE_MAX - choice / 8;
    case 6:
        return static_cast<std::size_t>(PTRDIFF_MAX) - choice / 8;
    default:
        // Beyond what the allocator grants, yet within the guard.
        return static_cast<std::size_t>(PTRDIFF_MAX) / 2;
    }
}

// How a Deserialize ended: the tree as text, or which exception.
std::string Load(const boost::intrusive_ptr<IDataInput>& input) {
    Property target("root");
    try {
        PropertySerializer::Deserialize(target, input, false);
    } catch (const std::bad_alloc&) {
        return "bad_alloc";
    } catch (const JsonException&) {
        return "JsonException";
    } catch (const std::exception&) {
        // Documented refusals of the content (an empty key, a zero
        // denominator): the honest stream must give the same.
        return "refused";
    }
    const auto out = MemoryDataOutput::Create();
    PropertySerializer::Serialize(target, out, false);
    return out->GetData();
}

std::string Digest(const boost::intrusive_ptr<IDataInput>& input, const std::string& marker) {
    try {
        const std::vector<unsigned char> digest = MD5Generate(input, marker);
        return std::string(digest.begin(), digest.end());
    } catch (const std::bad_alloc&) {
        return "bad_alloc";
    }
}

}  // namespace

// Byte 0 picks the reported size, byte 1 the count Read reports, byte 2 the
// length of the stop marker taken from the front of the rest; the rest is
// what Read writes.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 3) {
        return 0;
    }
    const std::string bytes(reinterpret_cast<const char*>(data + 3), size - 3);
    const std::size_t reported = ReportedSize(data[0], bytes.size());
    const std::size_t count = data[1] % 2 == 0 ? data[1] / 2 : SIZE_MAX - data[1] / 2;
    const std::string marker = bytes.substr(0, data[2] % 4);

    const auto lying = [&] { return boost::intrusive_ptr<IDataInput>(new LyingInput(reported, bytes, count)); };
    const bool bufferable = reported < (std::size_t{1} << 32);
    const std::string loaded = Load(lying());
    const std::string digest = Digest(lying(), marker);
    if (bufferable) {
        const std::string honest = Honest(reported, bytes);
        TARSEL_FUZZ_CHECK(loaded == Load(MemoryDataInput::Create(honest)));
        TARSEL_FUZZ_CHECK(digest == Digest(MemoryDataInput::Create(honest), marker));
    } else {
        TARSEL_FUZZ_CHECK(loaded == "bad_alloc" && digest == "bad_alloc");
    }
    return 0;
}
