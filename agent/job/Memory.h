#pragma once

// What the listener keeps is there twice: in itself, and copied or mapped anew in each session.
namespace memory {

// Gives back what the start needed and nothing else does: free memory of the heap, and the pages of
// programs and libraries that are only read. They come back from the file when they are used.
//
// It stays for the row "agent: memory (PSS), idle" of docs/performance.md: 3.1 MiB with it, 4.1 MiB
// without, medians of three starts of the release build, other agents running beside it.
void releaseWhatTheStartNeeded();

}  // namespace memory
