// The window-less model of a list filter's small edit panel: the controls in
// their order, with labels, units, choices and current contents, so that
// tests and the command-line host can drive a filter exactly as a panel would.
#pragma once

#include <cstdint>
#include <vector>

#include "core/QVString.h"

class CParametricFilter;

enum EFilterControlKind : int32_t
{
    FILTER_CONTROL_NUMBER,        // number edit, read leniently
    FILTER_CONTROL_TEXT,          // free text edit
    FILTER_CONTROL_FILE,          // file-name edit
    FILTER_CONTROL_CHOICE,        // single choice from a list
    FILTER_CONTROL_MULTI_CHOICE,  // multiple selection
    FILTER_CONTROL_ORDER_LIST,    // list whose order the user drags
    FILTER_CONTROL_CHECK,         // check box
    FILTER_CONTROL_NOTE,          // a line of text
    FILTER_CONTROL_BUTTON,        // an entry that acts at once
};

struct CFilterChoice
{
    QVString text;
    int32_t value = 0;
};

struct CFilterControl
{
    int32_t id = 0;
    EFilterControlKind kind = FILTER_CONTROL_NOTE;
    QVString label;
    QVString unit;
    bool visible = true;
    QVString text;                       // edits
    bool checked = false;                // check box
    std::vector<CFilterChoice> choices;  // lists
    std::vector<int32_t> selection;      // chosen values; the order list keeps its order here
};

// A message that the panel shows later, from its own one-shot timer.
struct CFilterPanelMessage
{
    QVString title;
    QVString text;
    int64_t dueMs = 0;
};

class CFilterPanel
{
public:
    // Channel ids offered by every channel control: 2 to 9, 11, 12, then
    // numbered channels as far as the player's configured channel count
    // exceeds 8.
    explicit CFilterPanel(int32_t playerChannels = 8);

    void Clear();
    CFilterControl& Add(int32_t id, EFilterControlKind kind, const char16_t* label,
                        const char16_t* unit = u"");
    CFilterControl* Find(int32_t id);
    const std::vector<CFilterControl>& GetControls() const { return controls; }
    void AddChannelChoices(CFilterControl& control) const;

    // Convenience for filters and tests: edits hold numbers as text.
    double GetNumber(int32_t id, double fallback);
    void SetNumber(int32_t id, double value, int32_t decimals = -1);
    QVString GetText(int32_t id);
    void SetText(int32_t id, const QVString& text);
    int32_t GetChoice(int32_t id, int32_t fallback);
    void SetChoice(int32_t id, int32_t value);
    std::vector<int32_t> GetSelection(int32_t id);
    void SetSelection(int32_t id, const std::vector<int32_t>& values);
    bool GetChecked(int32_t id);
    void SetChecked(int32_t id, bool value);
    void SetVisible(int32_t id, bool visible);

    // The panel's clock, stepped by its owner; messages come due on it.
    void ShowMessageLater(const char16_t* title, const char16_t* text, int64_t delayMs);
    void AdvanceClock(int64_t milliseconds);
    int64_t GetClock() const { return clockMs; }
    // Messages that have been shown, oldest first.
    const std::vector<CFilterPanelMessage>& GetShownMessages() const { return shownMessages; }

    void SetOwner(CParametricFilter* filter) { owner = filter; }
    CParametricFilter* GetOwner() const { return owner; }

private:
    std::vector<CFilterControl> controls;
    std::vector<CFilterPanelMessage> pendingMessages;
    std::vector<CFilterPanelMessage> shownMessages;
    int64_t clockMs = 0;
    int32_t playerChannels;
    CParametricFilter* owner = nullptr;
};

// What a filter's panel accepts for each of its stored numbers: the ranges of
// its number edits and the entries of its choice lists. Filters keep any
// value they are given (a stored list is loaded as it is); this is the check
// for values that come from users and their files. Answers the first value
// out of place, as "<key> <value> is outside <min> to <max> <unit>", or an
// empty text when every value is one the panel could have set.
QVString FindValueOutsidePanel(CParametricFilter& filter);
