// Who may command an agent, and to whom a shell speaks: certificates good and bad in both
// directions, each judged by the real agent and by the shell's real client.

#include <chrono>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include <openssl/ssl.h>

#include "CException.h"
#include "FakeNodeAgent.h"
#include "Figure.h"
#include "Issuer.h"
#include "LocalAgent.h"
#include "SocketDial.h"
#include "TlsSocket.h"

namespace {

using Clock = std::chrono::steady_clock;
using issuer::Identity;
using issuer::Wish;

// A cluster, its neighbour, and one that bears the same name.
struct Authorities {
    Identity own = make("Cluster CA");
    Identity neighbour = make("Other CA");
    Identity namesake = make("Cluster CA");

    static Identity make(const std::string& name) {
        Wish wish;
        wish.commonName = name;
        wish.usage = "";
        wish.isAuthority = true;
        return issuer::make(wish);
    }
};

struct Verdicts {
    Figure figure;
    void add(const std::string& name, bool expected, bool accepted, const std::string& reason) {
        ++figure.tries;
        if (expected == accepted) {
            ++figure.survived;
            return;
        }
        std::fprintf(stderr, "certificates: \"%s\" was %s: %s\n", name.c_str(),
                     accepted ? "accepted" : "refused", reason.c_str());
        figure.remark += (figure.remark.empty() ? "wrong: " : ", ") + name;
    }
};

struct Case {
    std::string name;
    bool isGood;
    Wish wish;
    const Identity* by;
};

Wish wish(const std::string& commonName, const std::string& usage,
          const std::string& alternatives = "") {
    Wish made;
    made.commonName = commonName;
    made.usage = usage;
    made.alternatives = alternatives;
    return made;
}

template <typename Change>
Wish with(Wish made, Change change) {
    change(made);
    return made;
}

// ---- masters before an agent
// ---------------------------------------------------------------------

// An agent whose cluster this program made.
class ClusterAgent {
public:
    explicit ClusterAgent(const Authorities& authorities) {
        const Identity node =
            issuer::make(wish("node", "serverAuth", "IP:127.0.0.1"), &authorities.own);
        const std::string path = agent.nodePath();
        std::ofstream(path + "node.crt") << issuer::pem(node);
        std::ofstream(path + "node.key") << issuer::keyPem(node);
        std::ofstream(path + "ca.crt") << issuer::pem(authorities.own);
        reload();
    }
    // Reads its files anew and waits until it has.
    void reload() {
        const std::string before = agent.log();
        agent.signal(SIGHUP);
        if (!waitFor([&] {
                return agent.log().find("read anew", before.size()) != std::string::npos;
            })) {
            throw std::runtime_error("the agent does not read its files anew: " + agent.log());
        }
    }
    LocalAgent agent;
};

// Whether a master with these files gets an answer to a command.
bool commands(const LocalAgent& agent, const TlsFiles& files, std::string& reason) {
    try {
        CResult result;
        agent.connect(files.certificateFile)->execute("echo obeyed", 10000, &result);
        return result.getRunSummary() == "obeyed\n";
    } catch (const CException& refused) {
        reason = refused.getErrMsg();
        return false;
    }
}

std::vector<Case> masterCases(const Authorities& all, const Identity& leaf) {
    const Wish good = wish("master", "clientAuth");
    return {
        {"a master", true, good, &all.own},
        {"another master", true, wish("deputy", "clientAuth"), &all.own},
        {"a master with an RSA key", true, with(good, [](Wish& w) { w.rsaBits = 2048; }), &all.own},
        {"a node's key", false, wish("node", "serverAuth", "IP:127.0.0.1"), &all.own},
        {"a node's key with a master's name", false, wish("master", "serverAuth"), &all.own},
        {"no purpose", false, wish("master", ""), &all.own},
        {"any purpose", false, wish("master", "anyExtendedKeyUsage"), &all.own},
        {"code signing", false, wish("master", "codeSigning"), &all.own},
        {"mail protection", false, wish("master", "emailProtection"), &all.own},
        {"another cluster's master", false, good, &all.neighbour},
        {"a cluster of the same name", false, good, &all.namesake},
        {"signed by itself", false, good, nullptr},
        {"named like the CA, signed by itself", false, wish("Cluster CA", "clientAuth"), nullptr},
        {"signed by a master", false, good, &leaf},
        {"expired", false, with(good, [](Wish& w) { w.untilSeconds = -60; }), &all.own},
        {"not yet valid", false, with(good, [](Wish& w) { w.fromSeconds = 3600; }), &all.own},
        {"a short RSA key", false, with(good, [](Wish& w) { w.rsaBits = 1024; }), &all.own},
        {"an outdated digest", false, with(good, [](Wish& w) { w.digest = "SHA1"; }), &all.own},
        {"a name with a line break", true, wish("root\nadmin #7", "clientAuth"), &all.own},
        {"a name with a NUL byte", true, wish(std::string("master\0x", 8), "clientAuth"), &all.own},
        {"a name with escape sequences", true, wish("\x1b[2Jx", "clientAuth"), &all.own},
        {"a name that looks like a second subject", true, wish("x/CN=master", "clientAuth"),
         &all.own},
        {"no name", true, wish("", "clientAuth"), &all.own}};
}

bool logIsClean(const LocalAgent& agent) {
    for (const char byte : agent.log()) {
        if (byte != '\n' && (static_cast<unsigned char>(byte) < 0x20 || byte == 0x7f)) {
            return false;
        }
    }
    return agent.log().find("\nadmin") == std::string::npos;
}

void judgeByTls(const LocalAgent& agent, const TlsFiles& files, Verdicts& verdicts) {
    // What the client's own code would never do, done with the library.
    struct Handshake {
        const char* name;
        int version;
        const char* alpn;
        bool isGood;
    };
    for (const Handshake& tried :
         {Handshake{"TLS 1.3 with the protocol's name", TLS1_3_VERSION, "\x07kelsh/1", true},
          Handshake{"TLS 1.2", TLS1_2_VERSION, "\x07kelsh/1", false},
          Handshake{"another protocol's name", TLS1_3_VERSION, "\x08http/1.1", false},
          Handshake{"no protocol's name", TLS1_3_VERSION, "", false}}) {
        const std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> context(
            SSL_CTX_new(TLS_client_method()), SSL_CTX_free);
        SSL_CTX_set_max_proto_version(context.get(), tried.version);
        SSL_CTX_use_certificate_chain_file(context.get(), files.certificateFile.c_str());
        SSL_CTX_use_PrivateKey_file(context.get(), files.certificateFile.c_str(), SSL_FILETYPE_PEM);
        const std::unique_ptr<SSL, decltype(&SSL_free)> ssl(SSL_new(context.get()), SSL_free);
        const std::string alpn = tried.alpn;
        if (!alpn.empty()) {
            SSL_set_alpn_protos(ssl.get(), reinterpret_cast<const unsigned char*>(alpn.data()),
                                static_cast<unsigned int>(alpn.size()));
        }
        const UniqueFd fd = SocketDial::connect(agent.ip(), agent.port(), LocalAgent::soon());
        const int flags = ::fcntl(fd.get(), F_GETFL);
        ::fcntl(fd.get(), F_SETFL, flags & ~O_NONBLOCK);
        SSL_set_fd(ssl.get(), fd.get());
        char byte = 0;
        const bool greeted = SSL_connect(ssl.get()) == 1 && SSL_read(ssl.get(), &byte, 1) == 1;
        verdicts.add(tried.name, tried.isGood, greeted, "by its handshake");
    }
}

// How long a live session of a master lasts after its certificate is revoked.
void judgeRevocation(ClusterAgent& cluster, const Authorities& all, const std::string& directory,
                     Verdicts& verdicts) {
    const std::string reasonless = "after the revocation";
    const Identity lost = issuer::make(wish("lost", "clientAuth"), &all.own);
    const TlsFiles files = issuer::write(directory + "/lost", "lost", lost, issuer::pem(all.own));
    const Identity kept = issuer::make(wish("kept", "clientAuth"), &all.own);
    const TlsFiles others = issuer::write(directory + "/kept", "kept", kept, issuer::pem(all.own));
    std::string reason;
    verdicts.add("a master before its revocation", true, commands(cluster.agent, files, reason),
                 reason);
    const auto live = cluster.agent.connect(files.certificateFile);
    CResult result;
    live->execute("true", 10000, &result);
    issuer::revoke(cluster.agent.nodePath(), all.own, lost);
    cluster.reload();
    const Clock::time_point revoked = Clock::now();
    verdicts.add("a revoked master that was let in before", false,
                 commands(cluster.agent, files, reason), reasonless);
    bool obeyed = true;
    static_cast<void>(waitFor(
        [&] {
            try {
                live->execute("true", 10000, &result);
            } catch (const CException&) {
                obeyed = false;
            }
            return !obeyed;
        },
        std::chrono::milliseconds(1000)));
    verdicts.figure.recoverMs = static_cast<long>(
        std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - revoked).count());
    verdicts.add("a revoked master with a live session, after a second", false, obeyed, reasonless);
    verdicts.add("another master beside the revoked", true, commands(cluster.agent, others, reason),
                 reason);
    issuer::revoke(cluster.agent.nodePath(), all.own, lost, -60);
    cluster.reload();
    verdicts.add("anybody under an outdated revocation list", false,
                 commands(cluster.agent, others, reason), "the list is out of date");
}

