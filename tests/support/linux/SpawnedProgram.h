#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

namespace vela::test {

// A program whose output is read as it comes: on a pseudo-terminal of 100 columns, or on two pipes
// (input from /dev/null). Killed at destruction if it still runs.
class SpawnedProgram {
public:
    enum class Output { terminal, pipes };
    SpawnedProgram(const std::string& program, const std::vector<std::string>& arguments, Output output);
    ~SpawnedProgram();
    SpawnedProgram(const SpawnedProgram&) = delete;
    SpawnedProgram& operator=(const SpawnedProgram&) = delete;

    // Until standard output holds `part` (true), or the time or the output ended.
    bool ReadUntil(const std::string& part, uint32_t timeoutMs);
    bool ReadToEnd(uint32_t timeoutMs);
    bool OutputEnded() const { return m_fds[0] < 0; }
    // The exit code (128 + a signal), or -1 while it still runs after `timeoutMs`.
    int Wait(uint32_t timeoutMs);
    void Signal(int signal);
    std::string& Out() { return m_text[0]; } // the caller may take what it has read
    const std::string& Err() const { return m_text[1]; }

private:
    bool ReadSome(int timeoutMs); // false once nothing is left to read or the time is up

    pid_t m_pid = -1;
    int m_exitCode = -1;
    int m_fds[2] = {-1, -1}; // standard output (or the terminal), standard error
    std::string m_text[2];
};

} // namespace vela::test
