#include "MasterShell.h"

#include <csignal>
#include <fcntl.h>
#include <sys/wait.h>

MasterShell::MasterShell(const LocalAgent& agent) {
    std::filesystem::create_directory(home() + "cmdexedump");
    std::ofstream(home() + "node.cfg")
        << "[node]\nnode=" << kMac << "," << agent.ip() << ":" << agent.port() << "\n";
    std::ofstream(home() + "cmd.cfg") << "# none\n";
    std::ofstream(home() + "ssl_master.cfg")
        << "PRIVATE_KEY_FILE=" << agent.masterIdentity().keyFile
        << "\nPUBLIC_KEY_FILE=" << agent.masterCertificate()
        << "\nCERTIFICATE_FILE=" << agent.masterCertificate() << "\n";
    std::ofstream(home() + "kelsh_version.cfg") << "VERSION=1\nBUILD=test\n";
    std::ofstream(home() + "log4cxx.properties") << "log4j.rootLogger=OFF\n";
}

MasterShell::~MasterShell() {
    if (pid > 0) {
        kill();
        static_cast<void>(wait());
    }
}

void MasterShell::start(const std::vector<std::string>& words, const std::string& input) {
    std::ofstream(inputFile()) << input;
    std::vector<std::string> environment{"KELSH_PATH=" + directory.path()};
    for (char** entry = environ; *entry != nullptr; ++entry) {
        if (std::string(*entry).rfind("KELSH_PATH=", 0) != 0) {
            environment.emplace_back(*entry);
        }
    }
    std::vector<std::string> line{"kelsh"};
    line.insert(line.end(), words.begin(), words.end());
    std::vector<char*> variables = pointers(environment);
    std::vector<char*> arguments = pointers(line);
    const std::string program = std::string(KELSH_BINARY_DIR) + "/bin/kelsh";
    const std::string out = outputFile();
    const std::string in = input.empty() ? "/dev/null" : inputFile();
    pid = ::fork();
    if (pid == 0) {
        const int file = ::open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        const int typed = ::open(in.c_str(), O_RDONLY | O_CLOEXEC);
        ::dup2(typed, STDIN_FILENO);
        ::dup2(file, STDOUT_FILENO);
        ::dup2(file, STDERR_FILENO);
        ::execve(program.c_str(), arguments.data(), variables.data());
        ::_exit(127);
    }
    if (pid < 0) {
        throw std::runtime_error("fork failed");
    }
}

int MasterShell::wait() {
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    pid = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

int MasterShell::run(const std::vector<std::string>& words) {
    start(words);
    return wait();
}

std::vector<char*> MasterShell::pointers(std::vector<std::string>& texts) {
    std::vector<char*> all;
    for (std::string& text : texts) {
        all.push_back(text.data());
    }
    all.push_back(nullptr);
    return all;
}
