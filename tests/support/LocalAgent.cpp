#include "LocalAgent.h"

#include <algorithm>
#include <poll.h>
#include <sys/wait.h>

LocalAgent::LocalAgent(Options wanted) : options(std::move(wanted)), authority(pkiPath()) {
    TestPki& issuer = pki();
    master = issuer.master();
    const TestPki::Identity node = issuer.node("node", options.address);
    std::filesystem::create_directories(nodePath() + "tools");
    copy(node.certificateFile, nodePath() + "node.crt");
    copy(node.keyFile, nodePath() + "node.key");
    std::filesystem::permissions(nodePath() + "node.key", std::filesystem::perms(0600));
    copy(issuer.caFile(), nodePath() + "ca.crt");
    toolpackage::ToolKey::createFile(nodePath() + "toolkey");
    writeConfiguration();
    start();
}

LocalAgent::~LocalAgent() {
    if (pid > 0) {
        ::kill(pid, SIGTERM);
        if (!waitForExit()) {
            ::kill(pid, SIGKILL);
            waitForExit();
        }
    }
}

TestPki& LocalAgent::pki() {
    return options.sharedAuthority != nullptr ? *options.sharedAuthority : authority;
}

std::unique_ptr<SSLClient> LocalAgent::connect(const std::string& certificateFile) const {
    auto client = std::make_unique<SSLClient>(
        ip(), port(), certificateFile.empty() ? masterCertificate() : certificateFile);
    client->initAndConnect(10000);
    return client;
}

std::string LocalAgent::refusalOf(const std::string& certificateFile) const {
    try {
        connect(certificateFile);
    } catch (const CException& refused) {
        return refused.getErrMsg();
    }
    return "";
}

std::unique_ptr<TlsChannel> LocalAgent::openChannel(bool greeted) const {
    TlsFiles files;
    files.certificateFile = masterCertificate();
    auto channel = TlsChannel::connect(ip(), port(), TlsContext::client(files), soon());
    channel->receiveFrame(soon());
    if (greeted) {
        protocol::ShellHello hello;
        hello.user = "tester";
        channel->sendFrame(protocol::encode(hello), soon());
    }
    return channel;
}

void LocalAgent::packScript(const std::string& name, const std::string& script) const {
    const std::string plain = directory.file(name);
    std::ofstream(plain) << script;
    toolpackage::pack(plain, toolpackage::ToolKey::load(nodePath() + "toolkey"),
                      toolsPath() + name + ".enc");
    std::filesystem::remove(plain);
}

void LocalAgent::writeConfiguration() const {
    std::map<std::string, std::string> lines{
        {"LISTEN", options.address + ":" + std::to_string(boundPort)},
        {"CERTIFICATE_FILE", "node.crt"},
        {"PRIVATE_KEY_FILE", "node.key"},
        {"CA_FILE", "ca.crt"},
        {"TOOLS_KEY_FILE", "toolkey"},
        {"LOG_FILE", "kelnode.log"}};
    for (const auto& setting : options.settings) {
        lines[setting.first] = setting.second;
    }
    std::ofstream file(nodePath() + "kelnode.cfg");
    for (const auto& line : lines) {
        file << line.first << "=" << line.second << "\n";
    }
}

void LocalAgent::start() {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) {
        throw std::runtime_error("pipe2 failed");
    }
    const UniqueFd ready(ends[0]);
    UniqueFd readyWrite(ends[1]);
    spawn(readyWrite.get());
    readyWrite.reset();
    const std::string line = readLine(ready.get());
    const std::string::size_type colon = line.rfind(':');
    if (colon == std::string::npos) {
        throw std::runtime_error("kelnode did not start: " + output());
    }
    boundPort = std::stoi(line.substr(colon + 1));
}

bool LocalAgent::waitForExit(std::chrono::milliseconds limit) {
    const bool ended =
        pid <= 0 || waitFor([this] { return ::waitpid(pid, &status, WNOHANG) == pid; }, limit);
    if (ended) {
        pid = 0;
    }
    return ended;
}

