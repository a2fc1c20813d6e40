#pragma once

#include <cstddef>
#include <string>
#include <string_view>

// How text is held and how many cells of a terminal it takes. The smallest unit of editing is the
// cluster: a character with the marks that stand on it, so that the cursor never stops inside what
// a user sees as one sign.
enum class TextCoding {
    kUtf8,   // characters of UTF-8, widths by wcwidth; the process's locale must be a UTF-8 one
    kBytes,  // each byte a character of one cell, as in the C locale
};

namespace textcells {

// One cluster of a text, and what a terminal is sent for it.
struct Cluster {
    std::size_t length = 0;  // bytes of the text; never 0
    int cells = 0;           // 1 or 2
    std::string shown;
};

// The cluster that begins at a boundary before the end of the text. A newline is shown as a sign of
// its own, other control characters as a question mark: nothing of the text is obeyed by a
// terminal. A mark without a character before it stands on a blank.
Cluster clusterAt(std::string_view text, std::size_t at, TextCoding coding);

// Where the cluster at, or before, the place ends, or begins; the place itself at the ends.
std::size_t nextBoundary(std::string_view text, std::size_t at, TextCoding coding);
std::size_t previousBoundary(std::string_view text, std::size_t at, TextCoding coding);
// The place, or the next boundary where it is inside a cluster.
std::size_t boundaryFrom(std::string_view text, std::size_t at, TextCoding coding);

// Text that may stand in a line: bytes that are no UTF-8 become U+FFFD, CR and CR LF a newline,
// tabs a blank, and other control characters go. newlines: otherwise they become blanks.
std::string cleaned(std::string_view text, TextCoding coding, bool newlines = true);

}  // namespace textcells
