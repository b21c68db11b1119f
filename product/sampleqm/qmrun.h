// Running the sample queue manager.
#pragma once

#include "qmclient.h"
#include "qmfiles.h"

enum RunResult : int
{
    RUN_ENDED = 0,
    RUN_FILES_DAMAGED = 3,
    RUN_ALREADY_RUNNING = 4,
    RUN_SYSTEM = 5,
};

struct RunOptions
{
    bool fRefuse = false;       // refuses every request to end
    std::wstring strReadyEvent; // named event to signal once it is active; may be empty
};

// Verifies the files, runs until the end command asks it to end. Says on standard error why it does not
// start.
RunResult Run(const QueueManager& queueManager, const QueueManagerFiles& files, const RunOptions& options);

// Starts this program as "run" in a process of its own and waits until the queue manager is active. False
// when it ended before that, or could not be started.
bool StartDetached(const QueueManager& queueManager, bool fRefuse);
