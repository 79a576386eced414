/// @file
/// The value types a Property node can hold, and the library's exact fraction.
#pragma once

#include <Core/Interfaces/Export.h>

#include <boost/rational.hpp>

namespace Tarsel {

/// What a Property node holds. Stored as a 32-bit int; error information
/// renders it as its decimal number.
enum TARSEL_API PropertyTypes : int {
    TypeEmpty = 0,   ///< Nothing.
    TypeBool = 1,    ///< A bool.
    TypeDouble = 2,  ///< A double.
    TypeInt64 = 3,   ///< A 64-bit signed integer.
    TypeString = 4,  ///< A UTF-8 string.
    TypeRatio = 5,   ///< A Ratio.
    TypeArray = 6,   ///< Children: the node is a container.
};

/// An exact fraction such as a frame rate (30000/1001), always kept normalised.
using Ratio = boost::rational<long long>;

}  // namespace Tarsel
