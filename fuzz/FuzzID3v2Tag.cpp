// libFuzzer entry: arbitrary bytes parsed as an ID3v2 tag and rendered again.
#include "TagFuzzChecks.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    qvfuzz::CheckID3v2Tag(data, size);
    return 0;
}
