#pragma once

#include "MachineTestingPass.h"

#include <optional>

// orvex-workerd's command line.
struct WorkerOptions
{
    bool help = false;
    bool once = false;
    bool startNow = false;
    int statusViewPort = 6333;
    MachineTestingPass::Settings pass;

    static const char *usage();
    // Nothing on success; otherwise the sentence for the user.
    static std::optional<QString> parse(const QStringList &arguments, WorkerOptions *options);
};
