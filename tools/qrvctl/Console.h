#pragma once

#include <nlohmann/json.hpp>

#include <functional>
#include <mutex>
#include <ostream>
#include <string>

namespace vela::qrvctl {

// Where the tool writes: results on the output stream (text, or one JSON document per command),
// progress, hints and errors on the error stream. Progress bars are drawn only when the error
// stream is a terminal. Writes to the error stream may come from several threads (a progress
// ticker, event subscribers) and are serialised here; the output stream is written by the
// thread that runs the command.
class Console {
public:
    Console(std::ostream& out, std::ostream& err, bool errorIsTerminal, int columns);
    // std::cout and std::cerr with the real terminal's properties.
    static Console& Standard();

    std::ostream& Out() { return m_out; }
    bool Json() const { return m_json; }
    void SetJson(bool json) { m_json = json; }
    bool ErrorIsTerminal() const { return m_errorIsTerminal; }
    int Columns() const { return m_columns; }

    // Writes text to the error stream as it stands (a progress bar redraws with '\r').
    void Error(const std::string& text);
    void ErrorLine(const std::string& line) { Error(line + "\n"); }
    // A notice on the error stream, folded to the terminal (error lines stay whole for scripts).
    void NoticeLine(const std::string& line);

    // A command's result: the document in JSON mode, otherwise what `text` writes. Flushed.
    void Result(const nlohmann::json& document, const std::function<void(std::ostream&)>& text);
    // One JSON document on one line (for streamed events), flushed.
    void JsonLine(const nlohmann::json& document);

private:
    std::ostream& m_out;
    std::ostream& m_err;
    bool m_errorIsTerminal;
    int m_columns;
    bool m_json = false;
    std::mutex m_errMutex;
};

} // namespace vela::qrvctl
