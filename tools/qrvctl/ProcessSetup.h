#pragma once

namespace vela::qrvctl {

// Settings of the tool's own process, made once at the start of main, before any other thread
// runs. Bodies per operating system.
class ProcessSetup {
public:
    static void Apply();
};

} // namespace vela::qrvctl
