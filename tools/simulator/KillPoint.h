#pragma once
// Test-only crash points of a scenario run: the process SIGKILLs itself at a chosen moment, so that
// an end-to-end test can check what the next run on the same device folder finds. The points are
// counted, not timed, so a run dies at the same place on every machine.
//
//   store:N   at the N-th row (from 1) that the run writes into the campaign, site and notification
//             tables, inside the transaction that stores a download;
//   upload    when the answer to the run's first analytics upload comes back from the backend,
//   upload:N  or to its N-th, before the module sees it (the backend has kept the events).
//
// `drovel-notify simulate` takes one from the DROVEL_SIMULATE_KILL environment variable; it is not
// an option of the command, since nobody but a test should ask a program to kill itself.

#include <memory>
#include <string_view>

#include "drovel/core/Error.h"
#include "drovel/platform/HttpTransport.h"

namespace drovel::simulator {

struct KillPoint {
    enum class Where { store, upload };
    Where where = Where::store;
    int count = 1;  // from 1
};

// Fails with "DROVEL_SIMULATE_KILL: ..." when the text is none of the forms above.
core::Result<KillPoint> parseKillPoint(std::string_view text);

// Arms a store point for every database the process opens from now on whose file is the module's
// ("DrovelNotify.sqlite"). Once per process.
void armStoreKill(int rows);

// The transport with an upload point: passes every request on, and kills the process as the
// answer to the count-th POST to ".../notify/campaign_events" (any status, or no answer at all)
// would be handed to the module.
std::shared_ptr<platform::HttpTransport> killingUploadTransport(std::shared_ptr<platform::HttpTransport> transport,
                                                                int uploads);

}  // namespace drovel::simulator
