#pragma once

#include "TextWriter.h"

#include <string>
#include <vector>

namespace vela::qrvctl {

// Left-aligned columns for text output, two spaces apart; widths count UTF-8 characters.
class TextTable {
public:
    void AddRow(std::vector<std::string> cells) { m_rows.push_back(std::move(cells)); }
    bool Empty() const { return m_rows.empty(); }
    void Print(TextWriter& out) const;

    // Characters (not bytes) in a UTF-8 text.
    static size_t Width(const std::string& text);

private:
    std::vector<std::vector<std::string>> m_rows;
};

} // namespace vela::qrvctl
