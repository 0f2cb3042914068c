#include "effects/HeadphonesPlugin.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "filters/IIRSectionRegisters.h"
#include "frame/IQVTools.h"
#include "frame/SettingsKey.h"

namespace
{

constexpr int32_t kStereo = 2;
constexpr size_t kFrameBytes = kStereo * sizeof(double);

}  // namespace

const double CHeadphonesDSPPlugin::INPUT_SCALE = std::pow(10.0, -0.15);

// ---------------------------------------------------------------------------
// Presets

const QVOwnedPtrArray<CHeadphonesDSPPluginSettings>& CHeadphonesDSPPlugin::GetPresets()
{
    static const QVOwnedPtrArray<CHeadphonesDSPPluginSettings> presets = []
    {
        QVOwnedPtrArray<CHeadphonesDSPPluginSettings> table;
        auto add = [&table](double strength, double delayMS, double cutoff, const char16_t* name) {
            table.Add(new CHeadphonesDSPPluginSettings{strength, delayMS, cutoff, QVString(name)});
        };
        add(0.0, 0.0, 700.0, u"(none)");
        add(0.3, 0.26, 700.0, u"Subtle");
        add(0.5, 0.26, 700.0, u"Standard");
        add(0.5, 0.52, 700.0, u"Standard (increased spatialization)");
        add(0.75, 0.26, 850.0, u"Pronounced");
        add(0.75, 0.52, 850.0, u"Pronounced (increased spatialization)");
        return table;
    }();
    return presets;
}

int32_t CHeadphonesDSPPlugin::FindPreset(double strength, double delayMS, double cutoffFrequency)
{
    const auto& presets = GetPresets();
    for (int32_t row = 0; row < presets.GetCount(); ++row)
    {
        const CHeadphonesDSPPluginSettings& preset = *presets[row];
        if (preset.strength == strength && preset.delayMS == delayMS &&
            preset.cutoffFrequency == cutoffFrequency)
            return row;
    }
    return -1;
}

// ---------------------------------------------------------------------------
// Panel

CHeadphonesDlg::CHeadphonesDlg(CHeadphonesDSPPlugin* plugin) : plugin(plugin) {}

void CHeadphonesDlg::Open()
{
    int32_t row = CHeadphonesDSPPlugin::FindPreset(plugin->GetStrength(), plugin->GetDelayMS(),
                                                   plugin->GetCutoffFrequency());
    selection = row >= 0 ? row : FALLBACK_ROW;
}

QVString CHeadphonesDlg::GetHeading() const
{
    return QVTranslated(u"Crossfeed");
}

QVString CHeadphonesDlg::GetText() const
{
    return QVTranslated(
               u"Crossfeed makes audio played through headphones sound more natural and less "
               u"fatiguing.\r\n\r\n") +
           QVTranslated(u"Audio is mixed between the contralateral and ipsilateral ears after "
                        u"modeling the frequency curve and time-delay associated with "
                        u"non-headphone listening.");
}

std::vector<QVString> CHeadphonesDlg::GetItems() const
{
    std::vector<QVString> items;
    const auto& presets = CHeadphonesDSPPlugin::GetPresets();
    for (int32_t row = 0; row < presets.GetCount(); ++row)
        items.push_back(QVTranslated(presets[row]->name.c_str()));
    return items;
}

void CHeadphonesDlg::Select(int32_t row)
{
    const auto& presets = CHeadphonesDSPPlugin::GetPresets();
    if (row < 0 || row >= presets.GetCount())
        return;
    selection = row;
    const CHeadphonesDSPPluginSettings& preset = *presets[row];
    plugin->SetParameters(preset.strength, preset.delayMS, preset.cutoffFrequency, false, true);
    if (plugin->zone != QVZONE_GLOBAL)
        plugin->SaveSettings();
}

// ---------------------------------------------------------------------------
// Plug-in

CHeadphonesDSPPlugin::CHeadphonesDSPPlugin(IQVDSPHost* pluginHost, int32_t pluginZone)
    : QVDSPBase(pluginHost, pluginZone)
{
    LoadSettings();
}

CHeadphonesDSPPlugin::~CHeadphonesDSPPlugin()
{
    ClosePanelModel(panel);
}

QVString CHeadphonesDSPPlugin::GetName()
{
    return QVString(NAME);
}

void CHeadphonesDSPPlugin::LoadSettings()
{
    CZoneSettingsKey key(zone, QVString(SUBKEY), QVString(LEGACY_KEY), QVString(LEGACY_PREFIX));
    // A value that is no number keeps the one before, like a missing one.
    auto read = [&key](const char16_t* name, double& value)
    {
        const double stored = key.ReadDouble(QVString(name), value);
        if (std::isfinite(stored))
            value = stored;
    };
    read(STRENGTH_VALUE, strength);
    read(DELAY_VALUE, delayMS);
    read(CUTOFF_VALUE, cutoffFrequency);
}

