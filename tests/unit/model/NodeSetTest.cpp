#include <map>

#include <gtest/gtest.h>

#include "CNode.h"
#include "CNodeGroup.h"
#include "CShellExecutionContext.h"
#include "ContextNodeNames.h"
#include "NodePattern.h"
#include "NodeSet.h"
#include "NodeSetError.h"

namespace {

using Names = std::vector<std::string>;

std::string complaintAbout(const std::string& text, const NodeNames* known = nullptr) {
    try {
        const NodeSet set = NodeSet::parse(text, known);
        return "no error: " + set.fold();
    } catch (const NodeSetError& fault) {
        return fault.getErrMsg();
    }
}

Names namesOf(const std::string& text, const NodeNames* known = nullptr) {
    return NodeSet::parse(text, known).getNames();
}

struct Written {
    std::string text;
    Names names;
};

class NodeSetGrammar : public testing::TestWithParam<Written> {};

TEST_P(NodeSetGrammar, StandsForTheseNames) {
    EXPECT_EQ(GetParam().names, namesOf(GetParam().text));
}

INSTANTIATE_TEST_SUITE_P(
    Table, NodeSetGrammar,
    testing::Values(
        Written{"n1", {"n1"}}, Written{"n[1-3]", {"n1", "n2", "n3"}},
        Written{"n[01-03]", {"n01", "n02", "n03"}}, Written{"n[09-11]", {"n09", "n10", "n11"}},
        Written{"n[9-11]", {"n9", "n10", "n11"}}, Written{"n[0-1]", {"n0", "n1"}},
        Written{"n[00-01]", {"n00", "n01"}}, Written{"n[1,3,5-7]", {"n1", "n3", "n5", "n6", "n7"}},
        Written{"n[1-10/4]", {"n1", "n5", "n9"}}, Written{"n[01-10/4]", {"n01", "n05", "n09"}},
        Written{"n[1,01]", {"n1", "n01"}}, Written{"n[2,1,2]", {"n2", "n1"}},
        Written{"node_00[01-02]", {"node_0001", "node_0002"}},
        Written{"r[1-2]n[01-02]", {"r1n01", "r1n02", "r2n01", "r2n02"}},
        Written{"n[1-2]-ib", {"n1-ib", "n2-ib"}}, Written{"r[1-2]n1", {"r1n1", "r2n1"}},
        Written{"[1-2]", {"1", "2"}}, Written{"a,b,a", {"a", "b"}},
        Written{"n[1-2],m", {"n1", "n2", "m"}}, Written{"n[1-5]!n[2-3]", {"n1", "n4", "n5"}},
        Written{"n[1-5]&n[4-9]", {"n4", "n5"}}, Written{"n[1-3]^n[2-4]", {"n1", "n4"}},
        Written{"a!a", {}}, Written{"a!a,b", {"b"}}, Written{"b,a!a,a", {"b", "a"}},
        Written{"a,b&b,c", {"b", "c"}}, Written{" a , b ! a ", {"b"}},
        Written{"n[100000000000000000-100000000000000001]",
                {"n100000000000000000", "n100000000000000001"}}));

struct Wrong {
    std::string text;
    std::string complaint;
};

class NodeSetFault : public testing::TestWithParam<Wrong> {};

TEST_P(NodeSetFault, NamesTheTermAndTheRightForm) {
    EXPECT_EQ(GetParam().complaint, complaintAbout(GetParam().text));
}

INSTANTIATE_TEST_SUITE_P(
    Table, NodeSetFault,
    testing::Values(
        Wrong{"a,n[5-1]", "n[5-1]: the range 5-1 goes down; write n[1-5]"},
        Wrong{"n[5-1/2]x", "n[5-1/2]x: the range 5-1/2 goes down; write n[1-5/2]x"},
        Wrong{"n[9-011]",
              "n[9-011]: the ends of the range 9-011 differ in width; write n[009-011]"},
        Wrong{"n[01-100]",
              "n[01-100]: the ends of the range 01-100 differ in width; write n[001-100]"},
        Wrong{"n[1-9/0]", "n[1-9/0]: the step of 1-9/0 is 0; write n[1-9]"},
        Wrong{"n[1/2]", "n[1/2]: the step of 1/2 needs a range; write n[1]"},
        Wrong{"n[1-3]4", "n[1-3]4: digits stand right behind a bracket; write n[14,24,34]"},
        Wrong{"n[1-2][3-4]",
              "n[1-2][3-4]: a bracket stands right behind another; write "
              "n[13-14,23-24]"},
        Wrong{"n[1-2000]5", "n[1-2000]5: digits stand right behind a bracket"},
        Wrong{"n[1-2", "n[1-2: the \"]\" is missing"},
        Wrong{"n1-2]", "n1-2]: there is no \"[\" in front of \"]\""},
        Wrong{"n[]", "n[]: a number is missing between the brackets"},
        Wrong{"n[1,]", "n[1,]: a number is missing between the brackets"},
        Wrong{"n[a-b]", "n[a-b]: \"a-b\" between the brackets is no number and no range"},
        Wrong{"n[1-]", "n[1-]: \"1-\" between the brackets is no number and no range"},
        Wrong{"n[1-2-3]", "n[1-2-3]: \"1-2-3\" between the brackets is no number and no range"},
        Wrong{"n[1-9/]", "n[1-9/]: \"1-9/\" between the brackets is no number and no range"},
        Wrong{"n[[1]]", "n[[1]]: \"[1\" between the brackets is no number and no range"},
        Wrong{"n[1-1000000000000000000]",
              "n[1-1000000000000000000]: a number of more than 18 digits"},
        Wrong{"n[1-100001]", "n[1-100001]: more than 100000 names"},
        Wrong{"a[1-400]b[1-400]", "a[1-400]b[1-400]: more than 100000 names"},
        Wrong{"a[0-999999999999999999,0-999999999999999999]b[0-999999999999999999]",
              "a[0-999999999999999999,0-999999999999999999]b[0-999999999999999999]: more than "
              "100000 names"},
        Wrong{"a[1-60000],b[1-60000]", "b[1-60000]: more than 100000 names in all"},
        Wrong{"", ": a name is missing at the end"},
        Wrong{"a,", "a,: a name is missing at the end"},
        Wrong{"a,,b", "a,,b: a name is missing in front of \",\""},
        Wrong{"!a", "!a: a name is missing in front of \"!\""},
        Wrong{"a b", "a b: \" \" cannot stand in a name"},
        Wrong{"a@b", "a@b: \"@\" cannot stand in a name"},
        Wrong{"a/b", "a/b: \"/\" cannot stand in a name"},
        Wrong{"@g", "@g: no groups are known here"},
        Wrong{"\x1b[1", "\\x1b[1: the \"]\" is missing"},
        Wrong{"\x1b[2-1]", "\\x1b[2-1]: the range 2-1 goes down; write \\x1b[1-2]"}));

TEST(NodePattern, TakesAsManyNamesAsAreAllowed) {
    EXPECT_EQ(NodePattern::kMostNames, NodePattern::expand("n[1-100000]").size());
    EXPECT_EQ(NodePattern::kMostNames, NodePattern::expand("a[1-100]b[1-10]c[0-99]").size());
    EXPECT_EQ(4U, NodeSet::parse("n[1-2],m[1-2]", nullptr, 4).size());
    EXPECT_THROW(NodeSet::parse("n[1-2],m[1-2]", nullptr, 3), NodeSetError);
}

TEST(NodeSet, FoldsSoThatItCanBeReadAgain) {
    for (const char* text : {"n[1-3]", "n[1,01]", "n[09-99,100]", "r1n[1-2],r2n[1-2]", "n1", ""}) {
        const NodeSet set = *text == '\0' ? NodeSet() : NodeSet::parse(text, nullptr);
        EXPECT_EQ(set.fold(), text);
    }
}

// Nodes n1 to n4, n01 and two with odd names; groups of nodes and of groups.
class NodeSetOfSite : public testing::Test {
protected:
    void SetUp() override {
        for (const char* name : {"n1", "n2", "n3", "n4", "n01", "x[1]", "a!b"}) {
            context.getNodeMap()[name] = std::make_unique<CNode>(name, "").release();
        }
        group("low", {"n1", "n2"}, {});
        group("rack1", {"n3"}, {"low"});
        group("rack2", {"n4", "n3"}, {});
        group("r[1]", {"n4"}, {});
        group("empty", {}, {});
    }

