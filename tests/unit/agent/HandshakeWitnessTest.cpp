#include <functional>
#include <memory>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/ssl.h>

#include "CException.h"
#include "FreedBy.h"
#include "HandshakeWitness.h"
#include "SigningProxy.h"
#include "TempDir.h"
#include "TestPki.h"

namespace {

using Ssl = FreedBy<SSL, SSL_free>;

// A handshake between a master and a node that has its key elsewhere, in memory.
class HandshakeWitnessed : public testing::Test {
protected:
    static TlsFiles filesOf(const TestPki::Identity& identity) {
        TlsFiles files;
        files.certificateFile = identity.certificateFile;
        return files;
    }

    static void note(int /*writes*/, int /*version*/, int content, const void* bytes,
                     std::size_t count, SSL* /*ssl*/, void* self) {
        if (content == 22) {
            static_cast<HandshakeWitnessed*>(self)->messages.emplace_back(
                static_cast<const char*>(bytes), count);
        }
    }

    std::string joined(std::size_t from, std::size_t to) const {
        std::string all;
        for (std::size_t i = from; i < to && i < messages.size(); ++i) {
            all += messages[i];
        }
        return all;
    }

    // Fills request, answer and proof. False when the handshake failed.
    bool shakeHands(HandshakeWitness& witness, const TestPki::Identity& shell,
                    const char* clientGroups = "P-256") {
        messages.clear();
        const auto exposed = TlsContext::server(filesOf(node));
        std::size_t signedCount = 0;
        signingproxy::install(exposed->get());
        signingproxy::setSigner([&] {
            signedCount = messages.size();
            request = joined(0, signedCount);
            answer = witness.sign(request);
            return answer;
        });
        SSL_CTX_set_msg_callback(exposed->get(), &note);
        SSL_CTX_set_msg_callback_arg(exposed->get(), this);
        SSL_CTX_set_verify(exposed->get(), SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT,
                           [](int, X509_STORE_CTX*) { return 1; });
        const FreedBy<SSL_CTX, SSL_CTX_free> dialling(SSL_CTX_new(TLS_client_method()));
        SSL_CTX_use_certificate_chain_file(dialling.get(), shell.certificateFile.c_str());
        SSL_CTX_use_PrivateKey_file(dialling.get(), shell.keyFile.c_str(), SSL_FILETYPE_PEM);
        SSL_CTX_set1_groups_list(dialling.get(), clientGroups);
        const unsigned char alpn[] = "\x07kelsh/1";
        SSL_CTX_set_alpn_protos(dialling.get(), alpn, sizeof alpn - 1);
        const Ssl server(SSL_new(exposed->get()));
        const Ssl client(SSL_new(dialling.get()));
        BIO* ends[2] = {nullptr, nullptr};
        BIO_new_bio_pair(&ends[0], 0, &ends[1], 0);
        SSL_set_bio(server.get(), ends[0], ends[0]);
        SSL_set_bio(client.get(), ends[1], ends[1]);
        SSL_set_accept_state(server.get());
        SSL_set_connect_state(client.get());
        bool done = false;
        for (int turn = 0; turn < 10 && !done; ++turn) {
            const bool clientDone = SSL_do_handshake(client.get()) == 1;
            done = SSL_do_handshake(server.get()) == 1 && clientDone;
        }
        proof = joined(signedCount, signedCount + 4);
        return done;
    }

    std::string refusalOf(const std::function<void()>& action) const {
        try {
            action();
        } catch (const CException& refused) {
            return refused.getErrMsg();
        }
        return "";
    }

    TempDir directory;
    TestPki pki{directory.file("pki")};
    TestPki::Identity master = pki.master();
    TestPki::Identity node = pki.node();
    std::shared_ptr<TlsContext> context = TlsContext::server(filesOf(node));
    std::vector<std::string> messages;
    std::string request;
    std::string answer;
    std::string proof;
};

}  // namespace

TEST_F(HandshakeWitnessed, MasterIsKnownByItsSignature) {
    HandshakeWitness witness(context);
    ASSERT_TRUE(shakeHands(witness, master));
    const HandshakeWitness::Master proven = witness.prove(proof, "the shell");
    EXPECT_EQ("master", proven.name);
    EXPECT_EQ("CN=master", proven.subject);
    EXPECT_FALSE(proven.certificates.empty());
}

TEST_F(HandshakeWitnessed, GreetingThatWasAskedForAnewCounts) {
    HandshakeWitness witness(context);
    ASSERT_TRUE(shakeHands(witness, master, "X25519:P-256"));
    ASSERT_EQ(1, messages[2][0]) << "no second greeting";
    EXPECT_EQ("master", witness.prove(proof, "the shell").name);
}

TEST_F(HandshakeWitnessed, EveryChangedBitOfTheProofIsRefused) {
    HandshakeWitness witness(context);
    ASSERT_TRUE(shakeHands(witness, master));
    for (std::size_t at = 0; at < proof.size(); ++at) {
        std::string changed = proof;
        changed[at] = static_cast<char>(changed[at] ^ 1);
        EXPECT_THROW(witness.prove(changed, "the shell"), CException) << at;
    }
    for (std::size_t length = 0; length < proof.size(); ++length) {
        EXPECT_THROW(witness.prove(proof.substr(0, length), "the shell"), CException) << length;
    }
    EXPECT_THROW(witness.prove(proof + '\0', "the shell"), CException);
    EXPECT_EQ("master", witness.prove(proof, "the shell").name);
}

