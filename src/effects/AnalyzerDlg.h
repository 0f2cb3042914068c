// The Analyzer's panel as a window-less model: two frequency fields, the
// "High resolution" check box, the plot and the level line. A paint pulls a
// frame from the plug-in and works out the picture's numbers.
#pragma once

#include <cstdint>
#include <vector>

#include "core/QVString.h"
#include "effects/AnalyzerPlugin.h"
#include "effects/SoundAnalyzerDraw.h"
#include "frame/PanelModel.h"

class CAnalyzerDlg : public QVPanelModel
{
public:
    static constexpr const char16_t* HIGH_RESOLUTION_LABEL = u"High resolution";
    // The range lies in the zone's "Analyzer" key; older settings kept it in
    // a key of its own below "Plugins\DSP".
    static constexpr const char16_t* RANGE_LEGACY_KEY = u"Plugins\\DSP\\Analyzer";
    static constexpr const char16_t* MINIMUM_VALUE = u"Minimum Frequency";
    static constexpr const char16_t* MAXIMUM_VALUE = u"Maximum Frequency";
    static constexpr int32_t DEFAULT_MINIMUM_HZ = 40;
    static constexpr int32_t DEFAULT_MAXIMUM_HZ = 18000;

    // What a field shows: from 1000 Hz on the kHz with one decimal and "K"
    // ("18.0K"), below that whole Hz.
    static QVString FrequencyText(double frequencyHz);
    // What a field means: "." or "," as the decimal mark, and a "K" anywhere
    // multiplies by 1000.
    static double ParseFrequency(const QVString& text);

    // Takes the range from the settings and N from the plug-in.
    explicit CAnalyzerDlg(CAnalyzerDSPPlugin& plugin);

    void Open() override;

    QVString GetMinimumText() const { return minimumText; }
    QVString GetMaximumText() const { return maximumText; }
    // The user edited a field: both are read, saved and given to the plot.
    void SetMinimumText(const QVString& text);
    void SetMaximumText(const QVString& text);
    bool GetHighResolution() const { return highResolution; }
    void SetHighResolution(bool checked);

    // A frame from the plug-in into the panel's record, without drawing:
    // what a repaint does first. False when the ring has no frame yet.
    bool PullFrame();
    // One repaint of a plot occupying `plot`: a frame when the ring has one,
    // then the traces and the level line. False when no frame was computed.
    bool Paint(const CAnalyzerRect& plot);

    CSoundAnalyzerDraw& GetDraw() { return draw; }
    const CAnalyzerFrame& GetFrame() const { return frame; }
    // The traces of the last paint; none before the first frame.
    const std::vector<CAnalyzerTrace>& GetTraces() const { return traces; }
    const QVString& GetLevelLine() const { return levelLine; }
    bool HasFrame() const { return framesComputed > 0; }

private:
    void FillFields();
    void RangeChanged();
    void ApplyRange();

    CAnalyzerDSPPlugin& plugin;
    CSoundAnalyzerDraw draw;
    CAnalyzerFrame frame;
    std::vector<CAnalyzerTrace> traces;
    QVString levelLine;
    QVString minimumText;
    QVString maximumText;
    double minimumHz = DEFAULT_MINIMUM_HZ;
    double maximumHz = DEFAULT_MAXIMUM_HZ;
    int32_t fftSize = 0;
    bool highResolution = false;
    // While the panel fills its own fields, their change handlers do nothing.
    bool filling = false;
    int64_t framesComputed = 0;
};
