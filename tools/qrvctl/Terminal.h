#pragma once

namespace vela::qrvctl {

// What the tool needs to know about its console. Bodies per operating system.
class Terminal {
public:
    enum class Stream { output, error };

    // True when the stream is an interactive terminal (isatty / _isatty), not a pipe or file.
    static bool IsTerminal(Stream stream);
    // The terminal's width in columns; 80 when it cannot be told.
    static int Columns(Stream stream);
    // Makes the console show UTF-8 output (Windows); nothing to do on Linux. Call once at start.
    static void Prepare();
};

} // namespace vela::qrvctl
