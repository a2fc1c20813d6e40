#pragma once

// The locks for versions of OpenSSL that want them from the program. OpenSSL 3, with which the
// shell is built, has its own and never calls the two callbacks; they stay because sites link
// against them.
namespace openssllocks {

// Makes the locks and hands the callbacks to OpenSSL. May be called repeatedly; each call wants its
// remove(). Throws std::bad_alloc.
void install();
void remove();

// Locks the mutex of that type where the mode has CRYPTO_LOCK set, else unlocks it.
void callback(int mode, int type, const char* file, int line);
unsigned long threadId();

}  // namespace openssllocks
