// The panel of the Parametric Equalizer as a window-less model: the list of
// filters with their check boxes and descriptions, the detail area with the
// selected filter's controls, and the rules for add, remove, move, enable and
// the delayed save. Its clock is explicit: the owner steps it, so the 750 ms
// pending save can be driven exactly. A host with a message loop can time the
// pending save with a timer of its thread instead (UseThreadTimer).
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "frame/PanelModel.h"
#include "parametric/FilterPanel.h"
#include "parametric/ParametricFilter.h"

class CParametricEqualizerDSPPlugin;
class CParametricFilterList;

class CParametricEqualizerDlg : public QVPanelModel, public IParametricFilterParent
{
public:
    static constexpr int64_t SAVE_DELAY_MS = 750;
    static constexpr int32_t SAVE_TIMER_ID = 1;
    static constexpr const char16_t* FILTERS_HEADING = u"Filters";
    static constexpr const char16_t* DETAILS_HEADING = u"Details for filter selected above";
    static constexpr const char16_t* REMOVE_QUESTION =
        u"Are you sure you want to remove the selected filter?";
    static constexpr const char16_t* REMOVE_TITLE = u"Confirm Remove";

    explicit CParametricEqualizerDlg(CParametricEqualizerDSPPlugin& plugin);
    ~CParametricEqualizerDlg() override;

    void Open() override;
    // Detaches every filter's panel and saves a pending edit.
    void Close() override;

    // The rows of the list.
    int32_t GetItemCount();
    QVString GetItemText(int32_t row);
    bool GetItemEnabled(int32_t row);
    void SetItemEnabled(int32_t row, bool enabled);

    // The add menu: the names of the types, in id order, with their ids.
    std::vector<CFilterChoice> GetAddMenu() const;
    // Adds a filter of `type` at `row` (clamped); returns its row or -1.
    int32_t AddFilter(int32_t type, int32_t row);
    // `confirmed` is the user's answer to REMOVE_QUESTION.
    bool RemoveFilter(int32_t row, bool confirmed);
    bool MoveFilter(int32_t from, int32_t to);

    // Keys while the focus isn't in an edit: Delete and R remove the selected
    // filter without asking, D moves it down and U up. True when handled.
    static constexpr char16_t KEY_DELETE = 0x7F;
    bool OnKey(char16_t key);

    void Select(int32_t row);
    int32_t GetSelection() const { return selection; }
    CFilterPanel& GetDetailPanel() { return detailPanel; }

    void OnFilterNotify(CParametricFilter* filter, int32_t what) override;

    // The panel's clock: fires the pending save and the detail panel's messages.
    void AdvanceClock(int64_t milliseconds);
    bool IsSavePending() const { return savePending; }
    // Reads every filter's panel under the lock, refreshes the rows and saves.
    void Apply();
    int32_t GetRefreshCount() const { return refreshCount; }
    // From now on the pending save is a one-shot timer of the calling thread,
    // which fires when that thread pumps its commands and timers; the clock
    // above then drives only the detail panel's messages.
    void UseThreadTimer();

private:
    class CSaveTimer;
    void OnSaveTimer();
    void ScheduleSave();
    void AttachSelected();
    void Refresh();

    CParametricEqualizerDSPPlugin& plugin;
    CParametricFilterList& list;
    CFilterPanel detailPanel;
    int32_t selection = -1;
    bool savePending = false;
    int64_t clockMs = 0;
    int64_t saveDueMs = 0;
    bool applying = false;
    int32_t refreshCount = 0;
    std::unique_ptr<CSaveTimer> saveTimer;
};
