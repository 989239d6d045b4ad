#pragma once

#include <string>

namespace vela::sim {

// UTF-8 of a wide text (UTF-16 on Windows, UTF-32 elsewhere). Unpaired surrogates and values
// beyond U+10FFFF become U+FFFD. The channel paths are wide; the registration text is UTF-8.
std::string Utf8FromWide(const std::wstring& text);

} // namespace vela::sim
