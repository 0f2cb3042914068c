#include "effects/TempoPitchPlugin.h"

#include <soundtouch/SoundTouch.h>

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include "frame/IQVTools.h"
#include "frame/SettingsKey.h"

namespace
{

// Frames of the float buffer that carries a block into the library; longer
// blocks go in in parts, which the library's stream does not tell apart.
constexpr size_t kConversionFrames = 8192;

}  // namespace

// ---------------------------------------------------------------------------
// Panel

const CTempoPitchDlg::Control CTempoPitchDlg::CONTROLS[ROW_COUNT] = {
    {u"Tempo", -3.0, 3.0, 0.01, 1.0, u"Speed up and slow down playback without changing the pitch"},
    {u"Pitch", -2.0, 2.0, 0.01, 1.0,
     u"Make playback sound higher or lower without changing the tempo"},
    {u"Rate", -3.0, 3.0, 0.01, 1.0,
     u"Change the tempo and pitch at the same time (like speeding up or slowing down a record)"},
};

double CTempoPitchDlg::ControlToFactor(double control)
{
    const double factor = 1.0 + std::fabs(control);
    return control < 0.0 ? 1.0 / factor : factor;
}

double CTempoPitchDlg::FactorToControl(double factor)
{
    return factor < 1.0 ? -(1.0 / factor - 1.0) : factor - 1.0;
}

CTempoPitchDlg::CTempoPitchDlg(CTempoPitchDSPPlugin* plugin) : plugin(plugin) {}

void CTempoPitchDlg::SetValue(int32_t row, double value)
{
    if (row < 0 || row >= ROW_COUNT)
        return;
    values[row] = std::clamp(value, CONTROLS[row].minimum, CONTROLS[row].maximum);
    double factors[ROW_COUNT] = {plugin->GetTempo(), plugin->GetPitch(), plugin->GetRate()};
    factors[row] = ControlToFactor(values[row]);
    plugin->SetParameters(factors[ROW_TEMPO], factors[ROW_PITCH], factors[ROW_RATE], false, false);
}

void CTempoPitchDlg::Refresh()
{
    const double factors[ROW_COUNT] = {plugin->GetTempo(), plugin->GetPitch(), plugin->GetRate()};
    for (int32_t row = 0; row < ROW_COUNT; ++row)
        values[row] =
            std::clamp(FactorToControl(factors[row]), CONTROLS[row].minimum, CONTROLS[row].maximum);
}

// ---------------------------------------------------------------------------
// Plug-in

CTempoPitchDSPPlugin::CTempoPitchDSPPlugin(IQVDSPHost* pluginHost, int32_t pluginZone)
    : QVDSPBase(pluginHost, pluginZone)
{
    LoadSettings();
}

CTempoPitchDSPPlugin::~CTempoPitchDSPPlugin()
{
    ClosePanelModel(panel);
    DestroyStretcher();
}

QVString CTempoPitchDSPPlugin::GetName()
{
    return QVString(NAME);
}

void CTempoPitchDSPPlugin::LoadSettings()
{
    CZoneSettingsKey key(zone, QVString(NAME), QVString(LEGACY_KEY), QVString());
    // A factor that is no positive number keeps the one before: the library
    // divides by them. The keys are written from the panel, so a factor beyond
    // its control's range was edited by hand, and is held to that range: a
    // tempo of 0.000001 would make each block a million times as long.
    auto read = [&key](CTempoPitchDlg::ERow row, const char16_t* name, double& value)
    {
        const double stored = key.ReadDouble(QVString(name), value);
        if (!(std::isfinite(stored) && stored > 0.0))
            return;
        const CTempoPitchDlg::Control& control = CTempoPitchDlg::CONTROLS[row];
        value = std::clamp(stored, CTempoPitchDlg::ControlToFactor(control.minimum),
                           CTempoPitchDlg::ControlToFactor(control.maximum));
    };
    read(CTempoPitchDlg::ROW_TEMPO, TEMPO_VALUE, tempo);
    read(CTempoPitchDlg::ROW_PITCH, PITCH_VALUE, pitch);
    read(CTempoPitchDlg::ROW_RATE, RATE_VALUE, rate);
}

