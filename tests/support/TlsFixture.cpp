#include "TlsFixture.h"

TlsFiles TlsFixture::filesOf(const TestPki::Identity& identity) {
    TlsFiles files;
    files.certificateFile = identity.certificateFile;
    return files;
}

SSLClient TlsFixture::clientOf(const FakeNodeAgent& agent) {
    return SSLClient("127.0.0.1", agent.port(), master.certificateFile);
}

std::string TlsFixture::readFile(const std::string& path) {
    std::ifstream stream(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(stream), {});
}

void TlsFixture::writeFile(const std::string& path, const std::string& content) {
    std::ofstream(path, std::ios::binary) << content;
}

std::vector<std::string> parts(std::vector<std::string> texts) {
    return texts;
}
