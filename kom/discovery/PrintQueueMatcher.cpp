#include "kom/discovery/PrintQueueMatcher.h"

#include "common/StringConverter.h"

#include <algorithm>
#include <cctype>

namespace vela::kom {

namespace {

int HexValue(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    if (c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    return -1;
}

// Percent escapes decoded (a broken escape stays as written).
std::string Decode(const std::string& text) {
    std::string out;
    out.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '%' && i + 2 < text.size()) {
            int high = HexValue(text[i + 1]);
            int low = HexValue(text[i + 2]);
            if (high >= 0 && low >= 0) {
                out.push_back(static_cast<char>(high * 16 + low));
                i += 2;
                continue;
            }
        }
        out.push_back(text[i]);
    }
    return out;
}

// The form two texts are compared in: trimmed, ASCII letters in lower case, '+' as a space.
std::string Key(const std::string& text) {
    size_t begin = text.find_first_not_of(" \t\r\n+");
    if (begin == std::string::npos) {
        return std::string();
    }
    size_t end = text.find_last_not_of(" \t\r\n+");
    std::string out = text.substr(begin, end - begin + 1);
    for (char& c : out) {
        c = c == '+' ? ' ' : static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    return out;
}

bool StartsWithWord(const std::string& text, const std::string& word) {
    return !word.empty() && text.size() > word.size() && text.compare(0, word.size(), word) == 0 &&
           text[word.size()] == ' ';
}

std::string WithoutMake(const std::string& model, const std::string& make) {
    if (!StartsWithWord(model, make)) {
        return model;
    }
    size_t begin = model.find_first_not_of(' ', make.size());
    return begin == std::string::npos ? std::string() : model.substr(begin);
}

struct UsbUri {
    std::string make;
    std::string model;
    std::string serialNumber;
    bool hasSerial = false;
};

bool ParseUsbUri(const std::string& uri, UsbUri& out) {
    static const std::string scheme = "usb://";
    if (uri.size() < scheme.size() || Key(uri.substr(0, scheme.size())) != scheme) {
        return false;
    }
    std::string rest = uri.substr(scheme.size());
    size_t query = rest.find('?');
    std::string location = rest.substr(0, query);
    size_t slash = location.find('/');
    if (slash == std::string::npos) {
        return false;
    }
    out.make = Key(Decode(location.substr(0, slash)));
    out.model = Key(Decode(location.substr(slash + 1)));
    if (query != std::string::npos) {
        std::string parameters = rest.substr(query + 1);
        size_t start = 0;
        while (start <= parameters.size()) {
            size_t end = parameters.find('&', start);
            std::string parameter =
                parameters.substr(start, end == std::string::npos ? std::string::npos : end - start);
            size_t equals = parameter.find('=');
            if (equals != std::string::npos && Key(Decode(parameter.substr(0, equals))) == "serial" &&
                !out.hasSerial) {
                out.serialNumber = Key(Decode(parameter.substr(equals + 1)));
                out.hasSerial = !out.serialNumber.empty();
            }
            if (end == std::string::npos) {
                break;
            }
            start = end + 1;
        }
    }
    return !out.make.empty() && !out.model.empty();
}

std::vector<std::string> Keys(const std::vector<std::string>& texts) {
    std::vector<std::string> keys;
    for (const std::string& text : texts) {
        std::string key = Key(text);
        if (!key.empty() && std::find(keys.begin(), keys.end(), key) == keys.end()) {
            keys.push_back(key);
        }
    }
    return keys;
}

bool Contains(const std::vector<std::string>& keys, const std::string& key) {
    return std::find(keys.begin(), keys.end(), key) != keys.end();
}

} // namespace

PrintQueueMatcher::PrintQueueMatcher(UsbPrinterIdentity identity)
    : m_identity{Keys(identity.makes), Keys(identity.models), Keys(identity.serialNumbers)} {}

bool PrintQueueMatcher::Matches(const std::string& deviceUri) const {
    UsbUri uri;
    if (!ParseUsbUri(deviceUri, uri) || !Contains(m_identity.makes, uri.make)) {
        return false;
    }
    bool modelMatches = false;
    for (const std::string& model : m_identity.models) {
        modelMatches = modelMatches || WithoutMake(model, uri.make) == WithoutMake(uri.model, uri.make);
    }
    if (!modelMatches) {
        return false;
    }
    if (!uri.hasSerial) {
        return m_identity.serialNumbers.empty();
    }
    return Contains(m_identity.serialNumbers, uri.serialNumber);
}

bool PrintQueueMatcher::SameDevice(const std::string& deviceUri, const std::string& otherUri) {
    UsbUri uri;
    if (!ParseUsbUri(deviceUri, uri)) {
        return false;
    }
    UsbPrinterIdentity identity{{uri.make}, {uri.model}, {}};
    if (uri.hasSerial) {
        identity.serialNumbers.push_back(uri.serialNumber);
    }
    return PrintQueueMatcher(identity).Matches(otherUri);
}

std::vector<std::string> PrintQueueMatcher::MatchingQueues(const std::vector<PrintQueue>& queues) const {
    std::vector<std::string> names;
    for (const PrintQueue& queue : queues) {
        if (!queue.isRemote && Matches(queue.deviceUri)) {
            names.push_back(queue.name);
        }
    }
    return names;
}

std::wstring FallbackPrinterName(const std::wstring& modelName, const std::wstring& serialNumber,
                                 const std::wstring& usbPort) {
    if (!serialNumber.empty()) {
        return modelName + L" (" + serialNumber + L")";
    }
    return modelName + L" (USB " + usbPort + L")";
}

std::string UsbDeviceUri(const std::string& make, const std::string& model, const std::string& serialNumber) {
    auto escape = [](const std::string& text) {
        static const char kHex[] = "0123456789ABCDEF";
        std::string out;
        for (unsigned char c : text) {
            if (std::isalnum(c) != 0 || c == '-' || c == '_' || c == '.') {
                out += static_cast<char>(c);
            } else {
                out += '%';
                out += kHex[c >> 4];
                out += kHex[c & 0x0F];
            }
        }
        return out;
    };
    return "usb://" + escape(make) + "/" + escape(model) +
           (serialNumber.empty() ? std::string() : "?serial=" + escape(serialNumber));
}

std::wstring UsbDeviceUri(const std::wstring& modelName, const std::wstring& serialNumber) {
    const std::string model = common::StringConverter::ToUtf8(modelName);
    const size_t space = model.find(' ');
    const std::string make = model.substr(0, space);
    return common::StringConverter::FromUtf8(
        UsbDeviceUri(make, space == std::string::npos ? model : model.substr(space + 1),
                     common::StringConverter::ToUtf8(serialNumber)));
}

} // namespace vela::kom
