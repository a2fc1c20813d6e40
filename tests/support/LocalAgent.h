#pragma once

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <optional>
#include <poll.h>
#include <sstream>
#include <stdexcept>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "CException.h"
#include "OwnMounts.h"
#include "SSLClient.h"
#include "TempDir.h"
#include "TestPaths.h"
#include "TestPki.h"
#include "TlsChannel.h"
#include "TlsContext.h"
#include "ToolPackage.h"
#include "UniqueFd.h"
#include "WaitFor.h"

// The real kelnode in a node path of its own, on a loopback address and a free port, with
// certificates, a tool key and an empty tools directory. Running and listening when the constructor
// returns; the destructor ends it. Needs the target kelnode to be built.
class LocalAgent {
public:
    struct Options {
        std::string address = "127.0.0.1";
        // Further lines of kelnode.cfg; LISTEN, the certificate files and LOG_FILE may be replaced.
        std::map<std::string, std::string> settings;
        // Added to the environment of the agent; of it a job gets PATH only.
        std::map<std::string, std::string> environment;
        std::optional<rlim_t> openFilesLimit;  // hard and soft
        // What the agent and its jobs see in place of directories of this machine, by their paths:
        // another directory, or "tmpfs:size=64k" for an empty file system of that size. Made in a
        // mount namespace of the agent's own.
        std::map<std::string, std::string> mounts;
        // The authority of a whole cluster, in place of the agent's own; it must outlive the agent.
        TestPki* sharedAuthority = nullptr;
    };

    LocalAgent() : LocalAgent(Options()) {}
    explicit LocalAgent(Options wanted) : options(std::move(wanted)), authority(pkiPath()) {
        TestPki& issuer = pki();
        master = issuer.master();
        const TestPki::Identity node = issuer.node("node", options.address);
        std::filesystem::create_directories(nodePath() + "tools");
        copy(node.certificateFile, nodePath() + "node.crt");
        copy(node.keyFile, nodePath() + "node.key");
        std::filesystem::permissions(nodePath() + "node.key", std::filesystem::perms(0600));
        copy(issuer.caFile(), nodePath() + "ca.crt");
        toolpackage::ToolKey::createFile(nodePath() + "toolkey");
        writeConfiguration();
        start();
    }
    LocalAgent(const LocalAgent&) = delete;
    LocalAgent& operator=(const LocalAgent&) = delete;
    ~LocalAgent() {
        if (pid > 0) {
            ::kill(pid, SIGTERM);
            if (!waitForExit()) {
                ::kill(pid, SIGKILL);
                waitForExit();
            }
        }
    }

    // With a trailing "/".
    std::string nodePath() const { return directory.path() + "/node/"; }
    std::string toolsPath() const { return nodePath() + "tools/"; }
    std::string runPath() const { return nodePath() + "run/"; }
    const std::string& ip() const { return options.address; }
    int port() const { return boundPort; }
    pid_t listenerPid() const { return pid; }
    TestPki& pki() {
        return options.sharedAuthority != nullptr ? *options.sharedAuthority : authority;
    }
    const std::string& masterCertificate() const { return master.certificateFile; }
    const TestPki::Identity& masterIdentity() const { return master; }
    Options& configuration() { return options; }

    // A client that is connected; the certificate file of a master, the usual one if empty.
    std::unique_ptr<SSLClient> connect(const std::string& certificateFile = "") const {
        auto client = std::make_unique<SSLClient>(
            ip(), port(), certificateFile.empty() ? masterCertificate() : certificateFile);
        client->initAndConnect(10000);
        return client;
    }

    // Why no client connects with that certificate; empty when one does.
    std::string refusalOf(const std::string& certificateFile) const {
        try {
            connect(certificateFile);
        } catch (const CException& refused) {
            return refused.getErrMsg();
        }
        return "";
    }

