// The clip settings of the documentation's serializer example, shared by the
// tests that save, load and copy a small tree of every value type.
#pragma once

#include <Core/Interfaces/Property.h>

namespace TarselTest {

// cfg: width 1920 (integer), fps 29.97 (double), title "clip" (string),
// frameRateRatio 30000/1001 (ratio).
inline Tarsel::Core::Property Clip() {
    Tarsel::Core::Property cfg("cfg");
    cfg.SetChildT<long long>("width", 1920);
    cfg.SetChildT<double>("fps", 29.97);
    cfg.SetChild("title", "clip");
    cfg.SetChild("frameRateRatio", Tarsel::Core::Property("", Tarsel::Ratio(30000, 1001)));
    return cfg;
}

}  // namespace TarselTest
