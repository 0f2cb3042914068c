// CID3v2Tag: an ID3v2 tag of version 2.2, 2.3 or 2.4, read from a block of
// memory, shown as named fields of this system's own vocabulary ("Name",
// "Artist", "Track #"), changed by those names and rendered again as 2.3 or
// 2.4. One table maps names to frames, for reading and writing alike.
//
// Nothing in a tag is trusted: a damaged frame ends the reading of frames
// where the damage begins, and what was read before it stays.
#pragma once

#include <cstdint>
#include <memory>
#include <unordered_map>
#include <vector>

#include "core/QVPropertyMap.h"
#include "core/QVString.h"

// Bits of CID3v2Field::Flags.
inline constexpr uint32_t ID3FIELD_PAIR = 0x00000001;          // "n/total": the part before "/"
inline constexpr uint32_t ID3FIELD_GENRE = 0x00000002;         // "(n)" names a genre
inline constexpr uint32_t ID3FIELD_GAIN = 0x00000004;          // a number of dB
inline constexpr uint32_t ID3FIELD_PEAK = 0x00000008;          // the description is no part of it
inline constexpr uint32_t ID3FIELD_MULTIVALUE = 0x00000010;    // split at ";" when written
inline constexpr uint32_t ID3FIELD_DATE = 0x00000020;          // read as a date number
inline constexpr uint32_t ID3FIELD_PRIVATE_TEXT = 0x00000040;  // a PRIV payload that is text
inline constexpr uint32_t ID3FIELD_BUILT_IN = 0x00010000;      // counts for the frame order
inline constexpr uint32_t ID3FIELD_ANY_PICTURE = 0x00020000;   // catch-all picture row
inline constexpr uint32_t ID3FIELD_WRITE_V23 = 0x00040000;
inline constexpr uint32_t ID3FIELD_WRITE_V24 = 0x00080000;
inline constexpr uint32_t ID3FIELD_ANY_DESCRIPTION = 0x00100000;
inline constexpr uint32_t ID3FIELD_WRITTEN = ID3FIELD_WRITE_V23 | ID3FIELD_WRITE_V24;

// One row of the field table.
struct CID3v2Field
{
    char FrameID[4] = {};
    QVString Description;  // what a TXXX, COMM or USLT frame must carry
    QVString Name;
    uint32_t Flags = ID3FIELD_WRITTEN;
    int32_t PictureType = -1;  // -1: any

    bool IsFrame(const char* id) const;
};

// How a frame's data is laid out.
enum EID3FrameKind : int32_t
{
    ID3KIND_NONE = -1,  // kept as raw bytes
    ID3KIND_TEXT = 0,
    ID3KIND_USER_TEXT = 1,  // TXXX
    ID3KIND_COMMENT = 2,    // COMM, USLT and the like
    ID3KIND_PICTURE = 3,    // APIC
    ID3KIND_RATING = 4,     // POPM
    ID3KIND_PODCAST = 5,    // PCST
    ID3KIND_URL = 6,
    ID3KIND_PRIVATE = 7,  // PRIV
};

struct CID3v2Frame
{
    char ID[4] = {};
    uint8_t Size[4] = {};       // as in the header
    uint8_t Flags[2] = {};      // status, then format, as in the file
    std::vector<uint8_t> Data;  // decoded: no unsynchronisation, no compression
    // "Text Encoding", "Value", "Description", "Language ID", "Mime Type",
    // "Picture Type". A picture's "Value" holds its bytes, one character each.
    QVPropertyMap Properties;
    int32_t Kind = ID3KIND_NONE;

    uint8_t FormatFlags() const { return Flags[1]; }
    bool HasID(const char* id) const;
    // The layout of a frame of this id.
    static int32_t KindOfId(const char* id);
};

// The abstract base of tags, as the containers see them.
class CID3TagBase
{
public:
    virtual ~CID3TagBase() = default;
    // The properties of the `index`-th frame of the name (0 is the first).
    virtual bool GetField(const QVString& name, QVPropertyMap& result, int32_t index = 0) = 0;
};

class CID3v2Tag : public CID3TagBase
{
public:
    CID3v2Tag();

    // Reads a tag from `size` bytes; `position` is where they stand in the
    // file. False when the header is not that of a tag this class reads.
    bool Parse(const uint8_t* data, size_t size, int64_t position);
    bool GetField(const QVString& name, QVPropertyMap& result, int32_t index = 0) override;
    // The value alone, empty when the field has none.
    QVString GetValue(const QVString& name);
    // An empty value removes the field. False when the name has no row that
    // this tag's version writes, or a picture file cannot be read.
    bool SetField(const QVString& name, const QVString& value);
    // The whole tag, header and padding included.
    bool Render(std::vector<uint8_t>& out);
    // One printable line about a frame.
    QVString GetFrameText(int32_t index) const;

    bool IsPresent() const { return present; }
    bool IsDirty() const { return dirty; }
    int32_t GetSize() const { return size; }
    int64_t GetPosition() const { return position; }
    int32_t GetMajorVersion() const { return present ? header[3] : 3; }
    int32_t GetFrameCount() const { return static_cast<int32_t>(frames.size()); }
    const CID3v2Frame& GetFrame(int32_t index) const { return *frames[index]; }
    const std::vector<CID3v2Field>& GetFieldTable() const { return fieldTable; }
    // Every field name of the table, each once, in table order.
    std::vector<QVString> GetFieldNames() const;
    // Forgets the tag read and every frame: what a tag chunk removed leaves.
    void Reset();

    // The extended list of 148 genre names of the first tag version.
    static const char16_t* GenreName(int32_t number);
    static constexpr int32_t kGenreCount = 148;

private:
    void BuildFieldTable();
    void AddRow(const char* id, const char16_t* name, const char16_t* description, uint32_t flags,
                int32_t pictureType);
    void IndexRow(int32_t row);
    bool ReadFrames(size_t start, size_t end, bool unsynchronised);
    void DecodeFrame(CID3v2Frame& frame, bool unsynchronisedAlready);
    // Undo what the format flags did to a frame's data. False when it cannot
    // be read (encrypted, cut short, not inflating): data and flags then stay
    // as stored, but for unsynchronisation, which is removed all the same.
    static bool UnpackFrame24(CID3v2Frame& frame, bool unsynchronisedAlready);
    static bool UnpackFrame23(CID3v2Frame& frame);
    bool RowMatches(const CID3v2Field& row, const CID3v2Frame& frame) const;
    const std::vector<int32_t>* RowsOf(const QVString& name) const;
    CID3v2Frame* FindFrame(const CID3v2Field& row, int32_t skip);
    void ApplyReadFlags(const CID3v2Field& row, const CID3v2Frame& frame, QVPropertyMap& result);
    bool SetRow(const CID3v2Field& row, const QVString& value);
    void RemoveFramesOf(const std::vector<int32_t>& rows);
    void SetPodcastFrames();
    void SortFrames();
    int32_t BuiltInRowOf(const CID3v2Frame& frame) const;

    std::vector<CID3v2Field> fieldTable;
    std::unordered_map<std::u16string, std::vector<int32_t>> fieldIndex;
    bool present = false;
    bool dirty = false;
    uint8_t header[10] = {};
    int32_t size = 0;
    int64_t position = 0;
    std::vector<std::unique_ptr<CID3v2Frame>> frames;
    std::vector<uint8_t> rawData;
};

// Dates as the host's date service gives them: days since 1899-12-30, the
// fraction being the time of day. False for text that is no date.
bool ID3DateTextToNumber(const QVString& text, double& days);
QVString ID3DateNumberToText(double days);
