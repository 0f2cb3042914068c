// What DllRegisterServer writes for each plug-in of the index table.
#pragma once

#include <cstdint>
#include <vector>

#include "core/QVString.h"

struct DSPRegistration
{
    int32_t index;
    QVString name;  // the display name, which names the plug-in's key
    bool unlisted;  // made only through the unlisted road: its old key is removed
};

// Walks the index table as the registration does: each index is made with
// host null and zone global, first listed, then unlisted; indices that give
// nothing are left out.
std::vector<DSPRegistration> CollectDSPRegistrations();

// The values written beside each plug-in's name.
inline constexpr const char16_t* DSP_REGISTRATION_VERSION = u"1.1.6";
inline constexpr const char16_t* DSP_REGISTRATION_COMPANY = u"Quovan";
// A placeholder address under a reserved name until the project has a site of its own.
inline constexpr const char16_t* DSP_REGISTRATION_URL = u"https://quovan.example/dsp";
inline constexpr const char16_t* DSP_REGISTRATION_COPYRIGHT =
    u"Copyright (C) Quovan DSP developers, GPL-3.0-or-later";
inline constexpr const char16_t* DSP_REGISTRATION_DESCRIPTION =
    u"%s (part of Quovan main DSP plug-ins)";

// Keys of the registration, opened with systemScope.
inline constexpr const char16_t* DSP_REGISTRATION_KEY = u"Plugins\\DSP";
inline constexpr const char16_t* DSP_REGISTRATION_SYSTEM_KEY = u"Plugins\\System";
// A plug-in of earlier versions whose key registration removes.
inline constexpr const char16_t* DSP_REGISTRATION_RETIRED = u"Speakers";
