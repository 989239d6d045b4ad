// The README's promises that tooling depends on: its two commands are the ones that exist and
// that CI runs, and its table of exit codes is the tool's.
#include "ExitCode.h"

#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <regex>
#include <sstream>
#include <sys/stat.h>

namespace vela::test {
namespace {

std::string Source(const std::string& relative) {
    std::ifstream in(std::string(QRV_SOURCE_DIR) + "/" + relative);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

// The lines of a section, from its heading ("## Title") to the next heading of its level or above.
std::vector<std::string> Section(const std::string& text, const std::string& heading) {
    const size_t level = heading.find(' ');
    std::istringstream lines(text);
    std::vector<std::string> section;
    bool inside = false;
    for (std::string line; std::getline(lines, line);) {
        if (inside) {
            const size_t hashes = line.find_first_not_of('#');
            if (hashes > 0 && hashes <= level && hashes != std::string::npos && line[hashes] == ' ') {
                break;
            }
            section.push_back(line);
        } else {
            inside = line == heading;
        }
    }
    return section;
}

bool Executable(const std::string& relative) {
    struct stat info {};
    return ::stat((std::string(QRV_SOURCE_DIR) + "/" + relative).c_str(), &info) == 0 &&
           (info.st_mode & S_IXUSR);
}

TEST(Readme, ItsTwoCommandsExistAndCiRunsTheTestCommand) {
    std::vector<std::string> commands;
    for (const auto& line : Section(Source("README.md"), "## Set up on a fresh Debian machine")) {
        if (line.rfind("    ", 0) == 0) {
            commands.push_back(line.substr(4));
        }
    }
    ASSERT_EQ(commands, (std::vector<std::string>{"scripts/demo", "scripts/test-all"}));
    for (const auto& command : commands) {
        EXPECT_TRUE(Executable(command)) << command;
    }
    EXPECT_TRUE(Executable(".ci/run"));
    EXPECT_TRUE(std::regex_search(Source(".ci/run"), std::regex(R"(\n(exec )?scripts/test-all\s*\n)")));
    EXPECT_NE(Source("scripts/demo").find("qrvctl demo"), std::string::npos);
}

TEST(Readme, ExitCodeTableIsTheToolsOwn) {
    std::map<int, std::string> documented;
    const std::regex row(R"(^\| (\d+) \| `(\w+)` \|)");
    for (const auto& line : Section(Source("README.md"), "### Exit codes")) {
        std::smatch match;
        if (std::regex_search(line, match, row)) {
            documented[std::stoi(match[1])] = match[2];
        }
    }
    using vela::qrvctl::ExitCode;
    std::map<int, std::string> actual;
    for (ExitCode code : {ExitCode::ok, ExitCode::failure, ExitCode::usage, ExitCode::printerNotFound,
                          ExitCode::accessDenied, ExitCode::notFound, ExitCode::diskFull,
                          ExitCode::communication, ExitCode::invalidName, ExitCode::interrupted}) {
        actual[vela::qrvctl::ToInt(code)] = vela::qrvctl::KindName(code);
    }
    EXPECT_EQ(documented, actual);
}

} // namespace
} // namespace vela::test
