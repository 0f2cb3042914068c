// qvdsp register: does what a player's installer does with the module. It
// loads libqvdsp.so with dlopen, calls its DllRegisterServer, and lists what
// the registration wrote into the settings store: the module's own keys under
// "Plugins\DSP", its entries in "Plugins\System", and the keys it removed.
#include <CLI/CLI.hpp>

#include <dlfcn.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "cli/commands/Commands.h"
#include "frame/SettingsKey.h"
#include "host/SettingsFile.h"
#include "host/SettingsStore.h"
#include "qvdsp/IQVDSP.h"

namespace
{

namespace fs = std::filesystem;

constexpr const char* kModuleFile = "libqvdsp.so";

// Beside qvdsp first, as an installation lays them out; then the module of
// the build qvdsp came from; then the system's library search.
std::string FindModule(const std::string& given)
{
    if (!given.empty())
        return given;
    std::error_code error;
    const fs::path self = fs::read_symlink("/proc/self/exe", error);
    if (!error && fs::exists(self.parent_path() / kModuleFile, error))
        return (self.parent_path() / kModuleFile).string();
#ifdef QVDSP_BUILT_MODULE_PATH
    if (fs::exists(QVDSP_BUILT_MODULE_PATH, error))
        return QVDSP_BUILT_MODULE_PATH;
#endif
    return kModuleFile;
}

std::unique_ptr<IQVSettingsKey> SystemKey(const std::string& path)
{
    return std::unique_ptr<IQVSettingsKey>(OpenFileSettingsKey(QVString::FromUTF8(path), true));
}

std::set<std::string> PluginKeys()
{
    std::set<std::string> names;
    if (auto key = SystemKey("Plugins\\DSP"))
        for (const QVString& name : QVListSubkeyNames(*key))
            names.insert(name.ToUTF8());
    return names;
}

std::string ValueText(CFileSettingsKey& key, const QVString& name)
{
    const nlohmann::json value = key.ReadRawValue(name).value_or(nullptr);
    if (value.is_number_integer())
        return std::to_string(value.get<int64_t>());
    if (value.is_string())
        return "\"" + value.get<std::string>() + "\"";
    return value.dump();
}

void PrintKey(const std::string& path, const std::set<std::string>* onlyValues = nullptr)
{
    CFileSettingsKey key(CSettingsFile::DefaultPath(), path, true);
    std::printf("%s\n", path.c_str());
    for (const QVString& name : QVListValueNames(key))
        if (onlyValues == nullptr || onlyValues->count(name.ToUTF8()) != 0)
            std::printf("  %s = %s\n", name.ToUTF8().c_str(), ValueText(key, name).c_str());
}

std::string Canonical(const std::string& path)
{
    std::error_code error;
    const fs::path canonical = fs::canonical(path, error);
    return error ? path : canonical.string();
}

void Register(const std::string& givenModule)
{
    const std::string settings = CSettingsFile::DefaultPath();
    nlohmann::json document;
    std::string problem;
    if (!CSettingsFile(settings).Read(document, &problem))
        throw CliError(CLI_EXIT_FAILED,
                       "cannot use the settings file " + settings + ": " + problem);

    const std::string module = FindModule(givenModule);
    void* handle = dlopen(module.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr)
    {
        const char* reason = dlerror();
        throw CliError(CLI_EXIT_FAILED, "cannot load " + module + ": " +
                                            (reason != nullptr ? reason : "unknown reason"));
    }
    std::unique_ptr<void, int (*)(void*)> closer(handle, dlclose);
    auto registerServer =
        reinterpret_cast<DllRegisterServerFunction>(dlsym(handle, "DllRegisterServer"));
    if (registerServer == nullptr)
        throw CliError(CLI_EXIT_FAILED, module + " has no DllRegisterServer");

    const std::set<std::string> before = PluginKeys();
    const int32_t result = registerServer();
    if (result != 0)
        throw CliError(CLI_EXIT_FAILED,
                       "DllRegisterServer of " + module + " answered " + std::to_string(result));

    // The keys the module wrote name it as their path.
    Dl_info info{};
    const std::string modulePath =
        dladdr(reinterpret_cast<void*>(registerServer), &info) != 0 && info.dli_fname != nullptr
            ? Canonical(info.dli_fname)
            : Canonical(module);
    const std::set<std::string> after = PluginKeys();
    std::set<std::string> written;
    for (const std::string& name : after)
    {
        auto key = SystemKey("Plugins\\DSP\\" + name);
        if (key &&
            QVReadSettingsString(*key, QVString(u"Path"), QVString(), 0).ToUTF8() == modulePath)
            written.insert(name);
    }
    if (written.empty())
        throw CliError(CLI_EXIT_FAILED, "the registration of " + module + " wrote nothing into " +
                                            settings + " (set QVDSP_LOG=1 to see why)");

    std::printf("Registered %s in %s\n", modulePath.c_str(), settings.c_str());
    for (const std::string& name : written)
        PrintKey("Plugins\\DSP\\" + name);
    PrintKey("Plugins\\System", &written);
    for (const std::string& name : before)
        if (after.count(name) == 0)
            std::printf("removed Plugins\\DSP\\%s\n", name.c_str());
}

}  // namespace

void AddRegisterCommand(CLI::App& app, CliContext& context)
{
    auto module = std::make_shared<std::string>();
    CLI::App* command = app.add_subcommand(
        "register", "Load libqvdsp.so, call its DllRegisterServer and list the keys it wrote");
    command->add_option("--settings", context.settingsFile,
                        "Settings file (default: $QVDSP_SETTINGS, else "
                        "$XDG_CONFIG_HOME/quovan/dsp-settings.json)");
    command->add_option("--module", *module,
                        "The module to register (default: libqvdsp.so beside qvdsp, else the "
                        "one of this build, else the system's library search)");
    SetCommandAction(*command, context, [module] { Register(*module); });
}
