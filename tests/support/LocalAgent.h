#pragma once

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <sys/resource.h>
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
    explicit LocalAgent(Options wanted);
    LocalAgent(const LocalAgent&) = delete;
    LocalAgent& operator=(const LocalAgent&) = delete;
    ~LocalAgent();

    // With a trailing "/".
    std::string nodePath() const { return directory.path() + "/node/"; }
    std::string toolsPath() const { return nodePath() + "tools/"; }
    std::string runPath() const { return nodePath() + "run/"; }
    const std::string& ip() const { return options.address; }
    int port() const { return boundPort; }
    pid_t listenerPid() const { return pid; }
    TestPki& pki();
    const std::string& masterCertificate() const { return master.certificateFile; }
    const TestPki::Identity& masterIdentity() const { return master; }
    Options& configuration() { return options; }

    // A client that is connected; the certificate file of a master, the usual one if empty.
    std::unique_ptr<SSLClient> connect(const std::string& certificateFile = "") const;

    // Why no client connects with that certificate; empty when one does.
    std::string refusalOf(const std::string& certificateFile) const;

    // A channel on which the agent's greeting has been read, for tests that speak frames; greeted
    // says whether the shell's greeting is sent too.
    std::unique_ptr<TlsChannel> openChannel(bool greeted = true) const;

    static TlsChannel::Deadline soon() { return TlsChannel::after(20000); }

    // Packs a shell script as tools/<name>.enc.
    void packScript(const std::string& name, const std::string& script) const;
    void writeConfiguration() const;

    void signal(int number) const { ::kill(pid, number); }

    // Starts the agent (again) on the port it had.
    void start();

    // True when the listener has ended.
    bool waitForExit(std::chrono::milliseconds limit = std::chrono::milliseconds(15000));
    int exitStatus() const { return status; }

    std::string log() const { return read(nodePath() + "kelnode.log"); }
    std::string output() const { return read(outputFile()); }
    bool waitForLog(const std::string& text,
                    std::chrono::milliseconds limit = std::chrono::milliseconds(10000)) const;

    // The processes of that name ("kelnode-session", "kelnode-job") below the listener, or below
    // another process.
    std::vector<pid_t> processes(const std::string& name, pid_t below = 0) const;
    static std::string read(const std::string& path);

    // The names in a directory, sorted.
    static std::vector<std::string> list(const std::string& path);

    // The records of what is running; empty when all is tidy.
    std::vector<std::string> records() const;

private:
    std::string pkiPath() const { return directory.path() + "/pki"; }
    std::string outputFile() const { return directory.path() + "/agent.out"; }

    static void copy(const std::string& from, const std::string& to);

    // Between fork and exec nothing may allocate: the test may have threads.
    void spawn(int readyFd);
    static std::string readLine(int fd);
    static std::vector<pid_t> descendants(pid_t root);

    TempDir directory;
    Options options;
    TestPki authority;
    TestPki::Identity master;
    pid_t pid = 0;
    int status = 0;
    int boundPort = 0;
};
