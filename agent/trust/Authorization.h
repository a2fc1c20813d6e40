#pragma once

#include <cstdint>
#include <cstdio>
#include <list>
#include <map>
#include <string>

#include "PathPrefix.h"
#include "Protocol.h"
#include "SettingsReader.h"

// What a master may ask of this node. Everything that is not granted is refused.
enum class Role {
    kNone,      // be greeted
    kObserver,  // + MAC, EXISTS
    kReader,    // + GET below its prefixes
    kOperator,  // + GET of anything, EXEC, PUT, RUN_PACKAGED
    kFirmware,  // + jobs that must not be cut short
};

const char* nameOf(Role role);

// What the agent waits for when a frame comes.
enum class SessionState {
    kGreeting,  // the shell's greeting
    kRequest,   // the next request, or a greeting that names the next command
    kUpload,    // the rest of a PUT
    kBusy,      // nothing: a job runs, or a file is on its way to the shell
};

enum class Verdict {
    kAllowed,
    kRefused,     // a rule for others than this one; the connection stays usable
    kOutOfPlace,  // no frame of that kind belongs there: the peer broke the protocol
};

// The one table of who may do what when. Decided from the header alone, before a byte of the body
// is looked at. type and flags are as they came, known or not.
Verdict judgeFrame(SessionState state, Role role, std::uint8_t type, std::uint8_t flags);

// authz.cfg in the node path: lines NAME=ROLE, and NAME=reader PREFIX..., separated by blanks,
// where NAME is the common name of a master's certificate. Without the file every master of the
// cluster may do everything; with it, whoever is not named has no role. An operator runs commands
// as root, so there are no prefixes for him: they would promise what they cannot keep.
//
// A value type without locks.
class Authorization {
public:
    struct Grant {
        Role role = Role::kNone;
        // Of a reader; without a trailing "/" unless it is the root.
        std::list<PathPrefix> prefixes;

        // Whether what the other grant allows is not all allowed by this one.
        bool isLessThan(const Grant& other) const;
    };

    // Everybody may do everything, until read() has been called.
    Authorization() = default;

    // From now on only what the stream grants, which stays the caller's. Every fault is added to
    // faults and its line is ignored.
    void read(FILE* stream, std::vector<ConfigFault>& faults);
    // Reads the file and opens its prefixes. That it does not exist is no fault; that it cannot be
    // read is one of line 0.
    static Authorization load(const std::string& fileName, std::vector<ConfigFault>& faults);

    bool isRestricted() const { return restricted; }
    // name: the common name; an empty one, as of a certificate without or with several, has no role
    // once there are rules.
    Grant grantOf(const std::string& name) const;

    // The descriptors of all prefixes, to be left open where others are closed.
    std::vector<int> descriptors() const;
    // A sentence for each prefix that is not there.
    std::vector<std::string> missingPrefixes() const;

private:
    std::string apply(const std::string& name, const std::string& value);

    bool restricted = false;
    std::map<std::string, Grant> grants;
};