Figure judgeMasters(const Authorities& all, const std::string& directory) {
    Verdicts verdicts;
    ClusterAgent cluster(all);
    const Identity leaf = issuer::make(wish("leaf", "clientAuth"), &all.own);
    const std::string chain = issuer::pem(leaf) + issuer::pem(all.own);
    int number = 0;
    TlsFiles goodFiles;
    for (const Case& tried : masterCases(all, leaf)) {
        const Identity identity = issuer::make(tried.wish, tried.by);
        const std::string name = "master" + std::to_string(++number);
        // A leaf that poses as a CA is sent along, not trusted: the own client would refuse it.
        const bool viaLeaf = tried.by == &leaf;
        const TlsFiles files = issuer::write(directory + "/" + name, name, identity,
                                             viaLeaf ? chain : issuer::pem(all.own));
        goodFiles = number == 1 ? files : goodFiles;
        std::string reason;
        const bool obeyed = commands(cluster.agent, files, reason);
        verdicts.add(tried.name, tried.isGood, obeyed, reason);
    }
    verdicts.add("the log after names with control bytes", true, logIsClean(cluster.agent),
                 "control bytes in the log");
    judgeByTls(cluster.agent, goodFiles, verdicts);
    judgeRevocation(cluster, all, directory, verdicts);
    verdicts.figure.attack = "certificates shown to an agent";
    return verdicts.figure;
}

