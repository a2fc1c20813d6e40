#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "CResult.h"

// The client of the node agent without a network, chosen when the test program is linked: a program
// that compiles ScriptedClient.cpp gets this SSLClient in place of the real one. It answers from a
// script and writes down what was asked, in order. Every address has the same agent behind it. One
// thread at a time.
class ScriptedClient {
public:
    // A command line with where it went.
    struct Call {
        std::string ip;
        int port = 0;
        std::string certificateFile;
        std::string commandLine;
        unsigned int timeOutMs = 0;
    };

    // One line of text per request:
    //   "run: LINE", "run uninterruptibly: LINE", "exists: PATH"
    //   "tool: PROGRAM[+MORE...] [with COMPANIONS] in NODEPATH: PRECOMMAND|ARGUMENTS"
    //   "tool uninterruptibly: ..."
    // The requests with which CNodeSession makes sure of a log are left out.
    std::vector<std::string> requests;
    // The time-outs that went with run and tool requests, in milliseconds.
    std::vector<unsigned int> timeOutsMs;
    // The command lines alone, and the time allowed for each connection.
    std::vector<Call> calls;
    std::vector<unsigned int> connectTimeOutsMs;

    // What a command line gives; any other gives an empty success.
    std::map<std::string, CResult> answers;
    // What a run gives, by "PACKAGE ARGUMENTS" or else by the program's package; default an empty
    // success.
    std::map<std::string, CResult> toolAnswers;
    // The package whose run throws, and the text.
    std::map<std::string, std::string> toolFailures;
    // The packages, and the uninterruptible lines, whose runs leave their log as it was.
    std::set<std::string> silentTools;
    // What a command line throws.
    std::map<std::string, std::string> lineFailures;
    // Paths that are missing on the node although they were copied there.
    std::set<std::string> missingFiles;
    // What connecting throws; nothing while it is empty.
    std::string connectFailure;
    int liveClients = 0;
    int mostLiveClients = 0;
    // Grows with each run of a tool: the state of every log.
    int logState = 0;

    void answer(const std::string& commandLine, const std::string& output, int exitCode = 0);
    void answerTool(const std::string& package, int exitCode, const std::string& output = "");

    // The script of every client of the process.
    static ScriptedClient& instance();
    static void reset();
};
