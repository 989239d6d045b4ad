#pragma once

#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

namespace vela::qrvctl {

// A command's text, put together piece by piece with << (texts, characters, whole numbers) and
// then written out in one piece by the console. Not a C++ stream on purpose: the first stream of a
// process sets up the standard locale, work that no command needs at its start.
class TextWriter {
public:
    TextWriter& operator<<(std::string_view text) {
        m_text.append(text);
        return *this;
    }
    TextWriter& operator<<(char c) {
        m_text.push_back(c);
        return *this;
    }
    template <typename Number,
              typename = std::enable_if_t<std::is_integral_v<Number> && !std::is_same_v<Number, char> &&
                                          !std::is_same_v<Number, bool>>>
    TextWriter& operator<<(Number number) {
        m_text += std::to_string(number);
        return *this;
    }

    const std::string& Text() const { return m_text; }

private:
    std::string m_text;
};

} // namespace vela::qrvctl
