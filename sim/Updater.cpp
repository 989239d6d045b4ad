#include "sim/Updater.h"

#include <algorithm>
#include <cctype>

namespace vela::sim {

void Updater::SetBusyReports(uint32_t reports) {
    m_busyReports = reports;
    m_busyDuration = std::chrono::milliseconds{0};
}

void Updater::SetBusyDuration(std::chrono::milliseconds duration) {
    m_busyDuration = duration;
}

void Updater::Start(const std::optional<std::string>& package, Clock::time_point now) {
    if (!package) {
        m_outcome = kOutcomeNoPackage;
        return;
    }
    m_outcome = kOutcomeNone;
    m_package = package;
    m_busy = true;
    m_started = now;
    m_timed = m_busyDuration.count() > 0;
    m_until = now + m_busyDuration;
    m_reportsLeft = m_reportsTotal = m_busyReports;
    if (!m_timed && m_busyReports == 0) {
        Finish();
    }
}

void Updater::ForceBusy(uint32_t reports) {
    m_busy = reports > 0;
    m_timed = false;
    m_package.reset();
    m_reportsLeft = m_reportsTotal = reports;
}

bool Updater::Busy(Clock::time_point now) const {
    if (!m_busy) {
        return false;
    }
    return m_timed ? now < m_until : m_reportsLeft > 0;
}

void Updater::Advance(Clock::time_point now) {
    if (m_busy && !Busy(now)) {
        Finish();
    }
}

UpdateReport Updater::Report(Clock::time_point now) {
    Advance(now);
    if (!m_busy) {
        return {kIdle, 0, m_outcome};
    }
    uint8_t percent = 0;
    if (m_timed) {
        auto total = std::max<int64_t>(
            1, std::chrono::duration_cast<std::chrono::milliseconds>(m_until - m_started).count());
        auto done = std::chrono::duration_cast<std::chrono::milliseconds>(now - m_started).count();
        percent = static_cast<uint8_t>(std::clamp<int64_t>(done * 100 / total, 0, 99));
    } else {
        percent = static_cast<uint8_t>((m_reportsTotal - m_reportsLeft) * 100 /
                                       std::max<uint32_t>(1, m_reportsTotal));
        --m_reportsLeft;
    }
    return {kBusy, percent, m_outcome};
}

void Updater::Finish() {
    m_busy = false;
    m_reportsLeft = 0;
    if (m_package) {
        m_installed = std::move(m_package);
        m_package.reset();
    }
}

std::optional<std::string> Updater::TakeInstalled() {
    std::optional<std::string> installed = std::move(m_installed);
    m_installed.reset();
    return installed;
}

void Updater::Reboot() {
    if (m_busy) {
        Finish();
    }
}

std::string VersionFromPackageName(const std::string& name) {
    auto isDigit = [](char c) { return std::isdigit(static_cast<unsigned char>(c)) != 0; };
    auto first = std::find_if(name.begin(), name.end(), isDigit);
    if (first != name.end()) {
        auto last = std::find_if(first, name.end(), [&](char c) { return !isDigit(c) && c != '.'; });
        std::string version(first, last);
        while (!version.empty() && version.back() == '.') {
            version.pop_back();
        }
        return version;
    }
    size_t dot = name.rfind('.');
    return dot == std::string::npos || dot == 0 ? name : name.substr(0, dot);
}

} // namespace vela::sim
