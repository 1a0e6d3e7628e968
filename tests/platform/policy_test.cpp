// What a policy decides, what is refused as one, and that the table which requests are looked up in decides the same.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "kelo/limits.h"
#include "kelo/runtime/policy_view.h"
#include "policy/access_table.h"
#include "policy/policy_file.h"
#include "support/as_user.h"
#include "support/temporary_directory.h"

namespace {

using namespace kelo::policy;

std::shared_ptr<const Policy> policyOf(const std::string& text) {
    Draft draft;
    readPolicyFile("p", text, draft);
    for (const Fault& fault : draft.faults) ADD_FAILURE() << fault.toString();
    draft.policy.isInForce = true;
    return std::make_shared<const Policy>(draft.policy);
}

// User 1001 is a member of the groups 2001 and 2002, user 1002 of 2002, user 1003 of none.
Identity someone(uid_t uid) {
    if (uid == 1001) return {uid, 2001, {2002}};
    if (uid == 1002) return {uid, 2002, {}};
    return {uid, 1, {}};
}

kelo::runtime::RuntimeOptions optionsFor(const std::string& policyDirectory) {
    kelo::runtime::RuntimeOptions options;
    options.policyDirectory = policyDirectory;
    return options;
}

std::string decided(const Policy& policy, const Decision& decision) {
    return (decision.allowed ? "yes " : "no ") + policy.reasonOf(decision);
}

constexpr const char* rules = R"(# line 1
[[allow]]
group = 2002
service = "/hmx"
command = "retrieve"

[[deny]]
user = 1002
service = "/hmx"
path = "/popups/**"

[[allow]]
user = 1002
service = "/hmx"
path = "/popups/49672281-529F-523d-99be-78c450b2a56a"

[[allow]]
group = 2001
service = ["/hmx", "/other"]
command = ["insert", "update"]
path = ["/popups/*", "/a%2fb/c"]

[[deny]]
group = 2002
service = "/hmx"
command = "update"
path = "/popups/*"

[[deny]]
user = "*"
service = "/closed"

[[allow]]
user = 1003
service = "/closed"
command = "delete"

[[allow]]
user = [1001, 1002]
publish = "/made/*"

[[deny]]
group = 2001
publish = "/made/b"
)";

TEST(Policy, TheMostSpecificRuleDecidesAndADenyWins) {
    const struct {
        uid_t uid;
        const char *service, *command, *path, *expected;
    } cases[] = {
        {1001, "/hmx", "retrieve", "/displays", "yes p:2"},
        {1001, "/hmx", "retrieve", "/popups/x", "yes p:2"},
        {1003, "/hmx", "retrieve", "/displays", "no no rule allows it"},
        {1001, "/hm", "retrieve", "/displays", "no no rule allows it"},
        {1002, "/hmx", "retrieve", "/popups", "no p:7"},  // a narrower deny, and "**" is also none
        {1002, "/hmx", "retrieve", "/popups/x/y", "no p:7"},
        {1002, "/hmx", "retrieve", "/popups/49672281-529f-523d-99be-78c450b2a56a", "yes p:12"},  // a narrower allow
        {1002, "/hmx", "retrieve", "/popups/49672281-529F-523D-99BE-78C450B2A56A", "yes p:12"},
        {1002, "/hmx", "retrieve", "/popups/49672281-529f-523d-99be-78c450b2a56b", "no p:7"},
        {1002, "/hmx", "retrieve", "/%70opups/x", "no p:7"},  // however it is spelt
        {1002, "/hmx", "retrieve", "popups", "no p:7"},
        {1002, "/hmx", "nonsense", "/popups/x", "no p:7"},
        {1001, "/hmx", "update", "/popups/x", "no p:23"},  // two groups, of which neither is narrower
        {1001, "/hmx", "insert", "/popups/x", "yes p:17"},
        {1001, "/hmx", "insert", "/popups/", "no no rule allows it"},
        {1001, "/hmx", "insert", "/popups/x/y", "no no rule allows it"},
        {1001, "/hmx", "insert", "/a%2Fb/c", "yes p:17"},
        {1001, "/hmx", "insert", "/a/b/c", "no no rule allows it"},
        {1001, "/other", "update", "/popups/x", "yes p:17"},
        {1003, "/closed", "delete", "/x", "yes p:33"},  // a user is narrower than everybody
        {1003, "/closed", "insert", "/x", "no p:29"},
        {0, "/closed", "retrieve", "/x", "no p:29"},  // also where root could do everything
        {0, "/hmx", "retrieve", "/x", "yes no rule allows it"},
        {1002, "/made/b", "publish", "", "yes p:38"},
        {1001, "/made/a", "publish", "", "yes p:38"},
        {1001, "/made/b", "publish", "", "no p:42"},
        {1001, "/made", "publish", "", "no no rule allows it"},
        {1003, "/closed", "publish", "", "no no rule allows it"},  // to use a service is not to publish it
    };
    const auto policy = policyOf(rules);
    for (const auto& [uid, service, command, path, expected] : cases) {
        const Identity who = someone(uid);
        const bool isPublishing = std::string_view{command} == "publish";
        AccessTable table{policy, who, service, uid == 0};
        for (int i = 0; i < 2; ++i) {  // worked out, and looked up
            const Decision decision = isPublishing ? policy->mayPublish(who, service, uid == 0) : table.decide(command, path);
            EXPECT_EQ(decided(*policy, decision), expected) << uid << " " << command << " " << service << path;
        }
    }
}