bool CTempoPitchDSPPlugin::SaveSettings()
{
    if (transient)
        return true;
    CZoneSettingsKey key(zone, QVString(NAME), QVString(LEGACY_KEY), QVString());
    bool written = true;
    written &= key.WriteDouble(QVString(TEMPO_VALUE), tempo);
    written &= key.WriteDouble(QVString(PITCH_VALUE), pitch);
    written &= key.WriteDouble(QVString(RATE_VALUE), rate);
    lastSaveSucceeded = written;
    return written;
}

int32_t CTempoPitchDSPPlugin::Flush()
{
    std::lock_guard<std::recursive_mutex> guard(lock);
    if (soundTouch)
        soundTouch->clear();
    return 0;
}

int32_t CTempoPitchDSPPlugin::SetFormat(const CAudioFormat& newFormat)
{
    std::lock_guard<std::recursive_mutex> guard(lock);
    if (!externalTempo)
        LoadSettings();
    StoreFormat(format, newFormat);
    valid = format.channels >= 1 && format.channels <= MAX_CHANNELS &&
            format.sampleRate >= MIN_RATE && format.sampleRate <= MAX_RATE &&
            format.bitsPerSample == STREAM_BITS;
    DestroyStretcher();
    if (valid)
    {
        input.assign(kConversionFrames * format.channels, 0.0f);
        if (output.size() < kConversionFrames * format.channels)
            output.resize(kConversionFrames * format.channels);
    }
    return 0;
}

bool CTempoPitchDSPPlugin::IsBypassed() const
{
    if (!valid)
        return true;
    return !externalTempo && std::fabs(tempo - 1.0) <= NEUTRAL_TOLERANCE &&
           std::fabs(pitch - 1.0) <= NEUTRAL_TOLERANCE &&
           std::fabs(rate - 1.0) <= NEUTRAL_TOLERANCE;
}

double CTempoPitchDSPPlugin::GetSpeedFactor() const
{
    return IsBypassed() ? 1.0 : tempo * rate;
}

void CTempoPitchDSPPlugin::DestroyStretcher()
{
    soundTouch.reset();
}

void CTempoPitchDSPPlugin::Apply()
{
    if (!soundTouch)
        return;
    soundTouch->setTempo(tempo);
    soundTouch->setPitch(pitch);
    soundTouch->setRate(rate);
}

bool CTempoPitchDSPPlugin::EnsureStretcher()
{
    if (!soundTouch || static_cast<int32_t>(soundTouch->numChannels()) != format.channels)
    {
        DestroyStretcher();
        // The packaged library takes fewer channels than a valid stream may
        // have; such a stream passes through untouched, like one the object
        // refuses.
        if (format.channels > LIBRARY_MAX_CHANNELS)
            return false;
        soundTouch = std::make_unique<soundtouch::SoundTouch>();
        try
        {
            soundTouch->setSampleRate(format.sampleRate);
            soundTouch->setChannels(format.channels);
        }
        catch (const std::runtime_error&)
        {
            DestroyStretcher();
            return false;
        }
        const auto channels = static_cast<int32_t>(soundTouch->numChannels());
        if (channels < 1 || channels != format.channels)
            DestroyStretcher();
        Apply();
    }
    return soundTouch != nullptr;
}

int32_t CTempoPitchDSPPlugin::ProcessBlock(double* samples, int32_t frames, IQVDSPSink* sink)
{
    std::lock_guard<std::recursive_mutex> guard(lock);
    if (IsBypassed())
    {
        // Going neutral drops whatever the library still held.
        DestroyStretcher();
        sink->Output(samples, frames);
        return 0;
    }
    if (!EnsureStretcher())
    {
        sink->Output(samples, frames);
        return 0;
    }
    if (frames > 0)
        PutSamples(samples, frames);
    const uint32_t ready = soundTouch->numSamples();
    if (ready == 0)
        return 0;
    sink->Output(const_cast<double*>(TakeOutput(ready)), static_cast<int32_t>(ready));
    soundTouch->receiveSamples(ready);
    return 0;
}

