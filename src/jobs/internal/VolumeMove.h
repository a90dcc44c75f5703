// Moving an item to another volume, where there is no single step that does it. Told by what stands on the disk alone,
// so that a process that is ended anywhere in the middle leaves the item in one place, or in a state from which
// finishInterruptedMoves brings it to one. On the calling thread.
//
//   1. the source's folder gets a hidden folder, ".<host>-<process>-<number>.leaving", which the mover keeps locked,
//      with a link in it to where the copy will be
//   2. the item is copied into a hidden folder beside the target, and brought to the disk
//   3. the item is renamed into the leaving folder: from here on the copy is what counts
//   4. the copy is renamed to the target, and that brought to the disk
//   5. both hidden folders are removed
#pragma once

#include "base/Error.h"

#include <string>

namespace jobs {

base::Result<void> moveToOtherVolume(const std::string& from, const std::string& to);

/// Completes, for the items of one folder, the moves whose processes have ended after step 3 and clears away the
/// others. What a living process still moves is left alone. What can't be brought to an end is logged and stays.
void finishInterruptedMoves(const std::string& folder);

} // namespace jobs
