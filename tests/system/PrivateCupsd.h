#pragma once

#include "support/TestSupport.h"
#include "support/linux/SpawnedProgram.h"

#include <memory>
#include <string>
#include <vector>

namespace vela::test {

// A print scheduler (cupsd) of one test: everything in a temporary folder, listening only on a
// socket there, no authentication, stub "usb" and "socket" backends. Killed at destruction.
class PrivateCupsd {
public:
    // Remote queues (name, device URI) go into its saved state: no request creates one.
    using Queues = std::vector<std::pair<std::string, std::string>>;
    explicit PrivateCupsd(const Queues& remoteQueues = {});
    PrivateCupsd(const PrivateCupsd&) = delete;
    PrivateCupsd& operator=(const PrivateCupsd&) = delete;

    // Waits at most 15 s until it answers; false, with the reason and its log's end, when not.
    bool Start(std::string& problem);

    // A local queue, as an administrator adds it (CUPS-Add-Modify-Printer).
    bool AddQueue(const std::string& name, const std::string& deviceUri, std::string& problem);

    const std::string& Socket() const { return m_socket; }

private:
    std::string ErrorLogTail() const;

    TempDir m_dir;
    std::string m_socket;
    std::unique_ptr<SpawnedProgram> m_cupsd; // killed before the folder goes
};

} // namespace vela::test
