#include "sim/app/ControlCommand.h"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <sstream>
#include <utility>
#include <vector>

namespace vela::sim {

namespace {

struct Field {
    const char* name;
    uint8_t StatusFields::*member; // null: the 16-bit counter
    uint32_t max;
};

const Field kFields[] = {
    {"power", &StatusFields::power, 3},
    {"door", &StatusFields::door, 3},
    {"cassette", &StatusFields::cassette, 3},
    {"printhead", &StatusFields::printHead, 3},
    {"cutter", &StatusFields::cutter, 7},
    {"label", &StatusFields::label, 7},
    {"memory", &StatusFields::cassetteMemory, 3},
    {"print", &StatusFields::print, 7},
    {"external", &StatusFields::externalPower, 3},
    {"battery", &StatusFields::battery, 7},
    {"charging", &StatusFields::charging, 3},
    {"counter", nullptr, 0xFFFF},
};

bool ParseNumber(const std::string& text, uint32_t max, uint32_t& value) {
    if (text.empty() || text.size() > 5 || text.find_first_not_of("0123456789") != std::string::npos) {
        return false;
    }
    value = static_cast<uint32_t>(std::stoul(text));
    return value <= max;
}

std::string SetField(SimPrinter& printer, const std::string& name, const std::string& text) {
    for (const Field& field : kFields) {
        if (name != field.name) {
            continue;
        }
        uint32_t value = 0;
        if (!ParseNumber(text, field.max, value)) {
            return "error: " + name + " takes 0.." + std::to_string(field.max);
        }
        printer.ModifyStatus([&](StatusFields& f) {
            if (field.member != nullptr) {
                f.*field.member = static_cast<uint8_t>(value);
            } else {
                f.counter = static_cast<uint16_t>(value);
            }
        });
        return "ok";
    }
    return "error: unknown field '" + name + "'";
}

std::string StatusText(const SimPrinter& printer) {
    const StatusFields f = printer.GetStatus();
    std::ostringstream out;
    for (const Field& field : kFields) {
        out << (&field == kFields ? "" : " ") << field.name << '='
            << (field.member != nullptr ? static_cast<uint32_t>(f.*field.member) : f.counter);
    }
    return out.str();
}

// A word that must be one of two: true for the first, false for the second.
bool Choice(const std::string& word, const char* yes, const char* no, bool& choice) {
    choice = word == yes;
    return choice || word == no;
}

} // namespace

const char* ControlCommand::Help() {
    return "commands: door open|closed, cassette present|absent, cutter ok|jammed, battery 0..5, "
           "power external|battery, charging on|off, set FIELD VALUE (power door cassette printhead cutter "
           "label memory print external battery charging counter), special, status, help";
}

std::string ControlCommand::Apply(SimPrinter& printer, const std::string& line) {
    std::istringstream in(line);
    std::vector<std::string> words;
    for (std::string word; in >> word;) {
        words.push_back(word);
    }
    if (words.empty()) {
        return "error: empty command";
    }
    const std::string& command = words[0];
    const std::string argument = words.size() > 1 ? words[1] : std::string();
    static const std::pair<const char*, size_t> kArguments[] = {
        {"door", 1},     {"cassette", 1}, {"cutter", 1},  {"battery", 1}, {"power", 1},
        {"charging", 1}, {"set", 2},      {"special", 0}, {"status", 0},  {"help", 0}};
    const auto* known = std::find_if(std::begin(kArguments), std::end(kArguments),
                                     [&](const auto& entry) { return command == entry.first; });
    if (known == std::end(kArguments)) {
        return "error: unknown command '" + command + "'; " + Help();
    }
    if (words.size() != known->second + 1) {
        return "error: '" + command + "' takes " + std::to_string(known->second) + " argument(s)";
    }
    bool yes = false;
    if (command == "door" && Choice(argument, "open", "closed", yes)) {
        printer.SetDoorOpen(yes);
    } else if (command == "cassette" && Choice(argument, "present", "absent", yes)) {
        printer.SetCassettePresent(yes);
    } else if (command == "cutter" && Choice(argument, "jammed", "ok", yes)) {
        printer.SetCutterJammed(yes);
    } else if (command == "power" && Choice(argument, "external", "battery", yes)) {
        const bool charging = printer.GetStatus().charging == 1;
        printer.SetExternalPower(yes, yes && charging);
    } else if (command == "charging" && Choice(argument, "on", "off", yes)) {
        printer.ModifyStatus([yes](StatusFields& f) { f.charging = yes ? 1 : 0; });
    } else if (command == "battery") {
        uint32_t level = 0;
        if (!ParseNumber(argument, 5, level)) {
            return "error: battery takes 0..5";
        }
        printer.SetBatteryLevel(static_cast<uint8_t>(level));
    } else if (command == "set") {
        return SetField(printer, words[1], words[2]);
    } else if (command == "special") {
        printer.SendSpecialHidReport();
    } else if (command == "status") {
        return StatusText(printer);
    } else if (command == "help") {
        return Help();
    } else {
        return "error: '" + command + "' does not take '" + argument + "'";
    }
    return "ok";
}

} // namespace vela::sim
