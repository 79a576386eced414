// Reads the bytes as the choices that make a hand-written settings text and
// an application's changes to the tree loaded from it, then saves the tree
// into the text with UpdateText and holds it to its promises
// (tests/support/EditedText.h): the text loads to what a plain exact save of
// the tree loads to, every value the changes did not touch keeps its bytes,
// and a tree left alone changes nothing. At exit it says how many cases it
// checked.
#include "FuzzCheck.h"
#include "support/EditedText.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

std::size_t g_checked = 0;

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    std::atexit([] { std::fprintf(stderr, "UpdateTextFuzz: %zu texts updated and checked\n", g_checked); });
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    TarselTest::Choices choices(data, size);
    const std::string failure = TarselTest::CheckUpdate(choices);
    if (!failure.empty()) {
        std::fprintf(stderr, "UpdateTextFuzz: %s", failure.c_str());
    }
    TARSEL_FUZZ_CHECK(failure.empty());
    ++g_checked;
    return 0;
}
