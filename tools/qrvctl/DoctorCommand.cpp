#include "DoctorCommand.h"

#include "DoctorChecks.h"

namespace vela::qrvctl {

namespace {

const char* LevelKey(DoctorFinding::Level level) {
    switch (level) {
    case DoctorFinding::Level::ok:
        return "ok";
    case DoctorFinding::Level::warning:
        return "warning";
    case DoctorFinding::Level::failure:
        return "failure";
    }
    return "failure";
}

const char* LevelTag(DoctorFinding::Level level) {
    switch (level) {
    case DoctorFinding::Level::ok:
        return "ok  ";
    case DoctorFinding::Level::warning:
        return "warn";
    case DoctorFinding::Level::failure:
        return "FAIL";
    }
    return "FAIL";
}

// Continuation lines of a multi-line fix line up under its first line.
std::string Indented(const std::string& text, const std::string& indent) {
    std::string result;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\n') {
            result += text[i];
        } else if (i + 1 < text.size()) {
            result += "\n" + indent;
        }
    }
    return result;
}

} // namespace

ExitCode DoctorCommand::Run(Console& console, PrinterSession& session) {
    const auto findings = DoctorChecks::Run(session.Printers());
    ExitCode result = ExitCode::ok;
    nlohmann::json checks = nlohmann::json::array();
    for (const auto& finding : findings) {
        if (finding.level == DoctorFinding::Level::failure && result == ExitCode::ok) {
            result = finding.code == ExitCode::ok ? ExitCode::failure : finding.code;
        }
        checks.push_back({{"check", finding.check},
                          {"status", LevelKey(finding.level)},
                          {"detail", finding.detail},
                          {"fix", finding.fix.empty() ? nlohmann::json() : nlohmann::json(finding.fix)}});
    }
    console.Result({{"ok", result == ExitCode::ok}, {"checks", checks}}, [&](TextWriter& out) {
        for (const auto& finding : findings) {
            out << LevelTag(finding.level) << "  " << finding.check << ": " << finding.detail << '\n';
            if (!finding.fix.empty()) {
                out << "      fix: " << Indented(finding.fix, "           ") << '\n';
            }
        }
        out << (result == ExitCode::ok ? "Nothing stands in the way."
                                       : "Fix the FAIL lines above, then run `qrvctl doctor` again.")
            << '\n';
    });
    return result;
}

} // namespace vela::qrvctl
