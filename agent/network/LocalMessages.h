#pragma once

#include <cstddef>
#include <string>

#include "FrameChannel.h"
#include "UniqueFd.h"

// What the two halves of a session say to each other on their local socket before the conversation
// with the master begins: messages, each a type, a length of 32 bits in network order, and so many
// bytes.
//   'S' network side: the handshake so far, to be signed     's' session: the signature
//   'P' network side: the rest of the handshake              'F' it failed: ChannelError::Kind,
//   text
// After 'P' there are no more messages, only frames as on the wire.
namespace localmessages {

// Milliseconds: that a peer gets for reading our last words; that it gets for taking what has been
// written to it before a session ended.
constexpr unsigned long kLastWordsMs = 1000;
constexpr unsigned long kLastBytesMs = 10000;

// Both ends of a local connection, which do not wait. False leaves the reason in errno.
bool makePair(UniqueFd (&ends)[2]);

// Both throw ChannelError. receive refuses a message that announces more than mostBytes.
void send(int local, char type, const std::string& body, FrameChannel::Deadline deadline);
std::string receive(int local, char& type, std::size_t mostBytes, FrameChannel::Deadline deadline);

}  // namespace localmessages
