#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "Cancellation.h"
#include "NodeCall.h"

// One command on all its targets while it runs: who is still awaited, in which phase and since when
// is one query, and giving all of them up is one call. Made by the engine for each command; safe
// from any thread.
class CommandProgress {
public:
    struct Awaited {
        std::string target;
        NodeCall::Phase phase;
        NodeCall::Clock::time_point since;
    };

    explicit CommandProgress(std::uint32_t commandNumber);
    CommandProgress(const CommandProgress&) = delete;
    CommandProgress& operator=(const CommandProgress&) = delete;

    // A further target; what its worker works for.
    std::shared_ptr<NodeCall> add(std::string target);

    // The targets whose worker has not ended, in the order in which they were added.
    std::vector<Awaited> awaited() const;

    // Ends every wait for the network. The workers end with a failure; a job that must not be cut
    // short goes on at its node, the others are ended there. What runs on this machine goes on.
    void cancel() noexcept { stop->cancel(); }
    bool isCancelled() const { return stop->isCancelled(); }

private:
    const std::uint32_t number;
    const std::shared_ptr<Cancellation> stop;
    mutable std::mutex mutex;
    std::vector<std::pair<std::string, std::shared_ptr<NodeCall>>> calls;  // guarded by mutex
};
