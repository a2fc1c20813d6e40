#pragma once

#include <cstdio>
#include <fcntl.h>
#include <functional>
#include <iostream>
#include <string>
#include <unistd.h>

#include "UniqueFd.h"

// Puts another descriptor in the place of a standard one for the life of the object.
class RedirectedFd {
public:
    RedirectedFd(int standard, int replacement);
    RedirectedFd(const RedirectedFd&) = delete;
    RedirectedFd& operator=(const RedirectedFd&) = delete;
    ~RedirectedFd();

private:
    int target;
    UniqueFd saved;
};

// A file in memory.
class MemoryFile {
public:
    explicit MemoryFile(const std::string& content = "");

    int get() const { return fd.get(); }

    std::string content() const;

private:
    UniqueFd fd;
};

// Standard input holds the given bytes and then ends.
class TypedInput {
public:
    explicit TypedInput(const std::string& keys);

private:
    MemoryFile file;
    RedirectedFd redirection;
};

// Collects standard output.
class CapturedOutput {
public:
    CapturedOutput() : redirection(STDOUT_FILENO, file.get()) {}

    // Everything written so far.
    std::string text();

private:
    MemoryFile file;
    RedirectedFd redirection;
};

// What an action writes to standard output.
std::string writtenBy(const std::function<void()>& action);
