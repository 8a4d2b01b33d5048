// What record and gdb-proxy prepare before the receiver is created: the
// folder the receiver writes into, the probe simulator's scenario (the
// device, from --device when given) and the options file the receiver
// records with (the user's, with the command line's port, clock and
// prescaler in place of its own).
#pragma once

#include "Commands.h"
#include "HostCore.h"

namespace vestrel::host {

// 0, or the exit code after saying on standard error what is missing.
int prepareRecordFolder(const RecordSettings& settings, const fs::path& dir);

}  // namespace vestrel::host
