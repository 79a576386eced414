// This file implements the exception tree's out-of-line parts, the call-stack
// helpers of the throw path, and the exported objects that pin each class's
// type identity in this library.
#include <Core/Interfaces/Exceptions.h>
#include <Core/Interfaces/StackTrace.h>

namespace Tarsel {

Exception::~Exception() noexcept = default;

namespace Core {

CoreException::~CoreException() noexcept = default;
IOException::~IOException() noexcept = default;

MemoryException::MemoryException(const std::string& description, int blockSize) {
    *this << TagDescription(description) << TagBlockSize(blockSize);
}
MemoryException::~MemoryException() noexcept = default;

PropertyException::~PropertyException() noexcept = default;
MethodIsNotApplicable::~MethodIsNotApplicable() noexcept = default;
WrongTypeIsRequested::~WrongTypeIsRequested() noexcept = default;
ChildNameIsNotFound::~ChildNameIsNotFound() noexcept = default;
IndexIsOutOfBound::~IndexIsOutOfBound() noexcept = default;
ComparedPropertiesHaveDifferentTypes::~ComparedPropertiesHaveDifferentTypes() noexcept = default;
JsonException::~JsonException() noexcept = default;

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

template const Core::PropertyException& AddStack(const Core::PropertyException&);
template const Core::MethodIsNotApplicable& AddStack(const Core::MethodIsNotApplicable&);
template const Core::WrongTypeIsRequested& AddStack(const Core::WrongTypeIsRequested&);
template const Core::ChildNameIsNotFound& AddStack(const Core::ChildNameIsNotFound&);
template const Core::IndexIsOutOfBound& AddStack(const Core::IndexIsOutOfBound&);
template const Core::ComparedPropertiesHaveDifferentTypes& AddStack(const Core::ComparedPropertiesHaveDifferentTypes&);
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
