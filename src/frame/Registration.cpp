#include "frame/Registration.h"

#include <memory>

#include "frame/IQVTools.h"
#include "frame/PluginFactory.h"
#include "frame/SiblingModules.h"

std::vector<DSPRegistration> CollectDSPRegistrations()
{
    std::vector<DSPRegistration> registrations;
    for (int32_t index = 0; index < DSPPLUGIN_COUNT; ++index)
    {
        bool unlisted = false;
        std::unique_ptr<IQVDSP> plugin(CreateDSPPlugin(index, nullptr, DSP_ZONE_GLOBAL, false));
        if (!plugin)
        {
            plugin.reset(CreateDSPPlugin(index, nullptr, DSP_ZONE_GLOBAL, true));
            unlisted = true;
        }
        if (!plugin)
            continue;
        char16_t name[DSPINFO_TEXT_CAPACITY] = {};
        plugin->GetInfo(DSPINFO_NAME, name);
        registrations.push_back({index, QVString(name), unlisted});
    }
    return registrations;
}

// The keys are written through the settings keys of the tools. The built-in
// tools open none until a settings store is wired in, so for now there is
// nowhere to register, and that is not an error.
extern "C" QVDSP_EXPORT int32_t DllRegisterServer()
{
    EnsureToolsReady(QVString(), false);
    return 0;
}
