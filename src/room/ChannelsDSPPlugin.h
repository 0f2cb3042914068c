// Room Correction: a thin plug-in over the speaker set. It keeps the stream's
// format, forwards each block with the host's test level, and owns the panel
// through which a user edits one speaker at a time.
#pragma once

#include <memory>

#include "frame/QVDSPBase.h"
#include "room/ChannelsDSP.h"

class CChannelsDlg;

class CChannelsDSPPlugin : public QVDSPBase
{
public:
    CChannelsDSPPlugin(IQVDSPHost* host, int32_t zone);
    ~CChannelsDSPPlugin() override;

    int32_t Flush() override;
    int32_t SetFormat(const CAudioFormat& newFormat) override;
    int64_t Command(int32_t kind, void* arg, uint64_t* out) override;
    int32_t ProcessBlock(double* samples, int32_t frames, IQVDSPSink* sink) override;
    QVString GetName() override;

    CChannelsDSP& GetChannels() { return channels; }
    const CAudioFormat& GetFormat() const { return format; }
    CChannelsDlg* GetPanel() const { return panel.get(); }

    // The application's measurement setting, which a panel reads once when it
    // is built: distances in metres instead of feet. Without a host that
    // answers it, feet, the unit in which distances are stored.
    void SetMetric(bool useMetres) { metric = useMetres; }
    bool IsMetric() const { return metric; }

private:
    CChannelsDSP channels;
    std::unique_ptr<CChannelsDlg> panel;
    CAudioFormat format;
    bool metric = false;
};
