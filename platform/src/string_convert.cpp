#include "string_convert.h"

namespace Tavik {

namespace {

void AppendUtf8(std::string& out, char32_t cp)
{
    if (cp < 0x80) {
        out.push_back(static_cast<char>(cp));
    } else if (cp < 0x800) {
        out.push_back(static_cast<char>(0xC0 | (cp >> 6)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else if (cp < 0x10000) {
        out.push_back(static_cast<char>(0xE0 | (cp >> 12)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else {
        out.push_back(static_cast<char>(0xF0 | (cp >> 18)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    }
}

bool IsHighSurrogate(char32_t unit)
{
    return unit >= 0xD800 && unit <= 0xDBFF;
}

bool IsLowSurrogate(char32_t unit)
{
    return unit >= 0xDC00 && unit <= 0xDFFF;
}

}  // namespace

std::string Str16ToStr8(const std::u16string& str16)
{
    std::string out;
    out.reserve(str16.size());
    for (size_t i = 0; i < str16.size(); ++i) {
        char32_t unit = str16[i];
        if (IsHighSurrogate(unit)) {
            if (i + 1 >= str16.size() || !IsLowSurrogate(str16[i + 1])) {
                return std::string();
            }
            char32_t low = str16[++i];
            AppendUtf8(out, 0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00));
        } else if (IsLowSurrogate(unit)) {
            return std::string();
        } else {
            AppendUtf8(out, unit);
        }
    }
    return out;
}

std::u16string Str8ToStr16(const std::string& str)
{
    std::u16string out;
    out.reserve(str.size());
    size_t i = 0;
    while (i < str.size()) {
        auto lead = static_cast<unsigned char>(str[i]);
        char32_t cp = 0;
        size_t extra = 0;
        if (lead < 0x80) {
            cp = lead;
        } else if (lead >= 0xC2 && lead <= 0xDF) {
            cp = lead & 0x1F;
            extra = 1;
        } else if (lead >= 0xE0 && lead <= 0xEF) {
            cp = lead & 0x0F;
            extra = 2;
        } else if (lead >= 0xF0 && lead <= 0xF4) {
            cp = lead & 0x07;
            extra = 3;
        } else {
            return std::u16string();
        }
        if (i + extra >= str.size()) {
            return std::u16string();
        }
        for (size_t k = 1; k <= extra; ++k) {
            auto next = static_cast<unsigned char>(str[i + k]);
            if ((next & 0xC0) != 0x80) {
                return std::u16string();
            }
            cp = (cp << 6) | (next & 0x3F);
        }
        // Overlong forms, surrogates and values past U+10FFFF are ill-formed.
        if ((extra == 2 && cp < 0x800) || (extra == 3 && (cp < 0x10000 || cp > 0x10FFFF)) ||
            (cp >= 0xD800 && cp <= 0xDFFF)) {
            return std::u16string();
        }
        if (cp >= 0x10000) {
            cp -= 0x10000;
            out.push_back(static_cast<char16_t>(0xD800 + (cp >> 10)));
            out.push_back(static_cast<char16_t>(0xDC00 + (cp & 0x3FF)));
        } else {
            out.push_back(static_cast<char16_t>(cp));
        }
        i += extra + 1;
    }
    return out;
}

}  // namespace Tavik
