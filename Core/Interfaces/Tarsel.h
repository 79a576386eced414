/// @file
/// The umbrella header: every public header of Tarsel Core.
#pragma once

#include <Core/Interfaces/DataStream.h>
#include <Core/Interfaces/Digest.h>
#include <Core/Interfaces/DyLib.h>
#include <Core/Interfaces/Encoding.h>
#include <Core/Interfaces/Exceptions.h>
#include <Core/Interfaces/Export.h>
#include <Core/Interfaces/FileUtils.h>
#include <Core/Interfaces/JsonText.h>
#include <Core/Interfaces/Path.h>
#include <Core/Interfaces/PlatformHooks.h>
#include <Core/Interfaces/Property.h>
#include <Core/Interfaces/PropertySerializer.h>
#include <Core/Interfaces/PropertyTypes.h>
#include <Core/Interfaces/RefCount.h>
#include <Core/Interfaces/StackTrace.h>
#include <Core/Interfaces/Statistics.h>
#include <Core/Interfaces/Timing.h>
#include <Core/Interfaces/Version.h>

/// @namespace Tarsel
/// The foundation shared with the application: the exception root, the path
/// type ioPath, the Ratio and the value types, reference counting and locks.

/// @namespace Tarsel::Core
/// The library's classes and functions: the Property tree and its JSON
/// serializer, the exception tree, streams, text conversions, files, modules,
/// digests, statistics and timing.
