#pragma once

namespace ulvek {

// A large document passes through a few buffers of its own size; backing the heap with
// transparent huge pages spares most of the page faults and clearing that dominate such imports.
// glibc does this when its "glibc.malloc.hugetlb" tunable is set, which only works from the
// start of a process: this sets it and executes the program again, with the same arguments and
// process ID. It returns, doing nothing, when the tunable is already set or the program cannot
// be executed again. The setting is inherited by child processes, which do no harm with it.
void restartWithHugePageHeap(char** argv);

}  // namespace ulvek
