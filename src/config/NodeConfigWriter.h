#pragma once

#include <cstdio>
#include <functional>
#include <string>

#include "CNode.h"
#include "Posix.h"

// Rewrites a node file: a copy is made beside it (name + ".tmp"), flushed to the disk and renamed
// over it, with the mode it had. So the file is at any time the old one or the whole new one. When
// anything fails the copy is removed, the old file stays, and the reason goes to standard output.
// Lines are those the reader sees; all their bytes are kept.
class NodeConfigWriter {
public:
    explicit NodeConfigWriter(std::string name);

    // Adds the node at the end of the node section, unless a line holds its address: then that line
    // is left alone when it holds the MAC too, and corrected otherwise.
    void add(const CNode& node);
    // On every line that holds the node's name and address, overwrites what follows the first "="
    // with the node's MAC, as many characters as that has.
    void correct(const CNode& node);

private:
    using Rewrite = std::function<bool(FILE* from, FILE* to)>;

    Posix::File open() const;
    bool replace(const Rewrite& rewrite) const;
    bool fillCopy(FILE* from, const Rewrite& rewrite) const;
    void complain(const char* what, const std::string& file) const;

    std::string fileName;
    std::string copyName;
};
