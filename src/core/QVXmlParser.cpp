// The tokenizer of QVXml: one pass over the characters, with the open
// elements kept on a stack beside the element table. Nothing here recurses,
// so deeply nested input costs heap, not stack.

#include "core/QVXml.h"

#include "core/QVXmlText.h"

namespace
{

bool CanStartName(char16_t c)
{
    // Below ":" and from ";" to "`" only the capital letters may begin a name.
    if (c < u':')
        return false;
    if (c >= u';' && c <= u'`')
        return c >= u'A' && c <= u'Z';
    return true;
}

}  // namespace

class QVXml::CParser
{
public:
    explicit CParser(QVXml& xml) : xml(xml), t(xml.text), n(xml.text.size()) {}

    void Run()
    {
        size_t i = 0;
        while (i < n)
        {
            const size_t markup = t.find(u'<', i);
            const size_t textEnd = markup == std::u16string::npos ? n : markup;
            for (size_t k = i; k < textEnd && !sawContent; ++k)
                sawContent = !qvxml::IsSpace(t[k]);
            if (textEnd == n)
                break;
            sawContent = true;
            i = ReadMarkup(markup);
        }
        Finish();
    }

private:
    size_t ReadMarkup(size_t i)
    {
        if (i + 1 >= n)
        {
            Unterminated(u"Element tag", i);
            return n;
        }
        const char16_t next = t[i + 1];
        if (next == u'/')
            return ReadEndTag(i);
        if (next == u'!')
            return ReadBang(i);
        if (next == u'?')
            return SkipPast(i, i + 2, u"?>", u"Processing instruction");
        if (CanStartName(next))
            return ReadStartTag(i);
        Incorrect(u"tag name character", i + 1);
        return i + 1;
    }

    size_t ReadBang(size_t i)
    {
        const std::u16string_view rest = std::u16string_view(t).substr(i + 2);
        if (rest.starts_with(u"--"))
            return SkipPast(i, i + 4, u"-->", u"Comment");
        if (rest.starts_with(u"-"))
        {
            Incorrect(u"comment tag", i);
            return i + 1;
        }
        if (rest.starts_with(u"[C"))
            return SkipPast(i, i + 4, u"]]>", u"CDATA Section");
        if (rest.starts_with(u"D"))
            return SkipPast(i, i + 3, u">", u"Doctype");
        Incorrect(u"! tag", i);
        return i + 1;
    }

    size_t SkipPast(size_t start, size_t from, std::u16string_view terminator,
                    std::u16string_view construct)
    {
        const size_t found = from <= n ? t.find(terminator, from) : std::u16string::npos;
        if (found == std::u16string::npos)
        {
            Unterminated(construct, start);
            return n;
        }
        return found + terminator.size();
    }

    size_t ReadStartTag(size_t i)
    {
        char16_t quote = 0;
        size_t j = i + 1;
        for (; j < n; ++j)
        {
            const char16_t c = t[j];
            if (quote != 0)
            {
                if (c == quote)
                    quote = 0;
            }
            else if (c == u'"' || c == u'\'')
                quote = c;
            else if (c == u'>')
                break;
            else if (c == u'<')
            {
                Unterminated(u"Element tag", i);
                return j;
            }
        }
        if (j >= n)
        {
            Unterminated(u"Element tag", i);
            return n;
        }
        const Handle parent = open.empty() ? kDocument : open.back();
        if (parent == kDocument && xml.GetFirstChild(kDocument) != 0 && !sawRootSibling)
        {
            sawRootSibling = true;
            documentErrors.push_back(u"Root element has sibling");
        }
        const bool empty = t[j - 1] == u'/';
        const Handle element = xml.NewEntry();
        Entry* entry = xml.At(element);
        const uint32_t tagLength = static_cast<uint32_t>(j + 1 - i);
        entry->start = static_cast<uint32_t>(i);
        entry->tagLengths = qvxml::PackTagLengths(tagLength, 0);
        entry->flags = (empty ? (FLAG_EMPTY | FLAG_ENDED) : 0) | qvxml::PackDepth(open.size() + 1);
        entry->length = tagLength;  // grows when the element closes
        xml.AppendChild(parent, element);
        if (!empty)
            open.push_back(element);
        return j + 1;
    }

