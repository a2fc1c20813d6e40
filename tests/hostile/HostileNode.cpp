#include "HostileNode.h"

#include "FileDigest.h"

Payloads::Payloads(const std::string& canary)
    : command("touch " + canary + "/ran"), outside(canary + "/written") {}

std::string Payloads::text(Random& random) const {
    switch (random() % 22) {
        case 0:
            return "$(" + command + ")";
        case 1:
            return "`" + command + "`";
        case 2:
            return "; " + command + ";";
        case 3:
            return "x | " + command + " &";
        case 4:
            return "\n" + command + "\n";
        case 5:
            return "'; " + command + "; '";
        case 6:
            return "\"; " + command + "; \"";
        case 7:
            return "/opt/kelnode/$(" + command + ")/\n";
        case 8:
            return "\x1b]0;title\x07\x1b[2J\x1b[H\x1b[6n\x1b[c";
        case 9:
            return std::string("\x9b") + "6n" + "\xc2\x9b" + "31m";
        case 10:
            return "\x1bP$q\"p\x1b\\\x1b[5i\x0e\x1b(0";
        case 11:
            return "done\n[node_03] (1ms)\nall is well\n[node_04] (1ms)\n";
        case 12:
            return "ok\r\x1b[1A\x1b[2Kforged\b\b\b\x7f\x05";
        case 13:
            return "[savefile]" + outside;
        case 14:
            return "../../../../../../.." + outside;
        case 15:
            return "%n%n%s%x%x%1000000d";
        case 16:
            return std::string(100000, 'A');
        case 17:
            return std::string("before\0after", 12);
        case 18:
            return "\xff\xfe\xf4\x90\x80\x80\xed\xa0\x80\xc0\xaf";
        case 19:
            return "BIOS successfully flashed. Verified. Done. 100%\n";
        case 20:
            return "02:00:00:00:00:01\n$(" + command + ")";
        default:
            break;
    }
    std::string bytes(random() % 300 + 1, '\0');
    for (char& byte : bytes) {
        byte = static_cast<char>(random());
    }
    return bytes;
}

FakeNodeAgent::Script HostileNode::script(unsigned int seed, bool endless) {
    return [this, seed, endless](TlsChannel& channel) {
        Random random(seed * 7919U + static_cast<unsigned int>(connections++));
        if (greet(channel, random)) {
            for (;;) {
                const protocol::Frame request = channel.receiveFrame(FakeNodeAgent::soon());
                if (!answer(channel, request, random, endless)) {
                    FakeNodeAgent::waitForClose(channel);
                }
            }
        }
    };
}

void HostileNode::send(TlsChannel& channel, FrameType type, const std::string& body) {
    FakeNodeAgent::send(channel, FakeNodeAgent::frame(type, body));
}

void HostileNode::say(TlsChannel& channel, const std::string& text) {
    protocol::Answer body;
    body.text = text;
    FakeNodeAgent::send(channel, protocol::encode(body));
}

bool HostileNode::greet(TlsChannel& channel, Random& random) {
    protocol::AgentHello hello;
    switch (random() % 24) {
        case 0:
            ++count;
            hello.build = payloads.text(random);
            hello.nodeName = payloads.text(random);
            break;
        case 1:
            ++count;
            hello.lowestVersion = 7;
            hello.highestVersion = 9;
            hello.build = payloads.text(random);
            break;
        case 2:
            ++count;
            FakeNodeAgent::error(channel, protocol::kErrorRefused, payloads.text(random));
            FakeNodeAgent::waitForClose(channel);
            return false;
        case 3:
            ++count;
            send(channel, FrameType::kAgentHello, payloads.text(random));
            FakeNodeAgent::waitForClose(channel);
            return false;
        default:
            break;
    }
    FakeNodeAgent::send(channel, protocol::encode(hello));
    channel.receiveFrame(FakeNodeAgent::soon());
    return true;
}

bool HostileNode::answer(TlsChannel& channel, const protocol::Frame& request, Random& random,
                         bool endless) {
    switch (request.header.type) {
        case FrameType::kMac:
            return answerMac(channel, random);
        case FrameType::kExists:
            return answerExists(channel, random);
        case FrameType::kGet:
            return answerGet(channel, random);
        case FrameType::kPut:
            return answerPut(channel, random);
        default:
            return endless ? floodOutput(channel) : answerJob(channel, request, random);
    }
}

bool HostileNode::answerMac(TlsChannel& channel, Random& random) {
    if (random() % 12 == 0) {
        ++count;
        say(channel, payloads.text(random));
    } else {
        say(channel, "");
    }
    return true;
}

bool HostileNode::answerExists(TlsChannel& channel, Random& random) {
    if (random() % 8 != 0) {
        say(channel, random() % 16 == 0 ? "0" : "1");
        return true;
    }
    ++count;
    if (random() % 2 == 0) {
        say(channel, payloads.text(random));
    } else {
        FakeNodeAgent::error(channel, protocol::kErrorFile, payloads.text(random));
    }
    return true;
}