// Random rules over few names, so that many match; the table against each rule by itself.
TEST(Policy, TheTableDecidesAsTheRulesDo) {
    std::mt19937 random{7};
    const auto pick = [&](auto... choices) {
        const std::string all[] = {choices...};
        return all[random() % std::size(all)];
    };
    const auto path = [&](bool isPattern) {
        std::string text;
        for (unsigned i = random() % 4; i > 0; --i)
            text += "/" + (isPattern ? pick("a", "b", "*", "%61") : pick("a", "b", "c", "%61", "%6x", ""));
        if (isPattern && (text.empty() || random() % 3 == 0)) text += "/**";
        return text;
    };
    for (int round = 0; round < 300; ++round) {
        std::string text;
        for (unsigned i = random() % 8; i > 0; --i) {
            text += "[[" + pick("allow", "deny") + "]]\n" + pick("user = 1001", "user = '*'", "group = 2001", "group = 2002") +
                    "\nservice = '" + pick("/s", "/*", "/**") + "'\npath = '" + path(true) + "'\n" +
                    pick("", "command = 'update'\n", "command = ['update', 'delete']\n");
        }
        const auto policy = policyOf(text);
        AccessTable table{policy, someone(1001), "/s", round % 2 == 0};
        for (int question = 0; question < 40; ++question) {
            const std::string asked = path(false);
            const std::string command = pick("update", "delete", "insert");
            std::vector<std::uint32_t> matching = policy->rulesFor(someone(1001), "/s");
            std::erase_if(matching, [&](std::uint32_t index) {
                const Rule& rule = policy->rules[index];
                return !rule.concerns(kelo::commands::toId(command)) || !rule.path.matches(asked);
            });
            ASSERT_EQ(decided(*policy, table.decide(command, asked)), decided(*policy, policy->decide(matching, round % 2 == 0)))
                << text << command << " " << asked;
        }
    }
}

