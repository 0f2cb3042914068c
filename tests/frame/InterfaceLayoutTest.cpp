// The places of the virtual operations are a contract with hosts and tools
// modules built apart from this one: a reordered or inserted operation would
// still compile everywhere and break at run time. These checks read the slot
// of each operation from its member pointer, as the Itanium C++ ABI lays it
// out (a virtual destructor takes two slots there).
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>

#include "frame/IQVTools.h"
#include "frame/QVDSPBase.h"
#include "qvdsp/IQVDSP.h"

namespace {

template <typename MemberPointer>
int64_t Slot(MemberPointer member) {
  // A pointer to a virtual member is 1 + the byte offset in the table,
  // followed by the this-adjustment.
  struct {
    uintptr_t pointer;
    ptrdiff_t adjustment;
  } raw;
  static_assert(sizeof(raw) == sizeof(member));
  std::memcpy(&raw, &member, sizeof(raw));
  return static_cast<int64_t>((raw.pointer - 1) / sizeof(void*));
}

}  // namespace

TEST(InterfaceLayout, PluginOperationsKeepTheirPlaces) {
  // Destructor in slots 0 and 1, then operations 2 to 7 of the table.
  EXPECT_EQ(Slot(&IQVDSP::Process), 2);
  EXPECT_EQ(Slot(&IQVDSP::Flush), 3);
  EXPECT_EQ(Slot(&IQVDSP::SetFormat), 4);
  EXPECT_EQ(Slot(&IQVDSP::GetInfo), 5);
  EXPECT_EQ(Slot(&IQVDSP::SetOption), 6);
  EXPECT_EQ(Slot(&IQVDSP::Command), 7);
  EXPECT_EQ(Slot(&QVDSPBase::ProcessBlock), 8);
  EXPECT_EQ(Slot(&QVDSPBase::GetName), 9);
}

TEST(InterfaceLayout, HostSideOperationsKeepTheirPlaces) {
  EXPECT_EQ(Slot(&IQVDSPSink::Output), 1);
  EXPECT_EQ(Slot(&IQVDSPSink::GetTestLevel), 2);
  EXPECT_EQ(Slot(&IQVDSPHost::NotifyChanged), 0);
  EXPECT_EQ(Slot(&IQVDSPHost::NotifyTempoChanged), 2);
  EXPECT_EQ(Slot(&IQVDSPHost::GetPlayer), 3);
  EXPECT_EQ(Slot(&IQVDSPPlayer::GetLevelControl), 6);
  EXPECT_EQ(Slot(&IQVDSPLevelControl::GetAdaptiveMode), 7);
  EXPECT_EQ(Slot(&IQVDSPLevelControl::SetAdaptiveMode), 8);
  EXPECT_EQ(Slot(&IStatusList::Add), 3);
}

TEST(InterfaceLayout, ToolsOperationsKeepTheirPlaces) {
  EXPECT_EQ(Slot(&IQVTools::Attach), 0);
  EXPECT_EQ(Slot(&IQVTools::GetTranslator), 7);
  EXPECT_EQ(Slot(&IQVTools::GetLogger), 10);
  EXPECT_EQ(Slot(&IQVTools::GetScaler), 19);
  EXPECT_EQ(Slot(&IQVTools::GetPluginKeyObject), 25);
  EXPECT_EQ(Slot(&IQVTranslator::Translate), 1);
  EXPECT_EQ(Slot(&IQVLogger::Log), 1);
}
