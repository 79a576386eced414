// The value types a Property node can hold, and the library's exact fraction.
#pragma once

#include <boost/rational.hpp>

namespace Tarsel {

// Stored as a 32-bit int; error information renders it as its decimal number.
enum PropertyTypes : int {
    TypeEmpty = 0,
    TypeBool = 1,
    TypeDouble = 2,
    TypeInt64 = 3,
    TypeString = 4,
    TypeRatio = 5,
    TypeArray = 6,
};

// An exact fraction such as a frame rate (30000/1001), always kept normalised.
using Ratio = boost::rational<long long>;

}  // namespace Tarsel
