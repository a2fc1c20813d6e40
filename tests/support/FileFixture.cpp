#include "FileFixture.h"

std::string FileTransfer::digestOf(const std::string& content) {
    FileDigest digest;
    digest.update(content.data(), content.size());
    return digest.finish();
}

std::string FileTransfer::pattern(std::size_t size) {
    std::string content(size, '\0');
    unsigned state = 12345;
    for (char& c : content) {
        state = state * 1103515245 + 12345;
        c = static_cast<char>(state >> 16);
    }
    return content;
}

std::string FileTransfer::largePattern(std::size_t size) {
    const std::string block = pattern(std::size_t{256} * 1024);
    std::string content;
    content.reserve(size + block.size());
    while (content.size() < size) {
        content += std::to_string(content.size()) + block;
    }
    content.resize(size);
    return content;
}

unsigned FileTransfer::modeOf(const std::string& path) {
    struct stat found {};
    return stat(path.c_str(), &found) == 0 ? found.st_mode & 07777U : 0U;
}

std::size_t FileTransfer::entries() const {
    return static_cast<std::size_t>(
        std::distance(std::filesystem::directory_iterator(files()), {}));
}

CResult FileTransfer::run(const FakeNodeAgent& agent, const std::string& command,
                          unsigned int timeOut) {
    SSLClient client = clientOf(agent);
    client.initAndConnect();
    CResult result;
    client.execute(command, timeOut, &result);
    return result;
}

FakeNodeAgent::Script FileTransfer::giving(std::vector<std::string> frames) {
    return [frames](TlsChannel& channel) {
        FakeNodeAgent::greet(channel);
        (void)channel.receiveFrame(FakeNodeAgent::soon());
        for (const std::string& frame : frames) {
            FakeNodeAgent::send(channel, frame);
        }
        FakeNodeAgent::waitForClose(channel);
    };
}

std::string FileTransfer::info(std::uint64_t size, std::uint32_t mode) {
    protocol::FileInfo body;
    body.size = size;
    body.mode = mode;
    return protocol::encode(body);
}

std::string FileTransfer::data(const std::string& body) {
    return FakeNodeAgent::frame(protocol::FrameType::kData, body);
}

std::string FileTransfer::end(const std::string& digest) {
    protocol::End body;
    body.digest = digest;
    return protocol::encode(body);
}

void replace(const std::string& path, const std::string& content, std::uint32_t mode) {
    FileReplacement replacement(path);
    replacement.open();
    replacement.write(content);
    replacement.commit(mode);
}
