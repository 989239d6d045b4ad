#include "OptionParser.h"

#include "CommandError.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace vela::qrvctl {

namespace {

// Where the descriptions of the help's entries start.
constexpr size_t kDescriptionColumn = 30;

[[noreturn]] void Mistake(const std::string& message) {
    throw CommandError(ExitCode::usage, message,
                       "`qrvctl --help` lists the commands; `qrvctl COMMAND --help` their options.");
}

std::vector<std::string> SplitNames(const std::string& names) {
    std::vector<std::string> result;
    size_t start = 0;
    while (start <= names.size()) {
        const size_t comma = std::min(names.find(',', start), names.size());
        result.push_back(names.substr(start, comma - start));
        start = comma + 1;
    }
    return result;
}

std::string Join(const std::vector<std::string>& names) {
    std::string text;
    for (const std::string& name : names) {
        text += (text.empty() ? "" : ",") + name;
    }
    return text;
}

// The edit distance of two command names (insertions, deletions, substitutions).
size_t Distance(const std::string& a, const std::string& b) {
    std::vector<size_t> row(b.size() + 1);
    for (size_t j = 0; j <= b.size(); ++j) {
        row[j] = j;
    }
    for (size_t i = 1; i <= a.size(); ++i) {
        size_t diagonal = row[0];
        row[0] = i;
        for (size_t j = 1; j <= b.size(); ++j) {
            const size_t above = row[j];
            row[j] = std::min({row[j] + 1, row[j - 1] + 1, diagonal + (a[i - 1] == b[j - 1] ? 0 : 1)});
            diagonal = above;
        }
    }
    return row[b.size()];
}

// One entry of a help section: the name, then its description from a fixed column (on a line
// of its own when the name reaches that column).
void Entry(std::string& help, const std::string& name, const std::string& description) {
    std::string line = "  " + name;
    line += line.size() + 2 <= kDescriptionColumn ? std::string(kDescriptionColumn - line.size(), ' ')
                                                  : "\n" + std::string(kDescriptionColumn, ' ');
    help += line + description + "\n";
}

} // namespace

OptionParser::OptionParser(std::string name, std::string description)
    : m_name(std::move(name)), m_description(std::move(description)) {}

void OptionParser::Add(const std::string& names, std::string valueName, std::string description,
                       std::string environment, std::function<void(const std::string&)> set) {
    m_options.push_back(Option{SplitNames(names), std::move(valueName), std::move(description),
                               std::move(environment), std::move(set)});
}

void OptionParser::AddFlag(const std::string& names, bool& value, std::string description) {
    Add(names, std::string(), std::move(description), std::string(),
        [&value](const std::string&) { value = true; });
}

void OptionParser::AddText(const std::string& names, std::string& value, std::string valueName,
                           std::string description, std::string environment) {
    Add(names, std::move(valueName), std::move(description), std::move(environment),
        [&value](const std::string& text) { value = text; });
}

void OptionParser::AddSeconds(const std::string& names, double& value, std::string valueName,
                              std::string description) {
    const std::string shown = SplitNames(names).back();
    Add(names, std::move(valueName), std::move(description), std::string(),
        [&value, shown](const std::string& text) {
            // strtod, not from_chars: that one would load the maths library at every start. The
            // tool never changes the C locale, so the decimal point is always '.'.
            char* stop = nullptr;
            const double seconds = std::strtod(text.c_str(), &stop);
            if (text.empty() || stop != text.c_str() + text.size() || !std::isfinite(seconds)) {
                Mistake(shown + ": '" + text + "' is not a number of seconds");
            }
            if (seconds <= 0) {
                Mistake(shown + ": the time must be more than 0 seconds, not " + text);
            }
            value = seconds;
        });
}

void OptionParser::AddPositional(std::string name, std::string& value, std::string description) {
    m_positionals.push_back(Positional{std::move(name), std::move(description),
                                       [&value](const std::string& text) { value = text; }});
}

OptionParser& OptionParser::AddCommand(std::string name, std::string description, bool hidden) {
    m_commands.push_back(std::make_unique<OptionParser>(std::move(name), std::move(description)));
    m_commands.back()->m_hidden = hidden;
    m_commands.back()->m_parent = this;
    return *m_commands.back();
}

const OptionParser::Option* OptionParser::FindOption(const std::string& name) const {
    for (const OptionParser* scope = this; scope != nullptr; scope = scope->m_parent) {
        for (const Option& option : scope->m_options) {
            if (std::find(option.names.begin(), option.names.end(), name) != option.names.end()) {
                return &option;
            }
        }
    }
    return nullptr;
}

const OptionParser* OptionParser::FindCommand(const std::string& name) const {
    for (const auto& command : m_commands) {
        if (command->m_name == name) {
            return command.get();
        }
    }
    return nullptr;
}

// An unknown command's message, with the nearest known one when it is near enough.
std::string OptionParser::UnknownCommand(const std::string& typed) const {
    std::string nearest;
    size_t best = std::string::npos;
    for (const auto& command : m_commands) {
        const size_t distance = Distance(typed, command->m_name);
        if (!command->m_hidden && distance < best) {
            best = distance;
            nearest = command->m_name;
        }
    }
    std::string message = "unknown command '" + typed + "'";
    if (!nearest.empty() && best <= std::max<size_t>(2, nearest.size() / 3)) {
        message += "; did you mean '" + nearest + "'?";
    }
    return message;
}

