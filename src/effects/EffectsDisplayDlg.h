// The panel of the Effects plug-in as a window-less model: three groups, each
// with a heading, a control row and a help text. Every control takes the same
// road: the word goes into the settings, they are saved, the engine is
// configured anew and the host is told.
#pragma once

#include <cstdint>
#include <vector>

#include "core/QVString.h"
#include "frame/PanelModel.h"

class CEffectsDSPPlugin;

class CEffectsDisplayDlg : public QVPanelModel
{
public:
    enum EGroup : int32_t
    {
        GROUP_ENVIRONMENT = 0,
        GROUP_SUBWOOFER = 1,
        GROUP_SURROUND = 2,
        GROUP_COUNT = 3,
    };

    static constexpr const char16_t* HEADINGS[GROUP_COUNT] = {u"Environment", u"Virtual Subwoofer",
                                                              u"Surround Field"};
    static constexpr const char16_t* HELP_TEXTS[GROUP_COUNT] = {
        u"Simulates the acoustic fingerprint of differing environments, adding texture and "
        u"depth.",
        u"Simulates the addition of an extra subwoofer, enhancing low frequency response and "
        u"'thump'.",
        u"Simulates a wider, more immersive sound stage."};
    // What the amount control shows while it doesn't apply.
    static constexpr const char16_t* NOT_APPLICABLE = u"n/a";
    static constexpr double MIN_AMOUNT = 1.0;
    static constexpr double MAX_AMOUNT = 10.0;

    explicit CEffectsDisplayDlg(CEffectsDSPPlugin& plugin);

    QVString GetHeading(EGroup group) const;
    QVString GetHelpText(EGroup group) const;
    // The entries of the group's list, in index order, as the panel shows them.
    std::vector<QVString> GetChoices(EGroup group) const;
    // The word of the group; it may lie outside the list when the store held
    // something else, and the list then shows no entry.
    int32_t GetSelection(EGroup group) const;
    // The user picked entry `index` of the group's list. False when that
    // changes nothing or the list has no such entry.
    bool Select(EGroup group, int32_t index);

    // The amount control applies to a reverb only.
    bool IsAmountEnabled() const;
    int32_t GetAmount() const;
    // The number, or "n/a" while the control is disabled.
    QVString GetAmountText() const;
    // The user set the control to `value`, rounded to the nearest whole
    // number within 1 to 10. False when disabled or when that changes nothing.
    bool SetAmount(double value);

    // Whether the store took the last change (always true for a plug-in
    // that does not save).
    bool LastSaveSucceeded() const { return lastSaveSucceeded; }

private:
    int32_t& WordOf(EGroup group) const;
    bool Change(int32_t& word, int32_t value);

    CEffectsDSPPlugin& plugin;
    bool lastSaveSucceeded = true;
};
