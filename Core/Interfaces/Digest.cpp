// This file implements MD5 digests over OpenSSL's libcrypto and random
// identifiers over boost's uuid generator.
#include <Core/Interfaces/Digest.h>

#include <Core/Interfaces/Exceptions.h>
#include <Core/Interfaces/internal/RequireStream.h>
#include <Core/Interfaces/internal/ThrowSignatures.h>
#include <Core/Interfaces/internal/WholeInput.h>

#include <boost/random/mersenne_twister.hpp>
#include <boost/uuid/random_generator.hpp>
#include <boost/uuid/uuid_io.hpp>

#include <openssl/evp.h>

#include <cstdint>
#include <memory>
#include <string_view>

namespace Tarsel::Core {

namespace {

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
    const WholeInput whole =
        ReadWholeInput(RequireStream(input, "input", TARSEL_THROW_SITE(Signatures::MD5Generate)), 0);
    const std::size_t length = LengthBeforeMarker(std::string_view(whole.bytes.get(), whole.size), stopMarker);

    std::vector<unsigned char> digest(EVP_MAX_MD_SIZE);
    unsigned int digestLength = 0;
    if (EVP_Digest(whole.bytes.get(), length, digest.data(), &digestLength, EVP_md5(), nullptr) != 1) {
        ThrowWithCallStack(TARSEL_THROW_SITE(Signatures::MD5Generate), CoreException(),
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
