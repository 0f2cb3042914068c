// libFuzzer entry: the counted-token reader.
#include "FuzzChecks.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    qvfuzz::CheckTokenReader(qvfuzz::FuzzText(data, size));
    return 0;
}
