// This file implements the module loader on top of the POSIX dynamic loader,
// which macOS and Linux share, and the library folders and module names on
// top of the platform's values in Platform.h. It must contain only generic
// POSIX code.
#include <Core/Interfaces/DyLib.h>

#include <Core/Interfaces/Exceptions.h>
#include <Core/Interfaces/internal/Platform.h>
#include <Core/Interfaces/internal/ThrowSignatures.h>

#include <boost/format.hpp>

#include <dlfcn.h>
#include <stdlib.h>

namespace Tarsel::Core {

namespace {

std::string LoaderFailure(const std::string& what, const ioPath& path, const std::string& loaderText) {
    return what + "'" + path.utf8string() + "', additional info: " + loaderText;
}

}  // namespace

// --- The platform's loader ------------------------------------------------

void* DyLib::InnerOpen(const ioPath& path) {
    // RTLD_NOW alone: every symbol is bound at load time, so a module with a
    // missing dependency fails here rather than at its first call; the
    // platform's default scope applies.
    return dlopen(path.utf8string().c_str(), RTLD_NOW);
}

bool DyLib::InnerClose(void* handle) {
    return dlclose(handle) == 0;
}

void* DyLib::InnerGetProc(void* handle, const std::string& name) {
    return dlsym(handle, name.c_str());
}

std::string DyLib::InnerGetErrorDescription() {
    const char* text = dlerror();
    return text != nullptr ? text : "";
}

// --- DyLib ----------------------------------------------------------------

DyLib::DyLib(const ioPath& path) {
    Open(path);
}

DyLib::~DyLib() {
    if (m_handle != nullptr) {
        Close();
    }
}

bool DyLib::Open(const ioPath& path) {
    if (m_handle != nullptr) {
        Close();
    }
    void* handle = InnerOpen(path);
    if (handle == nullptr) {
        m_lastError = LoaderFailure("Can't load module with name ", path, InnerGetErrorDescription());
        return false;
    }
    m_lastError.clear();
    m_path = path;
    m_handle = handle;
    return true;
}

void DyLib::Close() {
    // glibc's dlclose dereferences a null handle, so a closed object does not
    // reach the loader: there is nothing to unload, and nothing failed.
    const bool unloaded = m_handle == nullptr || InnerClose(m_handle);
    m_handle = nullptr;
    m_path.clear();
    m_lastError.clear();
    if (!unloaded) {
        // m_path is already empty here: the quoted name is always ''.
        m_lastError = LoaderFailure("Can't unload module with name ", m_path, InnerGetErrorDescription());
    }
}

void* DyLib::GetProc(const std::string& name) {
    if (m_handle == nullptr) {
        m_lastError = "Can't load function from empty module";
        return nullptr;
    }
    void* address = InnerGetProc(m_handle, name);
    if (address == nullptr) {
        m_lastError = LoaderFailure("Can't load API '" + name + "' from module ", m_path, InnerGetErrorDescription());
        return nullptr;
    }
    m_lastError.clear();
    return address;
}

void DyLib::Detach() {
    m_handle = nullptr;
    m_path.clear();
    m_lastError.clear();
}

bool DyLib::IsOpen() const {
    return m_handle != nullptr;
}

const std::string& DyLib::GetLastError() const {
    return m_lastError;
}

// --- Library folders, module names, environment ---------------------------

ioPath GetLibraryPath(SysPaths sysPath) {
    switch (sysPath) {
    case SysPathFrameworks:
        return Platform::kFrameworksFolder;
    case SysPathLocalLib:
        return Platform::kLocalLibFolder;
    }
    ThrowWithCallStack(TARSEL_THROW_SITE(Signatures::GetLibraryPath),
                       std::logic_error("undefined value of variable 'sysPath'"));
}

ioPath GetPlatformModuleName(const ioPath& name) {
    return (boost::format(Platform::kModuleNameFormat) % name.utf8string()).str();
}

int SetSysEnvironmentVariable(const std::string& name, const std::string& value) {
    return setenv(name.c_str(), value.c_str(), 1);
}

}  // namespace Tarsel::Core
