// authz.cfg of a node: any bytes. Reading ends, every fault names a line of the file, and what was
// granted to a name is never more than its line says.

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "Authorization.h"
#include "Require.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    std::string text(reinterpret_cast<const char*>(data), size);
    FILE* const stream = ::fmemopen(text.data(), text.size(), "r");
    require(stream != nullptr);
    Authorization rules;
    std::vector<ConfigFault> faults;
    rules.read(stream, faults);
    require(std::fclose(stream) == 0);
    require(rules.isRestricted());
    // Whoever is not named has no role, and nobody without a name ever has one.
    require(rules.grantOf("").role == Role::kNone);
    require(rules.grantOf(text + "?").role == Role::kNone);
    for (const std::string name : {"master", "a", "reader"}) {
        const Authorization::Grant grant = rules.grantOf(name);
        require(grant.role == Role::kNone || text.find(name + "=") != std::string::npos);
        require(grant.role == Role::kReader || grant.prefixes.empty());
        for (const PathPrefix& opened : grant.prefixes) {
            const std::string& prefix = opened.text();
            require(PathPrefix::faultOf(prefix).empty());
            require(PathPrefix::covers(prefix, prefix));
            require(!PathPrefix::covers(prefix, ""));
        }
    }
    return 0;
}
