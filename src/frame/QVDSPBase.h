// The base of every plug-in of the module: it answers the operations that are
// the same everywhere and leaves two to each plug-in, the block operation and
// the display name.
#pragma once

#include <cstdint>

#include "core/QVString.h"
#include "qvdsp/IQVDSP.h"

class QVDSPBase : public IQVDSP
{
public:
    QVDSPBase(IQVDSPHost* host, int32_t zone);

    // Forwards to ProcessBlock, so that a plug-in replaces only that.
    int32_t Process(double* samples, int32_t frames, IQVDSPSink* sink) override;
    int32_t GetInfo(int32_t kind, char16_t* text) override;
    int32_t SetOption(int32_t kind) override;

    // Pure, with defaults a plug-in can call: Flush does nothing, ProcessBlock
    // hands the block on. SetFormat begins with StoreFormat into the plug-in's
    // own record, which the base does not hold.
    int32_t Flush() override = 0;
    int32_t SetFormat(const CAudioFormat& format) override = 0;
    int64_t Command(int32_t kind, void* arg, uint64_t* out) override = 0;
    virtual int32_t ProcessBlock(double* samples, int32_t frames, IQVDSPSink* sink) = 0;
    virtual QVString GetName() = 0;

    // The copy every SetFormat begins with; a record is not copied onto itself.
    static void StoreFormat(CAudioFormat& own, const CAudioFormat& format);

    // The Command answers, panel commands aside, of a plug-in that keeps no
    // settings and has nothing to describe: 3 and 8 succeed, 5 gives the class
    // constant 1, anything else -1.
    static int64_t StatelessCommand(int32_t kind);

    IQVDSPHost* host;  // not owned; null for plug-ins the module makes for itself
    int32_t zone;      // DSP_ZONE_GLOBAL for no zone
    bool transient;    // set by DSPOPT_TRANSIENT, never cleared
};
