#include "frame/Registration.h"

#include <memory>

#include "frame/IQVTools.h"
#include "frame/PluginFactory.h"
#include "frame/SettingsKey.h"
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

namespace
{

std::unique_ptr<IQVSettingsKey> OpenSystemKey(IQVTools& tools, const QVString& path)
{
    return std::unique_ptr<IQVSettingsKey>(tools.GetPluginKeyObject(path, true));
}

void WritePluginKey(IQVTools& tools, const DSPRegistration& plugin, const QVString& modulePath)
{
    const QVString keyPath = QVString(DSP_REGISTRATION_KEY) + u"\\" + plugin.name;
    if (std::unique_ptr<IQVSettingsKey> key = OpenSystemKey(tools, keyPath))
    {
        key->WriteInt(u"IVersion", 1);
        key->WriteString(u"Company", DSP_REGISTRATION_COMPANY);
        key->WriteString(u"Path", modulePath.c_str());
        key->WriteInt(u"Index", plugin.index);
        key->WriteString(u"Version", DSP_REGISTRATION_VERSION);
        key->WriteString(u"URL", DSP_REGISTRATION_URL);
        key->WriteString(u"Copyright", DSP_REGISTRATION_COPYRIGHT);
        key->WriteString(u"Description",
                         QVString::Format(DSP_REGISTRATION_DESCRIPTION, plugin.name).c_str());
    }
    if (std::unique_ptr<IQVSettingsKey> system =
            OpenSystemKey(tools, QVString(DSP_REGISTRATION_SYSTEM_KEY)))
        system->WriteString(plugin.name.c_str(), u"installed");
}

}  // namespace

// Writes into the host's store, not the system's: each listed plug-in gets its
// key with what the host needs to find and show it. A key that cannot be
// opened is skipped; the answer stays 0.
extern "C" QVDSP_EXPORT int32_t DllRegisterServer()
{
    EnsureToolsReady(QVString(), false);
    IQVTools* tools = GetQVTools();
    if (tools == nullptr)
        return 0;
    // All keys at once: an installer stopped half way leaves the old registration whole.
    CSettingsTransaction transaction;
    if (std::unique_ptr<IQVSettingsKey> dsp = OpenSystemKey(*tools, QVString(DSP_REGISTRATION_KEY)))
        dsp->DeleteSubkey(DSP_REGISTRATION_RETIRED);

    const QVString modulePath = QVString::FromUTF8(GetModulePath());
    for (const DSPRegistration& plugin : CollectDSPRegistrations())
    {
        if (plugin.unlisted)
        {
            // An older version may have listed it; the host must not offer it.
            if (std::unique_ptr<IQVSettingsKey> dsp =
                    OpenSystemKey(*tools, QVString(DSP_REGISTRATION_KEY)))
                dsp->DeleteSubkey(plugin.name.c_str());
            continue;
        }
        WritePluginKey(*tools, plugin, modulePath);
    }
    return 0;
}
