// The module's access to the program's other libraries, looked up beside this
// module (then in its subfolder "x64/"), and the check that the tools object is
// there before any plug-in is made.
#pragma once

#include <string>

#include "core/QVString.h"

// Interface version the tools module's entry point is called with.
inline constexpr int32_t QVTOOLS_INTERFACE_VERSION = 200048;
// File and entry point of the tools module.
inline constexpr const char* QVTOOLS_MODULE_NAME = "libqvtools.so";
inline constexpr const char* QVTOOLS_ENTRY_POINT = "GetQVToolsDLL";

// True when tools are available. When no tools module can be loaded the
// module's own built-in tools are installed, so that this answers true in a
// build without the host.
bool EnsureToolsReady(const QVString& moduleName, bool fatal);

// Loads a module once and keeps it until UnloadSiblingModules; an absolute
// name is loaded as it stands. Null when it cannot be found.
void* LoadSiblingModule(const std::string& name);
// Releases the held modules, the last loaded first.
void UnloadSiblingModules();

// Full path of the file this code was loaded from (the shared module, or the
// program that links the static library), and its folder with a trailing "/".
std::string GetModulePath();
std::string GetModuleFolder();
