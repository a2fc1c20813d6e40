#pragma once

// A handshake in memory, with keys that nobody has. What the library looks up, builds and keeps at
// its first handshake costs more than the handshake; done by the listener and by the zygote before
// they fork, all sessions find it there and share the memory.
//
// The node's key has no part in it: what calculates with a key leaves traces of it behind.
namespace tlsrehearsal {

// False when it did not come to its end, which has only saved nothing: the sessions' own handshakes
// say why.
bool perform() noexcept;

}  // namespace tlsrehearsal
