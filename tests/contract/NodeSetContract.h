#pragma once

#include <algorithm>
#include <map>
#include <ostream>
#include <string>
#include <vector>

#include "Contract.h"
#include "NodeSetFixture.h"

// One run of a command on a node whose answers are given: what the node is asked, in order, and
// what the user is told. "$F" stands for a file that exists on the master, "$D" for its directory,
// "$T" for the directory of the tools on the node, "$N" for the node path.
struct NodeRun {
    std::string line;
    std::map<std::string, std::string> answers;
    std::vector<std::string> requests;
    std::string summary;
    int status = 0;
    std::string printed = "";
};

inline void PrintTo(const NodeRun& row, std::ostream* out) {
    *out << row.line << " -> " << row.summary;
}

template <class Set>
class NodeRunFixture : public NodeSetFixture<Set>, public ::testing::WithParamInterface<NodeRun> {
protected:
    std::string filled(std::string text) const {
        const std::map<std::string, std::string> marks = {{"$F", this->file},
                                                          {"$D", this->directory.path()},
                                                          {"$T", "/opt/kelnode/tools/"},
                                                          {"$N", "/opt/kelnode/"}};
        for (const auto& [mark, value] : marks) {
            for (std::size_t at = 0; (at = text.find(mark, at)) != std::string::npos;
                 at += value.size()) {
                text.replace(at, mark.size(), value);
            }
        }
        return text;
    }

    static constexpr unsigned int kPlatformMs = 5000;

    void check() {
        const NodeRun& row = this->GetParam();
        for (const auto& [request, output] : row.answers) {
            this->agent.answer(filled(request), output);
        }
        const CResult result = this->execute(filled(row.line), 4321);
        std::vector<std::string> expected;
        for (const std::string& request : row.requests) {
            expected.push_back(filled(request));
        }
        EXPECT_EQ(this->requestsAfterOpening(), expected);
        EXPECT_EQ(result.getRunSummary(), filled(row.summary));
        EXPECT_EQ(result.getRunStatus(), row.status);
        EXPECT_EQ(this->printed, filled(row.printed));
        // The question for the platform has a limit of its own.
        this->agent.timeOutsMs.erase(
            std::remove(this->agent.timeOutsMs.begin(), this->agent.timeOutsMs.end(), kPlatformMs),
            this->agent.timeOutsMs.end());
        for (const unsigned int timeOut : this->agent.timeOutsMs) {
            EXPECT_LE(timeOut, 4321u);
        }
    }
};
