// qrvctl: the command-line tool of the QRV communication library. See `qrvctl --help`.
#include "Arguments.h"
#include "CommandLine.h"
#include "Console.h"
#include "ProcessSetup.h"
#include "Terminal.h"

int main(int argc, char** argv) {
    vela::qrvctl::ProcessSetup::Apply();
    vela::qrvctl::Terminal::Prepare();
    return vela::qrvctl::CommandLine::Run(vela::qrvctl::CommandLineArguments(argc, argv),
                                          vela::qrvctl::Console::Standard());
}
