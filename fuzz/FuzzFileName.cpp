// libFuzzer entry: the XMLFN file name reader and the round trip of what it reads.
#include "AudioFuzzChecks.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    qvfuzz::CheckFileName(qvfuzz::FuzzText(data, size));
    return 0;
}