TEST(Policy, FaultsAreNamedWithTheirLines) {
    const struct {
        const char *text, *expected;
    } cases[] = {
        {"audit = 1", "p:1: 'audit' is true or false"},
        {"audit = true\naudit = true", "p:2: "},
        {"audits = true", "p:1: unknown key 'audits'"},
        {"\n[[alow]]\nuser = 1\nservice = \"/s\"", "p:2: unknown key 'alow'"},
        {"[allow]\nuser = 1\nservice = \"/s\"", "p:1: write [[allow]]"},
        {"deny = [1]", "p:1: write [[deny]]"},
        {"allow = []", "p:1: write [[allow]]"},
        {"[[allow]]\nuser = 1", "p:1: the rule names no 'service'"},
        {"[[allow]]\nservice = \"/s\"", "p:1: the rule names no 'user'"},
        {"[[allow]]\nuser = 1\nservice = \"/s\"\nmethod = \"x\"", "p:4: unknown key 'method'"},
        {"[[allow]]\nuser = 1\nservice = \"/s\"\npath.x = \"/y\"", "p:4: 'path' takes a pattern"},
        {"[[allow]]\nuser = 1\npublish = \"/s\"\nservice = \"/s\"", "p:1: 'publish' stands alone"},
        {"[[allow]]\nuser = 1\npublish = \"/s\"\ncommand = \"update\"", "p:1: 'publish' stands alone"},
        {"[[allow]]\nuser = \"nobody-of-this-name\"\nservice = \"/s\"", "p:2: there is no user 'nobody-of-this-name'"},
        {"[[allow]]\nuser = \"\"\nservice = \"/s\"", "p:2: there is no user ''"},
        {"[[allow]]\nuser = \"root\\u0000x\"\nservice = \"/s\"", "p:2: there is no user 'root"},
        {"[[allow]]\nuser = \"1000\"\nservice = \"/s\"", "p:2: there is no user '1000'"},
        {"[[deny]]\ngroup = [\"root\", \"no-such-group\"]\nservice = \"/s\"", "p:2: there is no group 'no-such-group'"},
        {"[[deny]]\ngroup = \"*\"\nservice = \"/s\"", "p:2: there is no group '*'"},
        {"[[allow]]\nuser = -1\nservice = \"/s\"", "p:2: 'user' takes"},
        {"[[allow]]\nuser = 4294967295\nservice = \"/s\"", "p:2: 'user' takes"},
        {"[[allow]]\nuser = 1.0\nservice = \"/s\"", "p:2: 'user' takes"},
        {"[[allow]]\nuser = []\nservice = \"/s\"", "p:2: 'user' is empty"},
        {"[[allow]]\nuser = [[1]]\nservice = \"/s\"", "p:2: 'user' takes"},
        {"[[allow]]\nuser = 1\nservice = \"/s\"\ncommand = \"Update\"", "p:4: there is no command 'Update'"},
        {"[[allow]]\nuser = 1\nservice = \"/s\"\ncommand = [\"update\",\n 7]", "p:5: 'command' takes"},
        {"[[allow]]\nuser = 1\nservice = \"s\"", "p:3: the pattern 's' does not begin with a slash"},
        {"[[allow]]\nuser = 1\nservice = \"/s\"\npath = \"/**/x\"", "p:4: the pattern '/**/x' has '**' before its last part"},
        {"[[allow]]\nuser = 1\nservice = \"/s\"\npath = \"/a*\"", "p:4: the pattern '/a*' has '*' within a part"},
        {"[[allow]]\nuser = 1\nservice = \"/s\"\npath = \"/a//b\"", "p:4: the pattern '/a//b' has an empty part"},
        {"[[allow]]\nuser = 1\nservice = \"/s\"\npath = \"/a/\"", "p:4: the pattern '/a/' has an empty part"},
        {"[[allow]]\nuser = 1\nservice = \"/s\"\npath = \"/%g0\"", "p:4: the pattern '/%g0' has a part with a '%'"},
        {"[[allow]]\nuser = 1\nservice = \"/s\"\nuser = 2", "p:4: "},
        {"[[allow]\nuser = 1", "p:1: "},
        {"[[allow]]\nuser = 1\nservice = \"/s", "p:3: "},
        {"[[allow]]\nuser = 1\nservice = \"/\xff\"", "p:3: "},
        {"user 1", "p:1: "},
        {"[[[deny]]", "p:1: "},
        {"# \xC3\xBC\naudit \xC3\xBC= true", "p:2: has a character that is not ASCII"},
    };
    for (const auto& [text, expected] : cases) {
        Draft draft;
        readPolicyFile("p", text, draft);
        ASSERT_FALSE(draft.faults.empty()) << text;
        EXPECT_TRUE(draft.faults.front().toString().starts_with(expected)) << text << "\n" << draft.faults.front().toString();
        EXPECT_TRUE(draft.policy.rules.empty()) << text;
    }
}

TEST(Policy, ManyRulesAreRefusedBeforeTheyTakeMuchMemory) {
    std::string many;
    for (int i = 0; i < 200; ++i) many += (i == 0 ? "" : ", ") + ("\"/p" + std::to_string(i) + "\"");
    Draft draft;
    readPolicyFile("p", "[[allow]]\nuser = 1\nservice = [" + many + "]\npath = [" + many + "]\n", draft);
    ASSERT_EQ(draft.faults.size(), 1U);
    EXPECT_TRUE(draft.faults.front().text.find("combinations") != std::string::npos);
}

// Comparing each with each would keep all clients of the service waiting for seconds.
TEST(Policy, ManyRulesThatSayTheSameAreDecidedAtOnce) {
    Policy policy = *policyOf("[[allow]]\nuser = '*'\nservice = '/s'\n\n[[deny]]\ngroup = 2001\nservice = '/s'\n");
    policy.rules.resize(kelo::Limits::policyRules - 1, policy.rules[0]);
    policy.rules.push_back(policy.rules[1]);
    const auto begun = std::chrono::steady_clock::now();
    AccessTable table{std::make_shared<const Policy>(policy), someone(1001), "/s", true};
    EXPECT_EQ(decided(policy, table.decide("update", "/x")), "no p:5");
    EXPECT_LT(std::chrono::steady_clock::now() - begun, std::chrono::milliseconds{200});
}

