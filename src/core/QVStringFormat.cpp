// QVString::Format: the specifiers of the wide printf family, with the kinds
// of the arguments checked instead of trusted.
#include <cstdio>
#include <string>

#include "core/QVString.h"

namespace
{

struct Specifier
{
    std::string flags;
    int width = -1;
    int precision = -1;
    char16_t conversion = 0;
};

class Formatter
{
public:
    Formatter(const char16_t* format, std::initializer_list<QVFormatArg> args)
        : m_format(format ? format : u""), m_next(args.begin()), m_end(args.end())
    {
    }

    bool Run(QVString& out);

private:
    const QVFormatArg* NextArg() { return m_next != m_end ? m_next++ : nullptr; }
    bool ReadSpecifier(const char16_t*& p, Specifier& specifier);
    bool ReadCount(const char16_t*& p, int& count);
    bool WriteArg(QVString& out, const Specifier& specifier, const QVFormatArg* arg);
    static void WriteNumber(QVString& out, const Specifier& specifier, const char* length,
                            const QVFormatArg& arg);
    static void WriteText(QVString& out, const Specifier& specifier, const QVString& text);

    const char16_t* m_format;
    const QVFormatArg* m_next;
    const QVFormatArg* m_end;
};

bool IsIntegerKind(const QVFormatArg& arg)
{
    return arg.GetKind() == QVFormatArg::KIND_INT || arg.GetKind() == QVFormatArg::KIND_UINT;
}

bool IsNumberKind(const QVFormatArg& arg)
{
    return IsIntegerKind(arg) || arg.GetKind() == QVFormatArg::KIND_DOUBLE;
}

bool IsTextKind(const QVFormatArg& arg)
{
    return arg.GetKind() == QVFormatArg::KIND_TEXT || arg.GetKind() == QVFormatArg::KIND_UTF8;
}

int64_t AsInt(const QVFormatArg& arg)
{
    switch (arg.GetKind())
    {
    case QVFormatArg::KIND_UINT: return static_cast<int64_t>(arg.GetUInt());
    case QVFormatArg::KIND_DOUBLE: return static_cast<int64_t>(arg.GetDouble());
    default: return arg.GetInt();
    }
}

double AsDouble(const QVFormatArg& arg)
{
    switch (arg.GetKind())
    {
    case QVFormatArg::KIND_INT: return static_cast<double>(arg.GetInt());
    case QVFormatArg::KIND_UINT: return static_cast<double>(arg.GetUInt());
    default: return arg.GetDouble();
    }
}

bool Formatter::ReadCount(const char16_t*& p, int& count)
{
    if (*p == u'*')
    {
        ++p;
        const QVFormatArg* arg = NextArg();
        if (!arg || !IsIntegerKind(*arg))
            return false;
        count = static_cast<int>(AsInt(*arg));
        return true;
    }
    if (*p < u'0' || *p > u'9')
        return true;
    count = 0;
    for (; *p >= u'0' && *p <= u'9'; ++p)
        if (count < 100000)
            count = count * 10 + (*p - u'0');
    return true;
}

// Flags, width, precision and length modifiers, which only the platform's
// printf would need: all arguments arrive at their full width here.
bool Formatter::ReadSpecifier(const char16_t*& p, Specifier& specifier)
{
    for (; *p == u'-' || *p == u'+' || *p == u' ' || *p == u'#' || *p == u'0'; ++p)
        specifier.flags += static_cast<char>(*p);
    if (!ReadCount(p, specifier.width))
        return false;
    if (specifier.width < -1)
    {  // a negative width from '*' means left-aligned
        specifier.flags += '-';
        specifier.width = -specifier.width;
    }
    if (*p == u'.')
    {
        ++p;
        specifier.precision = 0;
        if (!ReadCount(p, specifier.precision))
            return false;
    }
    while (*p == u'h' || *p == u'l' || *p == u'L' || *p == u'z' || *p == u'j' || *p == u't' ||
           *p == u'w' || *p == u'q')
        ++p;
    if (p[0] == u'I' && ((p[1] == u'6' && p[2] == u'4') || (p[1] == u'3' && p[2] == u'2')))
        p += 3;
    else if (*p == u'I')
        ++p;
    specifier.conversion = *p;
    if (*p)
        ++p;
    return true;
}

void Formatter::WriteNumber(QVString& out, const Specifier& specifier, const char* length,
                            const QVFormatArg& arg)
{
    std::string pattern(1, '%');
    pattern += specifier.flags;
    if (specifier.width >= 0)
        pattern += std::to_string(specifier.width);
    if (specifier.precision >= 0)
    {
        pattern += '.';
        pattern += std::to_string(specifier.precision);
    }
    pattern += length;
    pattern += static_cast<char>(specifier.conversion);
    const char* text = pattern.c_str();
    std::string buffer(64, '\0');
    for (;;)
    {
        int written = 0;
        if (*length == 'L')
            written = std::snprintf(buffer.data(), buffer.size(), text,
                                    static_cast<long double>(AsDouble(arg)));
        else if (specifier.conversion == u'p')
            written = std::snprintf(buffer.data(), buffer.size(), text, arg.GetPointer());
        else
            written = std::snprintf(buffer.data(), buffer.size(), text,
                                    static_cast<long long>(AsInt(arg)));
        if (written < 0)
            return;
        if (static_cast<size_t>(written) < buffer.size())
        {
            buffer.resize(static_cast<size_t>(written));
            break;
        }
        buffer.assign(static_cast<size_t>(written) + 1, '\0');
    }
    for (char c : buffer)
        out += static_cast<char16_t>(static_cast<unsigned char>(c));
}

void Formatter::WriteText(QVString& out, const Specifier& specifier, const QVString& text)
{
    int32_t count = text.GetLength();
    if (specifier.precision >= 0 && specifier.precision < count)
        count = specifier.precision;
    const bool left = specifier.flags.find('-') != std::string::npos;
    const int32_t pad = specifier.width > count ? specifier.width - count : 0;
    if (!left)
        out += QVString(u' ', pad);
    out.Append(text.c_str(), count);
    if (left)
        out += QVString(u' ', pad);
}

bool Formatter::WriteArg(QVString& out, const Specifier& specifier, const QVFormatArg* arg)
{
    switch (specifier.conversion)
    {
    case u'd':
    case u'i':
    case u'u':
    case u'x':
    case u'X':
    case u'o':
        if (!arg || !IsNumberKind(*arg))
            return false;
        WriteNumber(out, specifier, "ll", *arg);
        return true;
    case u'f':
    case u'F':
    case u'e':
    case u'E':
    case u'g':
    case u'G':
    case u'a':
    case u'A':
        if (!arg || !IsNumberKind(*arg))
            return false;
        WriteNumber(out, specifier, "L", *arg);
        return true;
    case u'c':
    case u'C':
        if (!arg || !IsIntegerKind(*arg))
            return false;
        WriteText(out, specifier, QVString(static_cast<char16_t>(AsInt(*arg)), 1));
        return true;
    case u's':
    case u'S':
        if (!arg || !IsTextKind(*arg))
            return false;
        if (arg->GetKind() == QVFormatArg::KIND_UTF8)
            WriteText(out, specifier,
                      QVString::FromUTF8(arg->GetUTF8() ? arg->GetUTF8() : "(null)"));
        else
            WriteText(out, specifier, QVString(arg->GetText() ? arg->GetText() : u"(null)"));
        return true;
    case u'p':
        if (!arg || arg->GetKind() != QVFormatArg::KIND_POINTER)
            return false;
        WriteNumber(out, specifier, "", *arg);
        return true;
    default: return false;  // unknown conversions, and %n, which is never honoured
    }
}

bool Formatter::Run(QVString& out)
{
    bool ok = true;
    for (const char16_t* p = m_format; *p;)
    {
        if (*p != u'%')
        {
            const char16_t* plain = p;
            while (*p && *p != u'%')
                ++p;
            out.Append(plain, static_cast<int32_t>(p - plain));
            continue;
        }
        if (p[1] == u'%')
        {
            out += u'%';
            p += 2;
            continue;
        }
        const char16_t* start = p++;
        Specifier specifier;
        const bool read = ReadSpecifier(p, specifier);
        const bool takesArg = specifier.conversion != 0;
        const QVFormatArg* arg = read && takesArg ? NextArg() : nullptr;
        if (!read || !WriteArg(out, specifier, arg))
        {
            out.Append(start, static_cast<int32_t>(p - start));  // shown as written
            ok = false;
        }
    }
    return ok;
}

}  // namespace

bool QVString::TryFormat(QVString& result, const char16_t* format,
                         std::initializer_list<QVFormatArg> args)
{
    QVString out;
    const bool ok = Formatter(format, args).Run(out);
    result = std::move(out);
    return ok;
}

QVString QVString::Format(const char16_t* format, std::initializer_list<QVFormatArg> args)
{
    QVString out;
    Formatter(format, args).Run(out);
    return out;
}
