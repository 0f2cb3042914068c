#include "core/QVXml.h"

#include "core/QVXmlText.h"

namespace
{

constexpr size_t kMaxMessages = 32;  // a hostile text could otherwise make one per character
constexpr uint32_t kMaxPageSize = 0x10000;
constexpr std::u16string_view kPathDelimiters = u" =/[]";

bool IsNameEnd(char16_t c)
{
    return qvxml::IsSpace(c) || c == u'/' || c == u'>';
}

bool IsAttributeNameEnd(char16_t c)
{
    return c == u'=' || qvxml::IsSpace(c) || c == u'>' || c == u'/' || c == u'?';
}

// Decodes one reference at text[i] == '&'; answers the characters consumed,
// or 0 when the text there is not a reference we know (it then stays as it is).
size_t DecodeReference(std::u16string_view text, size_t i, std::u16string& out)
{
    static constexpr struct
    {
        std::u16string_view name;
        char16_t value;
    } kEntities[] = {
        {u"&lt;", u'<'}, {u"&amp;", u'&'}, {u"&gt;", u'>'}, {u"&apos;", u'\''}, {u"&quot;", u'"'}};
    const std::u16string_view rest = text.substr(i);
    for (const auto& entity : kEntities)
    {
        if (rest.starts_with(entity.name))
        {
            out.push_back(entity.value);
            return entity.name.size();
        }
    }
    if (!rest.starts_with(u"&#"))
        return 0;
    const bool hex = rest.size() > 2 && rest[2] == u'x';
    const size_t first = hex ? 3 : 2;
    uint32_t value = 0;
    size_t k = first;
    for (; k < rest.size() && k < first + 8; ++k)
    {
        const char16_t c = rest[k];
        uint32_t digit;
        if (c >= u'0' && c <= u'9')
            digit = c - u'0';
        else if (hex && c >= u'a' && c <= u'f')
            digit = c - u'a' + 10;
        else if (hex && c >= u'A' && c <= u'F')
            digit = c - u'A' + 10;
        else
            break;
        value = value * (hex ? 16 : 10) + digit;
    }
    if (k == first || k >= rest.size() || rest[k] != u';' || value == 0 || value > 0x10FFFF)
        return 0;
    if (value >= 0x10000)
    {
        value -= 0x10000;
        out.push_back(static_cast<char16_t>(0xD800 + (value >> 10)));
        out.push_back(static_cast<char16_t>(0xDC00 + (value & 0x3FF)));
    }
    else
        out.push_back(static_cast<char16_t>(value));
    return k + 1;
}

// Where markup that starts at text[i] == '<' ends, for collecting the text of
// an element: comments, instructions and tags are left out.
size_t SkipMarkup(std::u16string_view text, size_t i)
{
    const std::u16string_view rest = text.substr(i);
    std::u16string_view terminator = u">";
    if (rest.starts_with(u"<!--"))
        terminator = u"-->";
    else if (rest.starts_with(u"<?"))
        terminator = u"?>";
    const size_t found = text.find(terminator, i + 1);
    return found == std::u16string_view::npos ? text.size() : found + terminator.size();
}

}  // namespace

QVXml::QVXml()
{
    Reset(0);
}

QVXml::~QVXml() = default;

void QVXml::Reset(size_t textLength)
{
    pages.clear();
    errors.clear();
    pageSize = static_cast<uint32_t>(std::min<size_t>(textLength / 64 + 8, kMaxPageSize));
    used = 0;
    freeList = 0;
    elementCount = 0;
    NewEntry();  // entry 0 of page 0: the document
    Entry* document = At(kDocument);
    document->length = static_cast<uint32_t>(textLength);
    document->flags = FLAG_ENDED;
}

