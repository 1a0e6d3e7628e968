#include "drivers/drivers.h"

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "harness/questions.h"
#include "harness/scripted_provider.h"
#include "harness/stage.h"

// Three users: root, the owner of the services, and a stranger. Who may connect, and who is trusted as a provider, is tested in a
// directory where the file system allows everybody everything that a sticky directory allows, with sockets that are open to all.
// So only what the kernel says about a peer makes a difference.

namespace campaign {
namespace {

namespace fs = std::filesystem;

constexpr uid_t owner = 61'001;
constexpr uid_t stranger = 61'002;

void own(const std::string& path, uid_t uid, mode_t mode) {
    if (::chown(path.c_str(), uid, uid) != 0 || ::chmod(path.c_str(), mode) != 0) throw Failure{"cannot give away " + path};
}

// A stage that every user can reach and, if `sticky`, publish in.
class OpenStage {
public:
    OpenStage(const Scope& scope, uid_t uid, bool sticky) : stage{scope}, scope_{scope} {
        own(stage.folder(), 0, 01777);
        own(stage.folder() + "/run", uid, 0755);
        own(stage.domain(), uid, sticky ? 01777 : 0755);
    }
    std::unique_ptr<Process> start(const std::string& program, uid_t uid, std::vector<std::string> arguments = {}) const {
        arguments.insert(arguments.begin(), scope_.programs + "/" + program);
        return stage.start(std::move(arguments), {}, program + std::to_string(uid) + ".log", uid);
    }
    void openSockets() const {
        for (const auto& entry : fs::directory_iterator{stage.domain()}) {
            if (entry.path().extension() == ".sock") ::chmod(entry.path().c_str(), 0666);
        }
    }

    const Stage stage;

private:
    const Scope& scope_;
};

// Whether a client of that user is answered. It uses a socket directly, because our own programs do not even try in a directory
// that belongs to somebody else.
bool isServed(const OpenStage& open, uid_t uid) {
    const auto client = open.start("hmxcampaign", uid, {"--ask", open.stage.socket("/hmx")});
    return client->waitForEnd(8000) && client->status() == 0;
}

struct Tally {
    unsigned asked = 0;
    unsigned wrong = 0;
    Report* report;

