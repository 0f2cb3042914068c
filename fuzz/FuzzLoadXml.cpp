// libFuzzer entry: QVPropertyMap::LoadXML and the round trip of what it loads.
#include "FuzzChecks.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    qvfuzz::CheckLoadXml(qvfuzz::FuzzText(data, size));
    return 0;
}
