// What a restore would do, without doing it.
#pragma once

#include "model/snapshot.h"
#include "session/restore.h"

#include <string>
#include <vector>

namespace tarnwick::Restore {

// One thing a restore would change, in the order the restore meets it.
struct Change {
    std::string kind;  // "launch", "move", "resize", "minimize", "full screen", "workspace",
                       // "maximize", "unmaximize", "reopen", "open", "hide", "new window"
    std::string text;  // what and where: "Logo \"xlogo\" from 40,60 to 140,60 (100 px)"
};

struct Plan {
    std::vector<Change> changes;
    // Counts and problems as the restore itself would report them; windows of
    // programs it would launch are not counted, since they are not there yet.
    Result result;
};

// Runs the restore of the snapshot against the installed desktop with every
// change held back: reads go to the desktop, while launches, window changes
// and the scripts that open windows are noted instead of done, and the
// restore's waits pass at once. So the plan follows exactly the rules of
// `run`. Blocks for as long as reading the desktop takes.
Plan plan(const Snapshot& snapshot);

}  // namespace tarnwick::Restore
