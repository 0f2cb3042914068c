// CIFFInfo: the common base of the readers of uncompressed audio files. It
// opens a file, walks its chunks once, gives the audio format and the place of
// the sample data, and reads samples as raw bytes turned to the machine's
// (little-endian) order. It does not decode samples to a common type: each
// reader hands back the file's own sample type.
//
// Nothing in a file is trusted: every size is checked against the file before
// it is used, and a header that fails leaves the reader closed, with every
// getter answering -1.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "audiofile/FileStream.h"
#include "audiofile/ID3v2Tag.h"
#include "core/QVString.h"
#include "qvdsp/AudioFormat.h"

// One chunk met by the walk, in file order.
struct CIFFChunk
{
    char ID[4] = {};       // the four characters as they stand in the file
    uint32_t Size = 0;     // as in the file, in the machine's order
    int64_t Position = 0;  // of the chunk's header

    bool Is(const char (&id)[5]) const { return std::string(ID, 4) == std::string(id, 4); }
};

// The payload chunk of the UITS format. Writing it back belongs to the tags.
class CUITSChunk : public CIFFChunk
{
public:
    virtual ~CUITSChunk() = default;
    // Writes the whole chunk, header, payload and pad, at the stream's position.
    virtual bool Write(IQVFileStream& stream) const = 0;

    std::vector<uint8_t> payload;
    int32_t chunkIndex = 0x7fffffff;  // index in the reader's chunks; this value when absent
    bool dirty = false;
};

// A chunk as `qvdsp info` and the tests show it, for every container alike.
struct CChunkSummary
{
    std::string id;  // printable: four characters, or a GUID in Wave64
    uint64_t size = 0;
    int64_t position = 0;
};

class CIFFInfo
{
public:
    CIFFInfo();
    virtual ~CIFFInfo();
    CIFFInfo(const CIFFInfo&) = delete;
    CIFFInfo& operator=(const CIFFInfo&) = delete;

    // Keeps the stream, which must be open, and reads the header: 0, or -1
    // when no format was found.
    virtual int32_t OpenStream(std::unique_ptr<IQVFileStream> stream, bool strict, bool scanAll);
    // Opens a local file (a plain path or its XMLFN form) read-only.
    virtual int32_t OpenFile(const QVString& name, bool strict, bool scanAll);
    // The same, for reading and writing, so that tags can be saved.
    int32_t OpenFileForTags(const QVString& name, bool strict);
    virtual int32_t ReadHeader(bool strict, bool scanAll) = 0;
    // Reads `frames` frames from `startFrame` into `destination`, which holds
    // at least frames x bits per frame / 8 bytes. Answers the bytes read (0 at
    // the end of the data), or -1 when closed or when a seek fails.
    virtual int64_t Read(void* destination, int64_t startFrame, int64_t frames, int64_t* outBytes,
                         bool restorePosition);
    virtual int32_t Reopen();
    virtual void Close();

    virtual const CAudioFormat& GetFormat() const { return format; }
    // Milliseconds, rounded to nearest; -1 when unknown.
    virtual int64_t GetDuration() const;
    virtual int64_t GetFrames() const;
    virtual int64_t GetSamples() const;
    virtual int64_t GetSampleRate() const;
    virtual int64_t GetValidBits() const;
    virtual int64_t GetBytesPerSample() const;
    virtual int64_t GetChannels() const;
    virtual int64_t GetAverageBytesPerSecond() const;
    virtual int64_t GetFormatTag() const;
    virtual int64_t GetBlockAlign() const;
    virtual int64_t GetDataSize() const;
    virtual int64_t GetFileSize() const;
    virtual int64_t GetDataStart() const;
    // The file's bytes before the data; -1 on a non-seekable stream.
    virtual int64_t GetHeaderBytes(std::vector<uint8_t>& destination);
    virtual int64_t FrameToPosition(int64_t frame) const;
    virtual int64_t PositionToFrame(int64_t position) const;

    // The tags (see IFFTags.cpp). A field's text, false when it has none.
    virtual bool GetTag(const QVString& name, QVString& text);
    // False when the file cannot take tags or the field cannot be set.
    virtual bool SetTag(const QVString& name, const QVString& text);
    // Writes changed tags into the file in place; `remove` drops the tag.
    virtual bool SaveTags(bool remove);
    virtual bool CanWriteTags();
    // A printable dump of the tag, one frame a line.
    virtual QVString GetTagText();
    // True when saving now would overwrite the tag's own bytes and nothing
    // else (or write nothing at all).
    bool TagSaveTouchesOnlyTagBytes(bool remove);