bool LocalAgent::waitForLog(const std::string& text, std::chrono::milliseconds limit) const {
    return waitFor([&] { return log().find(text) != std::string::npos; }, limit);
}

std::vector<pid_t> LocalAgent::processes(const std::string& name, pid_t below) const {
    std::vector<pid_t> found;
    for (const pid_t candidate : descendants(below > 0 ? below : pid)) {
        std::string comm = read("/proc/" + std::to_string(candidate) + "/comm");
        if (comm == name + "\n") {
            found.push_back(candidate);
        }
    }
    return found;
}

std::string LocalAgent::read(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::stringstream content;
    content << file.rdbuf();
    return content.str();
}

std::vector<std::string> LocalAgent::list(const std::string& path) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(path)) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::vector<std::string> LocalAgent::records() const {
    std::vector<std::string> names = list(runPath());
    names.erase(std::remove_if(names.begin(), names.end(),
                               [](const std::string& name) {
                                   return name.rfind("job-", 0) != 0 && name.rfind("new-", 0) != 0;
                               }),
                names.end());
    return names;
}

void LocalAgent::copy(const std::string& from, const std::string& to) {
    std::filesystem::copy_file(from, to, std::filesystem::copy_options::overwrite_existing);
}

void LocalAgent::spawn(int readyFd) {
    std::vector<std::string> environment{"KELNODE_PATH=" + nodePath()};
    for (const auto& entry : options.environment) {
        environment.push_back(entry.first + "=" + entry.second);
    }
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string text = *entry;
        if (options.environment.count(text.substr(0, text.find('='))) == 0) {
            environment.push_back(text);
        }
    }
    std::vector<char*> pointers;
    for (std::string& entry : environment) {
        pointers.push_back(entry.data());
    }
    pointers.push_back(nullptr);
    const std::string program = std::string(KELSH_BINARY_DIR) + "/bin/kelnode";
    const std::string out = outputFile();
    char name[] = "kelnode";
    char option[] = "--ready-fd";
    std::string number = std::to_string(readyFd);
    char* arguments[] = {name, option, number.data(), nullptr};
    const OwnMounts mounts(options.mounts);
    pid = ::fork();
    if (pid == 0) {
        if (!mounts.enter()) {
            ::_exit(126);
        }
        if (options.openFilesLimit) {
            const rlimit limit{*options.openFilesLimit, *options.openFilesLimit};
            ::setrlimit(RLIMIT_NOFILE, &limit);
        }
        const int file = ::open(out.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
        const int nothing = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
        ::dup2(nothing, STDIN_FILENO);
        ::dup2(file, STDOUT_FILENO);
        ::dup2(file, STDERR_FILENO);
        ::fcntl(readyFd, F_SETFD, 0);
        ::execve(program.c_str(), arguments, pointers.data());
        ::_exit(127);
    }
    if (pid < 0) {
        throw std::runtime_error("fork failed");
    }
}

std::string LocalAgent::readLine(int fd) {
    std::string line;
    char byte = 0;
    pollfd watched{fd, POLLIN, 0};
    while (::poll(&watched, 1, 30000) > 0 && ::read(fd, &byte, 1) == 1 && byte != '\n') {
        line += byte;
    }
    return line;
}

std::vector<pid_t> LocalAgent::descendants(pid_t root) {
    std::multimap<pid_t, pid_t> byParent;
    for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
        const std::string name = entry.path().filename().string();
        if (name.find_first_not_of("0123456789") != std::string::npos) {
            continue;
        }
        const std::string stat = read(entry.path().string() + "/stat");
        const std::string::size_type end = stat.rfind(')');
        if (end != std::string::npos && stat.size() > end + 4) {
            byParent.emplace(std::atoi(stat.c_str() + end + 4), std::stoi(name));
        }
    }
    std::vector<pid_t> found;
    std::vector<pid_t> open{root};
    while (!open.empty()) {
        const pid_t parent = open.back();
        open.pop_back();
        const auto range = byParent.equal_range(parent);
        for (auto child = range.first; child != range.second; ++child) {
            found.push_back(child->second);
            open.push_back(child->second);
        }
    }
    return found;
}
