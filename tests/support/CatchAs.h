// What tests of throwing code share: the exception a call throws, caught as
// the type the test expects.
#pragma once

#include <gtest/gtest.h>

#include <stdexcept>

namespace TarselTest {

// Calls f and returns what it throws as an E; a failure of the test when it
// throws nothing (an exception of another type passes through).
template <class E, class F>
E CatchAs(F f) {
    try {
        f();
    } catch (const E& e) {
        return e;
    }
    ADD_FAILURE() << "nothing was thrown";
    throw std::logic_error("unreachable");
}

}  // namespace TarselTest
