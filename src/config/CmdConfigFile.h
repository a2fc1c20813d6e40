#pragma once

#include <cstdio>
#include <list>
#include <memory>
#include <string>

// One [cmd] section of the file, unchecked.
struct CmdBlock {
    int line = 0;  // of its first setting
    std::string name;
    std::string description;
    std::list<std::string> examples;
    std::string option;  // all declarations, joined by ";;"
    std::string cmd;
    std::string cmd32;
    std::string cmd64;
    std::string type;
    std::string destination;
    std::string confirmtype;
    std::string confirmmsg;
    std::string timeout;
};

// One [cmdset] section and the [cmd] sections that follow it.
struct CmdSetBlock {
    int line = 0;  // of its first setting
    std::string name;
    std::string description;
    std::list<std::unique_ptr<CmdBlock>> commands;
    std::string confirmtype;
    std::string confirmmsg;
    std::string timeout;
};

// The first pass over a command file: collects its sections in file order, checks nothing. A
// section without settings makes no block. When that is a [cmdset] with commands below it, a block
// without a name is made for them at the line of the first command, so that the set is refused with
// a message.
class CmdConfigFile {
public:
    // The stream stays the caller's.
    static std::list<std::unique_ptr<CmdSetBlock>> read(FILE* stream);

    // Whether the key means something in a section of that kind; others are ignored by read.
    static bool isSetKey(const std::string& key);
    static bool isCommandKey(const std::string& key);
};
