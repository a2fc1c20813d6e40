#include "WaitingRoom.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sys/epoll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include "CException.h"

namespace {

constexpr unsigned char kHandshakeRecord = 22;
constexpr unsigned char kMajorVersion = 3;

}  // namespace

WaitingRoom::WaitingRoom() : watcher(::epoll_create1(EPOLL_CLOEXEC)) {
    if (!watcher) {
        throw CException(std::string("cannot watch connections: ") + std::strerror(errno));
    }
}

bool WaitingRoom::add(Guest guest) {
    const Id id = nextId++;
    epoll_event event{};
    // By level a single byte would wake the listener again and again until the peer sends more.
    event.events = EPOLLIN | EPOLLRDHUP | EPOLLET;
    event.data.u64 = id;
    if (::epoll_ctl(watcher.get(), EPOLL_CTL_ADD, guest.connection.get(), &event) != 0) {
        return false;
    }
    guests.emplace(id, std::move(guest));
    return true;
}

WaitingRoom::Guest WaitingRoom::take(Id id) {
    Guest guest = std::move(guests.at(id));
    guests.erase(id);
    readyGuests.erase(id);
    // By hand: a session that inherits the connection would keep it watched after it is closed
    // here.
    ::epoll_ctl(watcher.get(), EPOLL_CTL_DEL, guest.connection.get(), nullptr);
    return guest;
}

void WaitingRoom::setReady(Id id) {
    guests.at(id).isReady = true;
    readyGuests.insert(id);
}

void WaitingRoom::clear() {
    while (!guests.empty()) {
        take(guests.begin()->first);
    }
}

std::vector<std::pair<WaitingRoom::Id, WaitingRoom::Beginning>> WaitingRoom::takeMoved() {
    epoll_event events[kMostAtOnce];
    const int count = ::epoll_wait(watcher.get(), events, kMostAtOnce, 0);
    std::vector<std::pair<Id, Beginning>> moved;
    for (int i = 0; i < count; ++i) {
        const auto found = guests.find(events[i].data.u64);
        if (found == guests.end()) {
            continue;
        }
        Beginning beginning = lookAt(found->second.connection.get());
        const bool hasEnded = (events[i].events & (EPOLLRDHUP | EPOLLHUP | EPOLLERR)) != 0;
        if (beginning != Beginning::kForeign && hasEnded) {
            beginning = Beginning::kEnded;
        }
        if (beginning != Beginning::kUnfinished) {
            moved.emplace_back(found->first, beginning);
        }
    }
    return moved;
}

std::vector<WaitingRoom::Id> WaitingRoom::acceptedBefore(Clock::time_point limit) const {
    std::vector<Id> old;
    for (const auto& item : guests) {
        if (item.second.acceptedAt > limit) {
            break;  // those after it came later
        }
        old.push_back(item.first);
    }
    return old;
}

WaitingRoom::Beginning WaitingRoom::lookAt(int connection) {
    int there = 0;
    unsigned char header[kRecordHeaderBytes];
    const ssize_t seen = ::recv(connection, header, sizeof header, MSG_PEEK | MSG_DONTWAIT);
    if (seen == 0) {
        return Beginning::kEnded;
    }
    if (seen < 0) {
        return errno == EAGAIN || errno == EINTR ? Beginning::kUnfinished : Beginning::kEnded;
    }
    if (::ioctl(connection, FIONREAD, &there) != 0 || there < 0) {
        return Beginning::kEnded;
    }
    return judge(header, static_cast<std::size_t>(seen), static_cast<std::size_t>(there));
}

WaitingRoom::Beginning WaitingRoom::judge(const unsigned char* header, std::size_t headerBytes,
                                          std::size_t bytesThere) {
    if ((headerBytes > 0 && header[0] != kHandshakeRecord) ||
        (headerBytes > 1 && header[1] != kMajorVersion)) {
        return Beginning::kForeign;
    }
    if (headerBytes < kRecordHeaderBytes) {
        return Beginning::kUnfinished;
    }
    const std::size_t length = static_cast<std::size_t>(header[3]) << 8U | header[4];
    if (length < kLeastRecordBytes || length > kMostRecordBytes) {
        return Beginning::kForeign;
    }
    return bytesThere >= std::min(kRecordHeaderBytes + length, kEnoughBytes)
               ? Beginning::kReady
               : Beginning::kUnfinished;
}
