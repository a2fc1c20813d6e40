#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "AgentConfig.h"
#include "Text.h"

// kelnode.cfg: whatever stands in it, each fault has a line and a text, and what is taken is sound.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    std::string content(reinterpret_cast<const char*>(data), size);
    FILE* stream = ::fmemopen(content.data(), content.size(), "r");
    if (stream == nullptr) {
        std::abort();
    }
    AgentConfig config("/opt/kelnode");
    std::vector<ConfigFault> faults;
    config.read(stream, faults);
    std::fclose(stream);
    for (const ConfigFault& fault : faults) {
        if (fault.line <= 0 || fault.text.empty() ||
            Text::printable(fault.describe("kelnode.cfg")).find('\n') != std::string::npos) {
            std::abort();
        }
    }
    const bool sound = config.listen.port <= 65535 && !config.listen.host.empty() &&
                       config.maxSessions > 0 && config.sessionsPerCertificate > 0 &&
                       config.sessionsPerSource > 0 && config.certificateFile.front() == '/' &&
                       (config.macAddress.empty() || config.macAddress.size() == 17);
    if (!sound) {
        std::abort();
    }
    return 0;
}
