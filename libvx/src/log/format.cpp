#include "record.h"
#include "vxvisible.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstring>

namespace {

// What is left of the caller's room, the terminator's byte set aside.
class tcRoom
{
public:
    tcRoom(char* text, size_t size) : mpNext(text), mpEnd(text + size - 1) {}

    size_t Left() const { return static_cast<size_t>(mpEnd - mpNext); }
    void append(const char* text, size_t length) { Add(text, length); }
    void Add(const char* text, size_t length)
    {
        length = std::min(length, Left());
        std::memcpy(mpNext, text, length);
        mpNext += length;
    }
    template <class Number>
    void AddNumber(Number number, int base = 10)
    {
        char digits[24];
        const auto end = std::to_chars(digits, digits + sizeof digits, number, base).ptr;
        Add(digits, static_cast<size_t>(end - digits));
    }
    void AddString(const char* text, bool isVisible)
    {
        if (text == nullptr) text = "(null)";
        const std::string_view visible(text, strnlen(text, Left()));
        if (isVisible)
            vx::AppendVisible(*this, visible);
        else
            Add(text, visible.size());
    }
    void Terminate() { *mpNext = '\0'; }

private:
    char* mpNext;
    char* mpEnd;
};

// One conversion without flags, width and precision; `conversion` is behind the percent sign and is
// left behind the conversion. False for one that is not known here.
bool Convert(tcRoom& room, const char*& conversion, va_list& args, bool isVisible)
{
    const bool isLong = *conversion == 'l';
    if (isLong) ++conversion;
    switch (*conversion++) {
    case 'd':
    case 'i':
        isLong ? room.AddNumber(va_arg(args, long)) : room.AddNumber(va_arg(args, int));
        return true;
    case 'u':
        isLong ? room.AddNumber(va_arg(args, unsigned long))
               : room.AddNumber(va_arg(args, unsigned));
        return true;
    case 'x':
        isLong ? room.AddNumber(va_arg(args, unsigned long), 16)
               : room.AddNumber(va_arg(args, unsigned), 16);
        return true;
    case 's':
        if (!isLong) room.AddString(va_arg(args, const char*), isVisible);
        return !isLong;
    case '%':
        if (!isLong) room.Add("%", 1);
        return !isLong;
    default:
        return false;
    }
}

bool FormatSimply(char* text, size_t size, const char* format, va_list& args, bool isVisible)
{
    tcRoom room(text, size);
    while (*format != '\0') {
        const char* const percent = strchrnul(format, '%');
        room.Add(format, static_cast<size_t>(percent - format));
        if (*percent == '\0') break;
        format = percent + 1;
        if (*format == '\0')
            room.Add(percent, 1); // no conversion, the percent sign itself
        else if (!Convert(room, format, args, isVisible))
            return false;
    }
    room.Terminate();
    return true;
}

void CopyText(char* text, size_t size, const char* from)
{
    const size_t length = strnlen(from, size - 1);
    std::memcpy(text, from, length);
    text[length] = '\0';
}

} // namespace

bool vx::TakesZeros(const char* format)
{
    int arguments = 0;
    for (const char* at = strchrnul(format, '%'); *at != '\0'; at = strchrnul(at, '%')) {
        const char* const options = at + 1;
        at = options + std::strspn(options, " #+-'I0123456789.*hlLqjzt");
        arguments += static_cast<int>(std::count(options, at, '*'));
        if (*at == '\0') break;
        if (std::strchr("nw$", *at) != nullptr) return false;
        if (*at++ != '%') ++arguments;
    }
    return arguments <= 8;
}

void vx::FormatText(char* text, size_t size, const char* format, va_list args, bool isVisible)
{
    va_list simple;
    va_copy(simple, args);
    const bool done = FormatSimply(text, size, format, simple, isVisible);
    va_end(simple);
    if (done) return;
    std::memset(text, 0, size);
    if (std::vsnprintf(text, size, format, args) < 0 && text[0] == '\0')
        CopyText(text, size, format);
    if (isVisible) CopyText(text, size, Visible(text).c_str());
}
