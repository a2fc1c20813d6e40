#pragma once

#include <cstdint>
#include <filesystem>
#include <iterator>
#include <string>
#include <sys/stat.h>
#include <vector>

#include "FileDigest.h"
#include "FileReplacement.h"
#include "TlsFixture.h"

// A directory of files, contents for them, and an agent that gives and takes them.
class FileTransfer : public TlsFixture {
protected:
    static std::string digestOf(const std::string& content);
    static std::string pattern(std::size_t size);

    // Made fast, and no two pieces of it are the same.
    static std::string largePattern(std::size_t size);
    static unsigned modeOf(const std::string& path);
    std::size_t entries() const;
    std::string files() const { return directory.file("files"); }
    std::string file(const std::string& name) const { return files() + "/" + name; }

    void SetUp() override { std::filesystem::create_directory(files()); }

    // Runs one command on the agent and gives its result.
    CResult run(const FakeNodeAgent& agent, const std::string& command,
                unsigned int timeOut = 20000);

    // An agent that answers a GET with these frames.
    FakeNodeAgent::Script giving(std::vector<std::string> frames);
    static std::string info(std::uint64_t size, std::uint32_t mode = 0644);
    static std::string data(const std::string& body);
    static std::string end(const std::string& digest);
};

// Puts content under a path, as either end does it.
void replace(const std::string& path, const std::string& content, std::uint32_t mode);
