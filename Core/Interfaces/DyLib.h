/// @file
/// Loading modules (shared libraries) and looking up their functions, the
/// folders where the application keeps its modules, the platform's module
/// file names, and the process environment a module may read when it loads.
#pragma once

#include <Core/Interfaces/Export.h>
#include <Core/Interfaces/Path.h>

#include <string>

namespace Tarsel::Core {

/// Owns one loaded module. Loader failures never throw: the operation reports
/// false or null and GetLastError() says why, in a text built from our fixed
/// message pieces and the loader's own words. Only std::bad_alloc, while such
/// a text is built, escapes.
///
/// Not thread-safe: one object is used by one thread at a time.
class TARSEL_API DyLib {
public:
    /// A closed object, holding no module.
    DyLib() = default;
    /// Opens path; a failure leaves the object closed with the error text set.
    explicit DyLib(const ioPath& path);
    /// Closes the module unless Detach gave it up.
    ~DyLib();

    DyLib(const DyLib&) = delete;
    DyLib& operator=(const DyLib&) = delete;

    /// Loads path with every symbol bound at once. An open module is closed
    /// first, so a failed reopen leaves the object closed, never holding the
    /// old module. Returns false on failure, with the error text
    /// "Can't load module with name '<path>', additional info: <loader text>".
    bool Open(const ioPath& path);

    /// Unloads the module; the object is closed afterwards in every case. If
    /// the loader refuses, the error text is "Can't unload module with name '',
    /// additional info: <loader text>": the name is always empty, because we
    /// forget the path before we report, and keep it that way on purpose.
    /// On a closed object nothing is unloaded and the error text is emptied.
    void Close();

    /// The address of the exported symbol name, or null with the error text
    /// "Can't load function from empty module" when nothing is open, or
    /// "Can't load API '<name>' from module '<path>', additional info:
    /// <loader text>" when the module does not export it.
    void* GetProc(const std::string& name);

    /// Gives the module up without unloading it: it stays loaded for the life
    /// of the process, so function pointers taken before stay callable. The
    /// object is closed afterwards.
    void Detach();

    /// True while the object holds a loaded module.
    bool IsOpen() const;

    /// The text of the last failure; empty after a successful Open or GetProc,
    /// and after Close or Detach when nothing failed.
    const std::string& GetLastError() const;

private:
    // The platform's loader, called directly; these hold no state.
    TARSEL_HIDDEN static void* InnerOpen(const ioPath& path);
    // True when the loader unloaded the module. handle must not be null.
    TARSEL_HIDDEN static bool InnerClose(void* handle);
    TARSEL_HIDDEN static void* InnerGetProc(void* handle, const std::string& name);
    // The loader's text for the failure of the call just made on this thread.
    TARSEL_HIDDEN static std::string InnerGetErrorDescription();

    void* m_handle = nullptr;
    ioPath m_path;
    std::string m_lastError;
};

/// The folders where the application looks for its modules. The underlying
/// type is fixed so that any int, SysPaths(2) say, is a value that
/// GetLibraryPath can refuse rather than undefined behaviour.
enum TARSEL_API SysPaths : int {
    /// The folder shipped with the application: the bundle's Frameworks
    /// folder on macOS, the folder that holds this library on Linux. Written
    /// in the dynamic loader's own notation ("@executable_path/../Frameworks/",
    /// "$ORIGIN/"), so it means something only to DyLib, not to file functions.
    SysPathFrameworks = 0,
    /// "/usr/local/lib/".
    SysPathLocalLib = 1,
};

/// The folder for sysPath, ending with "/" so that a module name can be
/// appended with +. Throws std::logic_error "undefined value of variable
/// 'sysPath'", followed by a line break and the call stack, for any other value.
TARSEL_API ioPath GetLibraryPath(SysPaths sysPath);

/// This platform's file name for the module name: "codec" gives "libcodec.so"
/// on Linux and "libcodec.dylib" on macOS. Prefix and suffix are added
/// unconditionally, so pass bare names: "libcodec" gives "liblibcodec.so" and
/// "dir/codec" gives "libdir/codec.so".
TARSEL_API ioPath GetPlatformModuleName(const ioPath& name);

/// Sets name to value in the process environment, replacing any value it had.
/// Returns the status of setenv: 0, or -1 (errno set) for an empty name or one
/// that contains "=". Throws nothing. Not synchronised: set variables before
/// starting threads that read the environment.
TARSEL_API int SetSysEnvironmentVariable(const std::string& name, const std::string& value);

}  // namespace Tarsel::Core
