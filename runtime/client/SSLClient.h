#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "CResult.h"

class AgentLink;
class Dialer;
class NodeCall;

// The shell's connection to the agent of one node: mutual TLS, one connection per object, had from
// initAndConnect until the destructor. Created per use; used by one thread at a time. Any number of
// objects work at once on different threads.
//
// A connection whose conversation ended well is left to the Dialer, where
// the next object for the same node finds it; never one after a time-out, a refusal or a fault. A
// rested connection may be dead without a sign of it, so it is trusted only after an answer:
// questions are asked again over a new connection, and jobs and transfers, which must never be done
// twice, are not sent before the agent has answered a question.
//
// Whatever concerns the connection throws CException with a text that names the node; the object is
// then without a connection, and every further request throws too until initAndConnect is called
// again. What a command does on the node goes to the CResult, which stays the caller's.
class SSLClient {
public:
    // Milliseconds that connecting, the handshake and the agent's greeting may take together.
    static constexpr unsigned int kConnectTimeOutMs = 3000;
    // Output kept per result; what comes after it is counted and dropped.
    static constexpr std::size_t kMaxSummaryBytes = std::size_t{64} * 1024 * 1024;

    // address: the node's address as its certificate names it, an IP literal or a host name.
    // certificate: a PEM file, the master's certificate, then the cluster's CA certificates, and
    // the private key unless setPrivateKeyFile names another file. Nothing is read before
    // initAndConnect.
    // The connection is made over the Dialer of the process.
    SSLClient(std::string address, int agentPort, std::string certificate);
    // Over that one, which must outlive the object.
    SSLClient(Dialer& connections, std::string address, int agentPort, std::string certificate);
    SSLClient(const SSLClient&) = delete;
    SSLClient& operator=(const SSLClient&) = delete;
    ~SSLClient();

    // What the connections made from now on work for: the number of the command travels with each
    // request, and the call's end and whoever gives it up end every wait. Null, as at first, for a
    // call of nobody.
    void workFor(std::shared_ptr<NodeCall> theCall) { call = std::move(theCall); }
    // Milliseconds that connecting may take from now on; 0 means kConnectTimeOutMs. When many
    // threads connect at once, up to the same time again may pass in line. Inside a command give at
    // most a third of its time-out, so that a dead node is reported with its reason and not as
    // timed out. Where a rested connection turns out dead at the first request, making a new one
    // may take the same time, and finding out half of it. A node that was silent just now has less
    // (SilentPeers).
    void setConnectLimit(unsigned int timeOutMs) { connectLimitMs = timeOutMs; }
    // How long a network that does not answer is waited for from now on before initAndConnect
    // leaves the attempt to itself; see isPending. As long as the limit at first.
    void setPatience(std::chrono::milliseconds most) { patience = most; }

    // Returns when the agent has accepted this master and greeted it, now or, where a connection
    // is used again, earlier.
    void initAndConnect();
    void initAndConnect(unsigned int timeOutMs) {
        setConnectLimit(timeOutMs);
        initAndConnect();
    }
    // Whether the last initAndConnect has left an attempt to itself: there is no connection yet,
    // and the next object for the same node goes on with it.
    bool isPending() const { return pending; }

    // Whether the jobs sent from now on must not be cut short: they go on at the node whatever
    // becomes of the time-out, the connection or this process. Off at first.
    void setUninterruptible(bool on) { uninterruptible = on; }

    // Runs a shell command line on the node. timeOut in milliseconds, 0 means no limit.
    //   exit code 0 -> run status 0; any other -> 2; ended by signal n -> exit code 128 + n and 2;
    //   time-out -> 5 with the output so far. The output becomes the run summary.
    // "[savefile]" and "[getfile]" followed by an absolute path copy that file to the node or from
    // it, under the same path: the target is the old file or the whole new one. A file that cannot
    // be read or written gives status 2 and a text, a time-out 5.
    // Throws CException when the connection fails and when the agent did not start the job.
    void execute(std::string commandLine, unsigned int timeOut, CResult* result);

    // Whether anything exists under that path on the node.
    bool isFileExistedAtSlaveNode(std::string path);

    // Runs a packaged tool on the node; the result is filled as by execute. Throws CException when
    // nothing was run: a log file of an earlier run must then not be taken for this one's.
    //   preCommand      shell text run before the tool in the same shell, ending in ";", or empty
    //   arguments       of the tool, redirections included
    //   nodePath        the node's install directory, with a trailing "/"
    //   packagedFiles   package names in its tools directory; the first is the program
    //   companionFiles  further files the run needs there
    void executeEncryptedBinary(std::string preCommand, std::string arguments, std::string nodePath,
                                std::list<std::string> packagedFiles,
                                std::list<std::string> companionFiles, unsigned int timeOut,
                                CResult* result);

    // Packaged tools, and jobs that must not be cut short, run by turns on a node: those of other
    // conversations wait until this object has ended, so that what a run left can be read back.
    // With this they wait until the next object has used the same connection.
    void keepTurn();

    // The MAC address of the interface on which the agent is reached; empty when it cannot tell.
    std::string getKelNodeMacAddress(std::string ip);
    // With a limit of its own, milliseconds; 0 means the usual one.
    std::string getKelNodeMacAddress(std::string nodeIp, unsigned int timeOutMs) {
        answerLimitMs = timeOutMs;
        return getKelNodeMacAddress(std::move(nodeIp));
    }

private:
    void requireConnection() const;
    std::uint8_t jobFlags() const;
    void runJob(const std::string& request, bool beginsTurn, unsigned int timeOut, CResult& result);

    std::string ip;
    int port;
    std::string certificateFile;
    Dialer* dialer = nullptr;  // not owned; null for the one of the process
    std::shared_ptr<NodeCall> call;
    unsigned int connectLimitMs = 0;
    unsigned int answerLimitMs = 0;
    std::optional<std::chrono::milliseconds> patience;
    bool pending = false;
    bool uninterruptible = false;
    std::unique_ptr<AgentLink> link;  // null until the first connection
};
