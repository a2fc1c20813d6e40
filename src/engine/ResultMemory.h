#pragma once

// The results of a command are some texts for each node, of some MiB at times, and they live for a
// moment. Left to itself the allocator maps and unmaps each of them, and the kernel's work for the
// pages is more than what is done with the text.
namespace resultmemory {

// Has the process use freed memory again. Before anything else is started; process-wide.
void keepForTheNextResult();

// Between two commands: gives back what a large one has left, if that is much. Any thread.
void giveBack();

}  // namespace resultmemory