    // Turns a 32-bit value of the file to machine order.
    virtual uint32_t Swap32(uint32_t value) const { return value; }
    // Adds `delta` to the size in the container's first header.
    virtual bool AddToFormSize(int64_t delta);
    virtual int64_t GetFormSize();
    // One zero byte when `size` is odd.
    virtual bool WritePad(int64_t size);
    // The four characters of a new tag chunk; empty where tags have no chunk.
    virtual QVString GetTagChunkID() const = 0;
    // Makes the first header's size agree with the file.
    virtual bool RepairFormSize();
    virtual bool IsBelow2GB() const { return dataSize < 2147483648LL; }
    // Cuts a last data chunk that claims more than the file holds.
    virtual bool RepairDataSize();

    // The class name of the reader, as `qvdsp info` shows it.
    virtual const char* GetReaderName() const = 0;
    // True when 8-bit samples arrive unsigned (128 is zero).
    virtual bool DeliversUnsigned8() const { return true; }
    virtual std::vector<CChunkSummary> DescribeChunks() const;

    bool IsOpen() const { return isOpen != 0; }
    int64_t GetTrailingSize() const { return isOpen ? trailingSize : -1; }
    const QVString& GetFileName() const { return fileName; }
    const std::vector<CIFFChunk>& GetChunks() const { return chunks; }
    int32_t GetTagChunkIndex() const { return tagChunkIndex; }
    const CUITSChunk* GetUITSChunk() const { return uitsChunk.get(); }
    const CID3v2Tag& GetID3v2Tag() const { return tag; }
    // Bits per frame: block align x 8, else bits x channels, else 8.
    int64_t GetBitsPerFrame() const;

    // The reader for a file name, by its extension without regard to case; not
    // opened yet. Raw PCM takes "BitDepth", "SampleRate" and "Channels" from
    // the items of an XMLFN name.
    static std::unique_ptr<CIFFInfo> CreateForFileName(const QVString& name);

protected:
    // Turns the bytes that Read delivered to the machine's order, in place,
    // on whole samples only.
    virtual void ConvertSamples(uint8_t* bytes, int64_t count) {}
    // The INFO list's entry of a name, for readers that have one.
    virtual bool GetInfoListValue(const QVString& name, QVString& text) const { return false; }
    // An empty payload chunk in this container's form; null where it has none.
    virtual std::unique_ptr<CUITSChunk> MakeUITSChunk() const { return nullptr; }
    // Reads the tag chunk of `size` bytes at `position`; false on a short read.
    bool ReadTagChunk(int64_t position, uint32_t size, int32_t index);
    bool WriteAt(int64_t position, const void* buffer, int64_t count);
    bool WriteU32At(int64_t position, uint32_t value);
    // Reads exactly `count` bytes at `position`; false on a short read.
    bool ReadAt(int64_t position, void* buffer, int64_t count);
    // Appends a chunk and answers its index.
    int32_t AddChunk(const char* id, uint32_t size, int64_t position);
    // The last step of every walk: data cut to the file and the trailing bytes.
    void FinishData();
    void ResetFields();

    std::unique_ptr<IQVFileStream> stream;
    CAudioFormat format;
    int64_t dataStart = 0;
    int64_t trailingSize = 0;
    int64_t fileSize = 0;
    int64_t isOpen = 0;
    int64_t dataSize = -1;  // -1: unknown during the walk, the rest of the file after it
    int32_t tagChunkIndex = -1;
    QVString fileName;
    std::vector<CIFFChunk> chunks;
    int32_t tagWritable = -1;
    std::unique_ptr<CUITSChunk> uitsChunk;
    CID3v2Tag tag;
    bool openedStrict = false;

private:
    // What SaveTags has to do.
    struct CTagSavePlan
    {
        bool needed = false;
        bool failed = false;      // the tag could not be rendered, or the layout forbids a move
        bool tagInPlace = false;  // the tag keeps its length: its bytes are overwritten
        bool appendTag = false;   // the tag goes to the end
        bool dropTag = false;     // the tag's chunk goes
        bool moveChunks = false;  // chunks behind the tags move forward
        std::vector<uint8_t> rendered;
    };
    CTagSavePlan PlanTagSave(bool remove);
    // Whether the walk of the chunks, once past the last one, is at the end
    // of the file, where appended chunks are found.
    bool LastChunkReachesTheEnd() const;
    // The file's layout after a rewrite: the walk again, tags included.
    void Rescan();
    bool MoveChunksAndAppend(bool dropTag, const std::vector<uint8_t>* rendered);
    // [start, end) of chunk `index` in the file, its pad included.
    void ChunkExtent(size_t index, int64_t& start, int64_t& end) const;
};

// Chunks whose contents are kept whole (lists, payloads, coding history) are
// read only up to this size; anything longer is a damaged or hostile file.
inline constexpr int64_t kMaximumKeptChunk = 16 << 20;

// The position after a chunk of `size` bytes at `dataStart`, padded to
// `alignment`; saturates instead of overflowing on absurd sizes.
int64_t NextChunkPosition(int64_t dataStart, uint64_t size, uint64_t alignment);