// ---- nodes before a shell
// ------------------------------------------------------------------------

std::vector<Case> nodeCases(const Authorities& all, const Identity& leaf) {
    const Wish good = wish("node", "serverAuth", "IP:127.0.0.1,DNS:node");
    const auto named = [](const std::string& alternatives) {
        return wish("node", "serverAuth", alternatives);
    };
    return {
        {"a node", true, good, &all.own},
        {"a node with more addresses", true, named("IP:10.0.0.1,IP:127.0.0.1"), &all.own},
        {"a node with an RSA key", true, with(good, [](Wish& w) { w.rsaBits = 2048; }), &all.own},
        {"a node of another name", true, wish("xyz", "serverAuth", "IP:127.0.0.1"), &all.own},
        {"its neighbour", false, named("IP:127.0.0.9"), &all.own},
        {"a name in place of the address", false, named("DNS:node"), &all.own},
        {"the address written as a name", false, named("DNS:127.0.0.1"), &all.own},
        {"a wildcard", false, named("DNS:*"), &all.own},
        {"the address in the common name", false, wish("127.0.0.1", "serverAuth"), &all.own},
        {"no alternative names", false, named(""), &all.own},
        {"a mail address", false, named("email:root@127.0.0.1"), &all.own},
        {"a locator", false, named("URI:https://127.0.0.1/"), &all.own},
        {"a longer address", false, named("IP:0:0:0:0:0:ffff:127.0.0.1"), &all.own},
        {"a master's certificate", false, wish("master", "clientAuth", "IP:127.0.0.1"), &all.own},
        {"no purpose", false, wish("node", "", "IP:127.0.0.1"), &all.own},
        {"any purpose", false, wish("node", "anyExtendedKeyUsage", "IP:127.0.0.1"), &all.own},
        {"another cluster's node", false, good, &all.neighbour},
        {"a cluster of the same name", false, good, &all.namesake},
        {"signed by itself", false, good, nullptr},
        {"signed by a node", false, good, &leaf},
        {"expired", false, with(good, [](Wish& w) { w.untilSeconds = -60; }), &all.own},
        {"not yet valid", false, with(good, [](Wish& w) { w.fromSeconds = 3600; }), &all.own},
        {"a short RSA key", false, with(good, [](Wish& w) { w.rsaBits = 1024; }), &all.own},
        {"an outdated digest", false, with(good, [](Wish& w) { w.digest = "SHA1"; }), &all.own}};
}

