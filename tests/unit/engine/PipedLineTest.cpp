#include <fcntl.h>
#include <fstream>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

#include <gtest/gtest.h>
#include <pty.h>

#include "PipedLine.h"
#include "StandardInput.h"
#include "StopWatch.h"
#include "TempDir.h"
#include "UniqueFd.h"

namespace {

using Words = std::list<std::string>;

std::string rest(int descriptor) {
    std::string text(100, '\0');
    const ssize_t count = ::read(descriptor, text.data(), text.size());
    return text.substr(0, count > 0 ? static_cast<std::size_t>(count) : 0);
}

struct Pipe {
    Pipe() {
        int ends[2];
        if (::pipe2(ends, O_CLOEXEC) == 0) {
            readEnd.reset(ends[0]);
            writeEnd.reset(ends[1]);
        }
    }
    void write(const std::string& text) const {
        ASSERT_EQ(static_cast<ssize_t>(text.size()),
                  ::write(writeEnd.get(), text.data(), text.size()));
    }
    UniqueFd readEnd;
    UniqueFd writeEnd;
};

}  // namespace

TEST(PipedLine, SplitsOneLineAndLeavesTheRest) {
    const Pipe pipe;
    pipe.write("  tools \t uptime\r\ny\n");
    EXPECT_EQ((Words{"tools", "uptime"}), readPipedWords(pipe.readEnd.get()));
    EXPECT_EQ("y\n", rest(pipe.readEnd.get()));
}

TEST(PipedLine, LineMayEndWithTheInput) {
    Pipe pipe;
    pipe.write("list");
    pipe.writeEnd.reset();
    EXPECT_EQ(Words{"list"}, readPipedWords(pipe.readEnd.get()));
    EXPECT_EQ(Words{}, readPipedWords(pipe.readEnd.get()));
}

TEST(PipedLine, EmptyFirstLineGivesNothing) {
    const Pipe pipe;
    pipe.write("\nlist\n");
    EXPECT_EQ(Words{}, readPipedWords(pipe.readEnd.get()));
    EXPECT_EQ("list\n", rest(pipe.readEnd.get()));
}

TEST(PipedLine, IdlePipeIsGivenUpSoon) {
    const Pipe pipe;
    StopWatch watch;
    watch.start();
    EXPECT_EQ(Words{}, readPipedWords(pipe.readEnd.get()));
    EXPECT_GE(watch.getTime(), 199);
    EXPECT_LT(watch.getTime(), 5000);
}

TEST(PipedLine, LineMayArriveLateAndInPieces) {
    const Pipe pipe;
    std::thread writer([&] {
        pipe.write("li");
        pipe.write("st\n");
    });
    EXPECT_EQ(Words{"list"}, readPipedWords(pipe.readEnd.get()));
    writer.join();
}

TEST(PipedLine, RegularFilesAndSocketsCount) {
    const TempDir directory;
    std::ofstream(directory.file("line")) << "list node\nmore\n";
    const UniqueFd file(::open(directory.file("line").c_str(), O_RDONLY | O_CLOEXEC));
    EXPECT_EQ((Words{"list", "node"}), readPipedWords(file.get()));
    EXPECT_EQ("more\n", rest(file.get()));

    int ends[2];
    ASSERT_EQ(0, ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends));
    const UniqueFd near(ends[0]);
    const UniqueFd far(ends[1]);
    ASSERT_EQ(5, ::write(far.get(), "help\n", 5));
    EXPECT_EQ(Words{"help"}, readPipedWords(near.get()));
}

TEST(PipedLine, TypeAheadOfATerminalStays) {
    int master = -1;
    int slave = -1;
    ASSERT_EQ(0, ::openpty(&master, &slave, nullptr, nullptr, nullptr));
    const UniqueFd masterFd(master);
    const UniqueFd slaveFd(slave);
    ASSERT_EQ(5, ::write(master, "list\n", 5));
    EXPECT_EQ(Words{}, readPipedWords(slave));
    EXPECT_EQ("list\n", rest(slave));
}

TEST(PipedLine, DevicesAndClosedDescriptorsGiveNothing) {
    const UniqueFd null(::open("/dev/null", O_RDONLY | O_CLOEXEC));
    EXPECT_EQ(Words{}, readPipedWords(null.get()));
    EXPECT_EQ(Words{}, readPipedWords(-1));
}
