// The places of the virtual operations of every interface shared with hosts
// and tools modules built apart from this one (see support/VirtualSlot.h).
#include <gtest/gtest.h>

#include "support/VirtualSlot.h"

#include <cstdint>
#include <cstring>

#include "frame/IQVTools.h"
#include "frame/QVDSPBase.h"
#include "frame/SettingsKey.h"
#include "qvdsp/IQVDSP.h"

TEST(InterfaceLayout, OperationsKeepTheirPlaces)
{
    // Plug-ins: destructor in slots 0 and 1, then operations 2 to 7 of the table.
    EXPECT_EQ(qvtest::VirtualSlot(&IQVDSP::Process), 2);
    EXPECT_EQ(qvtest::VirtualSlot(&IQVDSP::Flush), 3);
    EXPECT_EQ(qvtest::VirtualSlot(&IQVDSP::SetFormat), 4);
    EXPECT_EQ(qvtest::VirtualSlot(&IQVDSP::GetInfo), 5);
    EXPECT_EQ(qvtest::VirtualSlot(&IQVDSP::SetOption), 6);
    EXPECT_EQ(qvtest::VirtualSlot(&IQVDSP::Command), 7);
    EXPECT_EQ(qvtest::VirtualSlot(&QVDSPBase::ProcessBlock), 8);
    EXPECT_EQ(qvtest::VirtualSlot(&QVDSPBase::GetName), 9);
    // The host's side.
    EXPECT_EQ(qvtest::VirtualSlot(&IQVDSPSink::Output), 1);
    EXPECT_EQ(qvtest::VirtualSlot(&IQVDSPSink::GetTestLevel), 2);
    EXPECT_EQ(qvtest::VirtualSlot(&IQVDSPHost::NotifyChanged), 0);
    EXPECT_EQ(qvtest::VirtualSlot(&IQVDSPHost::NotifyTempoChanged), 2);
    EXPECT_EQ(qvtest::VirtualSlot(&IQVDSPHost::GetPlayer), 3);
    EXPECT_EQ(qvtest::VirtualSlot(&IQVDSPPlayer::GetLevelControl), 6);
    EXPECT_EQ(qvtest::VirtualSlot(&IQVDSPLevelControl::GetAdaptiveMode), 7);
    EXPECT_EQ(qvtest::VirtualSlot(&IQVDSPLevelControl::SetAdaptiveMode), 8);
    EXPECT_EQ(qvtest::VirtualSlot(&IStatusList::Add), 3);
    // Tools and settings keys.
    EXPECT_EQ(qvtest::VirtualSlot(&IQVTools::Attach), 0);
    EXPECT_EQ(qvtest::VirtualSlot(&IQVTools::GetTranslator), 7);
    EXPECT_EQ(qvtest::VirtualSlot(&IQVTools::GetLogger), 10);
    EXPECT_EQ(qvtest::VirtualSlot(&IQVTools::GetScaler), 19);
    EXPECT_EQ(qvtest::VirtualSlot(&IQVTools::GetPluginKeyObject), 25);
    EXPECT_EQ(qvtest::VirtualSlot(&IQVTranslator::Translate), 1);
    EXPECT_EQ(qvtest::VirtualSlot(&IQVLogger::Log), 1);
    EXPECT_EQ(qvtest::VirtualSlot(&IQVSettingsKey::ReadBinary), 2);
    EXPECT_EQ(qvtest::VirtualSlot(&IQVSettingsKey::ReadInt), 3);
    EXPECT_EQ(qvtest::VirtualSlot(&IQVSettingsKey::ReadString), 4);
    EXPECT_EQ(qvtest::VirtualSlot(&IQVSettingsKey::WriteBinary), 5);
    EXPECT_EQ(qvtest::VirtualSlot(&IQVSettingsKey::WriteInt), 6);
    EXPECT_EQ(qvtest::VirtualSlot(&IQVSettingsKey::WriteString), 7);
    EXPECT_EQ(qvtest::VirtualSlot(&IQVSettingsKey::DeleteValue), 10);
    EXPECT_EQ(qvtest::VirtualSlot(&IQVSettingsKey::DeleteAllValues), 11);
    EXPECT_EQ(qvtest::VirtualSlot(&IQVSettingsKey::DeleteSubkey), 12);
    EXPECT_EQ(qvtest::VirtualSlot(&IQVSettingsKey::EnumValueName), 13);
    EXPECT_EQ(qvtest::VirtualSlot(&IQVSettingsKey::GetZoneValueName), 16);
    EXPECT_EQ(qvtest::VirtualSlot(&IQVSettingsKey::EnumSubkeyName), 17);
    EXPECT_EQ(qvtest::VirtualSlot(&IQVSettingsKey::GetValueType), 18);
}