bool CHeadphonesDSPPlugin::SaveSettings()
{
    if (transient)
        return true;
    CZoneSettingsKey key(zone, QVString(SUBKEY), QVString(LEGACY_KEY), QVString(LEGACY_PREFIX));
    bool written = true;
    written &= key.WriteDouble(QVString(STRENGTH_VALUE), strength);
    written &= key.WriteDouble(QVString(DELAY_VALUE), delayMS);
    written &= key.WriteDouble(QVString(CUTOFF_VALUE), cutoffFrequency);
    lastSaveSucceeded = written;
    return written;
}

int32_t CHeadphonesDSPPlugin::Flush()
{
    std::lock_guard<std::recursive_mutex> guard(lock);
    SetParameters(strength, delayMS, cutoffFrequency, true, false);
    return 0;
}

int32_t CHeadphonesDSPPlugin::SetFormat(const CAudioFormat& newFormat)
{
    std::lock_guard<std::recursive_mutex> guard(lock);
    StoreFormat(format, newFormat);
    valid = format.channels == kStereo;
    SetParameters(strength, delayMS, cutoffFrequency, true, false);
    return valid ? 0 : -1;
}

int64_t CHeadphonesDSPPlugin::Command(int32_t kind, void* arg, uint64_t*)
{
    std::lock_guard<std::recursive_mutex> guard(lock);
    switch (kind)
    {
    case DSPCMD_OPEN_PANEL: return OpenPanelModel(panel, this);
    case DSPCMD_CLOSE_PANEL: return ClosePanelModel(panel);
    case DSPCMD_QUERY_FLAG: return 0;
    case DSPCMD_DESCRIBE:
        if (valid && strength > 0.0 && arg != nullptr)
            static_cast<IStatusList*>(arg)->Add(GetName().c_str(), 0);
        return 0;
    default: return -1;
    }
}

void CHeadphonesDSPPlugin::SetParameters(double newStrength, double newDelayMS,
                                         double newCutoffFrequency, bool force, bool notify)
{
    {
        std::lock_guard<std::recursive_mutex> guard(lock);
        if (!force && newStrength == strength && newDelayMS == delayMS &&
            newCutoffFrequency == cutoffFrequency)
            return;
        strength = newStrength;
        delayMS = newDelayMS;
        cutoffFrequency = newCutoffFrequency;
        RebuildFiltersAndHistory();
    }
    if (notify && host != nullptr)
        host->NotifyChanged(true);
}

void CHeadphonesDSPPlugin::RebuildFiltersAndHistory()
{
    filters.RemoveAll();
    for (int32_t c = 0; c < format.channels; ++c)
    {
        auto* filter = new CIIRFilter();
        filter->Design(IIR_LOWPASS_12, format.sampleRate, cutoffFrequency, 0.0, BUTTERWORTH_Q, true,
                       QVString());
        filters.Add(filter);
    }
    // Two seconds of the stream's bytes, in whole frames. A flush keeps the
    // format, and with it the ring: emptying it is enough.
    int64_t capacity = format.BytesFromMilliseconds(HISTORY_MS);
    if (format.blockAlign != 0)
        capacity -= capacity % format.blockAlign;
    const auto bytes = static_cast<uint32_t>(std::clamp<int64_t>(capacity, 0, UINT32_MAX));
    if (history && history->GetCapacity() == bytes)
        history->Reset();
    else
        history = std::make_unique<QVMemoryCircleBuffer>(bytes);
    // The work buffers follow the history: a block of up to two seconds runs
    // without growing them.
    SizeWorkBuffers(
        static_cast<int32_t>(std::max<uint32_t>(history->GetCapacity(), 1) / kFrameBytes));
}

void CHeadphonesDSPPlugin::SizeWorkBuffers(int32_t frames)
{
    if (frames <= workFrames)
        return;
    const size_t samples = static_cast<size_t>(frames) * kStereo;
    low = std::make_unique_for_overwrite<double[]>(samples);
    delayed = std::make_unique_for_overwrite<double[]>(samples);
    out = std::make_unique_for_overwrite<double[]>(samples);
    workFrames = frames;
}

int32_t CHeadphonesDSPPlugin::GetDelayFrames() const
{
    // No delay reaches before the history or beyond it.
    const double ms = std::clamp(delayMS, 0.0, HISTORY_MS);
    const uint32_t frameBits = format.BitsPerFrame();
    return static_cast<int32_t>(format.BytesFromMilliseconds(ms) * 8 / frameBits);
}

