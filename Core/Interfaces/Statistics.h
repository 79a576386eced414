/// @file
/// Statistics records in which media components report their working time and
/// the amount of data they processed, and the names of computing resources.
#pragma once

#include <Core/Interfaces/Export.h>
#include <Core/Interfaces/Property.h>

#include <string>

namespace Tarsel::Core {

/// The names of the computing resources a component may run on, for clients
/// that label their work; the library itself does not use them.
class TARSEL_API IComputingResource {
public:
    static const std::string CPU;   ///< "CPU"
    static const std::string CUDA;  ///< "CUDA"
    static const std::string IM;    ///< "IM"
};

/// The keys of a statistics record.
class TARSEL_API PerformanceTimer {
public:
    static const std::string CLASS_NAME;  ///< "Class name"
    static const std::string INFO;        ///< "Info"
    static const std::string TIME;        ///< "Working time"
    static const std::string COUNT;       ///< "Processed data count"
    /// Offered to clients; no function here writes it.
    static const std::string IMPL_NAME;  ///< "Impl ID"
};

/// Everything before the last "::" of a qualified name:
/// "Tarsel::Core::Decoder::Process" gives "Tarsel::Core::Decoder". A name
/// without a colon, or whose only colon is its first character, is returned
/// whole. We cut one character before the last colon whatever precedes it, so
/// a single colon cuts too: "A:B" gives "". Never throws but std::bad_alloc.
TARSEL_API std::string ExtractClassName(const std::string& name);

/// A new empty container with the empty name. These builders add no checks of
/// their own; of the Property operations they call only std::bad_alloc can
/// escape.
TARSEL_API Property GetRootItem();

/// The record of a component that collects no statistics: a root holding one
/// item (named "0") with "Class name" ExtractClassName(name) and "Info"
/// "Statistic collection not implemented".
TARSEL_API Property GetNoImplItem(const std::string& name);

/// The flat record of a component that measured itself, children in order:
/// "Class name" ExtractClassName(name); "Working time" time / 1e6 (seconds,
/// for time in microseconds); "Processed data count" count as long long;
/// "ms per frame" time / (count * 1000.0). The last division is deliberately
/// unguarded: a count of 0 stores +infinity, or NaN when time is 0 too.
TARSEL_API Property MakeStatistics(const std::string& name, long long time, unsigned long count);

}  // namespace Tarsel::Core
