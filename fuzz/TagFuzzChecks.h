#pragma once

// What the fuzz targets of the ID3v2 tag and of tag writing in containers
// check, shared with the test that replays their kept inputs. A failed check
// aborts, which libFuzzer reports as a crash with its input.

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

#include "FuzzChecks.h"
#include "audiofile/AIFFInfo.h"
#include "audiofile/FieldReader.h"
#include "audiofile/ID3v2Tag.h"
#include "audiofile/WAVInfo.h"

namespace qvfuzz
{

// A tag parsed from arbitrary bytes: every field and frame read, then the
// tag rendered, which must read back as a tag with the same frames, and a
// change rendered again.
inline void CheckID3v2Tag(const uint8_t* data, size_t size)
{
    CID3v2Tag tag;
    const bool present = tag.Parse(data, size, 0);
    Require(present == tag.IsPresent(), "a tag that parsed is present");
    for (int32_t i = 0; i < tag.GetFrameCount(); ++i)
        tag.GetFrameText(i);
    for (const QVString& name : tag.GetFieldNames())
    {
        QVPropertyMap properties;
        tag.GetField(name, properties);
    }
    if (!present)
        return;
    std::vector<uint8_t> rendered;
    if (!tag.Render(rendered))
        return;
    Require(rendered.size() >= 10 && std::memcmp(rendered.data(), "ID3", 3) == 0,
            "a rendered tag has a header");
    CID3v2Tag again;
    Require(again.Parse(rendered.data(), rendered.size(), 0), "a rendered tag parses");
    Require(again.GetFrameCount() == tag.GetFrameCount(), "every rendered frame reads back");
    Require(again.GetSize() == static_cast<int32_t>(rendered.size()), "the size is the tag's");
    again.SetField(u"Name"_qv, u"fuzz \u00e9"_qv);
    std::vector<uint8_t> changed;
    if (again.Render(changed))
    {
        CID3v2Tag third;
        Require(third.Parse(changed.data(), changed.size(), 0), "a changed tag parses");
        Require(third.GetValue(u"Name"_qv) == u"fuzz \u00e9", "a changed field reads back");
    }
}

// Container bytes opened for writing in memory, a field set and saved: the
// audio bytes stay, the form size fits the file, and the field reads back.
inline void CheckTagWriting(const uint8_t* data, size_t size)
{
    for (int kind = 0; kind < 2; ++kind)
    {
        std::unique_ptr<CIFFInfo> reader;
        if (kind == 0)
            reader = std::make_unique<CWAVInfo>();
        else
            reader = std::make_unique<CAIFFInfo>();
        auto owned = std::make_unique<CMemoryStream>(data, size);
        CMemoryStream* memory = owned.get();
        if (reader->OpenStream(std::move(owned), false, true) != 0 || !reader->CanWriteTags())
            continue;
        const std::vector<uint8_t> audio(data + reader->GetDataStart(),
                                         data + reader->GetDataStart() + reader->GetDataSize());
        const bool riff = size >= 4 && std::memcmp(data, "RIFF", 4) == 0;
        const bool form = size >= 4 && std::memcmp(data, "FORM", 4) == 0;
        if (!reader->SetTag(u"Name"_qv, u"fuzz"_qv))
            continue;
        reader->SetTag(u"UITS Payload"_qv, u"payload"_qv);
        if (!reader->SaveTags(false))
            continue;
        Require(reader->IsOpen(), "a saved file opens again");
        const std::vector<uint8_t>& bytes = memory->GetBytes();
        Require(reader->GetDataSize() == static_cast<int64_t>(audio.size()),
                "the data keeps its size");
        Require(std::equal(audio.begin(), audio.end(), bytes.begin() + reader->GetDataStart()),
                "the audio bytes stay");
        if (riff || form)
        {
            const uint32_t formSize = CFieldReader::U32At(bytes.data() + 4, form);
            Require(formSize == bytes.size() - 8, "the form size is the file's");
        }
        QVString name;
        Require(reader->GetTag(u"Name"_qv, name) && name == u"fuzz", "the field reads back");
    }
}

}  // namespace qvfuzz
