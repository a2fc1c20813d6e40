#pragma once

#include <string>

#include "Authorization.h"
#include "FileSource.h"
#include "Protocol.h"

// What the master of one session may do, and how it is told what it may not. A value type.
class MasterRights {
public:
    MasterRights() = default;
    // name: the common name of its certificate.
    MasterRights(std::string name, Authorization::Grant itsGrant);

    const std::string& certificate() const { return certificateName; }
    Role role() const { return grant.role; }

    // kAllowed or kRefused. Throws ProtocolError for a frame that has no place in this state.
    Verdict judge(SessionState state, const protocol::FrameHeader& header) const;

    // "PUT is not allowed to the certificate ...".
    std::string refusalOf(const std::string& what) const;

    // False for a path that a reader may not read whatever is there, by its text alone.
    bool mayName(const std::string& path) const;

    // Opens a file for the master. Throws PathPrefix::Outside for what it may not read, FileError
    // for what cannot be read.
    FileSource openSource(const std::string& path) const;
    // Whether something is there. Throws PathPrefix::Outside for what a reader may not read.
    bool exists(const std::string& path) const;

private:
    std::string certificateName;
    Authorization::Grant grant;
};
