// Private to the library, not installed: the one refusal of a null stream,
// made by every function that takes one before it touches anything.
#pragma once

#include <Core/Interfaces/Exceptions.h>

#include <boost/intrusive_ptr.hpp>

#include <stdexcept>
#include <string>

namespace Tarsel::Core {

// *stream; for a null stream, throws std::invalid_argument "<argument> is
// null", the call stack appended, at site.
template <class Stream>
Stream& RequireStream(const boost::intrusive_ptr<Stream>& stream, const char* argument, const ThrowSite& site) {
    if (!stream) {
        ThrowWithCallStack(site, std::invalid_argument(std::string(argument) + " is null"));
    }
    return *stream;
}

}  // namespace Tarsel::Core
