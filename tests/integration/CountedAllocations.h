// Counts what a program and its libraries allocate with new.
#pragma once

namespace TestSupport
{

// Blocks that were made with new so far; those that were not deleted yet. Including this program's
// libraries, those that it loads while it runs, too.
long GetAllocationCount();
long GetLiveAllocationCount();

} // namespace TestSupport
