// Adaptive Volume is a stage of the host's playback; here it is its panel,
// which reads and writes the mode the host's level control keeps. Blocks pass
// through untouched and nothing is stored by the module.
#pragma once

#include <cstdint>
#include <memory>

#include "frame/PanelModel.h"
#include "frame/QVDSPBase.h"

class CAdaptiveVolumeDSPPlugin;

class CAdaptiveVolumeDlg : public QVPanelModel
{
public:
    struct Choice
    {
        const char16_t* value;  // kept as text, as the radio button holds it
        const char16_t* label;
        const char16_t* description;
    };
    static constexpr int32_t kChoiceCount = 3;
    static const Choice kChoices[kChoiceCount];

    explicit CAdaptiveVolumeDlg(CAdaptiveVolumeDSPPlugin* plugin);

    // Selects the radio of the mode the host holds; none when the host, its
    // player or its level control is missing, or the mode is not one of ours.
    void Open() override;
    // A click on radio `index` (0 to 2): the radio becomes the checked one and
    // its value goes to the host's level control, which is then told of the change.
    void Click(int32_t index);

    // The checked radio, or -1.
    int32_t GetSelected() const { return selected; }
    // The checked radio's value as a number; 0 when none is checked.
    int32_t GetSelectedValue() const;

    QVString GetHeading() const;
    QVString GetLabel(int32_t index) const;
    QVString GetDescription(int32_t index) const;

private:
    IQVDSPLevelControl* FindLevelControl() const;

    CAdaptiveVolumeDSPPlugin* plugin;
    int32_t selected = -1;
};

class CAdaptiveVolumeDSPPlugin : public QVDSPBase
{
public:
    CAdaptiveVolumeDSPPlugin(IQVDSPHost* host, int32_t zone);
    ~CAdaptiveVolumeDSPPlugin() override;

    int32_t Flush() override;
    int32_t SetFormat(const CAudioFormat& format) override;
    int64_t Command(int32_t kind, void* arg, uint64_t* out) override;
    int32_t ProcessBlock(double* samples, int32_t frames, IQVDSPSink* sink) override;
    QVString GetName() override;

    CAdaptiveVolumeDlg* GetPanel() const { return panel.get(); }

    CAudioFormat format;

private:
    std::unique_ptr<CAdaptiveVolumeDlg> panel;
};
