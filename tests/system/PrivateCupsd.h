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
    struct Queue {
        std::string name, deviceUri;
        bool remote = false;
    };
    // The queues go into its saved state, as it keeps what an administrator added.
    explicit PrivateCupsd(const std::vector<Queue>& queues);
    PrivateCupsd(const PrivateCupsd&) = delete;
    PrivateCupsd& operator=(const PrivateCupsd&) = delete;

    // Waits at most 15 s until it answers; false, with the reason and its log's end, when not.
    bool Start(std::string& problem);

    const std::string& Socket() const { return m_socket; }

private:
    std::string ErrorLogTail() const;

    TempDir m_dir;
    std::string m_socket;
    std::unique_ptr<SpawnedProgram> m_cupsd; // killed before the folder goes
};

} // namespace vela::test