    void expect(bool is, bool should, const std::string& what) {
        ++asked;
        if (is == should) return;
        ++wrong;
        report->note(what + (is ? ": yes" : ": no"));
    }
};

std::string nameOf(uid_t uid) {
    return uid == 0 ? "root" : uid == owner ? "owner" : "stranger";
}

void whoMayConnect(const Scope& scope, Tally& tally) {
    for (const uid_t provider : {uid_t{0}, owner}) {
        const OpenStage open{scope, provider, false};
        const auto sim = open.start("hmxsim", provider);
        const auto bridge = open.start("hmxtolubridge", provider);
        if (!eventually([&] { return fs::exists(open.stage.socket("/hmx")); })) throw Failure{"no bridge:\n" + open.stage.log()};
        open.openSockets();
        for (const uid_t client : {uid_t{0}, owner, stranger}) {
            const bool should = client == 0 || client == provider;
            tally.expect(isServed(open, client), should, nameOf(client) + " is served by " + nameOf(provider));
        }
        const double refused = Stage::counter(open.stage.status(), "peersRefused");
        tally.expect(refused >= 1, true, "refusals are counted");
    }
}

bool isAlive(const OpenStage& open, std::string_view path) {
    try {
        const auto status = open.stage.status();
        for (const auto& tracked : status.at("tracked")) {
            if (tracked.at("path") == path) return tracked.at("alive");
        }
    } catch (const Failure&) {
    }
    return false;
}

// For each user, a provider of the popup manager's path, started before a bridge of each user: is it trusted?
void whoIsTrusted(const Scope& scope, Tally& tally) {
    const std::string path = "/hmxpopupmanager";
    for (const uid_t bridgeUid : {uid_t{0}, owner}) {
        for (const uid_t squatter : {uid_t{0}, owner, stranger}) {
            const OpenStage open{scope, bridgeUid, true};
            const auto sim = open.start("hmxsim", bridgeUid, {"displaymanager", "inputmanager"});
            if (!eventually([&] { return fs::exists(open.stage.socket("/hmxinputmanager")); })) throw Failure{"no simulator"};
            const auto pose = open.start("hmxcampaign", squatter, {"--pose", open.stage.socket(path)});
            if (!eventually([&] { return fs::exists(open.stage.socket(path)); }))
                throw Failure{"no squatter:\n" + open.stage.log()};
            open.openSockets();
            const auto bridge = open.start("hmxtolubridge", bridgeUid);
            const bool should = squatter == 0 || squatter == bridgeUid;
            // A bridge that trusts the provider publishes; otherwise it waits for the right one.
            const bool trusts = eventually([&] { return isAlive(open, path); }, milliseconds{should ? 8000 : 1500});
            tally.expect(trusts, should, nameOf(bridgeUid) + "'s bridge trusts " + nameOf(squatter));
            if (should) continue;
            pose->kill();
            fs::remove(open.stage.socket(path));
            const auto right = open.start("hmxsim", bridgeUid, {"popupmanager"});
            tally.expect(eventually([&] { return isAlive(open, path); }), true,
                         "the right one is found once the squatter is gone");
        }
    }
}

// While a bridge works, what is at a service's name is replaced. The bridge must not trust any of the replacements, and must find
// the right provider again.
void whatIsReplaced(const Scope& scope, Tally& tally) {
    const OpenStage open{scope, owner, false};
    auto sim = open.start("hmxsim", owner);
    const auto bridge = open.start("hmxtolubridge", owner);
    if (!eventually([&] { return fs::exists(open.stage.socket("/hmx")); })) throw Failure{"no bridge"};
    const std::string socket = open.stage.socket("/hmxpopupmanager");
    // A stranger's provider in another directory, which answers everything.
    const OpenStage elsewhere{scope, stranger, true};
    const auto strange = elsewhere.start("hmxsim", stranger);
    if (!eventually([&] { return fs::exists(elsewhere.stage.socket("/hmxpopupmanager")); })) throw Failure{"no stranger"};
    elsewhere.openSockets();
    const std::pair<const char*, std::function<void()>> replacements[] = {
        {"a link to a stranger's socket", [&] { fs::create_symlink(elsewhere.stage.socket("/hmxpopupmanager"), socket); }},
        {"a link to another service", [&] { fs::create_symlink(open.stage.socket("/hmxdisplaymanager"), socket); }},
        {"a link to nothing", [&] { fs::create_symlink("/nonexistent/socket", socket); }},
        {"a file", [&] { ::close(::open(socket.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600)); }},
        {"a directory", [&] { fs::create_directory(socket); }},
        {"a bound name that nobody listens at",
         [&] { std::ignore = ::rename(open.stage.socket("/hmxsim").c_str(), socket.c_str()); }},
    };
    for (const auto& [what, replace] : replacements) {
        sim->kill();
        if (!eventually([&] { return !isAlive(open, "/hmxpopupmanager"); })) throw Failure{"a killed service lives"};
        fs::remove_all(socket);
        replace();
        std::this_thread::sleep_for(milliseconds{100});
        tally.expect(isAlive(open, "/hmxpopupmanager"), false, std::string{"the bridge trusts "} + what);
        fs::remove_all(socket);
        sim = open.start("hmxsim", owner);
        tally.expect(eventually([&] { return isAlive(open, "/hmxpopupmanager"); }), true,
                     std::string{"found again after "} + what);
    }
}

// Nothing that a peer says may change who it is.
void whatIsClaimed(const Scope& scope, Tally& tally) {
    const OpenStage open{scope, owner, false};
    const auto sim = open.start("hmxsim", owner);
    const auto bridge = open.start("hmxtolubridge", owner);
    if (!eventually([&] { return fs::exists(open.stage.socket("/hmx")); })) throw Failure{"no bridge"};
    const auto status = open.stage.status();
    for (const auto& tracked : status.at("tracked")) {
        tally.expect(tracked.at("uid") == owner && tracked.at("pid") == sim->pid(), true, "a provider is who the kernel says");
    }
    // A provider that makes claims about itself that only the kernel can know.
    {
        const Stage other{scope};
        const auto helloAndMore = [] {
            Bytes body;
            testing_support::appendCborHead(body, 5, 6);
            for (const auto& [key, value] : {std::pair{"$application", "hmxsim"}, std::pair{"$mime-types", "application/json"}}) {
                testing_support::appendCborText(body, key);
                testing_support::appendCborText(body, value);
            }
            for (const auto& [key, value] :
                 {std::pair{"$version", 1U}, std::pair{"$uid", 4242U}, std::pair{"$pid", 1U}, std::pair{"uid", 7U}}) {
                testing_support::appendCborText(body, key);
                testing_support::appendCborHead(body, 0, value);
            }
            return testing_support::frame(hello, 0, 0, body);
        };
        const ScriptedProvider display{other.socket("/hmxdisplaymanager"), [](const Frame&, const ScriptedProvider::Send&) {},
                                       helloAndMore()};
        const auto others = other.startSim({"inputmanager", "popupmanager"});
        const auto otherBridge = other.startBridge();
        nlohmann::json claimed;
        const bool found = eventually([&] {
            try {
                claimed = other.status().at("tracked").at(0);
                return claimed.at("alive").get<bool>();
            } catch (const std::exception&) {
                return false;
            }
        });
        tally.expect(found && claimed.at("uid") == ::geteuid() && claimed.at("pid") == ::getpid(), true,
                     "a provider that claims another identity is who the kernel says");
    }
}

void whatIsUnsafe(const Scope& scope, Tally& tally) {
    const Stage stage{scope};
    const auto path = [&](const char* name) { return stage.folder() + "/" + name; };
    const auto make = [&](const std::string& at, uid_t uid, mode_t mode) {
        fs::create_directories(at);
        own(at, uid, mode);
    };
    struct Layout {
        std::string name;  // of the KELO_RUNTIME_DIR, whose "local" is the domain
        std::function<void()> make;
        const char* reason;  // empty: the directory is safe
    };
    const std::vector<Layout> layouts{
        {"link",
         [&] {
             fs::create_directories(path("target"));
             fs::create_directory(path("link"));
             fs::create_symlink(path("target"), path("link/local"));
         },
         "is a symbolic link"},
        {"dangling",
         [&] {
             fs::create_directory(path("dangling"));
             fs::create_symlink("/nonexistent", path("dangling/local"));
         },
         "is a symbolic link"},
        {"all", [&] { make(path("all/local"), 0, 0777); }, "may be written to by others"},
        {"group", [&] { make(path("group/local"), 0, 0770); }, "may be written to by others"},
        {"foreign", [&] { make(path("foreign/local"), stranger, 0700); }, "belongs to uid 61002"},
        {"above",
         [&] {
             make(path("above/local"), 0, 0700);
             own(path("above"), 0, 0777);
         },
         "the directory above"},
        {"foreign-above",
         [&] {
             make(path("foreign-above/local"), 0, 0700);
             own(path("foreign-above"), stranger, 0755);
         },
         "the directory above"},
        {"file",
         [&] {
             fs::create_directory(path("file"));
             ::close(::open(path("file/local").c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600));
         },
         "Not a directory"},
        {"sticky", [&] { make(path("sticky/local"), 0, 01777); }, ""},
        {"fresh", [] {}, ""},
    };
    std::vector<std::unique_ptr<Process>> bridges;
    for (const Layout& layout : layouts) {
        layout.make();
        bridges.push_back(stage.start({scope.programs + "/hmxtolubridge"}, {"KELO_RUNTIME_DIR=" + path(layout.name.c_str())},
                                      layout.name + ".log"));
    }
    for (std::size_t i = 0; i < layouts.size(); ++i) {
        const bool isSafe = layouts[i].reason[0] == '\0';
        const bool ended = bridges[i]->waitForEnd(isSafe ? 100 : 5000);
        tally.expect(ended, !isSafe, "the directory \"" + layouts[i].name + "\" is refused");
        if (!isSafe) {
            const bool isSaid =
                Stage::read(stage.folder() + "/" + layouts[i].name + ".log").find(layouts[i].reason) != std::string::npos;
            tally.expect(isSaid, true, "the reason is given for \"" + layouts[i].name + "\"");
        }
    }
}

}  // namespace

void driveIdentity(const Scope& scope, Random& /*random*/, Report& report) {
    Tally tally{.report = &report};
    if (::geteuid() != 0) {
        report.broken("needs root, to be somebody else");
        return;
    }
    whoMayConnect(scope, tally);
    whoIsTrusted(scope, tally);
    whatIsReplaced(scope, tally);
    whatIsClaimed(scope, tally);
    whatIsUnsafe(scope, tally);
    report.fact("questions", tally.asked);
    report.atMost("answered wrongly", tally.wrong, 0);
}

}  // namespace campaign