int write(const std::string& file, const std::string& text) {
    return std::ofstream{file} << text ? 0 : 1;
}

// A directory with a policy of two files, of which something is made wrong.
TEST(Policy, WhatOthersCanChangeIsRefusedAsAWhole) {
    using Directory = const std::string&;
    const struct {
        const char* what;
        int (*makeWrong)(Directory);
        const char* expected;  // of the fault; null: there is none
        bool needsRoot = false;
    } cases[] = {
        {"nothing", [](Directory) { return 0; }, nullptr},
        {"a file that is no policy", [](Directory d) { return write(d + "/x.toml.bak", "nonsense"); }, nullptr},
        {"a hidden file", [](Directory d) { return write(d + "/.x.toml", "nonsense"); }, nullptr},
        {"a group may write", [](Directory d) { return ::chmod((d + "/b.toml").c_str(), 0664); },
         "/b.toml: may be written to by others"},
        {"others may write", [](Directory d) { return ::chmod((d + "/b.toml").c_str(), 0646); },
         "/b.toml: may be written to by others"},
        {"a group may add", [](Directory d) { return ::chmod(d.c_str(), 0775); }, ": may be written to by others"},
        {"everybody may add", [](Directory d) { return ::chmod(d.c_str(), 01777); }, ": may be written to by others"},
        {"above, a group may add", [](Directory d) { return ::chmod((d + "/..").c_str(), 0775); },
         ": is not safe: the directory above it may be written to by others and has no sticky bit"},
        {"a link", [](Directory d) { return ::symlink("b.toml", (d + "/c.toml").c_str()); }, "/c.toml: is a symbolic link"},
        {"a directory", [](Directory d) { return ::mkdir((d + "/c.toml").c_str(), 0700); }, "/c.toml: is not a regular file"},
        {"a pipe", [](Directory d) { return ::mkfifo((d + "/c.toml").c_str(), 0600); }, "/c.toml: is not a regular file"},
        {"much", [](Directory d) { return write(d + "/c.toml", std::string(300'000, '#')); }, "/c.toml: is larger than"},
        {"one fault", [](Directory d) { return write(d + "/c.toml", "\nx = 1"); }, "/c.toml:2: unknown key 'x'"},
        {"a contradiction", [](Directory d) { return write(d + "/c.toml", "audit = true"); },
         "/c.toml:1: 'audit' is said differently at "},
        {"somebody else's file", [](Directory d) { return ::chown((d + "/b.toml").c_str(), 1001, 0); },
         "/b.toml: belongs to uid 1001", true},
        {"somebody else's directory", [](Directory d) { return ::chown(d.c_str(), 1001, 0); }, ": belongs to uid 1001", true},
    };
    for (const auto& [what, makeWrong, expected, needsRoot] : cases) {
        if (needsRoot && !testing_support::canBeOthers()) continue;
        const testing_support::TemporaryDirectory above;
        const std::string directory = above / "policy.d";
        ::mkdir(directory.c_str(), 0755);
        std::ofstream{directory + "/a.toml"} << "audit = false\n[[allow]]\nuser = 1001\nservice = '/s'\n";
        std::ofstream{directory + "/b.toml"} << "[[allow]]\nuser = 1002\nservice = '/s'\n";
        ASSERT_EQ(makeWrong(directory), 0) << what;
        const Reading reading = readPolicy(directory);
        if (expected == nullptr) {
            ASSERT_TRUE(reading.faults.empty()) << what << ": " << reading.faults.front().toString();
            EXPECT_TRUE(reading.policy->isInForce);
            EXPECT_EQ(reading.policy->rules.size(), 2U) << what;
        } else {
            EXPECT_EQ(reading.policy, nullptr) << what;
            ASSERT_EQ(reading.faults.size(), 1U) << what;
            EXPECT_TRUE(reading.faults.front().toString().starts_with(directory + expected)) << reading.faults.front().toString();
        }
        EXPECT_EQ(kelo::runtime::viewPolicy(optionsFor(directory)).faults.empty(), expected == nullptr) << what;
    }
    const testing_support::TemporaryDirectory empty;
    EXPECT_FALSE(readPolicy(empty.path()).policy->isInForce);
    EXPECT_FALSE(readPolicy(empty / "none").policy->isInForce);
}

}  // namespace
