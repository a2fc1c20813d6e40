#pragma once

#include <atomic>
#include <random>
#include <stdexcept>
#include <string>

#include "FakeNodeAgent.h"

// What a hostile agent says to the shell. Texts first: each would do harm where it is run, written
// or shown as it is.
class Payloads {
public:
    using Random = std::mt19937;

    // canary: a directory in which nothing may appear.
    explicit Payloads(const std::string& canary);
    std::string text(Random& random) const;

private:
    std::string command;
    std::string outside;
};

// An agent that answers now honestly, so that every operation is reached, and now with a text, a
// size, a digest or a reply that does not belong there. One object serves the conversations of many
// agents; it must outlive them.
class HostileNode {
public:
    using Random = std::mt19937;

    explicit HostileNode(const Payloads& texts) : payloads(texts) {}

    long sent() const { return count; }

    FakeNodeAgent::Script script(unsigned int seed, bool endless);

private:
    using FrameType = protocol::FrameType;

    static void send(TlsChannel& channel, FrameType type, const std::string& body);
    static void say(TlsChannel& channel, const std::string& text);

    // Mostly honest, or no operation after it would ever be reached.
    bool greet(TlsChannel& channel, Random& random);

    // False when nothing more will come.
    bool answer(TlsChannel& channel, const protocol::Frame& request, Random& random, bool endless);
    bool answerMac(TlsChannel& channel, Random& random);
    bool answerExists(TlsChannel& channel, Random& random);

    // What an honest node would say, so that the steps behind it are reached too: where the shell
    // looks for a phrase, it finds it.
    std::string honestOutput(const std::string& line);
    bool answerJob(TlsChannel& channel, const protocol::Frame& request, Random& random);
    bool floodOutput(TlsChannel& channel);
    bool answerGet(TlsChannel& channel, Random& random);
    bool answerPut(TlsChannel& channel, Random& random);

    const Payloads& payloads;
    std::atomic<long> count{0};
    std::atomic<long> connections{0};
    std::atomic<long> logState{0};
};