// The first of the two points where the stream's doubles meet the library's
// floats.
void CTempoPitchDSPPlugin::PutSamples(const double* samples, int32_t frames)
{
    const size_t channels = format.channels;
    for (size_t done = 0; done < static_cast<size_t>(frames);)
    {
        const size_t part = std::min(kConversionFrames, static_cast<size_t>(frames) - done);
        const double* from = samples + done * channels;
        std::transform(from, from + part * channels, input.begin(),
                       [](double sample) { return static_cast<float>(sample); });
        soundTouch->putSamples(input.data(), static_cast<uint32_t>(part));
        done += part;
    }
}

// The second point: the library's output, read where ptrBegin shows it.
const double* CTempoPitchDSPPlugin::TakeOutput(uint32_t frames)
{
    const size_t count = static_cast<size_t>(frames) * format.channels;
    if (output.size() < count)
        output.resize(count);
    // The stretcher narrows ptrBegin to protected; the pipe's interface it
    // derives from offers it.
    soundtouch::FIFOSamplePipe& pipe = *soundTouch;
    const float* from = pipe.ptrBegin();
    std::copy(from, from + count, output.begin());
    return output.data();
}

void CTempoPitchDSPPlugin::SetParameters(double newTempo, double newPitch, double newRate,
                                         bool force, bool silent)
{
    {
        std::lock_guard<std::recursive_mutex> guard(lock);
        if (!force && newTempo == tempo && newPitch == pitch && newRate == rate)
            return;
        tempo = newTempo;
        pitch = newPitch;
        rate = newRate;
        if (!externalTempo)
            SaveSettings();
        Apply();
    }
    if (host == nullptr)
        return;
    if (silent)
        host->NotifyTempoChanged();
    else
        host->NotifyChanged(true);
}

int64_t CTempoPitchDSPPlugin::Command(int32_t kind, void* arg, uint64_t* out)
{
    std::lock_guard<std::recursive_mutex> guard(lock);
    switch (kind)
    {
    case DSPCMD_OPEN_PANEL:
        if (!externalTempo)
            LoadSettings();
        return OpenPanelModel(panel, this);
    case DSPCMD_CLOSE_PANEL: return ClosePanelModel(panel);
    case DSPCMD_QUERY_FLAG: return 0;
    case DSPCMD_TEMPO:
        // The sub-mode travels as the value of the pointer itself.
        return TempoCommand(static_cast<double*>(arg),
                            static_cast<int32_t>(reinterpret_cast<uintptr_t>(out)));
    case DSPCMD_GET_LATENCY: return soundTouch ? soundTouch->numUnprocessedSamples() : 0;
    case DSPCMD_DESCRIBE: Describe(static_cast<IStatusList*>(arg)); return 0;
    case DSPCMD_RELOAD_TEMPO:
        LoadSettings();
        Apply();
        if (panel)
            panel->Refresh();
        return 0;
    default: return -1;
    }
}

int64_t CTempoPitchDSPPlugin::TempoCommand(double* value, int32_t mode)
{
    switch (mode)
    {
    case DSPTEMPO_READ:
        if (value != nullptr)
            *value = tempo;
        return 0;
    case DSPTEMPO_SET:
    case DSPTEMPO_ADD:
    {
        if (value == nullptr || std::isnan(*value))
            return 0;
        const double wanted = mode == DSPTEMPO_SET ? *value : tempo + *value;
        externalTempo = true;
        tempo = std::clamp(wanted, EXTERNAL_TEMPO_MIN, EXTERNAL_TEMPO_MAX);
        pitch = 1.0;
        rate = 1.0;
        Apply();
        if (host != nullptr)
            host->NotifyTempoChanged();
        return 0;
    }
    case DSPTEMPO_RESTORE:
        externalTempo = false;
        LoadSettings();
        Apply();
        return 0;
    default: return 0;
    }
}

void CTempoPitchDSPPlugin::Describe(IStatusList* status)
{
    if (status == nullptr || !externalTempo || !soundTouch || tempo == 1.0)
        return;
    const QVString line =
        QVString::Format(QVTranslated(u"Tempo of %s%.4fx for video clock").c_str(),
                         {tempo >= 0.0 ? u"+" : u"-", std::fabs(tempo)});
    status->Add(line.c_str(), 0);
}