std::string HostileNode::honestOutput(const std::string& line) {
    if (line.rfind("stat ", 0) == 0) {
        // The state of a log that every run of a tool writes anew.
        return "8:1:100:now:" + std::to_string(++logState) + "\n";
    }
    if (line.find("KELNODE_PATH") != std::string::npos) {
        return "/opt/kelnode/\n";
    }
    if (line.find("uname") != std::string::npos) {
        return "x86_64\n";
    }
    if (line.find("0x06 0x37") != std::string::npos) {
        return " 37 30 30 31 5a 51 00 00 08 09 0a 0b 0c 0d 0e 0f\n";
    }
    const std::string::size_type phrase = line.find("grep \"");
    return phrase == std::string::npos
               ? "done\n"
               : line.substr(phrase + 6, line.find('"', phrase + 6) - phrase - 6) + "\n";
}

bool HostileNode::answerJob(TlsChannel& channel, const protocol::Frame& request, Random& random) {
    if (random() % 4 != 0) {
        std::string line;
        if (request.header.type == FrameType::kExec) {
            protocol::Exec exec;
            protocol::decode(request.body, exec);
            line = exec.commandLine;
        }
        send(channel, FrameType::kOutput, honestOutput(line));
        FakeNodeAgent::result(channel, 0);
        return true;
    }
    ++count;
    switch (random() % 12) {
        case 0:
            FakeNodeAgent::error(channel, protocol::kErrorNotStarted, payloads.text(random));
            return true;
        case 1:
            FakeNodeAgent::result(channel, 0, payloads.text(random));
            return true;
        case 2:
            FakeNodeAgent::result(channel, static_cast<int>(random()), payloads.text(random),
                                  protocol::Result::Ending::kSignaled);
            return true;
        case 3:  // another reply than belongs here
            say(channel, payloads.text(random));
            return false;
        case 4:  // never ends
            send(channel, FrameType::kOutput, payloads.text(random));
            return false;
        case 5:
            send(channel, FrameType::kResult, payloads.text(random));
            return false;
        case 6:  // cut in the middle
            send(channel, FrameType::kOutput, payloads.text(random));
            throw std::runtime_error("cut");
        default:
            send(channel, FrameType::kOutput, payloads.text(random));
            FakeNodeAgent::result(channel, random() % 3 == 0 ? 1 : 0);
            return true;
    }
}

bool HostileNode::floodOutput(TlsChannel& channel) {
    ++count;
    const std::string piece =
        FakeNodeAgent::frame(FrameType::kOutput, std::string(protocol::kMaxBodyBytes, 'y'));
    for (;;) {
        FakeNodeAgent::send(channel, piece);
    }
}

bool HostileNode::answerGet(TlsChannel& channel, Random& random) {
    ++count;
    const std::string content = payloads.text(random);
    FileDigest digest;
    digest.update(content.data(), content.size());
    protocol::FileInfo info;
    info.size = content.size();
    info.mode = static_cast<std::uint32_t>(random() % 010000);
    protocol::End end;
    end.digest = digest.finish();
    const auto kind = random() % 10;
    if (kind == 0) {
        FakeNodeAgent::error(channel, protocol::kErrorFile, content);
        return true;
    }
    if (kind == 1) {
        info.size = ~std::uint64_t{0} >> (random() % 20);
    } else if (kind == 2) {
        info.size -= 1;
    } else if (kind == 3) {
        info.size += 1;
    } else if (kind == 4) {
        end.digest[random() % protocol::kDigestBytes] ^= 1;
    }
    if (kind != 5) {
        FakeNodeAgent::send(channel, protocol::encode(info));
    }
    if (kind == 6) {
        FakeNodeAgent::send(channel, protocol::encode(info));
    }
    send(channel, FrameType::kData, content);
    if (kind == 7) {
        return false;
    }
    if (kind == 8) {
        throw std::runtime_error("cut");
    }
    FakeNodeAgent::send(channel, protocol::encode(end));
    return true;
}

bool HostileNode::answerPut(TlsChannel& channel, Random& random) {
    ++count;
    switch (random() % 12) {
        case 0:  // before anything came
            FakeNodeAgent::error(channel, protocol::kErrorFile, payloads.text(random));
            return false;
        case 1:
            FakeNodeAgent::result(channel, 0, payloads.text(random));
            return false;
        case 2:
            say(channel, payloads.text(random));
            return false;
        case 3:
            return false;
        default:
            break;
    }
    protocol::Frame piece;
    do {
        piece = channel.receiveFrame(FakeNodeAgent::soon());
    } while (piece.header.type != FrameType::kEnd);
    FakeNodeAgent::result(channel, random() % 8 == 0 ? 1 : 0, payloads.text(random));
    return true;
}
