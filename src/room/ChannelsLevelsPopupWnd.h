// The popup that turns sound level meter readings into speaker levels, as a
// window-less model: eight rows of a speaker's short name, an edit field and
// "dB", and the rule applied at OK. Left is the reference; a speaker that
// reads louder is turned down by the difference, and earlier trims count in
// since the readings were taken with them.
#pragma once

#include <cstdint>

#include "core/QVString.h"
#include "room/ChannelDSP.h"

class CChannelsDSP;

class CChannelsLevelsPopupWnd
{
public:
    static constexpr int32_t ROW_COUNT = CChannelDSP::SPEAKER_COUNT;
    static constexpr const char16_t* TITLE = u"Set Levels From Decibel Meter";
    static constexpr const char16_t* IMAGE = u"AudioCalibration";
    static constexpr const char16_t* HEAD_TEXT =
        u"Play a volume calibration signal from each speaker and enter the readings on a decibel "
        u"meter below.\r\n\r\nVolume calibration tones can be played using Tools > Advanced "
        u"Tools > Audio Calibration > Volume Calibration.\r\n\r\nRemember to set speaker "
        u"distances before doing this.";
    static constexpr const char16_t* UNIT = u"dB";
    static constexpr const char16_t* MISSING_CAPTION = u"Information";
    static constexpr const char16_t* MISSING_TEXT =
        u"Please enter a decibel meter reading for at least the left and right speakers.";

    explicit CChannelsLevelsPopupWnd(CChannelsDSP& channels);

    QVString GetTitle() const;
    QVString GetHeadText() const;
    // The speaker's short name from the channel-name table.
    QVString GetRowLabel(int32_t row) const;
    QVString GetUnit() const;
    int32_t GetFocusRow() const { return 0; }

    void SetField(int32_t row, const QVString& text);
    const QVString& GetField(int32_t row) const { return fields[row]; }

    // OK: false, with the message below set, when Left or Right has no
    // reading (an exact 0 or an empty field); nothing changes then. Otherwise
    // the levels of all eight speakers change and the popup may close.
    bool Accept();
    // The message shown by the last Accept, empty when none was.
    const QVString& GetMessageCaption() const { return messageCaption; }
    const QVString& GetMessageText() const { return messageText; }

private:
    CChannelsDSP& channels;
    QVString fields[ROW_COUNT];
    QVString messageCaption;
    QVString messageText;
};
