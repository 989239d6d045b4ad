#include "HelpText.h"

#include <algorithm>

namespace vela::qrvctl {

namespace {

// Where the text of a help line begins: after an option or command name and a gap of at least
// two spaces, when that lies in the left half; otherwise after the line's own indentation.
size_t HangingIndent(const std::string& line, size_t columns) {
    const size_t indent = line.find_first_not_of(' ');
    if (indent == std::string::npos) {
        return 0;
    }
    const size_t gap = line.find("  ", indent);
    if (gap != std::string::npos && indent > 0) {
        const size_t text = line.find_first_not_of(' ', gap);
        if (text != std::string::npos && text <= columns / 2) {
            return text;
        }
    }
    return indent <= columns / 2 ? indent : 0;
}

void FitLine(std::string line, size_t columns, std::string& out) {
    const std::string indent(HangingIndent(line, columns), ' ');
    while (line.size() > columns) {
        size_t cut = line.rfind(' ', columns);
        if (cut == std::string::npos || cut <= indent.size()) {
            cut = columns; // one word fills the line
        }
        out += line.substr(0, line.find_last_not_of(' ', cut - 1) + 1) + '\n';
        const size_t rest = line.find_first_not_of(' ', cut);
        if (rest == std::string::npos) {
            return;
        }
        line = indent + line.substr(rest);
    }
    out += line + '\n';
}

} // namespace

std::string HelpText::Fit(const std::string& text, int columns) {
    // One column short of the edge, like the progress lines: some terminals wrap a line that
    // fills the last column.
    const size_t width = columns > 21 ? static_cast<size_t>(columns - 1) : 20;
    std::string out;
    for (size_t start = 0; start < text.size();) {
        const size_t end = std::min(text.find('\n', start), text.size());
        FitLine(text.substr(start, end - start), width, out);
        start = end + 1;
    }
    if (!text.empty() && text.back() != '\n' && !out.empty()) {
        out.pop_back();
    }
    return out;
}

} // namespace vela::qrvctl