int32_t CHeadphonesDSPPlugin::ProcessBlock(double* samples, int32_t frames, IQVDSPSink* sink)
{
    std::lock_guard<std::recursive_mutex> guard(lock);
    // A cut-off the filter cannot take (beyond half the rate) leaves the
    // sound alone, as a stage that cannot work does.
    if (!valid || strength <= 0.0 || frames <= 0 || filters.GetCount() != kStereo ||
        !filters[0]->designed || !filters[1]->designed || !history ||
        history->GetCapacity() < 2 * kFrameBytes)
    {
        sink->Output(samples, frames);
        return 0;
    }
    SizeWorkBuffers(frames);
    // A block longer than the history can hold runs in parts of half of it,
    // so that each part still finds the delay's worth of the part before in
    // the history; the output still goes on in one call.
    const auto fits = static_cast<int32_t>(history->GetCapacity() / kFrameBytes) - 1;
    const int32_t part = frames <= fits ? frames : std::max<int32_t>(1, fits / 2);
    for (int32_t start = 0; start < frames; start += part)
    {
        const int32_t count = std::min(part, frames - start);
        const size_t offset = static_cast<size_t>(start) * kStereo;
        Crossfeed(samples + offset, count, out.get() + offset);
    }
    sink->Output(out.get(), frames);
    return 0;
}

// Drops the oldest frames that the block's low band will not fit beside.
void CHeadphonesDSPPlugin::MakeRoomInHistory(int32_t frames)
{
    const uint32_t bytes = static_cast<uint32_t>(frames) * kFrameBytes;
    const uint32_t free = history->GetFree();
    if (free < bytes)
    {
        const uint32_t excess = bytes - free;
        history->Skip((excess + kFrameBytes - 1) / kFrameBytes * kFrameBytes);
    }
}

// The frame D frames before frame f feeds the other ear. Counted in the
// history with this block added, the delayed copy of the block starts D
// frames before the block; at the start of a stream, while fewer than D
// frames lie before it, it starts at the oldest frame and the delay is
// shorter. Its first part lies in the history, the rest in the block's own
// low band, which is made in the same pass: the mix then runs while the
// low-pass recursion waits on its previous output, instead of after it.
//
// The high band is the scaled input less the unscaled low band, so that the
// mix lowers only what lies above the cut-off, by 3 dB; the low band keeps its
// level through the division by strength + 1.
void CHeadphonesDSPPlugin::Crossfeed(double* samples, int32_t frames, double* mixed)
{
    MakeRoomInHistory(frames);
    const int64_t heldBefore = history->GetUsed() / kFrameBytes;
    int64_t first = heldBefore - GetDelayFrames();
    if (first < 1)
        first = 0;
    const int64_t lag = heldBefore - first;  // from a frame to its delayed copy
    const auto fromHistory = static_cast<int32_t>(std::min<int64_t>(lag, frames));
    history->Read(delayed.get(), static_cast<uint32_t>(fromHistory) * kFrameBytes,
                  static_cast<uint32_t>(first) * kFrameBytes);

    // A designed second-order low-pass is always one analog-prototype section.
    AnalogSectionLanes lowPass(*filters[0], *filters[1]);
    double* lowBand = low.get();
    const double* older = delayed.get();
    const Lanes gain{strength, strength};
    const Lanes norm{strength + 1.0, strength + 1.0};
    const Lanes scale{INPUT_SCALE, INPUT_SCALE};
    const auto lowPassFrame = [&](int32_t f, Lanes& input)
    {
        std::memcpy(&input, samples + static_cast<size_t>(f) * kStereo, sizeof input);
        const Lanes lowPassed = lowPass.Step(input);
        std::memcpy(lowBand + static_cast<size_t>(f) * kStereo, &lowPassed, sizeof lowPassed);
        return lowPassed;
    };
    // The far ear of each lane is the other lane.
    const auto crossed = [](const double* frame) { return Lanes{frame[1], frame[0]}; };
    const auto mixFrame = [&](int32_t f, Lanes input, Lanes lowPassed, Lanes delayedCrossed)
    {
        const Lanes x = scale * input;
        const Lanes result = (gain * delayedCrossed + lowPassed) / norm + (x - lowPassed);
        std::memcpy(samples + static_cast<size_t>(f) * kStereo, &x, sizeof x);
        std::memcpy(mixed + static_cast<size_t>(f) * kStereo, &result, sizeof result);
    };
    int32_t f = 0;
    for (; f < fromHistory; ++f)
    {
        Lanes input;
        const Lanes lowPassed = lowPassFrame(f, input);
        mixFrame(f, input, lowPassed, crossed(older + static_cast<size_t>(f) * kStereo));
    }
    // From here the delayed frame is one of this block's, made by the time it
    // is needed (with lag 0 at the very start of a stream, the frame itself).
    for (; f < frames; ++f)
    {
        Lanes input;
        const Lanes lowPassed = lowPassFrame(f, input);
        mixFrame(f, input, lowPassed, crossed(lowBand + static_cast<size_t>(f - lag) * kStereo));
    }
    lowPass.StoreTo(*filters[0], *filters[1]);
    history->Write(lowBand, static_cast<uint32_t>(frames) * kFrameBytes);
}
