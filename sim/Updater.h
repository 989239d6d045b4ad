#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace vela::sim {

// The updater's answer to an update status query: status 0 idle, 1 busy; while busy `value1` is
// the progress in percent; `value2` is the outcome of the last update (0 none or installed,
// 1 the start order found no package).
struct UpdateReport {
    uint8_t status = 0;
    uint8_t value1 = 0;
    uint8_t value2 = 0;
};

// The firmware updater. The start-update order installs the newest package of the update folder:
// the updater then reports busy for a number of status reports, or for a time, and afterwards
// idle again with the package installed (the engine takes the new version from TakeInstalled).
// Not thread-safe: the engine serialises it. Time comes from the engine's clock.
class Updater {
public:
    using Clock = std::chrono::steady_clock;

    static constexpr uint8_t kIdle = 0;
    static constexpr uint8_t kBusy = 1;
    static constexpr uint8_t kOutcomeNone = 0;
    static constexpr uint8_t kOutcomeNoPackage = 1;

    // How long an update keeps the updater busy: this many reports...
    void SetBusyReports(uint32_t reports);
    // ...or this long (takes precedence once set; a zero duration returns to counting reports).
    void SetBusyDuration(std::chrono::milliseconds duration);

    // The start-update order: `package` is the file name found in the update folder, if any.
    void Start(const std::optional<std::string>& package, Clock::time_point now);
    // Makes the updater busy for `reports` reports without installing anything (a printer that is
    // still busy with something of its own).
    void ForceBusy(uint32_t reports);
    // Answers one status query; counts the report while busy.
    UpdateReport Report(Clock::time_point now);
    bool Busy(Clock::time_point now) const;
    // Completes an update whose time or reports have run out (so that a version query made
    // after it sees the new version without an update status query in between).
    void Advance(Clock::time_point now);
    // The package whose installation has completed since the last call, once.
    std::optional<std::string> TakeInstalled();
    // A reboot ends whatever ran: an update in progress completes.
    void Reboot();

private:
    void Finish();

    uint32_t m_busyReports = 2;
    std::chrono::milliseconds m_busyDuration{0};

    bool m_busy = false;
    uint32_t m_reportsLeft = 0;
    uint32_t m_reportsTotal = 0;
    Clock::time_point m_started{};
    Clock::time_point m_until{};
    bool m_timed = false;
    std::optional<std::string> m_package;   // being installed
    std::optional<std::string> m_installed; // installed, not yet taken
    uint8_t m_outcome = kOutcomeNone;
};

// The version a package brings, from its file name: the first run of digits and dots
// ("qrv-fw-2.4.1.pkg" gives "2.4.1"); without digits, the name without its extension.
std::string VersionFromPackageName(const std::string& name);

} // namespace vela::sim