QVXml::Handle QVXml::NewEntry()
{
    if (freeList != 0)
    {
        const Handle reused = freeList;
        Entry* entry = At(reused);
        freeList = entry->nextSibling;
        *entry = Entry{};
        ++elementCount;
        return reused;
    }
    const uint32_t page = used / pageSize;
    const uint32_t index = used % pageSize;
    if (page >= kMaxPageSize)
        throw std::bad_alloc();  // more elements than handles can name
    if (page == pages.size())
        pages.push_back(std::make_unique<Entry[]>(pageSize));
    ++used;
    if (used > 1)
        ++elementCount;
    pages[page][index] = Entry{};
    return (page << 16) | index;
}

QVXml::Entry* QVXml::At(Handle handle)
{
    return const_cast<Entry*>(static_cast<const QVXml*>(this)->At(handle));
}

const QVXml::Entry* QVXml::At(Handle handle) const
{
    const uint32_t page = handle >> 16;
    const uint32_t index = handle & 0xFFFF;
    if (index >= pageSize || static_cast<uint64_t>(page) * pageSize + index >= used)
        return nullptr;
    return &pages[page][index];
}

const QVXml::Entry* QVXml::Element(Handle handle) const
{
    const Entry* entry = handle == kDocument ? nullptr : At(handle);
    return entry != nullptr && (entry->flags & FLAG_FREE) == 0 ? entry : nullptr;
}

void QVXml::AppendChild(Handle parent, Handle child)
{
    Entry* parentEntry = At(parent);
    Entry* childEntry = At(child);
    childEntry->parent = parent;
    childEntry->nextSibling = 0;
    if (parentEntry->firstChild == 0)
    {
        parentEntry->firstChild = child;
        childEntry->previousSibling = child;
        return;
    }
    Entry* first = At(parentEntry->firstChild);
    const Handle last = first->previousSibling;
    At(last)->nextSibling = child;
    childEntry->previousSibling = last;
    first->previousSibling = child;
}

void QVXml::MoveChildrenUp(Handle element)
{
    Entry* entry = At(element);
    Handle child = entry->firstChild;
    entry->firstChild = 0;
    while (child != 0)
    {
        const Handle next = At(child)->nextSibling;
        AppendChild(entry->parent, child);
        child = next;
    }
}

uint32_t QVXml::StartTagLength(const Entry& entry) const
{
    return std::min(entry.tagLengths & qvxml::kStartTagMask, entry.length);
}

uint32_t QVXml::EndTagLength(const Entry& entry) const
{
    if ((entry.flags & FLAG_ENDED) == 0 || (entry.flags & FLAG_EMPTY) != 0)
        return 0;
    return std::min(entry.tagLengths >> 22, entry.length - StartTagLength(entry));
}

std::u16string_view QVXml::NameView(const Entry& entry) const
{
    const size_t tagEnd = entry.start + StartTagLength(entry);
    size_t end = entry.start + 1;
    while (end < tagEnd && !IsNameEnd(text[end]))
        ++end;
    return std::u16string_view(text).substr(entry.start + 1, end - (entry.start + 1));
}

void QVXml::NoteError(std::u16string message)
{
    if (errors.size() < kMaxMessages)
        errors.push_back(std::move(message));
}

QVString QVXml::GetError() const
{
    std::u16string joined;
    for (const std::u16string& message : errors)
    {
        if (!joined.empty())
            joined.append(u", ");
        joined.append(message);
    }
    return QVString(joined.c_str(), static_cast<int32_t>(joined.size()));
}

QVXml::Handle QVXml::GetRoot() const
{
    return GetFirstChild(kDocument);
}

QVXml::Handle QVXml::GetParent(Handle element) const
{
    const Entry* entry = Element(element);
    return entry != nullptr ? entry->parent : 0;
}

QVXml::Handle QVXml::GetFirstChild(Handle element) const
{
    const Entry* entry = element == kDocument ? At(element) : Element(element);
    return entry != nullptr ? entry->firstChild : 0;
}

QVXml::Handle QVXml::GetNextSibling(Handle element) const
{
    const Entry* entry = Element(element);
    return entry != nullptr ? entry->nextSibling : 0;
}

