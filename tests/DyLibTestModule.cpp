// A module for the loader tests: one exported C function and nothing that
// would pin it in memory (no unique symbols), so that dlclose unloads it.
extern "C" int TarselTestModuleTwiceAndOne(int x) {
    return 2 * x + 1;
}
