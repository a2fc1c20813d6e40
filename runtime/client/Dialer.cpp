#include "Dialer.h"

#include <algorithm>
#include <sys/resource.h>
#include <utility>

#include "SocketDial.h"
#include "TlsSocket.h"

namespace {

constexpr rlim_t kMostResting = 4096;
constexpr rlim_t kMostParked = 65536;

// Half of the descriptors that the process may open.
std::size_t shareOfDescriptors(rlim_t most) {
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) {
        return 0;
    }
    return static_cast<std::size_t>(std::min(limit.rlim_cur / 2, most));
}

ConnectionPool::Limits poolLimits() {
    ConnectionPool::Limits bounds;
    bounds.most = shareOfDescriptors(kMostResting);
    return bounds;
}

}  // namespace

Dialer::Dialer()
    : resting(poolLimits()),
      parked(shareOfDescriptors(kMostParked)),
      handshakes(kHandshakesAtOnce) {}

Dialer::~Dialer() = default;

Dialer& Dialer::process() {
    static auto* only = new Dialer;
    return *only;
}

void Dialer::setCertificateFile(std::string file) {
    const std::lock_guard<std::mutex> lock(mutex);
    certificate = std::move(file);
}

void Dialer::setPrivateKeyFile(std::string file) {
    const std::lock_guard<std::mutex> lock(mutex);
    privateKey = std::move(file);
}

std::string Dialer::certificateFile() const {
    const std::lock_guard<std::mutex> lock(mutex);
    return certificate;
}

std::shared_ptr<TlsContext> Dialer::contextFor(const std::string& certificateFile) {
    TlsFiles files;
    files.certificateFile = certificateFile;
    {
        const std::lock_guard<std::mutex> lock(mutex);
        files.privateKeyFile = privateKey;
    }
    return contexts.get(files);
}

UniqueFd Dialer::dial(const std::string& address, int port, Clock::time_point limit,
                      std::optional<std::chrono::milliseconds> patience, const Cancellation* stop) {
    const std::string peer = tlssocket::join(address, port);
    std::optional<SocketDial> attempt = parked.take(peer);
    if (attempt) {
        attempt->endBy(limit);
    } else {
        attempt.emplace(address, port, limit, stop);
    }
    if (patience) {
        UniqueFd connected = attempt->await(Clock::now() + *patience, stop);
        if (connected || parked.park(peer, *attempt)) {
            return connected;
        }
    }
    return attempt->await(limit, stop);
}