QVXml::Handle QVXml::GetPreviousSibling(Handle element) const
{
    const Entry* entry = Element(element);
    if (entry == nullptr)
        return 0;
    // The first child's back link points at the last child.
    const Entry* parent = At(entry->parent);
    return parent->firstChild == element ? 0 : entry->previousSibling;
}

uint32_t QVXml::GetFlags(Handle element) const
{
    const Entry* entry = element == kDocument ? At(element) : Element(element);
    return entry != nullptr ? entry->flags & 0xFFFF : 0;
}

int32_t QVXml::GetDepth(Handle element) const
{
    const Entry* entry = element == kDocument ? At(element) : Element(element);
    return entry != nullptr ? static_cast<int32_t>(entry->flags >> 16) : 0;
}

int32_t QVXml::GetOffset(Handle element) const
{
    const Entry* entry = Element(element);
    return entry != nullptr ? static_cast<int32_t>(entry->start) : -1;
}

QVString QVXml::GetName(Handle element) const
{
    const Entry* entry = Element(element);
    if (entry == nullptr)
        return QVString();
    const std::u16string_view name = NameView(*entry);
    return QVString(name.data(), static_cast<int32_t>(name.size()));
}

bool QVXml::NameIs(Handle element, std::u16string_view name) const
{
    const Entry* entry = Element(element);
    return entry != nullptr && NameView(*entry) == name;
}

QVString QVXml::GetText(Handle element) const
{
    const Entry* entry = Element(element);
    if (entry == nullptr)
        return QVString();
    const std::u16string_view all(text);
    const size_t begin = entry->start + StartTagLength(*entry);
    const size_t end = entry->start + entry->length - EndTagLength(*entry);
    const std::u16string_view content = all.substr(begin, end > begin ? end - begin : 0);

    std::u16string result;
    size_t i = 0;
    while (i < content.size())
    {
        const size_t markup = content.find(u'<', i);
        const size_t plainEnd = markup == std::u16string_view::npos ? content.size() : markup;
        result.append(Unescape(content.substr(i, plainEnd - i)));
        if (plainEnd == content.size())
            break;
        const std::u16string_view rest = content.substr(plainEnd);
        if (rest.starts_with(u"<![C"))
        {
            const size_t dataStart = plainEnd + (rest.starts_with(u"<![CDATA[") ? 9 : 4);
            const size_t dataEnd = std::min(content.find(u"]]>", dataStart), content.size());
            result.append(content.substr(dataStart, dataEnd - dataStart));
            i = dataEnd == content.size() ? dataEnd : dataEnd + 3;
        }
        else
            i = SkipMarkup(content, plainEnd);
    }
    return QVString(result.c_str(), static_cast<int32_t>(result.size()));
}

bool QVXml::GetAttribute(Handle element, std::u16string_view name, QVString& value) const
{
    const Entry* entry = Element(element);
    if (entry == nullptr)
        return false;
    const std::u16string_view all(text);
    size_t p = entry->start + 1 + NameView(*entry).size();
    const size_t end = entry->start + StartTagLength(*entry) - 1;  // the ">"
    while (p < end)
    {
        while (p < end && qvxml::IsSpace(all[p]))
            ++p;
        size_t q = p;
        while (q < end && !IsAttributeNameEnd(all[q]))
            ++q;
        if (q == p)
        {
            ++p;
            continue;
        }
        const std::u16string_view attributeName = all.substr(p, q - p);
        size_t r = q;
        while (r < end && qvxml::IsSpace(all[r]))
            ++r;
        std::u16string_view attributeValue;
        if (r < end && all[r] == u'=')
        {
            ++r;
            while (r < end && qvxml::IsSpace(all[r]))
                ++r;
            if (r < end && (all[r] == u'"' || all[r] == u'\''))
            {
                const size_t close = std::min(all.find(all[r], r + 1), end);
                attributeValue = all.substr(r + 1, close - (r + 1));
                p = close + 1;
            }
            else
            {
                size_t e = r;
                while (e < end && !qvxml::IsSpace(all[e]) && all[e] != u'>')
                    ++e;
                attributeValue = all.substr(r, e - r);
                p = e;
            }
        }
        else
            p = r;
        if (attributeName == name)
        {
            const std::u16string decoded = Unescape(attributeValue);
            value = QVString(decoded.c_str(), static_cast<int32_t>(decoded.size()));
            return true;
        }
    }
    return false;
}

