#pragma once
// Plays a scenario on a simulated device with the Notify module, against a backend, and reports
// what the phone and the backend saw: one line per event, then a summary.
//
// Event lines (JSON form, with --json):
//   {"t": "<local ISO time>", "event": "scheduled"|"removed"|"delivered"|"opened_url"|"sync"|"uploaded"|"error", ...}
// scheduled and delivered carry identifier, title, body and user_info; removed the identifiers;
// opened_url the url; sync the error or null; uploaded the event's name, campaign_id and params;
// error the step and what went wrong.
//
// Time is simulated: each step moves the device's clock by its offset, then the main queue is
// pumped until the module's work for the step is done, so a run takes as long as the work.

#include <iosfwd>
#include <optional>
#include <string>

#include "simulator/KillPoint.h"
#include "simulator/Scenario.h"

namespace drovel::simulator {

struct RunnerOptions {
    // The backend's base URL; empty: an embedded backend on a free loopback port serves the
    // scenario's catalogue.
    std::string backendURL;
    std::string apiToken;
    // The device folder; empty: a fresh temporary folder.
    std::string deviceDirectory;
    bool json = false;
    // Shows "step N/M" on standard error while running (when it is a terminal).
    bool progress = false;
    // How long one step's work may take before the run reports it as stuck and moves on.
    std::chrono::milliseconds stepTimeout{30000};
    // Tests only: where the process kills itself (KillPoint.h).
    std::optional<KillPoint> kill;
};

struct RunSummary {
    int scheduled = 0;
    int delivered = 0;
    int clicks = 0;
    int eventsUploaded = 0;
    int sdkErrors = 0;
    int runErrors = 0;
};

// Writes the event lines and the summary to out. Fails before anything runs when the backend or
// the device cannot be set up.
core::Result<RunSummary> runScenario(const Scenario& scenario, const RunnerOptions& options, std::ostream& out);

}  // namespace drovel::simulator