// An agent of the library's own making, which speaks whatever it is told to.
bool believesBareServer(const TlsFiles& files, const std::string& master, const std::string& alpn,
                        int version, std::string& reason) {
    const std::shared_ptr<SSL_CTX> context(SSL_CTX_new(TLS_server_method()), SSL_CTX_free);
    // As an agent does: a shell ends a connection that brings a ticket.
    SSL_CTX_set_num_tickets(context.get(), 0);
    SSL_CTX_set_security_level(context.get(), 0);
    SSL_CTX_set_max_proto_version(context.get(), version);
    if (SSL_CTX_use_certificate_chain_file(context.get(), files.certificateFile.c_str()) != 1 ||
        SSL_CTX_use_PrivateKey_file(context.get(), files.certificateFile.c_str(),
                                    SSL_FILETYPE_PEM) != 1) {
        throw std::runtime_error("the bare server cannot use its certificate");
    }
    // The callback hands out a pointer into it.
    const auto offered = std::make_shared<std::string>(alpn);
    const auto select = [](SSL*, const unsigned char** out, unsigned char* length,
                           const unsigned char*, unsigned int, void* argument) {
        const auto* name = static_cast<const std::string*>(argument);
        *out = reinterpret_cast<const unsigned char*>(name->data());
        *length = static_cast<unsigned char>(name->size());
        return name->empty() ? SSL_TLSEXT_ERR_NOACK : SSL_TLSEXT_ERR_OK;
    };
    SSL_CTX_set_alpn_select_cb(context.get(), select, offered.get());
    const FakeNodeAgent agent(FakeNodeAgent::RawScript([context, offered](int fd) {
        const std::unique_ptr<SSL, decltype(&SSL_free)> ssl(SSL_new(context.get()), SSL_free);
        SSL_set_fd(ssl.get(), fd);
        if (SSL_accept(ssl.get()) == 1) {
            const std::string hello = protocol::encode(protocol::AgentHello());
            SSL_write(ssl.get(), hello.data(), static_cast<int>(hello.size()));
            char rest[512];
            while (SSL_read(ssl.get(), rest, sizeof rest) > 0) {
            }
        }
    }));
    try {
        SSLClient client("127.0.0.1", agent.port(), master);
        client.initAndConnect(10000);
        return true;
    } catch (const CException& refused) {
        reason = refused.getErrMsg();
        return false;
    }
}

Figure judgeNodes(const Authorities& all, const std::string& directory) {
    Verdicts verdicts;
    const Identity masterIdentity = issuer::make(wish("master", "clientAuth"), &all.own);
    const TlsFiles master =
        issuer::write(directory + "/shell", "master", masterIdentity, issuer::pem(all.own));
    const Identity leaf = issuer::make(wish("leaf", "serverAuth", "IP:127.0.0.1"), &all.own);
    int number = 0;
    TlsFiles goodFiles;
    const auto believes = [&](const TlsFiles& files, std::string& reason,
                              const std::string& alpn = "kelsh/1", int version = TLS1_3_VERSION) {
        return believesBareServer(files, master.certificateFile, alpn, version, reason);
    };
    for (const Case& tried : nodeCases(all, leaf)) {
        const Identity identity = issuer::make(tried.wish, tried.by);
        const std::string name = "node" + std::to_string(++number);
        const TlsFiles files =
            issuer::write(directory + "/" + name, name, identity,
                          (tried.by == &leaf ? issuer::pem(leaf) : "") + issuer::pem(all.own));
        goodFiles = number == 1 ? files : goodFiles;
        std::string reason;
        const bool believed = believes(files, reason);
        verdicts.add(tried.name, tried.isGood, believed, reason);
    }
    std::string reason;
    verdicts.add("TLS 1.2", false, believes(goodFiles, reason, "kelsh/1", TLS1_2_VERSION), "");
    verdicts.add("no protocol's name", false, believes(goodFiles, reason, ""), "");
    const Identity lost = issuer::make(wish("node", "serverAuth", "IP:127.0.0.1"), &all.own);
    const TlsFiles lostFiles =
        issuer::write(directory + "/lostnode", "node", lost, issuer::pem(all.own));
    verdicts.add("a node before its revocation", true, believes(lostFiles, reason), reason);
    issuer::revoke(directory + "/shell", all.own, lost);
    verdicts.add("a revoked node", false, believes(lostFiles, reason), "");
    verdicts.add("another node beside the revoked", true, believes(goodFiles, reason), reason);
    verdicts.figure.attack = "certificates shown to a shell";
    return verdicts.figure;
}

}  // namespace

std::vector<Figure> attackWithCertificates(const Scale&) {
    const TempDir directory;
    const Authorities authorities;
    std::vector<Figure> figures{judgeMasters(authorities, directory.path()),
                                judgeNodes(authorities, directory.path())};
    for (Figure& figure : figures) {
        figure.isReached = figure.survived == figure.tries;
        if (figure.remark.empty()) {
            figure.remark = figure.recoverMs < 0
                                ? "each as it should be"
                                : "each as it should be; recovery is the cut of a revoked session";
        }
    }
    return figures;
}
