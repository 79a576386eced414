// This file implements the exception tree's out-of-line parts, which anchor
// each class's type identity in this library, the call-stack helpers of the
// throw path, and the exported objects.
#include <Core/Interfaces/Exceptions.h>
#include <Core/Interfaces/StackTrace.h>

namespace Tarsel {

Exception::~Exception() noexcept = default;

namespace Core {

#define TARSEL_DEFINE_DESTRUCTOR(Name, Derivation, Base, Members) Name::~Name() noexcept = default;
TARSEL_CORE_EXCEPTIONS(TARSEL_DEFINE_DESTRUCTOR)
#undef TARSEL_DEFINE_DESTRUCTOR

MemoryException::MemoryException(const std::string& description, int blockSize) {
    *this << TagDescription(description) << TagBlockSize(blockSize);
}

}  // namespace Core

// Out of line, like the capture: the frames skipped below must exist in every
// build type, or an optimised build would skip its caller instead.
BOOST_NOINLINE std::string GetCallStack() {
    Core::StackTrace trace;
    // Skip the frames of the capture itself and of this function.
    trace.SetOffSetBeginLine(2);
    return trace.ToString();
}

void SetCallStackEnabled(bool enabled) {
    Core::StackTrace::s_enabled = enabled;
}

#define TARSEL_INSTANTIATE_ADD_STACK(Name, Derivation, Base, Members) \
    template const Core::Name& AddStack(const Core::Name&);
TARSEL_PROPERTY_EXCEPTIONS(TARSEL_INSTANTIATE_ADD_STACK)
#undef TARSEL_INSTANTIATE_ADD_STACK
template const std::logic_error AddStack(const std::logic_error&);
template const std::invalid_argument AddStack(const std::invalid_argument&);

}  // namespace Tarsel

using namespace Tarsel::Core;

extern "C" {
CoreException exportDummyException;
IOException exportDummyException0;
MemoryException exportDummyException1("", 0);
PropertyException exportDummyException2;
MethodIsNotApplicable exportDummyException3;
WrongTypeIsRequested exportDummyException4;
IndexIsOutOfBound exportDummyException5;
ChildNameIsNotFound exportDummyException6;
ComparedPropertiesHaveDifferentTypes exportDummyException7;
}
