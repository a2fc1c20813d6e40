#include <gtest/gtest.h>
#include <openssl/err.h>

#include "TlsRehearsal.h"

TEST(TlsRehearsal, ComesToItsEnd) {
    EXPECT_TRUE(tlsrehearsal::perform());
    EXPECT_EQ(ERR_peek_error(), 0U);
    // The signer that the first one left is replaced.
    EXPECT_TRUE(tlsrehearsal::perform());
}
