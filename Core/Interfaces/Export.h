/// @file
/// What the shared library exports. It is built with hidden symbols by
/// default (-fvisibility=hidden, -fvisibility-inlines-hidden), so that only
/// what a public header declares with TARSEL_API is part of its binary
/// interface: private code can change without an application or a plugin
/// noticing, and no client can bind to it by accident.
#pragma once

/// Exports a class, a function or a variable of the public headers. On a
/// class it exports the class's type identity (typeinfo), its virtual table
/// and every member that is not defined inline, so that a client catches,
/// casts and links to the one copy in this library. A client compiling the
/// same declarations sees no difference.
#define TARSEL_API __attribute__((visibility("default")))

/// Keeps one member of an exported class out of the binary interface: for
/// private members that only the library's own sources call.
#define TARSEL_HIDDEN __attribute__((visibility("hidden")))