TEST_F(HandshakeWitnessed, RecordedHandshakeFitsNoSecondTime) {
    HandshakeWitness first(context);
    ASSERT_TRUE(shakeHands(first, master));
    // All of it again, as one would who has no master to hand.
    HandshakeWitness second(context);
    EXPECT_NE(second.sign(request), answer) << "nothing fresh in it";
    EXPECT_THAT(refusalOf([&] { second.prove(proof, "the shell"); }),
                testing::HasSubstr("another handshake"));
    // The old signature of the master behind the new one of the node.
    const std::string fresh = [&] {
        HandshakeWitness third(context);
        return third.sign(request);
    }();
    EXPECT_NE(fresh, answer);
}

TEST_F(HandshakeWitnessed, MastersSignatureBehindAFreshOneOfTheNodeIsRefused) {
    HandshakeWitness first(context);
    ASSERT_TRUE(shakeHands(first, master));
    HandshakeWitness second(context);
    const std::string fresh = second.sign(request);
    const std::size_t length = fresh.size() + 4;
    std::string forged{
        15, 0, static_cast<char>(length >> 8U),       static_cast<char>(length & 0xffU),
        4,  3, static_cast<char>(fresh.size() >> 8U), static_cast<char>(fresh.size() & 0xffU)};
    forged += fresh;
    const std::size_t old = 4 + 4 + answer.size();
    EXPECT_THAT(refusalOf([&] { second.prove(forged + proof.substr(old), "the shell"); }),
                testing::HasSubstr("signature does not fit"));
}

TEST_F(HandshakeWitnessed, ProofOfAnotherNodesHandshakeIsRefused) {
    const TestPki::Identity otherNode = pki.node("other");
    HandshakeWitness own(context);
    ASSERT_TRUE(shakeHands(own, master));
    const std::string ownRequest = request;
    HandshakeWitness other(TlsContext::server(filesOf(otherNode)));
    other.sign(ownRequest);
    EXPECT_THROW(other.prove(proof, "the shell"), CException);
}

TEST_F(HandshakeWitnessed, OnlyOneSignatureIsGiven) {
    HandshakeWitness witness(context);
    ASSERT_TRUE(shakeHands(witness, master));
    EXPECT_THAT(refusalOf([&] { witness.sign(request); }), testing::HasSubstr("second"));
}

TEST_F(HandshakeWitnessed, OnlyHandshakesAreSigned) {
    {
        HandshakeWitness witness(context);
        ASSERT_TRUE(shakeHands(witness, master));
    }
    ASSERT_EQ(10U, messages.size());
    const std::vector<std::string> good(messages.begin(), messages.begin() + 5);
    const auto refused = [&](const std::vector<std::string>& parts) {
        std::string all;
        for (const std::string& part : parts) {
            all += part;
        }
        HandshakeWitness witness(context);
        return !refusalOf([&] { witness.sign(all); }).empty();
    };
    EXPECT_FALSE(refused(good));
    EXPECT_TRUE(refused({}));
    EXPECT_TRUE(refused({std::string(200, 'x')}));
    EXPECT_TRUE(refused({good[0], good[1], good[2], good[3]}));
    EXPECT_TRUE(refused({good[1], good[0], good[2], good[3], good[4]}));
    EXPECT_TRUE(refused({good[0], good[1], good[2], good[4], good[3]}));
    EXPECT_TRUE(refused({good[0], good[1], good[2], good[3], good[4], good[4]}));
    EXPECT_TRUE(refused({good[0], good[1], good[0], good[1], good[2], good[3], good[4]}))
        << "twice a greeting that was not asked for";
    EXPECT_TRUE(refused({good[0], std::string("\x02\x00\x00\x00", 4), good[2], good[3], good[4]}));
    EXPECT_TRUE(refused({std::string(HandshakeWitness::kMaxTranscriptBytes + 1, '\1')}));
}

TEST_F(HandshakeWitnessed, ProofWithoutASignatureOfOursIsRefused) {
    HandshakeWitness first(context);
    ASSERT_TRUE(shakeHands(first, master));
    HandshakeWitness second(context);
    EXPECT_THAT(refusalOf([&] { second.prove(proof, "the shell"); }),
                testing::HasSubstr("never asked"));
}

TEST_F(HandshakeWitnessed, CertificatesAreJudgedAsEver) {
    TempDir elsewhere;
    TestPki stranger(elsewhere.path(), "Other CA");
    HandshakeWitness first(context);
    ASSERT_TRUE(shakeHands(first, stranger.master()));
    EXPECT_NE(refusalOf([&] { first.prove(proof, "the shell"); }), "");
    HandshakeWitness second(context);
    ASSERT_TRUE(shakeHands(second, pki.node("thief")));
    EXPECT_NE(refusalOf([&] { second.prove(proof, "the shell"); }), "");
    TestPki::Request old;
    old.notAfterSeconds = -60;
    HandshakeWitness third(context);
    ASSERT_TRUE(shakeHands(third, pki.issue("old", old)));
    EXPECT_THAT(refusalOf([&] { third.prove(proof, "the shell"); }), testing::HasSubstr("expired"));
}
