/// @file
/// MD5 digests of byte sources, and random identifiers as text.
#pragma once

#include <Core/Interfaces/DataStream.h>
#include <Core/Interfaces/Export.h>

#include <boost/intrusive_ptr.hpp>

#include <string>
#include <vector>

namespace Tarsel::Core {

/// The 16 raw MD5 bytes (not hex text) of input's content up to the first
/// occurrence of stopMarker, the marker excluded; an empty or absent marker
/// means the whole content. Asks input for its size once, then reads that many
/// bytes in one Read call from where the source stands, holding them all in
/// memory. We deliberately ignore what Read returns: after a short read the
/// missing tail counts as zero bytes (a source that reports 10 bytes and
/// delivers "abcd" is digested as "abcd" and six NULs).
/// Throws std::bad_alloc when the reported size cannot be buffered,
/// std::invalid_argument when input is null, CoreException (TagDescription)
/// when OpenSSL cannot compute MD5; what input's Read throws passes through.
TARSEL_API std::vector<unsigned char> MD5Generate(boost::intrusive_ptr<IDataInput> input,
                                                  const std::string& stopMarker);

/// A new random RFC 4122 version 4 identifier, lowercase 8-4-4-4-12 text such
/// as "0f8fad5b-d9cb-469f-a165-70867728950e". Each call seeds a fresh Mersenne
/// Twister from the system's entropy, so calls share no state and cost a
/// seeding each. Throws boost::uuids::entropy_error (a std::runtime_error) when
/// the entropy source cannot be read.
TARSEL_API std::string GenerateStringUuid();

}  // namespace Tarsel::Core