    // A channel on which the agent's greeting has been read, for tests that speak frames; greeted
    // says whether the shell's greeting is sent too.
    std::unique_ptr<TlsChannel> openChannel(bool greeted = true) const {
        TlsFiles files;
        files.certificateFile = masterCertificate();
        auto channel = TlsChannel::connect(ip(), port(), TlsContext::client(files), soon());
        channel->receiveFrame(soon());
        if (greeted) {
            protocol::ShellHello hello;
            hello.user = "tester";
            channel->sendFrame(protocol::encode(hello), soon());
        }
        return channel;
    }

    static TlsChannel::Deadline soon() { return TlsChannel::after(20000); }

    // Packs a shell script as tools/<name>.enc.
    void packScript(const std::string& name, const std::string& script) const {
        const std::string plain = directory.file(name);
        std::ofstream(plain) << script;
        toolpackage::pack(plain, toolpackage::ToolKey::load(nodePath() + "toolkey"),
                          toolsPath() + name + ".enc");
        std::filesystem::remove(plain);
    }

    void writeConfiguration() const {
        std::map<std::string, std::string> lines{
            {"LISTEN", options.address + ":" + std::to_string(boundPort)},
            {"CERTIFICATE_FILE", "node.crt"},
            {"PRIVATE_KEY_FILE", "node.key"},
            {"CA_FILE", "ca.crt"},
            {"TOOLS_KEY_FILE", "toolkey"},
            {"LOG_FILE", "kelnode.log"}};
        for (const auto& setting : options.settings) {
            lines[setting.first] = setting.second;
        }
        std::ofstream file(nodePath() + "kelnode.cfg");
        for (const auto& line : lines) {
            file << line.first << "=" << line.second << "\n";
        }
    }

    void signal(int number) const { ::kill(pid, number); }

    // Starts the agent (again) on the port it had.
    void start() {
        int ends[2];
        if (::pipe2(ends, O_CLOEXEC) != 0) {
            throw std::runtime_error("pipe2 failed");
        }
        const UniqueFd ready(ends[0]);
        UniqueFd readyWrite(ends[1]);
        spawn(readyWrite.get());
        readyWrite.reset();
        const std::string line = readLine(ready.get());
        const std::string::size_type colon = line.rfind(':');
        if (colon == std::string::npos) {
            throw std::runtime_error("kelnode did not start: " + output());
        }
        boundPort = std::stoi(line.substr(colon + 1));
    }

    // True when the listener has ended.
    bool waitForExit(std::chrono::milliseconds limit = std::chrono::milliseconds(15000)) {
        const bool ended =
            pid <= 0 || waitFor([this] { return ::waitpid(pid, &status, WNOHANG) == pid; }, limit);
        if (ended) {
            pid = 0;
        }
        return ended;
    }
    int exitStatus() const { return status; }

    std::string log() const { return read(nodePath() + "kelnode.log"); }
    std::string output() const { return read(outputFile()); }
    bool waitForLog(const std::string& text,
                    std::chrono::milliseconds limit = std::chrono::milliseconds(10000)) const {
        return waitFor([&] { return log().find(text) != std::string::npos; }, limit);
    }

    // The processes of that name ("kelnode-session", "kelnode-job") below the listener, or below
    // another process.
    std::vector<pid_t> processes(const std::string& name, pid_t below = 0) const {
        std::vector<pid_t> found;
        for (const pid_t candidate : descendants(below > 0 ? below : pid)) {
            std::string comm = read("/proc/" + std::to_string(candidate) + "/comm");
            if (comm == name + "\n") {
                found.push_back(candidate);
            }
        }
        return found;
    }

    static std::string read(const std::string& path) {
        std::ifstream file(path, std::ios::binary);
        std::stringstream content;
        content << file.rdbuf();
        return content.str();
    }

