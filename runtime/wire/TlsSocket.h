#pragma once

#include <chrono>
#include <string>

#include <openssl/bio.h>

class Cancellation;

// Sockets below TLS: waiting with a deadline, and the way OpenSSL reads and writes
// them. Stateless; safe from any thread.
namespace tlssocket {

using Deadline = std::chrono::steady_clock::time_point;

// Waits until one of the poll events (or an error) shows on the descriptor; 0 when the deadline
// passed first, else the events seen. Deadline::max() means no limit. EINTR is retried.
//   stop  throws ChannelError kCancelled when it is cancelled; may be null
short wait(int fd, short events, Deadline deadline, const Cancellation* stop = nullptr);

// Non-blocking, close-on-exec, no delay, and a dead network path is noticed even while nothing is
// sent. Throws ChannelError.
void prepare(int fd, const std::string& peer);

// "127.0.0.1:4422"; an IPv6 address stands in brackets.
std::string join(const std::string& address, int port);
// The same for the far end of a connected socket.
std::string peerOf(int fd);

// A BIO on the descriptor, which stays the caller's. It never raises SIGPIPE, and it retries EINTR.
// Null when memory is short.
BIO* newBio(int fd);
// Set while more bytes are sure to follow at once: the kernel may then keep a packet back until it
// is full, instead of waking the peer for every record.
void setMoreToCome(BIO* bio, bool more);

}  // namespace tlssocket