QVXml::Handle QVXml::FindNextSibling(Handle element, std::u16string_view name) const
{
    for (Handle sibling = GetNextSibling(element); sibling != 0; sibling = GetNextSibling(sibling))
    {
        if (NameIs(sibling, name))
            return sibling;
    }
    return 0;
}

QVXml::Handle QVXml::FindElement(Handle element, std::u16string_view path) const
{
    Handle current = element;
    bool anyPart = false;
    size_t i = 0;
    while (i < path.size())
    {
        const size_t partEnd = std::min(path.find_first_of(kPathDelimiters, i), path.size());
        const std::u16string_view part = path.substr(i, partEnd - i);
        i = partEnd + 1;
        if (part.empty())
            continue;
        anyPart = true;
        Handle child = GetFirstChild(current);
        while (child != 0 && !NameIs(child, part))
            child = GetNextSibling(child);
        if (child == 0)
            return 0;
        current = child;
    }
    return anyPart ? current : 0;
}

std::u16string QVXml::Escape(std::u16string_view value)
{
    std::u16string result;
    result.reserve(value.size());
    for (const char16_t c : value)
    {
        switch (c)
        {
        case u'<': result.append(u"&lt;"); break;
        case u'&': result.append(u"&amp;"); break;
        case u'>': result.append(u"&gt;"); break;
        case u'\'': result.append(u"&apos;"); break;
        case u'"': result.append(u"&quot;"); break;
        default: result.push_back(c); break;
        }
    }
    return result;
}

std::u16string QVXml::Unescape(std::u16string_view value)
{
    std::u16string result;
    result.reserve(value.size());
    for (size_t i = 0; i < value.size();)
    {
        if (value[i] == u'&')
        {
            const size_t consumed = DecodeReference(value, i, result);
            if (consumed != 0)
            {
                i += consumed;
                continue;
            }
        }
        result.push_back(value[i++]);
    }
    return result;
}

void QVXml::InsertText(uint32_t offset, std::u16string_view inserted)
{
    text.insert(offset, inserted);
    const uint32_t delta = static_cast<uint32_t>(inserted.size());
    for (uint32_t k = 1; k < used; ++k)
    {
        Entry& entry = pages[k / pageSize][k % pageSize];
        if ((entry.flags & FLAG_FREE) != 0)
            continue;
        if (entry.start >= offset)
            entry.start += delta;
        else if (entry.start + entry.length > offset)
        {
            const uint32_t startTag = StartTagLength(entry);
            const uint32_t endTag = entry.tagLengths >> 22;
            entry.length += delta;
            if (entry.start + startTag > offset)
                entry.tagLengths = qvxml::PackTagLengths(startTag + delta, endTag);
        }
    }
    At(kDocument)->length = static_cast<uint32_t>(text.size());
}

