#pragma once

#include <string>

#include "NodeOutcome.h"

// Writes what each node answered into a file of its own: DIR/<node>.out, replaced as a whole.
//
// The directory is made with mode 0700 where there is none; what is there already is taken as it
// is. Names that would leave the directory are refused. Used by one thread.
class ResultFiles {
public:
    // Throws CException when the directory cannot be made or is not one.
    explicit ResultFiles(std::string directoryName);

    // Throws CException with the name of the file. What was there before is then still there.
    void write(const NodeOutcome& outcome) const;

    // Whether a node's name may be the name of a file: neither empty nor "." nor "..", without "/"
    // and without control bytes.
    static bool isFileName(const std::string& node);

private:
    std::string directory;  // with a "/" at its end
};
