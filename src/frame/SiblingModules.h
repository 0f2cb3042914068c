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

// The program's other modules and their entry points. Player, image and
// television modules answer an object whose first operation receives the
// loader's value; the reader module has a pair of functions each for start
// and end.
inline constexpr const char* QVPLAYER_MODULE_NAME = "libqvplayer.so";
inline constexpr const char* QVPLAYER_ENTRY_POINT = "GetQVPlayerDLL";
inline constexpr const char* QVIMAGE_MODULE_NAME = "libqvimage.so";
inline constexpr const char* QVIMAGE_ENTRY_POINT = "GetQVImageAppDLL";
inline constexpr const char* QVTELEVISION_MODULE_NAME = "libqvtelevision.so";
inline constexpr const char* QVTELEVISION_ENTRY_POINT = "GetQVTelevisionDLL";
inline constexpr const char* QVREADER_MODULE_NAME = "libqvreader.so";

// The object a player, image or television module answers from its entry point.
class IQVSiblingModule
{
public:
    virtual void Attach(void* loaderValue) = 0;  // operation 1

protected:
    ~IQVSiblingModule() = default;
};

// True when tools are ready. Without a tools module beside this one the
// module's own built-in tools are installed, and the answer is true. A tools
// module that is there but cannot be loaded, or whose product description
// does not load, is reported as the "Critical Error" line; then `fatal` ends
// the process with exit code 0, otherwise the answer is false.
bool EnsureToolsReady(const QVString& moduleName, bool fatal);

// Loads a module once and keeps it until UnloadSiblingModules, calling its
// entry points when it is one of the program's modules; an absolute name is
// loaded as it stands. Null when it cannot be found or loaded.
void* LoadSiblingModule(const std::string& name);
// Releases the held modules, the last loaded first, after calling the end
// functions of those that have them.
void UnloadSiblingModules();
// Where LoadSiblingModule would find `name`: the path of the first existing
// file, or empty.
std::string FindSiblingModule(const std::string& name);

// The message of a module that failed to load, filled in.
QVString FormatModuleLoadError(const QVString& moduleName, const QVString& error);

// Full path of the file this code was loaded from (the shared module, or the
// program that links the static library), and its folder with a trailing "/".
std::string GetModulePath();
std::string GetModuleFolder();
