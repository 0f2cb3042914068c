// Volume Leveling is a stage of the host's playback; here it is only its
// panel, a page of text. Blocks pass through untouched.
#pragma once

#include <memory>

#include "frame/PanelModel.h"
#include "frame/QVDSPBase.h"

class CVolumeLevelingDSPPlugin;

class CVolumeLevelingDlg : public QVTextPanelModel {
 public:
  explicit CVolumeLevelingDlg(CVolumeLevelingDSPPlugin* plugin);
};

class CVolumeLevelingDSPPlugin : public QVDSPBase {
 public:
  CVolumeLevelingDSPPlugin(IQVDSPHost* host, int32_t zone);
  ~CVolumeLevelingDSPPlugin() override;

  int32_t Flush() override;
  int32_t SetFormat(const CAudioFormat& format) override;
  int64_t Command(int32_t kind, void* arg, uint64_t* out) override;
  int32_t ProcessBlock(double* samples, int32_t frames, IQVDSPSink* sink) override;
  QVString GetName() override;

  CVolumeLevelingDlg* GetPanel() const { return panel.get(); }

  CAudioFormat format;

 private:
  std::unique_ptr<CVolumeLevelingDlg> panel;
};

// The Command answers shared by the plug-ins that only hold a panel for a stage
// the host runs: 3 and 8 succeed, 5 gives the class constant 1.
int64_t HostStageCommand(int32_t kind);
