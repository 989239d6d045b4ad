#include "common/StringConverter.h"

#include <cstdint>
#include <type_traits>

namespace vela::common {

namespace {

constexpr char32_t kReplacement = 0xFFFD;

void AppendUtf8(std::string& out, char32_t cp) {
    if (cp >= 0xD800 && cp <= 0xDFFF) {
        cp = kReplacement;
    }
    if (cp > 0x10FFFF) {
        cp = kReplacement;
    }
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

void AppendWide(std::wstring& out, char32_t cp) {
    if constexpr (sizeof(wchar_t) == 2) {
        if (cp >= 0x10000) {
            cp -= 0x10000;
            out.push_back(static_cast<wchar_t>(0xD800 + (cp >> 10)));
            out.push_back(static_cast<wchar_t>(0xDC00 + (cp & 0x3FF)));
            return;
        }
    }
    out.push_back(static_cast<wchar_t>(cp));
}

} // namespace

std::string StringConverter::ToUtf8(const std::wstring& text) {
    std::string out;
    out.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        char32_t cp = static_cast<char32_t>(static_cast<std::make_unsigned_t<wchar_t>>(text[i]));
        if constexpr (sizeof(wchar_t) == 2) {
            if (cp >= 0xD800 && cp <= 0xDBFF && i + 1 < text.size()) {
                char32_t low = static_cast<char32_t>(static_cast<uint16_t>(text[i + 1]));
                if (low >= 0xDC00 && low <= 0xDFFF) {
                    cp = 0x10000 + ((cp - 0xD800) << 10) + (low - 0xDC00);
                    ++i;
                }
            }
        }
        AppendUtf8(out, cp);
    }
    return out;
}

std::wstring StringConverter::FromUtf8(const std::string& text) {
    return FromUtf8(text.data(), text.size());
}

std::wstring StringConverter::FromUtf8(const char* data, size_t size) {
    std::wstring out;
    out.reserve(size);
    const auto* s = reinterpret_cast<const unsigned char*>(data);
    size_t i = 0;
    while (i < size) {
        unsigned char b = s[i];
        if (b < 0x80) {
            out.push_back(static_cast<wchar_t>(b));
            ++i;
            continue;
        }
        size_t need;
        char32_t cp;
        char32_t min;
        if (b >= 0xC2 && b <= 0xDF) {
            need = 1, cp = b & 0x1F, min = 0x80;
        } else if (b >= 0xE0 && b <= 0xEF) {
            need = 2, cp = b & 0x0F, min = 0x800;
        } else if (b >= 0xF0 && b <= 0xF4) {
            need = 3, cp = b & 0x07, min = 0x10000;
        } else {
            AppendWide(out, kReplacement);
            ++i;
            continue;
        }
        size_t j = 1;
        for (; j <= need && i + j < size; ++j) {
            unsigned char c = s[i + j];
            if ((c & 0xC0) != 0x80) {
                break;
            }
            cp = (cp << 6) | (c & 0x3F);
        }
        if (j <= need) {
            // Truncated or interrupted sequence: one replacement for the bytes consumed so far.
            AppendWide(out, kReplacement);
            i += j;
            continue;
        }
        if (cp < min || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) {
            cp = kReplacement;
        }
        AppendWide(out, cp);
        i += need + 1;
    }
    return out;
}

size_t StringConverter::Utf16Length(const std::wstring& text) {
    size_t n = text.size();
    if constexpr (sizeof(wchar_t) > 2) {
        for (wchar_t c : text) {
            // Code points above the basic multilingual plane take a surrogate pair in UTF-16.
            n += (static_cast<uint32_t>(c) >> 16) != 0 ? 1 : 0;
        }
    }
    return n;
}

} // namespace vela::common
