#include "BmcSimulator.h"

#include <cerrno>
#include <fcntl.h>
#include <fstream>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sstream>
#include <stdexcept>
#include <sys/wait.h>

BmcSimulator::BmcSimulator(const std::string& address, const std::string& guid,
                           const std::string& directory)
    : directory_(directory) {
    int input[2];
    int output[2];
    if (pipe2(input, O_CLOEXEC) != 0 || pipe2(output, O_CLOEXEC) != 0) {
        throw std::runtime_error("pipe2 failed");
    }
    const std::string program = KELSH_SOURCE_DIR "/tests/tools/bmc/bmc-simulator";
    std::vector<std::string> words = {program, "--address",   address,  "--guid",
                                      guid,    "--directory", directory};
    std::vector<char*> arguments;
    for (std::string& word : words) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, input[0], STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, output[1], STDOUT_FILENO);
    const int error =
        posix_spawn(&pid_, program.c_str(), &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(input[0]);
    close(output[1]);
    input_ = input[1];
    const bool ready = error == 0 && waitForReady(output[0]);
    close(output[0]);
    if (!ready) {
        stop();
        throw std::runtime_error("no simulated controller at " + address);
    }
}

std::string BmcSimulator::power() const {
    const std::string text = contents("power");
    return text.substr(0, text.find('\n'));
}

bool BmcSimulator::waitForReady(int fd) {
    constexpr int kStartMs = 30000;
    pollfd watched{fd, POLLIN, 0};
    char text[16];
    return poll(&watched, 1, kStartMs) == 1 && read(fd, text, sizeof text) > 0;
}

std::string BmcSimulator::contents(const std::string& name) const {
    std::ifstream file(directory_ + "/" + name);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

void BmcSimulator::stop() {
    close(input_);
    if (pid_ > 0) {
        kill(pid_, SIGTERM);
        while (waitpid(pid_, nullptr, 0) < 0 && errno == EINTR) {
        }
        pid_ = -1;
    }
}
