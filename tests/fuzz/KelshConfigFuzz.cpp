// The file of the interface: whatever stands in it, every finding has a line of it, and the
// settings are those of the file or those without one.
#include "ConfigFuzz.h"
#include "KelshConfig.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const FuzzStream stream(data, size);
    if (stream.get() == nullptr) {
        return 0;
    }
    ConfigErrorCollector errors;
    const KelshConfig config = KelshConfig::read(stream.get(), &errors);
    checkErrors(errors, 1, stream.mostLines());
    const std::string text(reinterpret_cast<const char*>(data), size);
    require(config.interface == KelshConfig::Interface::kClassic ||
            text.find("=modern") != std::string::npos);
    return 0;
}
