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

inline constexpr const char16_t* DSP_REGISTRATION_VERSION = u"1.1.6";
inline constexpr const char16_t* DSP_REGISTRATION_COMPANY = u"Quovan";
