// An audit as its reader may find it: any bytes, split at the first NUL into the lines and the
// head. Reading ends, and only a text that was chained is called whole: nobody writes SHA-256 sums
// by chance.

#include <cstdint>
#include <string>

#include "AuditLog.h"
#include "Require.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string all(reinterpret_cast<const char*>(data), size);
    const std::string::size_type end = all.find('\0');
    const std::string lines = all.substr(0, end);
    const std::string head = end == std::string::npos ? std::string() : all.substr(end + 1);
    const AuditLog::Finding finding = AuditLog::verify(lines, head);
    require(finding.line >= 0 && finding.lines >= 0);
    require(finding.lines <= static_cast<long>(lines.size()));
    if (finding.text.empty() && finding.lines > 0) {
        // A whole audit stops being one with any of its bytes changed.
        std::string changed = lines;
        changed[changed.size() / 2] ^= 1;
        require(!AuditLog::verify(changed, head).text.empty());
        require(!AuditLog::verify(lines.substr(0, lines.rfind('\n', lines.size() - 2) + 1), head)
                     .text.empty());
    }
    for (const char byte : AuditLog::escape(all, 4096)) {
        require(byte >= 0x20 && byte < 0x7f);
    }
    return 0;
}
