// The places of the virtual operations are a contract with hosts and tools
// modules built apart from this one: a reordered or inserted operation would
// still compile everywhere and break at run time. These checks read the slot
// of each operation from its member pointer, as the Itanium C++ ABI lays it
// out (a virtual destructor takes two slots there).
#include <gtest/gtest.h>

#include "support/VirtualSlot.h"

#include <cstdint>
#include <cstring>

#include "frame/IQVTools.h"
#include "frame/QVDSPBase.h"
#include "qvdsp/IQVDSP.h"

TEST(InterfaceLayout, PluginOperationsKeepTheirPlaces)
{
    // Destructor in slots 0 and 1, then operations 2 to 7 of the table.
    EXPECT_EQ(qvtest::VirtualSlot(&IQVDSP::Process), 2);
    EXPECT_EQ(qvtest::VirtualSlot(&IQVDSP::Flush), 3);
    EXPECT_EQ(qvtest::VirtualSlot(&IQVDSP::SetFormat), 4);
    EXPECT_EQ(qvtest::VirtualSlot(&IQVDSP::GetInfo), 5);
    EXPECT_EQ(qvtest::VirtualSlot(&IQVDSP::SetOption), 6);
    EXPECT_EQ(qvtest::VirtualSlot(&IQVDSP::Command), 7);
    EXPECT_EQ(qvtest::VirtualSlot(&QVDSPBase::ProcessBlock), 8);
    EXPECT_EQ(qvtest::VirtualSlot(&QVDSPBase::GetName), 9);
}

TEST(InterfaceLayout, HostSideOperationsKeepTheirPlaces)
{
    EXPECT_EQ(qvtest::VirtualSlot(&IQVDSPSink::Output), 1);
    EXPECT_EQ(qvtest::VirtualSlot(&IQVDSPSink::GetTestLevel), 2);
    EXPECT_EQ(qvtest::VirtualSlot(&IQVDSPHost::NotifyChanged), 0);
    EXPECT_EQ(qvtest::VirtualSlot(&IQVDSPHost::NotifyTempoChanged), 2);
    EXPECT_EQ(qvtest::VirtualSlot(&IQVDSPHost::GetPlayer), 3);
    EXPECT_EQ(qvtest::VirtualSlot(&IQVDSPPlayer::GetLevelControl), 6);
    EXPECT_EQ(qvtest::VirtualSlot(&IQVDSPLevelControl::GetAdaptiveMode), 7);
    EXPECT_EQ(qvtest::VirtualSlot(&IQVDSPLevelControl::SetAdaptiveMode), 8);
    EXPECT_EQ(qvtest::VirtualSlot(&IStatusList::Add), 3);
}

TEST(InterfaceLayout, ToolsOperationsKeepTheirPlaces)
{
    EXPECT_EQ(qvtest::VirtualSlot(&IQVTools::Attach), 0);
    EXPECT_EQ(qvtest::VirtualSlot(&IQVTools::GetTranslator), 7);
    EXPECT_EQ(qvtest::VirtualSlot(&IQVTools::GetLogger), 10);
    EXPECT_EQ(qvtest::VirtualSlot(&IQVTools::GetScaler), 19);
    EXPECT_EQ(qvtest::VirtualSlot(&IQVTools::GetPluginKeyObject), 25);
    EXPECT_EQ(qvtest::VirtualSlot(&IQVTranslator::Translate), 1);
    EXPECT_EQ(qvtest::VirtualSlot(&IQVLogger::Log), 1);
}