OptionParser::Outcome OptionParser::Parse(const std::vector<std::string>& arguments) const {
    Outcome outcome;
    const OptionParser* scope = this;
    std::vector<const Option*> given;
    size_t positionals = 0;
    bool help = false;
    bool optionsEnded = false;
    for (size_t i = 0; i < arguments.size(); ++i) {
        const std::string& word = arguments[i];
        if (!optionsEnded && word == "--") {
            optionsEnded = true;
            continue;
        }
        if (optionsEnded || word.size() < 2 || word[0] != '-') {
            if (scope == this && !m_commands.empty()) {
                scope = FindCommand(word);
                if (scope == nullptr) {
                    Mistake(UnknownCommand(word));
                }
            } else if (positionals < scope->m_positionals.size()) {
                scope->m_positionals[positionals++].set(word);
            } else {
                Mistake("unexpected argument '" + word + "'");
            }
            continue;
        }
        // "--name", "--name=value", or short flags, alone or together ("-vh").
        const bool isLong = word[1] == '-';
        const size_t equals = isLong ? word.find('=') : std::string::npos;
        std::vector<std::string> names;
        if (isLong) {
            names.push_back(word.substr(0, equals));
        } else {
            for (size_t c = 1; c < word.size(); ++c) {
                names.push_back(std::string("-") + word[c]);
            }
        }
        for (size_t n = 0; n < names.size(); ++n) {
            const std::string& name = names[n];
            if (name == "--help" || name == "-h") {
                help = true;
                continue;
            }
            if (name == "--version" && !m_version.empty()) {
                outcome.kind = Outcome::Kind::version;
                outcome.text = m_version + "\n";
                return outcome;
            }
            const Option* option = scope->FindOption(name);
            if (option == nullptr) {
                Mistake("unknown option '" + name + "'" +
                        (scope == this ? "" : " for the command " + scope->m_name));
            }
            if (option->valueName.empty()) {
                if (equals != std::string::npos) {
                    Mistake(name + " takes no value");
                }
                option->set(std::string());
            } else if (equals != std::string::npos) {
                option->set(word.substr(equals + 1));
            } else if (n + 1 == names.size() && i + 1 < arguments.size()) {
                option->set(arguments[++i]);
            } else {
                Mistake(name + " needs a value (" + option->valueName + ")");
            }
            given.push_back(option);
        }
    }
    if (help) {
        outcome.kind = Outcome::Kind::help;
        outcome.text = scope->Help();
        return outcome;
    }
    if (scope == this && !m_commands.empty()) {
        Mistake("no command given");
    }
    if (positionals < scope->m_positionals.size()) {
        Mistake(scope->m_positionals[positionals].name + " is required: " + scope->Usage());
    }
    for (const OptionParser* level = scope; level != nullptr; level = level->m_parent) {
        for (const Option& option : level->m_options) {
            const char* value =
                option.environment.empty() ? nullptr : std::getenv(option.environment.c_str());
            if (value != nullptr && *value != '\0' &&
                std::find(given.begin(), given.end(), &option) == given.end()) {
                option.set(value);
            }
        }
    }
    outcome.command = scope;
    return outcome;
}

std::string OptionParser::Usage() const {
    std::string usage = m_parent == nullptr ? m_name : m_parent->m_name + " " + m_name;
    usage += " [OPTIONS]";
    if (!m_commands.empty()) {
        usage += " COMMAND";
    }
    for (const Positional& positional : m_positionals) {
        usage += " " + positional.name;
    }
    return usage;
}

std::string OptionParser::Help() const {
    std::string help = (m_parent == nullptr ? m_name + " - " : std::string()) + m_description + "\n";
    help += "Usage: " + Usage() + "\n";
    if (!m_positionals.empty()) {
        help += "\nArguments:\n";
        for (const Positional& positional : m_positionals) {
            Entry(help, positional.name, positional.description);
        }
    }
    auto options = [&help](const OptionParser& scope) {
        for (const Option& option : scope.m_options) {
            std::string name = Join(option.names);
            if (!option.valueName.empty()) {
                name += " " + option.valueName;
            }
            Entry(help, name, option.description);
        }
    };
    help += "\nOptions:\n";
    Entry(help, "-h,--help", "Show this help and exit");
    if (!m_version.empty()) {
        Entry(help, "--version", "Show the version and exit");
    }
    options(*this);
    if (m_parent != nullptr && !m_parent->m_options.empty()) {
        help += "\nOptions of every command:\n";
        options(*m_parent);
    }
    if (!m_commands.empty()) {
        help += "\nCommands:\n";
        for (const auto& command : m_commands) {
            if (!command->m_hidden) {
                Entry(help, command->m_name, command->m_description);
            }
        }
    }
    if (!m_footer.empty()) {
        help += "\n" + m_footer + "\n";
    }
    return help;
}

} // namespace vela::qrvctl
