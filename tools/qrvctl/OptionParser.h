#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace vela::qrvctl {

// A command line's grammar and its parser: options and required positional arguments bound to
// the variables that take their values, and commands that add their own. The program's options
// may stand before or after the command's name; "--" ends the options. The help texts are made
// from the same declarations. Written for this tool rather than taken from a general parser
// library: every command is a process start, and that library brought the standard C++ streams'
// set-up and a large body of code into each one.
class OptionParser {
public:
    // What a parse found: a command to run, or a text the user asked for (help, version).
    struct Outcome {
        enum class Kind { run, help, version };
        Kind kind = Kind::run;
        const OptionParser* command = nullptr; // the command named (Kind::run: never null)
        std::string text;                      // Kind::help and Kind::version
    };

    OptionParser(std::string name, std::string description);
    OptionParser(const OptionParser&) = delete;
    OptionParser& operator=(const OptionParser&) = delete;

    // `names`: comma-separated, such as "-v,--verbose".
    void AddFlag(const std::string& names, bool& value, std::string description);
    // An option with a text value; `environment` names a variable that gives the value when the
    // option is not on the line (empty: none).
    void AddText(const std::string& names, std::string& value, std::string valueName, std::string description,
                 std::string environment = std::string());
    // An option whose value is a number of seconds above zero.
    void AddSeconds(const std::string& names, double& value, std::string valueName, std::string description);
    // A positional argument; each one is required, in the order declared.
    void AddPositional(std::string name, std::string& value, std::string description);
    // A command with its own options; hidden commands are left out of the help.
    OptionParser& AddCommand(std::string name, std::string description, bool hidden = false);
    void SetFooter(std::string footer) { m_footer = std::move(footer); }
    // What --version prints; without it the program has no --version.
    void SetVersion(std::string text) { m_version = std::move(text); }

    const std::string& Name() const { return m_name; }

    // Parses `arguments` (without the program's name) and stores the values. Throws CommandError
    // (exit code usage) with a message for the user on a mistake; values parsed before it stay.
    Outcome Parse(const std::vector<std::string>& arguments) const;
    // The help of this program or command, unfolded (HelpText fits it to a terminal).
    std::string Help() const;

private:
    struct Option {
        std::vector<std::string> names;
        std::string valueName; // empty: a flag
        std::string description;
        std::string environment;
        std::function<void(const std::string&)> set;
    };
    struct Positional {
        std::string name;
        std::string description;
        std::function<void(const std::string&)> set;
    };

    void Add(const std::string& names, std::string valueName, std::string description,
             std::string environment, std::function<void(const std::string&)> set);
    const Option* FindOption(const std::string& name) const;
    const OptionParser* FindCommand(const std::string& name) const;
    std::string UnknownCommand(const std::string& typed) const;
    std::string Usage() const;

    std::string m_name;
    std::string m_description;
    std::string m_footer;
    std::string m_version;
    bool m_hidden = false;
    const OptionParser* m_parent = nullptr;
    std::vector<Option> m_options;
    std::vector<Positional> m_positionals;
    std::vector<std::unique_ptr<OptionParser>> m_commands;
};

} // namespace vela::qrvctl
