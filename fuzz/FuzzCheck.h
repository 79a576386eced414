// The one check of the fuzz targets: a broken promise prints the condition
// and aborts, and libFuzzer saves the input that broke it.
#pragma once

#include <cstdio>
#include <cstdlib>

[[noreturn]] inline void TarselFuzzFailure(const char* condition, const char* file, int line) {
    std::fprintf(stderr, "%s:%d: check failed: %s\n", file, line, condition);
    std::abort();
}

#define TARSEL_FUZZ_CHECK(condition) \
    ((condition) ? static_cast<void>(0) : TarselFuzzFailure(#condition, __FILE__, __LINE__))
