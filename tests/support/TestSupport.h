#pragma once

#include "common/Log.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace vela::test {

// Captures the library's log lines (all levels) while it lives.
class LogCapture {
public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    struct Line {
        vela::common::LogLevel level;
        std::wstring text;
    };
    std::vector<Line> Lines() const;
    bool Contains(const std::wstring& text) const;          // some line equals text
    bool ContainsSubstring(const std::wstring& part) const; // some line contains part
    size_t Count(vela::common::LogLevel level) const;
    void Clear();

private:
    size_t CountIf(const std::function<bool(const Line&)>& match) const;

    mutable std::mutex m_mutex;
    std::vector<Line> m_lines;
    vela::common::Log::Sink m_previous;
    int m_previousLevel;
};

// A temporary directory, removed with its contents at destruction.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    const std::string& Path() const { return m_path; }
    std::string File(const std::string& name) const;
    std::wstring WFile(const std::string& name) const;

private:
    std::string m_path;
};

inline double SecondsSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

template <class Condition> bool Eventually(Condition condition, uint32_t timeoutMs = 5000) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return true;
}

std::vector<uint8_t> ReadHostFile(const std::string& path);
void WriteHostFile(const std::string& path, const std::vector<uint8_t>& bytes);
bool HostFileExists(const std::string& path);
std::vector<std::string> ListDirectory(const std::string& path);
// `size` reproducible pseudo-random bytes.
std::vector<uint8_t> TestBytes(size_t size, uint32_t seed = 1);

// The test helper (support/helper) as a child process; killed at destruction if it still runs.
class ChildProcess {
public:
    explicit ChildProcess(const std::vector<std::string>& helperArgs);
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    // One line of its standard output; empty at the end or after `timeoutMs`.
    std::string ReadLine(uint32_t timeoutMs = 20000);
    // The exit code, or -1 after `timeoutMs`.
    int Wait(uint32_t timeoutMs = 30000);
    void Kill(); // SIGKILL / TerminateProcess; nothing once it ended
    bool Running();

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

} // namespace vela::test
