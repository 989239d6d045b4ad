#include "kom/discovery/Ieee1284DeviceId.h"

#include <cctype>

namespace vela::kom {

namespace {

std::string Trim(const std::string& text) {
    size_t begin = text.find_first_not_of(" \t\r\n");
    if (begin == std::string::npos) {
        return std::string();
    }
    size_t end = text.find_last_not_of(" \t\r\n");
    return text.substr(begin, end - begin + 1);
}

std::string Upper(std::string text) {
    for (char& c : text) {
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    }
    return text;
}

} // namespace

Ieee1284DeviceId::Ieee1284DeviceId(const std::string& text) {
    size_t start = 0;
    while (start < text.size()) {
        size_t end = text.find(';', start);
        std::string field = text.substr(start, end == std::string::npos ? std::string::npos : end - start);
        size_t colon = field.find(':');
        if (colon != std::string::npos) {
            std::string key = Upper(Trim(field.substr(0, colon)));
            if (!key.empty() && m_values.count(key) == 0) {
                m_values[key] = Trim(field.substr(colon + 1));
            }
        }
        if (end == std::string::npos) {
            break;
        }
        start = end + 1;
    }
}

std::string Ieee1284DeviceId::Value(const std::string& key) const {
    auto it = m_values.find(Upper(key));
    return it == m_values.end() ? std::string() : it->second;
}

std::string Ieee1284DeviceId::First(std::initializer_list<const char*> keys) const {
    for (const char* key : keys) {
        auto it = m_values.find(key);
        if (it != m_values.end() && !it->second.empty()) {
            return it->second;
        }
    }
    return std::string();
}

} // namespace vela::kom
