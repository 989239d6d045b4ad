#include "support/TestSupport.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <random>

namespace fs = std::filesystem;

namespace vela::test {

LogCapture::LogCapture() : m_previousLevel(vela::common::Log::GetLevel()) {
    vela::common::Log::SetLevel(static_cast<int>(vela::common::LogLevel::info));
    m_previous = vela::common::Log::SetSink([this](vela::common::LogLevel level, const std::wstring& line) {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_lines.push_back({level, line});
    });
}

LogCapture::~LogCapture() {
    vela::common::Log::SetSink(m_previous);
    vela::common::Log::SetLevel(m_previousLevel);
}

std::vector<LogCapture::Line> LogCapture::Lines() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_lines;
}

bool LogCapture::Contains(const std::wstring& text) const {
    return CountIf([&](const Line& l) { return l.text == text; }) > 0;
}

bool LogCapture::ContainsSubstring(const std::wstring& part) const {
    return CountIf([&](const Line& l) { return l.text.find(part) != std::wstring::npos; }) > 0;
}

size_t LogCapture::Count(vela::common::LogLevel level) const {
    return CountIf([&](const Line& l) { return l.level == level; });
}

size_t LogCapture::CountIf(const std::function<bool(const Line&)>& match) const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return static_cast<size_t>(std::count_if(m_lines.begin(), m_lines.end(), match));
}

void LogCapture::Clear() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_lines.clear();
}

TempDir::TempDir() {
    std::random_device rd;
    fs::path base = fs::temp_directory_path();
    for (;;) {
        fs::path candidate = base / ("qrv-test-" + std::to_string(rd()));
        std::error_code ec;
        if (fs::create_directory(candidate, ec)) {
            m_path = candidate.string();
            break;
        }
    }
}

TempDir::~TempDir() {
    std::error_code ec;
    fs::permissions(m_path, fs::perms::owner_all, fs::perm_options::add, ec);
    fs::remove_all(m_path, ec);
}

std::string TempDir::File(const std::string& name) const {
    return (fs::path(m_path) / name).string();
}

std::wstring TempDir::WFile(const std::string& name) const {
    return (fs::path(m_path) / name).wstring();
}

std::vector<uint8_t> ReadHostFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::vector<uint8_t>((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

void WriteHostFile(const std::string& path, const std::vector<uint8_t>& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

bool HostFileExists(const std::string& path) {
    std::error_code ec;
    return fs::exists(path, ec);
}

std::vector<std::string> ListDirectory(const std::string& path) {
    std::vector<std::string> names;
    std::error_code ec;
    for (const auto& e : fs::directory_iterator(path, ec)) {
        names.push_back(e.path().filename().string());
    }
    return names;
}

std::vector<uint8_t> TestBytes(size_t size, uint32_t seed) {
    std::mt19937 generator(seed);
    std::vector<uint8_t> bytes(size);
    for (auto& byte : bytes) {
        byte = static_cast<uint8_t>(generator());
    }
    return bytes;
}

} // namespace vela::test
