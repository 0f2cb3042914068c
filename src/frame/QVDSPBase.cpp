#include "frame/QVDSPBase.h"

#include <algorithm>

QVDSPBase::QVDSPBase(IQVDSPHost* hostObject, int32_t zoneNumber)
    : host(hostObject), zone(zoneNumber), transient(false)
{
}

int32_t QVDSPBase::Process(double* samples, int32_t frames, IQVDSPSink* sink)
{
    return ProcessBlock(samples, frames, sink);
}

int32_t QVDSPBase::GetInfo(int32_t kind, char16_t* text)
{
    if (kind == DSPINFO_NAME)
    {
        const QVString name = GetName();
        // The caller's buffer holds DSPINFO_TEXT_CAPACITY characters with the zero.
        const int32_t length = std::min(name.GetLength(), DSPINFO_TEXT_CAPACITY - 1);
        std::copy_n(name.c_str(), length, text);
        text[length] = u'\0';
        return 0;
    }
    if (kind == DSPINFO_INTERFACE_VERSION)
    {
        text[0] = u'1';
        text[1] = u'\0';
        return 0;
    }
    return -1;
}

int32_t QVDSPBase::SetOption(int32_t kind)
{
    if (kind != DSPOPT_TRANSIENT)
        return -1;
    transient = true;
    return 0;
}

int32_t QVDSPBase::Flush()
{
    return 0;
}

int32_t QVDSPBase::ProcessBlock(double* samples, int32_t frames, IQVDSPSink* sink)
{
    sink->Output(samples, frames);
    return 0;
}

void QVDSPBase::StoreFormat(CAudioFormat& own, const CAudioFormat& format)
{
    if (&own != &format)
        own = format;
}

int64_t QVDSPBase::StatelessCommand(int32_t kind)
{
    switch (kind)
    {
    case DSPCMD_SET_STATE:
    case DSPCMD_DESCRIBE: return 0;
    case DSPCMD_QUERY_FLAG: return 1;
    default: return -1;
    }
}
