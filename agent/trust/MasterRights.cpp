#include "MasterRights.h"

#include <sys/stat.h>
#include <utility>

#include "CException.h"
#include "Text.h"

namespace {

const char* expectedIn(SessionState state) {
    switch (state) {
        case SessionState::kGreeting:
            return "the shell's greeting";
        case SessionState::kUpload:
            return "the rest of a file";
        case SessionState::kRequest:
        case SessionState::kBusy:
            break;
    }
    return "a request";
}

}  // namespace

MasterRights::MasterRights(std::string name, Authorization::Grant itsGrant)
    : certificateName(std::move(name)), grant(std::move(itsGrant)) {}

Verdict MasterRights::judge(SessionState state, const protocol::FrameHeader& header) const {
    const Verdict verdict =
        judgeFrame(state, grant.role, static_cast<std::uint8_t>(header.type), header.flags);
    if (verdict == Verdict::kOutOfPlace) {
        throw protocol::ProtocolError(std::string("a ") + protocol::name(header.type) +
                                      " frame came where " + expectedIn(state) + " was expected");
    }
    return verdict;
}

std::string MasterRights::refusalOf(const std::string& what) const {
    return what + " is not allowed to the certificate \"" + Text::printable(certificateName) +
           "\" (role " + nameOf(grant.role) + ")";
}

FileSource MasterRights::openSource(const std::string& path) const {
    if (grant.role != Role::kReader) {
        return FileSource(path);
    }
    try {
        return FileSource(path, PathPrefix::openFile(grant.prefixes, path));
    } catch (const PathPrefix::Outside&) {
        throw;
    } catch (const FileError&) {
        throw;
    } catch (const CException& fault) {
        throw FileError("Cannot open \"" + path + "\": " + fault.getErrMsg() + ".");
    }
}

bool MasterRights::exists(const std::string& path) const {
    if (grant.role == Role::kReader) {
        return PathPrefix::exists(grant.prefixes, path);
    }
    struct stat found {};
    return ::stat(path.c_str(), &found) == 0;
}

bool MasterRights::mayName(const std::string& path) const {
    return grant.role != Role::kReader || PathPrefix::anyCovers(grant.prefixes, path);
}
