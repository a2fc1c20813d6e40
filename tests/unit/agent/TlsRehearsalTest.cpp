#include <gtest/gtest.h>
#include <openssl/err.h>

#include "TlsRehearsal.h"

TEST(TlsRehearsal, ComesToItsEnd) {
    EXPECT_TRUE(tlsrehearsal::perform());
    EXPECT_EQ(0U, ERR_peek_error());
    // The signer that the first one left is replaced.
    EXPECT_TRUE(tlsrehearsal::perform());
}
