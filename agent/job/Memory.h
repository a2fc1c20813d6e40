#pragma once

// What the listener keeps is there twice: in itself, and copied or mapped anew in each session.
namespace memory {

// Gives back what the start needed and nothing else does: free memory of the heap, and the pages of
// programs and libraries that are only read. They come back from the file when they are used.
void releaseWhatTheStartNeeded();

}  // namespace memory
