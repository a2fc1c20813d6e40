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
    static std::string digestOf(const std::string& content) {
        FileDigest digest;
        digest.update(content.data(), content.size());
        return digest.finish();
    }

    static std::string pattern(std::size_t size) {
        std::string content(size, '\0');
        unsigned state = 12345;
        for (char& c : content) {
            state = state * 1103515245 + 12345;
            c = static_cast<char>(state >> 16);
        }
        return content;
    }

    // Made fast, and no two pieces of it are the same.
    static std::string largePattern(std::size_t size) {
        const std::string block = pattern(std::size_t{256} * 1024);
        std::string content;
        content.reserve(size + block.size());
        while (content.size() < size) {
            content += std::to_string(content.size()) + block;
        }
        content.resize(size);
        return content;
    }

    static unsigned modeOf(const std::string& path) {
        struct stat found {};
        return stat(path.c_str(), &found) == 0 ? found.st_mode & 07777U : 0U;
    }

    std::size_t entries() const {
        return static_cast<std::size_t>(
            std::distance(std::filesystem::directory_iterator(files()), {}));
    }
    std::string files() const { return directory.file("files"); }
    std::string file(const std::string& name) const { return files() + "/" + name; }

    void SetUp() override { std::filesystem::create_directory(files()); }

    // Runs one command on the agent and gives its result.
    CResult run(const FakeNodeAgent& agent, const std::string& command,
                unsigned int timeOut = 20000) {
        SSLClient client = clientOf(agent);
        client.initAndConnect();
        CResult result;
        client.execute(command, timeOut, &result);
        return result;
    }

    // An agent that answers a GET with these frames.
    FakeNodeAgent::Script giving(std::vector<std::string> frames) {
        return [frames](TlsChannel& channel) {
            FakeNodeAgent::greet(channel);
            (void)channel.receiveFrame(FakeNodeAgent::soon());
            for (const std::string& frame : frames) {
                FakeNodeAgent::send(channel, frame);
            }
            FakeNodeAgent::waitForClose(channel);
        };
    }

    static std::string info(std::uint64_t size, std::uint32_t mode = 0644) {
        protocol::FileInfo body;
        body.size = size;
        body.mode = mode;
        return protocol::encode(body);
    }
    static std::string data(const std::string& body) {
        return FakeNodeAgent::frame(protocol::FrameType::kData, body);
    }
    static std::string end(const std::string& digest) {
        protocol::End body;
        body.digest = digest;
        return protocol::encode(body);
    }
};

// Puts content under a path, as either end does it.
inline void replace(const std::string& path, const std::string& content, std::uint32_t mode) {
    FileReplacement replacement(path);
    replacement.open();
    replacement.write(content);
    replacement.commit(mode);
}
