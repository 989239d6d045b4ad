#include "Console.h"
#include "HelpText.h"

#include "Terminal.h"

#include <cstdio>

namespace vela::qrvctl {

namespace {

Console::Sink StandardSink(std::FILE* file) {
    return [file](std::string_view text) {
        const bool written = std::fwrite(text.data(), 1, text.size(), file) == text.size();
        return std::fflush(file) == 0 && written;
    };
}

} // namespace

Console::Console(Sink out, Sink err, bool errorIsTerminal, int columns)
    : m_out(std::move(out)), m_err(std::move(err)), m_errorIsTerminal(errorIsTerminal), m_columns(columns) {}

Console& Console::Standard() {
    static Console console(StandardSink(stdout), StandardSink(stderr),
                           Terminal::IsTerminal(Terminal::Stream::error),
                           Terminal::Columns(Terminal::Stream::error));
    return console;
}

void Console::Error(const std::string& text) {
    std::lock_guard<std::mutex> lock(m_errMutex);
    m_err(text);
}

void Console::Result(const nlohmann::json& document, const std::function<void(TextWriter&)>& text) {
    if (m_json) {
        m_out(document.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + '\n');
        return;
    }
    TextWriter writer;
    text(writer);
    m_out(writer.Text());
}

void Console::JsonLine(const nlohmann::json& document) {
    m_out(document.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + '\n');
}

void Console::NoticeLine(const std::string& line) {
    Error(HelpText::Fit(line, m_columns) + "\n");
}

} // namespace vela::qrvctl
