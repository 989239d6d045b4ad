#pragma once

#include "Console.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>

namespace vela::qrvctl {

// Shows how a long operation (put, get, update, a print order) is getting on, on the error
// stream. On a terminal: one line redrawn in place, a bar with bytes and rate for transfers and a
// countdown for the printer's fixed pauses. Otherwise (a pipe, a log file) plain lines: a
// transfer line at each quarter, one line per step. No line is wider than the console's width
// (80 when unknown): a redrawn line that wrapped would be drawn anew on every update.
//
// Transfer and Step are called on the thread that runs the operation (the library's progress
// and phase callbacks); the countdown runs on its own thread until the next call. Never throws
// from its destructor.
class ProgressReporter {
public:
    using Clock = std::chrono::steady_clock;

    ProgressReporter(Console& console, std::string prefix);
    ~ProgressReporter();
    ProgressReporter(const ProgressReporter&) = delete;
    ProgressReporter& operator=(const ProgressReporter&) = delete;

    // `done` of `total` bytes moved (`total` 0 when unknown).
    void Transfer(uint64_t done, uint64_t total);
    // A step that gets its own line, e.g. "copying the package".
    void Step(const std::string& text);
    // A fixed pause of `seconds` that is starting, said with what it waits for.
    void Countdown(const std::string& text, uint32_t seconds);
    // The closing line.
    void Finish(const std::string& text);

    // `text` cut to fit a line of `columns` (one column stays free, so that no terminal wraps it).
    static std::string Fit(const std::string& text, int columns);
    // The line a transfer shows, for the terminal (`bar` true) or plain output.
    static std::string TransferText(const std::string& prefix, uint64_t done, uint64_t total, double seconds,
                                    bool bar, int columns);

private:
    void StopCountdown();
    void Redraw(const std::string& text); // on a terminal: replaces the open line
    void Line(const std::string& text);   // closes the open line first
    void RunCountdown(std::string text, Clock::time_point end);

    Console& m_console;
    const std::string m_prefix;
    const bool m_terminal;

    std::mutex m_mutex; // the open line
    size_t m_openLength = 0;
    bool m_lineOpen = false;

    Clock::time_point m_transferStart{};
    uint64_t m_lastDone = 0;
    int m_lastQuarter = -1;
    Clock::time_point m_lastDraw{};
    bool m_transferStarted = false;

    std::mutex m_countdownMutex;
    std::condition_variable m_countdownStop;
    bool m_stopCountdown = false;
    std::thread m_countdown;
};

} // namespace vela::qrvctl
