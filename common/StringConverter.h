#pragma once

#include <cstddef>
#include <string>

namespace vela::common {

// UTF-8 <-> wide text without locales. A wide string holds UTF-16 on Windows and UTF-32 on
// Linux; both convert to the same UTF-8. Invalid input (broken UTF-8, lone surrogates, code
// points above U+10FFFF) becomes U+FFFD; nothing here throws for bad text.
// Thread-safety: stateless, callable from any thread.
class StringConverter {
public:
    static std::string ToUtf8(const std::wstring& text);
    static std::wstring FromUtf8(const std::string& text);
    static std::wstring FromUtf8(const char* data, size_t size);

    // Length of the text in UTF-16 code units, on every platform: a character outside the
    // basic multilingual plane counts two. Printer path lengths are measured this way.
    static size_t Utf16Length(const std::wstring& text);
};

} // namespace vela::common
