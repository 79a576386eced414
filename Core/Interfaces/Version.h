/// @file
/// The version of Tarsel Core, for clients that check at compile time which
/// release they build against. The build reads its project version from this
/// file, so the two cannot disagree.
#pragma once

/// The major version, which is also the SONAME's (libTarselCore.so.0): it
/// rises with every change that breaks the binary interface.
#define TARSEL_VERSION_MAJOR 0
/// The minor version: it rises with compatible additions.
#define TARSEL_VERSION_MINOR 1
/// The patch version: fixes that change no interface.
#define TARSEL_VERSION_PATCH 0

/// The text "major.minor.patch" of three numbers, after macro expansion.
///@{
#define TARSEL_VERSION_TEXT_(major, minor, patch) #major "." #minor "." #patch
#define TARSEL_VERSION_TEXT(major, minor, patch) TARSEL_VERSION_TEXT_(major, minor, patch)
///@}
/// "major.minor.patch", e.g. "0.1.0".
#define TARSEL_VERSION_STRING TARSEL_VERSION_TEXT(TARSEL_VERSION_MAJOR, TARSEL_VERSION_MINOR, TARSEL_VERSION_PATCH)
