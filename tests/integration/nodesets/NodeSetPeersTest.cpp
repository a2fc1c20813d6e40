// Node sets beside the programs of other projects that read and print the same: what all agree on
// must come out the same. Where such a program is not installed its tests are skipped;
// scripts/install-deps --all installs them.

#include <fstream>

#include <gtest/gtest.h>

#include "CUtil.h"
#include "NodeSet.h"
#include "ScopedEnvironment.h"
#include "TempDir.h"

namespace {

std::string joined(const std::vector<std::string>& names) {
    std::string text;
    for (const std::string& name : names) {
        text += (text.empty() ? "" : " ") + name;
    }
    return text;
}

class Peer : public testing::TestWithParam<const char*> {
protected:
    static bool isInstalled(const std::string& program) {
        return CUtil::exec_cmd("command -v " + program, nullptr) == 0;
    }
    // What the program prints, with one blank between the words.
    static std::string answer(const std::string& program, const std::string& argument) {
        std::string output;
        EXPECT_EQ(0, CUtil::exec_cmd(program + " '" + argument + "'", &output)) << argument;
        CUtil::makeNeatString(&output);
        return output;
    }
};

class Nodeset : public Peer {
protected:
    void SetUp() override {
        if (!isInstalled("nodeset")) {
            GTEST_SKIP() << "nodeset is not installed: scripts/install-deps --all";
        }
    }
};

TEST_P(Nodeset, ExpandsToTheSameNames) {
    EXPECT_EQ(answer("nodeset -e", GetParam()),
              joined(NodeSet::parse(GetParam(), nullptr).getNames()));
}

TEST_P(Nodeset, ReadsWhatIsFoldedHere) {
    const NodeSet set = NodeSet::parse(GetParam(), nullptr);
    EXPECT_EQ(answer("nodeset -e", GetParam()), answer("nodeset -e", set.fold()));
}

INSTANTIATE_TEST_SUITE_P(Table, Nodeset,
                         testing::Values("n1", "n[1-3]", "n[01-03]", "n[1,3,5-7]", "n[1-10/2]",
                                         "n[01-09/4]", "r[1-2]n[01-03]", "r[1-2]n1", "n[1-3]-ib",
                                         "n[9-11]", "n[09-11]", "node_00[01-16]", "a,n[1-2]",
                                         "n[1-5]!n[2-3]", "n[1-5]&n[4-9]", "n[1-3]^n[2-4]",
                                         "n[1-9]!n[2-5]&n[5-9],x1"));

class Hostnames : public Peer {
protected:
    void SetUp() override {
        if (!isInstalled("scontrol")) {
            GTEST_SKIP() << "scontrol is not installed: scripts/install-deps --all";
        }
        // The program wants a configuration, though it asks nobody.
        std::ofstream(directory.file("slurm.conf")) << "ClusterName=x\nSlurmctldHost=localhost\n";
    }

    TempDir directory;
    ScopedEnvironment configuration{"SLURM_CONF", directory.file("slurm.conf").c_str()};
};

TEST_P(Hostnames, ExpandsToTheSameNames) {
    EXPECT_EQ(answer("scontrol show hostnames", GetParam()),
              joined(NodeSet::parse(GetParam(), nullptr).getNames()));
}

TEST_P(Hostnames, ReadsWhatIsFoldedHere) {
    const NodeSet set = NodeSet::parse(GetParam(), nullptr);
    EXPECT_EQ(joined(set.getNames()), answer("scontrol show hostnames", set.fold()));
}

INSTANTIATE_TEST_SUITE_P(Table, Hostnames,
                         testing::Values("n1", "n[1-3]", "n[01-03]", "n[1,3,5-7]", "r[1-2]n[01-03]",
                                         "n[9-11]", "node_00[01-16]", "a,n[1-2]", "n[098-102]"));

}  // namespace
