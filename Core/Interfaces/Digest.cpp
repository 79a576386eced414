// This file implements MD5 digests over OpenSSL's libcrypto and random
// identifiers over boost's uuid generator.
#include <Core/Interfaces/Digest.h>

#include <Core/Interfaces/Exceptions.h>
#include <Core/Interfaces/PlatformMemory.h>

#include <boost/random/mersenne_twister.hpp>
#include <boost/uuid/random_generator.hpp>
#include <boost/uuid/uuid_io.hpp>

#include <openssl/evp.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <new>
#include <string_view>

namespace Tarsel::Core {

namespace {

constexpr const char* kMD5GenerateSignature =
    "std::vector<unsigned char> Tarsel::Core::MD5Generate(boost::intrusive_ptr<IDataInput>, const std::string &)";

struct FreeDeleter {
    void operator()(unsigned char* p) const noexcept { std::free(p); }
};
using ByteBuffer = std::unique_ptr<unsigned char[], FreeDeleter>;

// calloc rather than a vector: large blocks come from the system already
// zeroed and untouched, so the buffer is written once, by the source, and the
// large-page hint still reaches memory that has not been faulted in.
ByteBuffer AllocateZeroed(std::size_t size) {
    // Sizes no allocation can satisfy are refused before the allocator sees
    // them: some allocators (a sanitizer's among them) abort on such requests
    // instead of failing.
    if (size > static_cast<std::size_t>(PTRDIFF_MAX)) {
        throw std::bad_alloc();
    }
    ByteBuffer buffer(static_cast<unsigned char*>(std::calloc(size == 0 ? 1 : size, 1)));
    if (!buffer) {
        throw std::bad_alloc();
    }
    Platform::AdviseLargeBlock(buffer.get(), size);
    return buffer;
}

// The length of the prefix of bytes before the leftmost stopMarker.
std::size_t LengthBeforeMarker(std::string_view bytes, const std::string& stopMarker) {
    if (stopMarker.empty()) {
        return bytes.size();
    }
    const std::size_t found = bytes.find(stopMarker);
    return found == std::string_view::npos ? bytes.size() : found;
}

}  // namespace

std::vector<unsigned char> MD5Generate(boost::intrusive_ptr<IDataInput> input, const std::string& stopMarker) {
    if (!input) {
        ThrowWithCallStack(TARSEL_THROW_SITE(kMD5GenerateSignature), std::invalid_argument("input is null"));
    }
    const std::size_t size = input->GetSize();
    const ByteBuffer buffer = AllocateZeroed(size);
    input->Read(buffer.get(), size);
    const std::size_t length =
        LengthBeforeMarker(std::string_view(reinterpret_cast<const char*>(buffer.get()), size), stopMarker);

    std::vector<unsigned char> digest(EVP_MAX_MD_SIZE);
    unsigned int digestLength = 0;
    if (EVP_Digest(buffer.get(), length, digest.data(), &digestLength, EVP_md5(), nullptr) != 1) {
        ThrowWithCallStack(TARSEL_THROW_SITE(kMD5GenerateSignature), CoreException(),
                           TagDescription("MD5 digest is not available"));
    }
    digest.resize(digestLength);
    return digest;
}

std::string GenerateStringUuid() {
    boost::uuids::basic_random_generator<boost::random::mt19937> generator;
    return boost::uuids::to_string(generator());
}

}  // namespace Tarsel::Core