QVXml::Handle QVXml::AddElement(Handle parent, std::u16string_view name,
                                std::u16string_view content)
{
    const Entry* parentEntry = parent == kDocument ? At(parent) : Element(parent);
    if (parentEntry == nullptr || name.empty())
        return 0;
    // Only a parent with a real end tag can take children: the new text goes
    // right before that tag.
    if (parent != kDocument && ((parentEntry->flags & (FLAG_EMPTY | FLAG_NOT_ENDED)) != 0 ||
                                (parentEntry->flags & FLAG_ENDED) == 0))
        return 0;
    const uint32_t offset =
        parent == kDocument ? static_cast<uint32_t>(text.size())
                            : parentEntry->start + parentEntry->length - EndTagLength(*parentEntry);
    const std::u16string prefix =
        (parent != kDocument && parentEntry->firstChild == 0) ? u"\r\n" : u"";
    const std::u16string element =
        qvxml::Message({u"<", name, u">", Escape(content), u"</", name, u">"});
    const std::u16string suffix = parent != kDocument ? u"\r\n" : u"";
    InsertText(offset, prefix + element + suffix);

    const uint32_t depth = (At(parent)->flags >> 16) + 1;
    const Handle handle = NewEntry();
    Entry* entry = At(handle);
    entry->start = offset + static_cast<uint32_t>(prefix.size());
    entry->length = static_cast<uint32_t>(element.size());
    entry->tagLengths = qvxml::PackTagLengths(static_cast<uint32_t>(name.size() + 2),
                                              static_cast<uint32_t>(name.size() + 3));
    entry->flags = FLAG_ENDED | qvxml::PackDepth(depth);
    AppendChild(parent, handle);
    return handle;
}

bool QVXml::SetAttribute(Handle element, std::u16string_view name, std::u16string_view value)
{
    const Entry* entry = Element(element);
    if (entry == nullptr || name.empty())
        return false;
    uint32_t offset = entry->start + StartTagLength(*entry) - 1;  // before ">"
    if ((entry->flags & FLAG_EMPTY) != 0)
        --offset;  // before "/>"
    InsertText(offset, qvxml::Message({u" ", name, u"=\"", Escape(value), u"\""}));
    return true;
}

void QVXml::EraseText(uint32_t offset, uint32_t count)
{
    text.erase(offset, count);
    const uint32_t end = offset + count;
    for (uint32_t k = 1; k < used; ++k)
    {
        Entry& entry = pages[k / pageSize][k % pageSize];
        if ((entry.flags & FLAG_FREE) != 0)
            continue;
        if (entry.start >= end)
            entry.start -= count;
        else if (entry.start < offset && entry.start + entry.length >= end)
            entry.length -= count;
    }
    At(kDocument)->length = static_cast<uint32_t>(text.size());
}

void QVXml::Unlink(Handle element)
{
    Entry* entry = At(element);
    Entry* parent = At(entry->parent);
    const Handle next = entry->nextSibling;
    if (parent->firstChild == element)
    {
        parent->firstChild = next;
        if (next != 0)
            At(next)->previousSibling = entry->previousSibling;  // the last child
    }
    else
    {
        const Handle previous = entry->previousSibling;
        At(previous)->nextSibling = next;
        if (next != 0)
            At(next)->previousSibling = previous;
        else
            At(parent->firstChild)->previousSibling = previous;  // it was the last child
    }
}

void QVXml::FreeSubtree(Handle element)
{
    // Walks the subtree without recursion: down through first children, then
    // along siblings and back up, freeing each entry once it is left behind.
    Handle current = element;
    for (;;)
    {
        Entry* entry = At(current);
        if (entry->firstChild != 0)
        {
            const Handle child = entry->firstChild;
            entry->firstChild = 0;
            current = child;
            continue;
        }
        const Handle next = current == element ? 0 : entry->nextSibling;
        const Handle parent = entry->parent;
        entry->flags = FLAG_FREE;
        entry->nextSibling = freeList;
        freeList = current;
        --elementCount;
        if (current == element)
            return;
        current = next != 0 ? next : parent;
    }
}

bool QVXml::RemoveElement(Handle element)
{
    const Entry* entry = Element(element);
    if (entry == nullptr)
        return false;
    uint32_t count = entry->length;
    const size_t after = static_cast<size_t>(entry->start) + count;
    if (entry->parent != kDocument && after + 2 <= text.size() &&
        text.compare(after, 2, u"\r\n") == 0)
        count += 2;
    const uint32_t start = entry->start;
    Unlink(element);
    FreeSubtree(element);
    EraseText(start, count);
    return true;
}

QVString QVXml::GetDocumentText() const
{
    return QVString(text.c_str(), static_cast<int32_t>(text.size()));
}
