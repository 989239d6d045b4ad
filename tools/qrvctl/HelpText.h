#pragma once

#include <string>

namespace vela::qrvctl {

// Help as the command-line parser writes it, folded so that no line is wider than the terminal.
class HelpText {
public:
    // Folds at spaces each line of `text` that would reach the last of `columns`. A folded line
    // goes on under its description column ("  --json   Print the..." goes on under "Print"),
    // or under its own indentation when it has no such column; a word wider than the room left
    // is cut.
    static std::string Fit(const std::string& text, int columns);
};

} // namespace vela::qrvctl