    // The names in a directory, sorted.
    static std::vector<std::string> list(const std::string& path) {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(path)) {
            names.push_back(entry.path().filename().string());
        }
        std::sort(names.begin(), names.end());
        return names;
    }

    // The records of what is running; empty when all is tidy.
    std::vector<std::string> records() const {
        std::vector<std::string> names = list(runPath());
        names.erase(std::remove_if(names.begin(), names.end(),
                                   [](const std::string& name) {
                                       return name.rfind("job-", 0) != 0 &&
                                              name.rfind("new-", 0) != 0;
                                   }),
                    names.end());
        return names;
    }

private:
    std::string pkiPath() const { return directory.path() + "/pki"; }
    std::string outputFile() const { return directory.path() + "/agent.out"; }

    static void copy(const std::string& from, const std::string& to) {
        std::filesystem::copy_file(from, to, std::filesystem::copy_options::overwrite_existing);
    }

    // Between fork and exec nothing may allocate: the test may have threads.
    void spawn(int readyFd) {
        std::vector<std::string> environment{"KELNODE_PATH=" + nodePath()};
        for (const auto& entry : options.environment) {
            environment.push_back(entry.first + "=" + entry.second);
        }
        for (char** entry = environ; *entry != nullptr; ++entry) {
            const std::string text = *entry;
            if (options.environment.count(text.substr(0, text.find('='))) == 0) {
                environment.push_back(text);
            }
        }
        std::vector<char*> pointers;
        for (std::string& entry : environment) {
            pointers.push_back(entry.data());
        }
        pointers.push_back(nullptr);
        const std::string program = std::string(KELSH_BINARY_DIR) + "/bin/kelnode";
        const std::string out = outputFile();
        char name[] = "kelnode";
        char option[] = "--ready-fd";
        std::string number = std::to_string(readyFd);
        char* arguments[] = {name, option, number.data(), nullptr};
        const OwnMounts mounts(options.mounts);
        pid = ::fork();
        if (pid == 0) {
            if (!mounts.enter()) {
                ::_exit(126);
            }
            if (options.openFilesLimit) {
                const rlimit limit{*options.openFilesLimit, *options.openFilesLimit};
                ::setrlimit(RLIMIT_NOFILE, &limit);
            }
            const int file = ::open(out.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
            const int nothing = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
            ::dup2(nothing, STDIN_FILENO);
            ::dup2(file, STDOUT_FILENO);
            ::dup2(file, STDERR_FILENO);
            ::fcntl(readyFd, F_SETFD, 0);
            ::execve(program.c_str(), arguments, pointers.data());
            ::_exit(127);
        }
        if (pid < 0) {
            throw std::runtime_error("fork failed");
        }
    }

    static std::string readLine(int fd) {
        std::string line;
        char byte = 0;
        pollfd watched{fd, POLLIN, 0};
        while (::poll(&watched, 1, 30000) > 0 && ::read(fd, &byte, 1) == 1 && byte != '\n') {
            line += byte;
        }
        return line;
    }

    static std::vector<pid_t> descendants(pid_t root) {
        std::multimap<pid_t, pid_t> byParent;
        for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
            const std::string name = entry.path().filename().string();
            if (name.find_first_not_of("0123456789") != std::string::npos) {
                continue;
            }
            const std::string stat = read(entry.path().string() + "/stat");
            const std::string::size_type end = stat.rfind(')');
            if (end != std::string::npos && stat.size() > end + 4) {
                byParent.emplace(std::atoi(stat.c_str() + end + 4), std::stoi(name));
            }
        }
        std::vector<pid_t> found;
        std::vector<pid_t> open{root};
        while (!open.empty()) {
            const pid_t parent = open.back();
            open.pop_back();
            const auto range = byParent.equal_range(parent);
            for (auto child = range.first; child != range.second; ++child) {
                found.push_back(child->second);
                open.push_back(child->second);
            }
        }
        return found;
    }

    TempDir directory;
    Options options;
    TestPki authority;
    TestPki::Identity master;
    pid_t pid = 0;
    int status = 0;
    int boundPort = 0;
};