    void group(const std::string& name, const Names& nodes, const Names& groups) {
        auto made = std::make_unique<CNodeGroup>(name);
        for (const std::string& node : nodes) {
            made->addNode(context.getNodeMap().at(node));
        }
        for (const std::string& inner : groups) {
            made->addGroup(byName.at(inner));
        }
        byName[name] = made.get();
        context.getNodeGroupList().push_back(made.release());
    }

    Names names(const std::string& text) const { return namesOf(text, &known); }
    std::string complaint(const std::string& text) const { return complaintAbout(text, &known); }

    CShellExecutionContext context{CShellExecutionContext::Temporary()};
    std::map<std::string, CNodeGroup*> byName;
    ContextNodeNames known{context};
};

TEST_F(NodeSetOfSite, KnowsNodesAndGroupsOfGroups) {
    EXPECT_EQ((Names{"n3", "n1", "n2"}), names("@rack1"));
    EXPECT_EQ((Names{"n3", "n1", "n2", "n4"}), names("@rack[1-2]"));
    EXPECT_EQ((Names{"n1", "n2"}), names("@rack1!n[3-4]"));
    EXPECT_EQ((Names{"n4"}), names("n4 & @rack2"));
    EXPECT_EQ((Names{}), names("@empty"));
    EXPECT_EQ((Names{"a!b", "n01", "n1", "n2", "n3", "n4", "x[1]"}), names("@*"));
    EXPECT_EQ((Names{"a!b", "x[1]"}), names("@*!n[1-4],n01!n01"));
}

TEST_F(NodeSetOfSite, FindsANodeByItsExactNameFirst) {
    EXPECT_EQ((Names{"x[1]"}), names("x[1]"));
    EXPECT_EQ((Names{"n1", "x[1]", "n2"}), names("n1, x[1] ,n2"));
    EXPECT_EQ((Names{"a!b", "n1"}), names("a!b,n1"));
    EXPECT_EQ("x[1-2]: there is no node \"x1\"", complaint("x[1-2]"));
    EXPECT_EQ((Names{"n4"}), names("@r[1]"));
}

TEST_F(NodeSetOfSite, RefusesWhatIsNotThere) {
    EXPECT_EQ("n9: there is no such node", complaint("n9"));
    EXPECT_EQ("n[1-5]: there is no node \"n5\"", complaint("n[1-5]"));
    EXPECT_EQ("n[8-9]: there is no node \"n8\"", complaint("n1!n[8-9]"));
    EXPECT_EQ("n001: there is no such node", complaint("n001"));
    EXPECT_EQ("@none: there is no such group", complaint("@none"));
    EXPECT_EQ("@rack[1-3]: there is no group \"@rack3\"", complaint("@rack[1-3]"));
    EXPECT_EQ("low: there is no such node", complaint("low"));
}

TEST_F(NodeSetOfSite, EndsInACircleOfGroups) {
    byName.at("low")->addGroup(byName.at("rack1"));
    EXPECT_EQ((Names{"n1", "n2", "n3"}), names("@low"));
}

}  // namespace
