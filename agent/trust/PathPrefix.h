#pragma once

#include <list>
#include <memory>
#include <string>
#include <utility>

#include "CException.h"
#include "UniqueFd.h"

// A path below which a reader may read. What stands there is opened when the rules are read, and
// every path of a request is resolved beneath that by the kernel: nobody who renames directories or
// puts links in place later leads a reader elsewhere. A value type; copies share the descriptor.
class PathPrefix {
public:
    // Outside what may be read; says no more than that, so that it gives away nothing about files
    // there.
    class Outside : public CException {
    public:
        using CException::CException;
    };

    static constexpr char kOutside[] = "outside the path prefixes of this certificate";

    // Covers nothing yet. The text must be one without a fault, without a trailing "/".
    explicit PathPrefix(std::string prefix) : path(std::move(prefix)) {}

    // Opens what stands there, links on the way followed. Of a file its directory is opened, so
    // that it may be replaced as logs are. False when it is not there: then nothing is covered.
    bool open();

    const std::string& text() const { return path; }
    bool isOpen() const { return directory != nullptr; }
    // -1 when it is not open.
    int descriptor() const { return directory ? directory->get() : -1; }

    // Empty, or why the text cannot serve as a prefix: not absolute, or with empty, "." or ".."
    // parts.
    static std::string faultOf(const std::string& prefix);
    // Whether path is prefix or below it, by its text alone.
    static bool covers(const std::string& prefix, const std::string& path);
    // Whether path is below one of them and without "..", by its text alone.
    static bool anyCovers(const std::list<PathPrefix>& prefixes, const std::string& path);

    // Opens a regular file for reading that lies below one of the prefixes. Symbolic links are
    // followed as long as they stay below; one with an absolute target does not, but below "/".
    // Throws Outside, or CException with errno's text where the file cannot be opened.
    static UniqueFd openFile(const std::list<PathPrefix>& prefixes, const std::string& path);
    // Whether anything is there. Throws Outside.
    static bool exists(const std::list<PathPrefix>& prefixes, const std::string& path);

private:
    // A handle that reads nothing, or none with the reason in error.
    UniqueFd resolve(const std::string& wanted, int& error) const;
    static UniqueFd resolveAny(const std::list<PathPrefix>& prefixes, const std::string& wanted,
                               int& error);

    std::string path;
    std::shared_ptr<const UniqueFd> directory;
    std::string file;  // of a prefix that is no directory: its name there
};
