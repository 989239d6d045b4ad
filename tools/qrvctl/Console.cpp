#include "Console.h"
#include "HelpText.h"

#include "Terminal.h"

#include <iostream>

namespace vela::qrvctl {

Console::Console(std::ostream& out, std::ostream& err, bool errorIsTerminal, int columns)
    : m_out(out), m_err(err), m_errorIsTerminal(errorIsTerminal), m_columns(columns) {}

Console& Console::Standard() {
    static Console console(std::cout, std::cerr, Terminal::IsTerminal(Terminal::Stream::error),
                           Terminal::Columns(Terminal::Stream::error));
    return console;
}

void Console::Error(const std::string& text) {
    std::lock_guard<std::mutex> lock(m_errMutex);
    m_err << text;
    m_err.flush();
}

void Console::Result(const nlohmann::json& document, const std::function<void(std::ostream&)>& text) {
    if (m_json) {
        m_out << document.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) << '\n';
    } else {
        text(m_out);
    }
    m_out.flush();
}

void Console::JsonLine(const nlohmann::json& document) {
    m_out << document.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) << '\n';
    m_out.flush();
}

void Console::NoticeLine(const std::string& line) {
    Error(HelpText::Fit(line, m_columns) + "\n");
}

} // namespace vela::qrvctl
