// The SSL file: whatever stands in it, the fields hold text of the file and every finding stands at
// line 0.
#include "CSSLConfig.h"
#include "CShellConfigReader.h"
#include "ConfigFuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const FuzzStream stream(data, size);
    if (stream.get() == nullptr) {
        return 0;
    }
    { const CSSLConfig discardsTheInstance; }
    ConfigErrorCollector errors;
    CShellConfigReader::readSslConfig(stream.get(), &errors);
    checkErrors(errors, 0, 0);
    const CSSLConfig& config = *CSSLConfig::getInstance();
    for (const std::string& name :
         {config.getPrivateKeyFile(), config.getPublicKeyFile(), config.getCertificateFile()}) {
        require(std::search(data, data + size, name.begin(), name.end(),
                            [](std::uint8_t byte, char character) {
                                return byte == static_cast<std::uint8_t>(character);
                            }) != data + size ||
                name.empty());
    }
    return 0;
}
