// What users of a node and masters with few rights try against the files an agent trusts, its log
// and its audit.

#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <stdexcept>
#include <string>
#include <sys/stat.h>
#include <utility>
#include <vector>

#include "CUtil.h"
#include "Figure.h"
#include "LocalAgent.h"
#include "TempDir.h"

namespace {

namespace fs = std::filesystem;

// Counts tries and names the ones that got through.
class Tally {
public:
    explicit Tally(const std::string& attack) { figure.attack = attack; }

    void add(bool held, const std::string& name) {
        ++figure.tries;
        figure.survived += held ? 1 : 0;
        if (!held) {
            figure.remark += (figure.remark.empty() ? "got through: " : ", ") + name;
        }
    }
    Figure finish(const std::string& remark) {
        figure.isReached = figure.tries > 0 && figure.survived == figure.tries;
        if (figure.isReached) {
            figure.remark = remark;
        }
        return figure;
    }

private:
    Figure figure;
};

bool starts(LocalAgent& agent) {
    try {
        agent.start();
    } catch (const std::runtime_error&) {
        agent.waitForExit();
        return false;
    }
    agent.signal(SIGTERM);
    agent.waitForExit();
    return true;
}

Figure loosenFiles() {
    Tally tally("files that others can write");
    LocalAgent agent;
    agent.signal(SIGTERM);
    agent.waitForExit();
    std::ofstream(agent.nodePath() + "authz.cfg") << "master=firmware\n";
    std::ofstream(agent.toolsPath() + "driver.ko") << "x";
    for (const char* const name : {"kelnode.cfg", "authz.cfg", "ca.crt", "node.crt", "node.key",
                                   "toolkey", "maskkey", "tools/driver.ko", "tools", "run", ""}) {
        const std::string path = agent.nodePath() + name;
        const fs::perms before = fs::status(path).permissions();
        for (const mode_t added : {S_IWOTH, S_IWGRP}) {
            struct stat status {};
            ::stat(path.c_str(), &status);
            ::chmod(path.c_str(), (status.st_mode & 07777U) | added);
            tally.add(!starts(agent), *name == '\0' ? "the node path" : name);
            std::string output;
            tally.add(CUtil::exec_cmd("KELNODE_PATH=" + agent.nodePath() + " " + KELSH_BINARY_DIR +
                                          "/bin/kelnode --check",
                                      &output, &output) != 0,
                      std::string("--check of ") + name);
            fs::permissions(path, before);
        }
    }
    tally.add(starts(agent), "the agent does not start with sound files");
    return tally.finish("start and --check refuse each");
}

Figure hideCommands() {
    Tally tally("commands hidden behind a masked password");
    LocalAgent::Options options;
    options.settings["AUDIT_FILE"] = "audit.log";
    LocalAgent agent(options);
    const auto client = agent.connect();
    for (const char* const line :
         {"true ipmitool # -P '\necho EVIL\n: # '",
          "ipmitool() { eval \"$2\"; }; ipmitool -P 'echo EVIL'",
          "sh -c 'eval \"$3\"' ipmitool x -P 'echo EVIL'",
          "IPMI_PASSWORD='echo EVIL' sh -c 'eval $IPMI_PASSWORD'", "true ipmitool -P EVIL",
          "ipmitool -I none -P $(echo EVIL) mc", "PATH=/tmp ipmitool -P EVIL",
          "/tmp/ipmitool -P EVIL", "ipmitool -I none -P EVIL\n:", "ipmitool -I none -P EVIL; :"}) {
        fs::resize_file(agent.nodePath() + "kelnode.log", 0);
        const std::string before = LocalAgent::read(agent.nodePath() + "audit.log");
        CResult result;
        client->execute(line, 10000, &result);
        const std::string audit =
            LocalAgent::read(agent.nodePath() + "audit.log").substr(before.size());
        tally.add(agent.waitForLog("EVIL") && audit.find("EVIL") != std::string::npos, line);
    }
    return tally.finish("each is in log and audit");
}

// The answer of the agent to one request: its text, or the error.
std::string ask(TlsChannel& channel, const std::string& request) {
    channel.sendFrame(request, LocalAgent::soon());
    std::string content;
    for (;;) {
        const protocol::Frame frame = channel.receiveFrame(LocalAgent::soon());
        if (frame.header.type == protocol::FrameType::kError) {
            return "error";
        }
        content += frame.body;
        if (frame.header.type == protocol::FrameType::kEnd ||
            frame.header.type == protocol::FrameType::kAnswer) {
            return content;
        }
    }
}

Figure leavePrefix() {
    Tally tally("a reader outside its prefixes");
    LocalAgent agent;
    const TempDir place;
    fs::create_directory(place.file("open"));
    std::ofstream(place.file("secret")) << "SECRET";
    fs::create_symlink("../secret", place.file("open/relative"));
    fs::create_symlink(place.file("secret"), place.file("open/absolute"));
    fs::create_symlink("/proc/self/root", place.file("open/magic"));
    std::ofstream(agent.nodePath() + "authz.cfg") << "master=reader " << place.file("open") << "\n";
    agent.signal(SIGHUP);
    if (!agent.waitForLog("read anew")) {
        throw std::runtime_error("the rules were not read");
    }
    const auto attempt = [&](const std::string& path) {
        const auto channel = agent.openChannel();
        protocol::Get get;
        get.path = path;
        tally.add(ask(*channel, protocol::encode(get)) == "error", "GET " + path);
        const std::string told = ask(*channel, protocol::encode(protocol::Exists{path}));
        tally.add(told.empty() || told.back() != '1', "EXISTS " + path);
    };
    for (const char* const name : {"open/relative", "open/absolute", "open/../secret", "secret"}) {
        attempt(place.file(name));
    }
    attempt(place.file("open/magic") + place.file("secret"));
    attempt("/etc/passwd");
    fs::rename(place.file("open"), place.file("moved"));
    fs::create_directory_symlink("/etc", place.file("open"));
    attempt(place.file("open/passwd"));
    return tally.finish("links, \"..\", a prefix replaced by a link to /etc");
}

Figure plantFiles() {
    Tally tally("plants in /var/tmp");
    const TempDir place;
    fs::create_directory(place.file("vartmp"));
    LocalAgent::Options options;
    options.mounts["/var/tmp"] = place.file("vartmp");
    LocalAgent agent(options);
    const auto client = agent.connect();
    const std::vector<std::pair<const char*, std::function<void(const std::string&)>>> plants{
        {"link", [&](const std::string& path) { fs::create_symlink(place.file("victim"), path); }},
        {"hard link",
         [&](const std::string& path) { fs::create_hard_link(place.file("victim"), path); }},
        {"file of a user",
         [](const std::string& path) {
             std::ofstream(path) << "FORGED";
             ::chmod(path.c_str(), 0666);
         }},
        {"directory", [](const std::string& path) { fs::create_directories(path + "/full"); }}};
    for (const auto& plant : plants) {
        for (const char* const name : {"flashing_bios.txt", "validate_bios_id.txt",
                                       "get_bios_id_from_sys.txt", "ipmi_flash_log.log"}) {
            std::ofstream(place.file("victim")) << "precious";
            plant.second(place.file(std::string("vartmp/") + name));
            CResult before;
            client->execute(std::string("cat /var/tmp/") + name, 10000, &before);
            CResult after;
            client->execute(
                std::string("echo answer > /var/tmp/") + name + "; cat /var/tmp/" + name, 10000,
                &after);
            tally.add(before.getRunSummary().find("FORGED") == std::string::npos &&
                          after.getRunSummary() == "answer\n" &&
                          LocalAgent::read(place.file("victim")) == "precious",
                      std::string(plant.first) + " " + name);
            fs::remove_all(place.file(std::string("vartmp/") + name));
        }
    }
    return tally.finish("neither followed nor believed; a race is the kernel's to close");
}

Figure floodWithRefusals(const Scale& scale) {
    Figure figure;
    figure.attack = "refused requests without end";
    LocalAgent::Options options;
    options.settings["AUDIT_FILE"] = "audit.log";
    LocalAgent agent(options);
    std::ofstream(agent.nodePath() + "authz.cfg") << "master=observer\n";
    agent.signal(SIGHUP);
    if (!agent.waitForLog("read anew")) {
        throw std::runtime_error("the rules were not read");
    }
    const auto sizes = [&] {
        return fs::file_size(agent.nodePath() + "audit.log") +
               fs::file_size(agent.nodePath() + "kelnode.log");
    };
    const auto before = sizes();
    const long each = scale.pick(2000, 200);
    for (int connection = 0; connection < 5; ++connection) {
        const auto channel = agent.openChannel();
        for (long i = 0; i < each; ++i) {
            ++figure.tries;
            figure.survived +=
                ask(*channel, protocol::encode(protocol::Exec(), 0)) == "error" ? 1 : 0;
        }
    }
    const auto grown = sizes() - before;
    figure.remark = "log and audit grew by " + std::to_string(grown) + " bytes";
    // A few lines a minute, however many requests.
    figure.isReached = figure.survived == figure.tries && grown < 16384;
    return figure;
}

}  // namespace

std::vector<Figure> attackTrustOfNode(const Scale& scale) {
    return {loosenFiles(), hideCommands(), leavePrefix(), plantFiles(), floodWithRefusals(scale)};
}
