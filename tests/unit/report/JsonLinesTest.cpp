#include <gtest/gtest.h>

#include "JsonLines.h"

namespace {

NodeOutcome failed() {
    NodeOutcome outcome;
    outcome.node = "node_0002";
    outcome.address = "127.1.0.3";
    outcome.cause = Cause::kFailed;
    outcome.status = 2;
    outcome.exitCode = 3;
    outcome.ms = 12;
    outcome.text = "no such \"file\"\n";
    return outcome;
}

TEST(JsonLines, HoldOneObjectInTheOrderPromised) {
    EXPECT_EQ(
        "{\"command\":42,\"node\":\"node_0002\",\"address\":\"127.1.0.3\",\"cause\":\"failed\","
        "\"status\":2,\"exit_code\":3,\"ms\":12,\"output\":\"no such \\\"file\\\"\\n\"}\n",
        jsonLine(42, failed()));
}

TEST(JsonLines, SayNullForTheExitCodeOfWhatNeverRan) {
    NodeOutcome outcome = failed();
    outcome.exitCode.reset();
    EXPECT_NE(std::string::npos, jsonLine(1, outcome).find("\"exit_code\":null,"));
}

TEST(JsonLines, KeepTextOfAnyScript) {
    NodeOutcome outcome = failed();
    outcome.text = "gr\xc3\xbc\xc3\x9f";
    EXPECT_NE(std::string::npos, jsonLine(1, outcome).find("\"output\":\"gr\xc3\xbc\xc3\x9f\"}\n"));
}

TEST(JsonLines, GiveBytesThatAreNoTextInBase64) {
    NodeOutcome outcome = failed();
    outcome.text = std::string("\xff\x00\x01", 3);
    const std::string line = jsonLine(1, outcome);
    EXPECT_NE(std::string::npos, line.find("\"output_base64\":\"/wAB\"}\n")) << line;
    EXPECT_EQ(std::string::npos, line.find("\"output\"")) << line;
}

TEST(JsonLines, GiveANameThatIsNoTextStillAsText) {
    NodeOutcome outcome = failed();
    outcome.node = "n\xff";
    EXPECT_NE(std::string::npos, jsonLine(1, outcome).find("\"node\":\"n\xef\xbf\xbd\""));
}

}  // namespace