    size_t ReadEndTag(size_t i)
    {
        size_t j = i + 2;
        while (j < n && t[j] != u'>' && t[j] != u'<')
            ++j;
        if (j >= n || t[j] == u'<')
        {
            Unterminated(u"Element end tag", i);
            return j;
        }
        size_t nameEnd = i + 2;
        while (nameEnd < j && !qvxml::IsSpace(t[nameEnd]))
            ++nameEnd;
        const std::u16string_view name = std::u16string_view(t).substr(i + 2, nameEnd - (i + 2));
        if (name.empty())
        {
            Incorrect(u"tag", i);
            return j + 1;
        }
        size_t match = open.size();
        while (match > 0 && xml.NameView(*xml.At(open[match - 1])) != name)
            --match;
        if (match == 0)
        {
            xml.NoteError(qvxml::Message(
                {u"No start tag for end tag '", name, u"' at offset ", qvxml::Number(i)}));
            return j + 1;
        }
        const size_t target = match - 1;
        if (target + 1 < open.size())
        {
            const Entry& innermost = *xml.At(open.back());
            xml.NoteError(qvxml::Message({u"End tag '", name, u"' at offset ", qvxml::Number(i),
                                          u" does not match start tag '", xml.NameView(innermost),
                                          u"' at offset ", qvxml::Number(innermost.start)}));
            while (open.size() > target + 1)
            {
                CloseNotEnded(open.back(), i);
                open.pop_back();
            }
        }
        Entry* entry = xml.At(open.back());
        entry->length = static_cast<uint32_t>(j + 1 - entry->start);
        entry->tagLengths =
            qvxml::PackTagLengths(xml.StartTagLength(*entry), static_cast<uint32_t>(j + 1 - i));
        entry->flags |= FLAG_ENDED;
        open.pop_back();
        return j + 1;
    }

    // An element that an outer end tag closes has no content of its own
    // beyond its first child: the children belong to the element that was
    // really closed, so they move up to its parent.
    void CloseNotEnded(Handle element, size_t closedAt)
    {
        Entry* entry = xml.At(element);
        const Entry* firstChild = entry->firstChild != 0 ? xml.At(entry->firstChild) : nullptr;
        const size_t contentEnd = firstChild != nullptr ? firstChild->start : closedAt;
        entry->length = static_cast<uint32_t>(contentEnd - entry->start);
        entry->flags |= FLAG_NOT_ENDED | FLAG_ERROR;
        xml.MoveChildrenUp(element);
    }

    void Finish()
    {
        // Elements still open at the end of the text keep their children: no
        // outer element claims them.
        while (!open.empty())
        {
            Entry* entry = xml.At(open.back());
            entry->length = static_cast<uint32_t>(n - entry->start);
            entry->flags |= FLAG_NOT_ENDED | FLAG_ERROR;
            xml.NoteError(qvxml::Message({u"Element '", xml.NameView(*entry), u"' at offset ",
                                          qvxml::Number(entry->start), u" not ended"}));
            open.pop_back();
        }
        if (!sawContent)
            documentErrors.insert(documentErrors.begin(), u"Empty document");
        else if (xml.GetFirstChild(kDocument) == 0)
            documentErrors.insert(documentErrors.begin(), u"No root element");
        for (std::u16string& message : documentErrors)
            xml.NoteError(std::move(message));
    }

    void Incorrect(std::u16string_view what, size_t offset)
    {
        xml.NoteError(qvxml::Message({u"Incorrect ", what, u" at offset ", qvxml::Number(offset)}));
    }

    void Unterminated(std::u16string_view construct, size_t offset)
    {
        xml.NoteError(
            qvxml::Message({construct, u" at offset ", qvxml::Number(offset), u" unterminated"}));
    }

    QVXml& xml;
    const std::u16string& t;
    const size_t n;
    std::vector<Handle> open;
    std::vector<std::u16string> documentErrors;
    bool sawContent = false;
    bool sawRootSibling = false;
};

bool QVXml::Parse(std::u16string_view source)
{
    text.assign(source);
    Reset(text.size());
    CParser(*this).Run();
    if (!errors.empty())
        At(kDocument)->flags |= FLAG_ERROR;
    return errors.empty();
}

bool QVXml::Parse(const QVString& source)
{
    return Parse(std::u16string_view(source.c_str(), static_cast<size_t>(source.GetLength())));
}
