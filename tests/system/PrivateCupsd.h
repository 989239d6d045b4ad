#pragma once

#include "support/TestSupport.h"

#include <sys/types.h>

#include <string>
#include <vector>

namespace vela::test {

// A print scheduler (cupsd) of its own for one test: private configuration, state, spool and
// ServerBin in a temporary folder, listening only on a socket in that folder, without any
// authentication. Its ServerBin holds stub "usb" and "socket" backends, so the scheduler accepts
// usb:// and socket:// device URIs. Killed and removed at destruction.
class PrivateCupsd {
public:
    // Remote queues (name, device URI) belong to another host (printer-type has the remote bit).
    // The scheduler offers no request that creates one, so they go into its saved state.
    using Queues = std::vector<std::pair<std::string, std::string>>;
    explicit PrivateCupsd(const Queues& remoteQueues = {});
    ~PrivateCupsd();
    PrivateCupsd(const PrivateCupsd&) = delete;
    PrivateCupsd& operator=(const PrivateCupsd&) = delete;

    // Starts the scheduler and waits (at most 15 s) until it answers on its socket. False, with
    // the reason and the end of its error log, when it cannot start.
    bool Start(std::string& problem);

    // Creates a local queue the way an administrator does (CUPS-Add-Modify-Printer).
    bool AddQueue(const std::string& name, const std::string& deviceUri, std::string& problem);

    const std::string& Socket() const { return m_socket; }

private:
    void Stop();
    std::string ErrorLogTail() const;

    TempDir m_dir;
    std::string m_socket;
    pid_t m_pid = -1;
};

} // namespace vela::test
