// CWAVInfo: WAV and RF64 files, with the RF64 sizes, the INFO list, the
// broadcast extension, the UITS payload and the detection of DTS data that
// hides in a 16-bit stereo PCM file.
#pragma once

#include "audiofile/IFFInfo.h"
#include "core/QVMap.h"

#include <array>

using QVInfoList = QVStringMap<QVString>;

// The "bext" chunk, field by field as the broadcast wave format lays it out.
struct CBroadcastExtension
{
    static constexpr size_t kFixedSize = 602;

    char description[256] = {};
    char originator[32] = {};
    char originatorReference[32] = {};
    char originationDate[10] = {};
    char originationTime[8] = {};
    uint32_t timeReferenceLow = 0;
    uint32_t timeReferenceHigh = 0;
    uint16_t version = 0;
    uint8_t umid[64] = {};
    std::array<int16_t, 5> loudness =
        {};  // value, range, max true peak, max momentary, max short-term
    uint8_t reserved[180] = {};
    std::string codingHistory;

    // A field's text up to its first NUL.
    static std::string Text(const char* field, size_t size);
};

struct CChunkSize64
{
    char ID[4] = {};
    uint64_t size = 0;
};

// The RF64 size chunk ("ds64").
struct CDataSize64Chunk
{
    uint64_t riffSize = 0;
    uint64_t dataSize = 0;
    uint64_t sampleCount = 0;
    std::vector<CChunkSize64> table;
};

class CWAVUITSChunk : public CUITSChunk
{
public:
    bool Write(IQVFileStream& stream) const override;
};

class CWAVInfo : public CIFFInfo
{
public:
    enum ERiffKind : int32_t
    {
        RIFF_NONE = 0,
        RIFF_RIFF = 1,
        RIFF_RF64 = 2,
    };

    ~CWAVInfo() override;
    int32_t ReadHeader(bool strict, bool scanAll) override;
    QVString GetTagChunkID() const override { return u"id3 "; }
    QVString GetTagText() override;
    bool AddToFormSize(int64_t delta) override;
    bool RepairFormSize() override;
    bool RepairDataSize() override;
    const char* GetReaderName() const override { return "CWAVInfo"; }

    const QVInfoList& GetInfoList() const { return infoList; }
    const CBroadcastExtension* GetBroadcastExtension() const { return broadcastExtension.get(); }
    const CDataSize64Chunk* GetDataSize64Chunk() const { return dataSize64Chunk.get(); }
    int32_t GetRiffKind() const { return riffKind; }

protected:
    bool GetInfoListValue(const QVString& name, QVString& text) const override;
    std::unique_ptr<CUITSChunk> MakeUITSChunk() const override;

private:
    bool WriteU64At(int64_t position, uint64_t value);
    bool ReadDataSize64();
    void ReadList(int64_t position, uint32_t size);
    void ReadBroadcastExtension(int64_t position, uint32_t size);
    void ReadUITS(int64_t position, uint32_t size, int32_t index);
    void DetectDts();

    QVInfoList infoList;
    std::unique_ptr<CBroadcastExtension> broadcastExtension;
    std::unique_ptr<CDataSize64Chunk> dataSize64Chunk;
    int32_t riffKind = RIFF_NONE;
};

// What the "fmt " chunk did to the walk.
enum class EWaveFormatResult
{
    Found,    // the format is set
    EndWalk,  // a rate of 0, or a tag that strict reading refuses
    Skipped,  // too short to be a format
};

// Reads a "fmt " chunk's bytes into `format`. With `withExtension` the 24
// bytes of the extensible and MPEG extensions are read when present (WAV);
// Wave64 reads only the first 16 bytes.
EWaveFormatResult ParseWaveFormat(const uint8_t* bytes, size_t size, bool strict,
                                  bool withExtension, CAudioFormat& format);

// Entries of an INFO list, given the bytes behind its type "INFO". A later
// entry of an id replaces an earlier one; ids outside the table are left out.
void ParseInfoList(const uint8_t* bytes, size_t size, QVInfoList& list);

// Channels of DTS data found in the start of a PCM file's data (with one
// more for the LFE channel), or 0 when it holds none.
int32_t DetectDtsChannels(const uint8_t* bytes, size_t size);
