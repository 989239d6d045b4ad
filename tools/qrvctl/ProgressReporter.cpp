#include "ProgressReporter.h"

#include "ByteText.h"
#include "TextTable.h"

#include <algorithm>

namespace vela::qrvctl {

namespace {
// A terminal line is redrawn at most this often (the library reports every chunk).
constexpr auto kRedrawInterval = std::chrono::milliseconds(100);
constexpr auto kCountdownTick = std::chrono::milliseconds(200);

double Seconds(ProgressReporter::Clock::duration d) {
    return std::chrono::duration<double>(d).count();
}
} // namespace

ProgressReporter::ProgressReporter(Console& console, std::string prefix)
    : m_console(console), m_prefix(std::move(prefix)), m_terminal(console.ErrorIsTerminal()) {}

ProgressReporter::~ProgressReporter() {
    try {
        StopCountdown();
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_lineOpen) {
            m_console.Error("\n");
            m_lineOpen = false;
        }
    } catch (...) {
        // Output that fails while unwinding has nowhere to go.
    }
}

std::string ProgressReporter::TransferText(const std::string& prefix, uint64_t done, uint64_t total,
                                           double seconds, bool bar, int columns) {
    // A transfer that ends within the first report has no meaningful rate.
    const std::string rate =
        seconds > 0.001 ? FormatBytes(static_cast<uint64_t>(static_cast<double>(done) / seconds)) + "/s"
                        : std::string();
    const int percent = total > 0 ? static_cast<int>(std::min<uint64_t>(done, total) * 100 / total) : -1;
    if (!bar) {
        std::string text = prefix + ": " + std::to_string(done);
        if (total > 0) {
            text += " of " + std::to_string(total) + " bytes (" + std::to_string(percent) + "%)";
        } else {
            text += " bytes";
        }
        return rate.empty() ? text : text + ", " + rate;
    }
    std::string tail =
        total > 0 ? "  " + std::to_string(percent) + "%  " + FormatBytes(done) + " / " + FormatBytes(total)
                  : "  " + FormatBytes(done);
    if (!rate.empty()) {
        tail += "  " + rate;
    }
    const int room = columns - 1 - static_cast<int>(prefix.size() + tail.size()) - 4;
    const int width = std::clamp(room, 10, 40);
    const int filled = percent < 0 ? 0 : width * percent / 100;
    return prefix + "  [" + std::string(static_cast<size_t>(filled), '#') +
           std::string(static_cast<size_t>(width - filled), '.') + "]" + tail;
}

std::string ProgressReporter::Fit(const std::string& text, int columns) {
    const size_t room = static_cast<size_t>(std::max(columns - 1, 10));
    if (TextTable::Width(text) <= room) {
        return text;
    }
    // Keep whole UTF-8 characters: count the lead bytes.
    std::string cut;
    size_t characters = 0;
    for (char c : text) {
        const bool lead = (static_cast<unsigned char>(c) & 0xC0) != 0x80;
        if (lead && ++characters > room - 3) {
            break;
        }
        cut += c;
    }
    return cut + "...";
}

void ProgressReporter::Transfer(uint64_t done, uint64_t total) {
    StopCountdown();
    const auto now = Clock::now();
    if (!m_transferStarted || done < m_lastDone) {
        // A new transfer (an update copies after its first steps; logs fetch one file after another).
        m_transferStarted = true;
        m_transferStart = now;
        m_lastQuarter = -1;
        m_lastDraw = Clock::time_point{};
    }
    m_lastDone = done;
    const bool complete = total > 0 && done >= total;
    const double seconds = Seconds(now - m_transferStart);
    if (m_terminal) {
        if (!complete && now - m_lastDraw < kRedrawInterval) {
            return;
        }
        m_lastDraw = now;
        Redraw(TransferText(m_prefix, done, total, seconds, true, m_console.Columns()));
        return;
    }
    if (total == 0) {
        return;
    }
    const int quarter = static_cast<int>(std::min<uint64_t>(done, total) * 4 / total);
    if (quarter > m_lastQuarter && quarter > 0) {
        m_lastQuarter = quarter;
        Line(TransferText(m_prefix, done, total, seconds, false, 0));
    }
}

void ProgressReporter::Step(const std::string& text) {
    StopCountdown();
    m_transferStarted = false;
    Line(m_prefix + ": " + text);
}

void ProgressReporter::Countdown(const std::string& text, uint32_t seconds) {
    StopCountdown();
    if (!m_terminal) {
        Line(m_prefix + ": " + text);
        return;
    }
    {
        std::lock_guard<std::mutex> lock(m_countdownMutex);
        m_stopCountdown = false;
    }
    m_countdown = std::thread(&ProgressReporter::RunCountdown, this, m_prefix + ": " + text,
                              Clock::now() + std::chrono::seconds(seconds));
}

void ProgressReporter::Finish(const std::string& text) {
    Step(text);
}

void ProgressReporter::StopCountdown() {
    if (!m_countdown.joinable()) {
        return;
    }
    {
        std::lock_guard<std::mutex> lock(m_countdownMutex);
        m_stopCountdown = true;
    }
    m_countdownStop.notify_all();
    m_countdown.join();
}

void ProgressReporter::RunCountdown(std::string text, Clock::time_point end) {
    std::unique_lock<std::mutex> lock(m_countdownMutex);
    std::string shown;
    while (!m_stopCountdown) {
        const auto left = end - Clock::now();
        const auto secondsLeft =
            std::chrono::duration_cast<std::chrono::seconds>(left + std::chrono::milliseconds(999));
        const std::string line =
            text + (secondsLeft.count() > 0 ? "  " + std::to_string(secondsLeft.count()) + " s left"
                                            : std::string("  still waiting for the printer"));
        if (line != shown) {
            Redraw(line);
            shown = line;
        }
        m_countdownStop.wait_for(lock, kCountdownTick, [this] { return m_stopCountdown; });
    }
    // What stays on screen is the step itself, without its clock.
    Redraw(text);
}

void ProgressReporter::Redraw(const std::string& wide) {
    const std::string text = Fit(wide, m_console.Columns());
    std::lock_guard<std::mutex> lock(m_mutex);
    std::string line = "\r" + text;
    const size_t width = TextTable::Width(text);
    if (width < m_openLength) {
        line += std::string(m_openLength - width, ' ');
    }
    m_openLength = width;
    m_lineOpen = true;
    m_console.Error(line);
}

void ProgressReporter::Line(const std::string& wide) {
    const std::string text = Fit(wide, m_console.Columns());
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_lineOpen) {
        // A finished bar or countdown stays on screen; the step goes below it.
        m_console.Error("\n");
        m_lineOpen = false;
        m_openLength = 0;
    }
    m_console.ErrorLine(text);
}

} // namespace vela::qrvctl
