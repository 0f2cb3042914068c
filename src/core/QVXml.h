#pragma once

// A tolerant single-pass XML reader and a small writer over one text.
//
// The reader never stops at an error: it notes the message, flags the element
// and the document, and goes on, so that whatever could be read stays
// readable. Elements live in a paged table; a handle carries the page in its
// high 16 bits and the entry in its low 16 bits, and 0 stands for the
// document itself (and for "none" where an element is expected).
//
// The writer edits the same text and table, so a document that is being
// built can be queried like a parsed one.

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "core/QVString.h"

class QVXml
{
public:
    using Handle = uint32_t;
    static constexpr Handle kDocument = 0;

    // Entry flags, in the low 16 bits of the flags word. The high 16 bits hold
    // the nesting depth at which the start tag was read.
    enum EFlags : uint32_t
    {
        FLAG_EMPTY = 0x0001,      // written as <name ... />
        FLAG_ENDED = 0x0002,      // its end tag was found
        FLAG_NOT_ENDED = 0x0004,  // closed by an outer end tag or by the end of the text
        FLAG_ERROR = 0x0008,  // on the document: some error was met; on an element: it was involved
        FLAG_FREE = 0x8000,   // a removed entry, waiting on the free list for reuse
    };

    QVXml();
    ~QVXml();
    QVXml(const QVXml&) = delete;
    QVXml& operator=(const QVXml&) = delete;

    // Replaces the document by the parse of text. Answers false when any
    // error was noted; the readable part is kept in either case.
    bool Parse(const QVString& text);
    bool Parse(std::u16string_view text);

    // The messages noted by the last parse, joined by ", "; empty if none.
    QVString GetError() const;
    bool HasError() const { return !errors.empty(); }

    // Navigation. Every query answers 0 or an empty text for a bad handle.
    Handle GetRoot() const;  // the first element at the top level
    Handle GetParent(Handle element) const;
    Handle GetFirstChild(Handle element) const;
    Handle GetNextSibling(Handle element) const;
    Handle GetPreviousSibling(Handle element) const;
    uint32_t GetFlags(Handle element) const;
    int32_t GetDepth(Handle element) const;
    int32_t GetOffset(Handle element) const;  // of the start tag's "<"

    QVString GetName(Handle element) const;
    bool NameIs(Handle element, std::u16string_view name) const;
    // The character data inside the element (and inside its children), with
    // markup left out, CDATA taken as it stands and references decoded.
    QVString GetText(Handle element) const;
    // Answers false when the start tag has no such attribute.
    bool GetAttribute(Handle element, std::u16string_view name, QVString& value) const;

    // The first element on the path from element down; path parts are
    // separated by any of " =/[]". With element 0 the first part names a
    // top-level element.
    Handle FindElement(Handle element, std::u16string_view path) const;
    // The next sibling of element with the given name.
    Handle FindNextSibling(Handle element, std::u16string_view name) const;

    // Writing. AddElement appends <name>text</name> as the last child of
    // parent, followed by CR LF unless it is a top-level element; a parent
    // that gets its first child gets a CR LF after its start tag. Answers 0
    // when the parent cannot take children (an empty element).
    Handle AddElement(Handle parent, std::u16string_view name, std::u16string_view text = {});
    // Adds name="value" at the end of the element's start tag.
    bool SetAttribute(Handle element, std::u16string_view name, std::u16string_view value);
    // Removes the element with everything inside it, and the line end the
    // writer put behind it. Its entries go to the free list for reuse.
    bool RemoveElement(Handle element);

    QVString GetDocumentText() const;
    const std::u16string& GetRawText() const { return text; }
    int32_t GetElementCount() const { return elementCount; }

    // The five entities on output; on input also numeric references.
    static std::u16string Escape(std::u16string_view value);
    static std::u16string Unescape(std::u16string_view value);

private:
    struct Entry
    {
        uint32_t start;       // offset of "<" in characters
        uint32_t length;      // up to and with the end tag
        uint32_t tagLengths;  // start tag in the low 22 bits, end tag in the high 10
        uint32_t flags;       // EFlags, depth in the high 16 bits
        uint32_t parent;
        uint32_t firstChild;
        uint32_t nextSibling;
        uint32_t previousSibling;  // of the first child: the last child
    };
    static_assert(sizeof(Entry) == 32, "an entry is eight words");

    class CParser;
    friend class CParser;

    void Reset(size_t textLength);
    Handle NewEntry();
    Entry* At(Handle handle);
    const Entry* At(Handle handle) const;
    const Entry* Element(Handle handle) const;  // null for the document and bad handles
    void AppendChild(Handle parent, Handle child);
    void MoveChildrenUp(Handle element);
    uint32_t StartTagLength(const Entry& entry) const;
    uint32_t EndTagLength(const Entry& entry) const;
    std::u16string_view NameView(const Entry& entry) const;
    void NoteError(std::u16string message);
    void InsertText(uint32_t offset, std::u16string_view inserted);
    void EraseText(uint32_t offset, uint32_t count);
    void Unlink(Handle element);
    void FreeSubtree(Handle element);

    std::u16string text;
    std::vector<std::unique_ptr<Entry[]>> pages;
    uint32_t pageSize = 0;
    uint32_t used = 0;    // entries handed out, the document's included
    Handle freeList = 0;  // removed entries, linked through their next-sibling word
    int32_t elementCount = 0;
    std::vector<std::u16string> errors;
};
