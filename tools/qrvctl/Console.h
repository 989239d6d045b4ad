#pragma once

#include "TextWriter.h"

#include <nlohmann/json.hpp>

#include <functional>
#include <mutex>
#include <string>
#include <string_view>

namespace vela::qrvctl {

// Where the tool writes: results on the output stream (text, or one JSON document per command),
// progress, hints and errors on the error stream. Progress bars are drawn only when the error
// stream is a terminal. Writes to the error stream may come from several threads (a progress
// ticker, event subscribers) and are serialised here; the output stream is written by the
// thread that runs the command.
class Console {
public:
    // Takes each piece written to one stream, in order, and passes it on at once; returns false
    // when it could not. May be called from any thread (see above), never throws.
    using Sink = std::function<bool(std::string_view)>;

    Console(Sink out, Sink err, bool errorIsTerminal, int columns);
    // Standard output and standard error with the real terminal's properties.
    static Console& Standard();

    bool Json() const { return m_json; }
    void SetJson(bool json) { m_json = json; }
    bool ErrorIsTerminal() const { return m_errorIsTerminal; }
    int Columns() const { return m_columns; }

    // Writes text (or a file's bytes) to the output stream as it stands; false when it could not.
    bool Output(std::string_view text) { return m_out(text); }
    // Writes text to the error stream as it stands (a progress bar redraws with '\r').
    void Error(const std::string& text);
    void ErrorLine(const std::string& line) { Error(line + "\n"); }
    // A notice on the error stream, folded to the terminal (error lines stay whole for scripts).
    void NoticeLine(const std::string& line);

    // A command's result: the document in JSON mode, otherwise what `text` writes.
    void Result(const nlohmann::json& document, const std::function<void(TextWriter&)>& text);
    // One JSON document on one line (for streamed events).
    void JsonLine(const nlohmann::json& document);

private:
    Sink m_out;
    Sink m_err;
    bool m_errorIsTerminal;
    int m_columns;
    bool m_json = false;
    std::mutex m_errMutex;
};

} // namespace vela::qrvctl
