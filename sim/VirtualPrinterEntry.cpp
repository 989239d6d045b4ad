#include "sim/VirtualPrinterEntry.h"

#include <stdexcept>

namespace vela::sim {

namespace {

std::vector<std::string> Split(const std::string& text, char separator) {
    std::vector<std::string> parts;
    size_t at = 0;
    while (true) {
        size_t next = text.find(separator, at);
        parts.push_back(text.substr(at, next == std::string::npos ? std::string::npos : next - at));
        if (next == std::string::npos) {
            return parts;
        }
        at = next + 1;
    }
}

bool ValidModel(const std::string& model) {
    return model == "210" || model == "410";
}

} // namespace

std::string VirtualPrinterEntry::Format() const {
    for (const std::string* field : {&name, &channelPath, &hidPath, &model, &serial}) {
        if (field->find_first_of("|;") != std::string::npos) {
            throw std::invalid_argument("a virtual printer field cannot hold '|' or ';': " + *field);
        }
    }
    if (name.empty() || channelPath.empty()) {
        throw std::invalid_argument("a virtual printer needs a name and a channel path");
    }
    if (!ValidModel(model)) {
        throw std::invalid_argument("model must be 210 or 410, not '" + model + "'");
    }
    std::string text = name + "|" + channelPath + "|" + hidPath + "|" + model;
    if (!serial.empty()) {
        text += "|" + serial;
    }
    return text;
}

std::vector<VirtualPrinterEntry> VirtualPrinterEntry::ParseAll(const std::string& value) {
    std::vector<VirtualPrinterEntry> entries;
    if (value.empty()) {
        return entries;
    }
    for (const std::string& text : Split(value, ';')) {
        std::vector<std::string> fields = Split(text, '|');
        if (fields.size() < 4 || fields.size() > 5 || fields[0].empty() || fields[1].empty() ||
            !ValidModel(fields[3])) {
            continue;
        }
        entries.push_back(
            {fields[0], fields[1], fields[2], fields[3], fields.size() == 5 ? fields[4] : std::string()});
    }
    return entries;
}

std::string VirtualPrinterEntry::JoinAll(const std::vector<VirtualPrinterEntry>& entries) {
    std::string value;
    for (const VirtualPrinterEntry& entry : entries) {
        if (!value.empty()) {
            value += ';';
        }
        value += entry.Format();
    }
    return value;
}

} // namespace vela::sim
