// The Output Format panel as a model: which channel counts, encodings and
// mixing options go together. Refresh shows the record in the controls; a
// change of any control runs Apply, which reloads the record, takes every
// control into it, saves the output format section and refreshes.
#pragma once

#include <cstdint>
#include <vector>

#include "core/QVString.h"
#include "frame/PanelModel.h"
#include "output/PlayerCoreSettings.h"

class COutputFormatDSPPlugin;

// A drop-down list: entries with their values, the selection, and whether the
// user may change it.
struct COutputFormatChoice
{
    struct Entry
    {
        QVString text;
        int32_t value;
    };
    std::vector<Entry> entries;
    int32_t selected = -1;  // -1: nothing selected
    bool enabled = true;

    int32_t FindValue(int32_t value) const;
    // The selected entry's value, or `fallback` when nothing is selected.
    int32_t GetValue(int32_t fallback) const;
    QVString GetSelectedText() const;
};

struct COutputFormatCheck
{
    QVString text;
    bool checked = false;
    bool enabled = true;
};

// The two-column list of output rates per input class.
class COutputFormatSampleRateList
{
public:
    // Rates a user can pick for a row, after "No change" (0).
    static constexpr int32_t kOfferedRateCount = 10;
    static const int32_t kOfferedRates[kOfferedRateCount];

    static QVString GetColumnTitle(int32_t column);  // "Input", "Output"
    static QVString GetInputText(int32_t row);
    // "No change" for 0, otherwise "44,100 Hz".
    static QVString GetOutputText(int32_t rate);
    // The entries a click in an output cell offers: 0 and the offered rates.
    static std::vector<int32_t> GetOfferedValues();
    // The right-click menu's text for a value: "Set all to " and the cell text.
    static QVString GetSetAllText(int32_t rate);

    int32_t rates[PLAYER_CORE_RATE_CLASSES] = {};
    bool enabled = true;
};

class COutputFormatDlg : public QVPanelModel
{
public:
    // Every control of the panel, in reading order.
    struct Controls
    {
        COutputFormatChoice encoding;
        COutputFormatSampleRateList sampleRates;
        COutputFormatChoice channels;  // value: count | layout << 16
        COutputFormatChoice extraChannels;
        COutputFormatChoice mixing;
        COutputFormatChoice center;
        COutputFormatCheck twoPointOne;
        COutputFormatCheck phantomCenter;
        COutputFormatCheck pseudoSurround;
        COutputFormatChoice subwoofer;
        COutputFormatCheck bassfirm;
    };

    explicit COutputFormatDlg(COutputFormatDSPPlugin* plugin);

    void Open() override;
    // Reloads the record and shows it. A channel setting the encoding does not
    // offer gives way to the first entry, which is then saved.
    void Refresh();
    // Takes every control into the record, saves the output format section,
    // tells the host, and refreshes.
    void Apply();

    // Control changes, as the user makes them; each runs Apply unless it comes
    // from Refresh itself.
    void SelectEntry(COutputFormatChoice& choice, int32_t index);
    void SetChecked(COutputFormatCheck& check, bool checked);
    void SetRate(int32_t row, int32_t rate);
    void SetAllRates(int32_t rate);

    const Controls& GetControls() const { return controls; }
    Controls& GetControls() { return controls; }
    QM_PLAYER_CORE_SETTINGS_PLAYBACK& GetSettings();
    int32_t GetRefreshCount() const { return refreshCount; }
    int32_t GetApplyCount() const { return applyCount; }

    // The panel's fixed texts, translated, in reading order.
    static std::vector<QVString> GetTexts();

    static bool HasSubwoofer(const QM_PLAYER_CORE_SETTINGS& settings);
    static bool HasCenter(const QM_PLAYER_CORE_SETTINGS& settings);
    static int32_t PackChannels(int32_t channels, int32_t layout)
    {
        return channels | (layout << 16);
    }
    static int32_t ChannelsOf(int32_t packed) { return packed & 0xFFFF; }
    static int32_t LayoutOf(int32_t packed) { return packed >> 16; }

    // What Refresh shows for a record. When the stored channels are not among
    // the encoding's entries the first entry is selected and stored in
    // `settings`; the answer is then true.
    static bool BuildControls(QM_PLAYER_CORE_SETTINGS& settings, Controls& controls);
    // Steps 2 to 6 of Apply: the controls into the record.
    static void TakeControls(const Controls& controls, QM_PLAYER_CORE_SETTINGS& settings);

private:
    void ControlChanged();

    COutputFormatDSPPlugin* plugin;
    Controls controls;
    bool refreshing = false;
    int32_t refreshCount = 0;
    int32_t applyCount = 0;
};
