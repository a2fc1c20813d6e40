#pragma once

#include <string>
#include <unistd.h>
#include <vector>

#include "TestPaths.h"

extern char** environ;

// One simulated management controller on UDP port 623 of a loopback address. It answers from the
// end of the constructor on and ends with the object.
class BmcSimulator {
public:
    // guid: 32 hexadecimal digits. innerPort must differ between simulators of one address only.
    BmcSimulator(const std::string& address, const std::string& guid, const std::string& directory);
    BmcSimulator(const BmcSimulator&) = delete;
    BmcSimulator& operator=(const BmcSimulator&) = delete;
    ~BmcSimulator() { stop(); }

    // The requests carried out so far, a line each.
    std::string events() const { return contents("events"); }
    // "on" or "off".
    std::string power() const;

private:
    static bool waitForReady(int fd);
    std::string contents(const std::string& name) const;
    void stop();

    std::string directory_;
    pid_t pid_ = -1;
    int input_ = -1;
};
