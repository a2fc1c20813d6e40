// One file to and from 64 nodes at once. They share this machine's file system with the master: all
// of them read and replace one file, which must be whole at any moment.

#include <atomic>
#include <chrono>
#include <fstream>
#include <sys/stat.h>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "LocalAgent.h"
#include "LocalCluster.h"
#include "ResultBlocks.h"

namespace {

constexpr int kNodes = 64;

class FileCluster : public testing::Test {
protected:
    FileCluster()
        : cluster(kNodes), content("settings of the cluster\n" + std::string(700000, '#')) {
        std::filesystem::create_directory(files());
        std::ofstream(path(), std::ios::binary) << content;
        EXPECT_EQ(0, ::chmod(path().c_str(), 0640));
        watcher = std::thread([this] { watch(); });
    }
    ~FileCluster() override {
        stop = true;
        watcher.join();
    }

    std::string files() const { return directory.file("files"); }
    std::string path() const { return files() + "/settings"; }

    // What any program on the node would see.
    void watch() {
        while (!stop) {
            torn += LocalAgent::read(path()) != content ? 1 : 0;
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }

    void expectOneWholeFile() const {
        EXPECT_EQ(content, LocalAgent::read(path()));
        EXPECT_EQ(std::vector<std::string>{"settings"}, LocalAgent::list(files()));
        struct stat found {};
        EXPECT_EQ(0, ::stat(path().c_str(), &found));
        EXPECT_EQ(0640U, found.st_mode & 07777U);
        EXPECT_EQ(0, torn);
    }

    static int count(const std::string& text, const std::string& part) {
        int found = 0;
        for (std::string::size_type at = text.find(part); at != std::string::npos;
             at = text.find(part, at + 1)) {
            ++found;
        }
        return found;
    }

    LocalCluster cluster;
    TempDir directory;
    const std::string content;
    std::atomic<bool> stop{false};
    std::atomic<int> torn{0};
    std::thread watcher;
};

}  // namespace

TEST_F(FileCluster, FileGoesToAllNodesAtOnce) {
    const LocalCluster::Run run = cluster.kelsh("save file -f " + path() + " -g all -t 60000");
    EXPECT_EQ(0, run.status) << run.output << run.errors;
    EXPECT_EQ(static_cast<std::size_t>(kNodes), blockNames(run.output).size());
    EXPECT_EQ(kNodes, count(run.output, "\"" + path() + "\" was saved (700024 bytes, SHA-256 "))
        << run.output;
    expectOneWholeFile();
}

TEST_F(FileCluster, FileOfAllNodesAtOnceIsTheWholeOneOfOneOfThem) {
    const LocalCluster::Run run = cluster.kelsh("get file -f " + path() + " -g all -t 60000");
    EXPECT_EQ(0, run.status) << run.output << run.errors;
    EXPECT_EQ(static_cast<std::size_t>(kNodes), blockNames(run.output).size());
    EXPECT_EQ(kNodes, count(run.output, "\"" + path() + "\" was copied from ")) << run.output;
    EXPECT_EQ(kNodes, count(run.output, "Over write the original file."));
    expectOneWholeFile();
}
