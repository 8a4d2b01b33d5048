// For test programs that run many tests in one process: returns the entry
// module to its state when the library was loaded (no receiver, count 0,
// start-up not done, its log name forgotten). Not exported from the library.
#pragma once

namespace Kv::Orv::Trace::Vestrel {

void resetEntryModule();

}  // namespace Kv::Orv::Trace::Vestrel
