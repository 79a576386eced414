// The version of Tarsel Core, for clients that check at compile time which
// release they build against. The build reads its project version from this
// file, so the two cannot disagree.
#pragma once

#define TARSEL_VERSION_MAJOR 0
#define TARSEL_VERSION_MINOR 1
#define TARSEL_VERSION_PATCH 0

#define TARSEL_VERSION_TEXT_(major, minor, patch) #major "." #minor "." #patch
#define TARSEL_VERSION_TEXT(major, minor, patch) TARSEL_VERSION_TEXT_(major, minor, patch)
// "major.minor.patch", e.g. "0.1.0".
#define TARSEL_VERSION_STRING TARSEL_VERSION_TEXT(TARSEL_VERSION_MAJOR, TARSEL_VERSION_MINOR, TARSEL_VERSION_PATCH)
