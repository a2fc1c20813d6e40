// A holder of a certificate who changes the keys of its connections without end.

#include <fcntl.h>
#include <string>

#include <openssl/err.h>
#include <openssl/ssl.h>

#include "CException.h"
#include "Figure.h"
#include "FreedBy.h"
#include "LocalAgent.h"
#include "Processes.h"
#include "SocketDial.h"
#include "TlsSocket.h"

namespace {

// How many changes the agent takes, at most so many; most: the highest memory of the process that
// takes them.
long change(const LocalAgent& agent, long count, long& most) {
    TlsFiles files;
    files.certificateFile = agent.masterCertificate();
    const std::shared_ptr<TlsContext> context = TlsContext::client(files);
    const FreedBy<SSL, SSL_free> ssl(SSL_new(context->get()));
    const UniqueFd fd = SocketDial::connect(agent.ip(), agent.port(), LocalAgent::soon());
    static_cast<void>(::fcntl(fd.get(), F_SETFL, ::fcntl(fd.get(), F_GETFL) & ~O_NONBLOCK));
    // It raises no SIGPIPE.
    BIO* const bio = tlssocket::newBio(fd.get());
    SSL_set_bio(ssl.get(), bio, bio);
    const std::string hello = protocol::encode(protocol::ShellHello());
    if (SSL_connect(ssl.get()) != 1 ||
        SSL_write(ssl.get(), hello.data(), static_cast<int>(hello.size())) <= 0) {
        throw CException("no connection to change the keys of");
    }
    const std::vector<pid_t> sides = agent.processes("kelnode-network");
    for (long i = 0; i < count; ++i) {
        if (i % 1000 == 0 && !sides.empty()) {
            most = std::max(most, processes::statusKiB(sides.back(), "VmRSS"));
        }
        if (SSL_key_update(ssl.get(), SSL_KEY_UPDATE_NOT_REQUESTED) != 1 ||
            SSL_do_handshake(ssl.get()) != 1) {
            ERR_clear_error();
            return i;
        }
    }
    return count;
}

}  // namespace

std::vector<Figure> attackWithKeyUpdates(const Scale& scale) {
    const long changes = scale.pick(1000000, 100000);
    LocalAgent agent;
    Figure figure;
    figure.attack = "changes of keys without end";
    figure.tries = scale.pick(20, 4);
    long taken = 0;
    for (long i = 0; i < figure.tries; ++i) {
        const long done = change(agent, changes, figure.growthKiB);
        taken = std::max(taken, done);
        figure.survived += done < changes ? 1 : 0;
    }
    CResult result;
    agent.connect()->execute("echo served", 10000, &result);
    figure.remark = "cut at the latest after " + std::to_string(taken) +
                    " changes had been sent; memory is the highest of a network process";
    figure.isReached = figure.survived == figure.tries && figure.growthKiB < 16 * 1024 &&
                       result.getRunSummary() == "served\n";
    return {figure};
}
