#include "OpenSslLocks.h"

#include <cstddef>
#include <new>
#include <pthread.h>

#include <openssl/crypto.h>

namespace openssllocks {
namespace {

pthread_mutex_t* mutexes = nullptr;
unsigned int users = 0;

std::size_t lockCount() {
    return static_cast<std::size_t>(CRYPTO_num_locks());
}

}  // namespace

void install() {
    if (users++ > 0) {
        return;
    }
    mutexes = static_cast<pthread_mutex_t*>(
        CRYPTO_malloc(sizeof(pthread_mutex_t) * lockCount(), __FILE__, __LINE__));
    if (mutexes == nullptr) {
        users = 0;
        throw std::bad_alloc();
    }
    for (std::size_t i = 0; i < lockCount(); ++i) {
        static_cast<void>(::pthread_mutex_init(&mutexes[i], nullptr));
    }
    // OpenSSL 3 ignores these callbacks and locks by itself. They are part of the interface, see
    // docs/compatibility.md.
    CRYPTO_set_locking_callback(&callback);
    CRYPTO_set_id_callback(&threadId);
}

void remove() {
    if (users == 0 || --users > 0) {
        return;
    }
    CRYPTO_set_locking_callback(nullptr);
    for (std::size_t i = 0; i < lockCount(); ++i) {
        static_cast<void>(::pthread_mutex_destroy(&mutexes[i]));
    }
    CRYPTO_free(mutexes, __FILE__, __LINE__);
    mutexes = nullptr;
}

void callback(int mode, int type, const char*, int) {
    if ((mode & CRYPTO_LOCK) != 0) {
        static_cast<void>(::pthread_mutex_lock(&mutexes[type]));
    } else {
        static_cast<void>(::pthread_mutex_unlock(&mutexes[type]));
    }
}

unsigned long threadId() {
    return static_cast<unsigned long>(::pthread_self());
}

}  // namespace openssllocks
