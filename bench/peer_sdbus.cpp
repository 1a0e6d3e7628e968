// The bridge's job over D-Bus: a relay between a client and an upstream service on a private bus, all three over sd-bus, with the
// page made by RapidJSON. One program with four roles:
//
//     peer_sdbus broker DIR                        becomes a dbus-broker, with its bus at DIR/bus
//     peer_sdbus upstream|relay DIR
//     peer_sdbus client DIR [KEY=VALUE...]         prints what it measured
//
// The relay has one thread and makes no hand-overs, which is the cheapest way to write it: sd-bus leaves hand-overs to its users.
#include <sys/socket.h>
#include <sys/un.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>

#include "peer_page.h"
#include "traffic.h"

namespace {

constexpr char upstreamName[] = "road.Upstream";
constexpr char relayName[] = "road.Relay";
constexpr char object[] = "/displays";
constexpr char interface[] = "road.List";
constexpr char method[] = "Retrieve";

int must(int result, const char* what) {
    if (result >= 0) return result;
    errno = -result;
    traffic::fail(what);
}

// A connection to the bus in a directory. Thread: one at a time.
class Bus {
public:
    explicit Bus(const std::string& directory) {
        must(::sd_bus_new(&bus_), "sd_bus_new");
        must(::sd_bus_set_address(bus_, ("unix:path=" + directory + "/bus").c_str()), "address");
        must(::sd_bus_set_bus_client(bus_, 1), "bus client");
        must(::sd_bus_start(bus_), "sd_bus_start");
    }
    Bus(const Bus&) = delete;
    Bus& operator=(const Bus&) = delete;
    ~Bus() { ::sd_bus_flush_close_unref(bus_); }

    operator sd_bus*() const noexcept { return bus_; }

    // Handles messages as long as goesOn() is true.
    template <class GoesOn>
    void run(GoesOn goesOn) {
        while (goesOn()) {
            if (must(::sd_bus_process(bus_, nullptr), "sd_bus_process") == 0)
                must(::sd_bus_wait(bus_, UINT64_MAX), "sd_bus_wait");
        }
    }
    // Serves as `name` for ever.
    int serve(const char* name, sd_bus_message_handler_t handler, void* context) {
        must(::sd_bus_add_object(bus_, nullptr, object, handler, context), object);
        must(::sd_bus_request_name(bus_, name, 0), name);
        traffic::sayReady();
        run([] { return true; });
        return 0;
    }

private:
    sd_bus* bus_ = nullptr;
};

bool isRetrieve(sd_bus_message* message) {
    return ::sd_bus_message_is_method_call(message, interface, method) > 0;
}

std::string_view textOf(sd_bus_message* message) {
    if (::sd_bus_message_is_method_error(message, nullptr) > 0) {
        errno = ::sd_bus_message_get_errno(message);
        traffic::fail(::sd_bus_message_get_error(message)->message);
    }
    const char* text = nullptr;
    must(::sd_bus_message_read(message, "s", &text), "read");
    return text;
}

int playUpstream(const std::string& directory) {
    std::string list = traffic::displayList();
    return Bus{directory}.serve(
        upstreamName,
        [](sd_bus_message* call, void* context, sd_bus_error*) {
            return isRetrieve(call) ? ::sd_bus_reply_method_return(call, "s", static_cast<std::string*>(context)->c_str()) : 0;
        },
        &list);
}

struct Relay {
    explicit Relay(const std::string& directory) : bus{directory} {}

    Bus bus;
    peer::PageMaker pages;
};

// A request on its way through the relay.
struct Passage {
    Relay& relay;
    sd_bus_message* call;
};

int answer(sd_bus_message* reply, void* context, sd_bus_error*) {
    const auto* const passage = static_cast<Passage*>(context);
    const int result = ::sd_bus_reply_method_return(passage->call, "s", passage->relay.pages.page(textOf(reply)).data());
    ::sd_bus_message_unref(passage->call);
    delete passage;
    return result;
}

int playRelay(const std::string& directory) {
    Relay relay{directory};
    return relay.bus.serve(
        relayName,
        [](sd_bus_message* call, void* context, sd_bus_error*) {
            if (!isRetrieve(call)) return 0;
            auto& self = *static_cast<Relay*>(context);
            auto* const passage = new Passage{self, ::sd_bus_message_ref(call)};
            return ::sd_bus_call_method_async(self.bus, nullptr, upstreamName, object, interface, method, answer, passage, "s",
                                              textOf(call).data());
        },
        &relay);
}

struct Asked {
    traffic::Book& book;
    std::size_t number;
};

int playClient(const std::string& directory, const traffic::Options& options) {
    traffic::measure(traffic::Load{options}, [&](traffic::Book& book) {
        Bus bus{directory};
        bus.run([&] {
            while (book.mayAsk()) {
                const auto heard = [](sd_bus_message* reply, void* context, sd_bus_error*) {
                    const auto* const asked = static_cast<Asked*>(context);
                    asked->book.answer(asked->number, textOf(reply).size());
                    delete asked;
                    return 0;
                };
                must(::sd_bus_call_method_async(bus, nullptr, relayName, object, interface, method, heard,
                                                new Asked{book, book.ask()}, "s", "application/json"),
                     "call");
            }
            return !book.isFinished();
        });
    });
    return 0;
}

// The policy "everybody may do everything", in the broker's format: by user, by group, by security label.
void appendOpenPolicy(sd_bus_message* message) {
    const std::string batch = "bta(btbs)a(btssssuutt)a(btssssuutt)";
    const std::string user = "u(" + batch + ")";
    const std::string groups = "a(buu(" + batch + "))";
    const std::string policy = "a(" + user + ")" + groups + "a(ss)bs";
    ::sd_bus_message_open_container(message, 'v', ("(" + policy + ")").c_str());
    ::sd_bus_message_open_container(message, 'r', policy.c_str());
    ::sd_bus_message_open_container(message, 'a', ("(" + user + ")").c_str());
    ::sd_bus_message_open_container(message, 'r', user.c_str());
    ::sd_bus_message_append(message, "u", UINT32_MAX);
    ::sd_bus_message_open_container(message, 'r', batch.c_str());
    const std::uint64_t priority = 1;
    const std::uint64_t any = UINT64_MAX;
    const std::uint64_t none = 0;
    ::sd_bus_message_append(message, "bt", 1, priority);
    ::sd_bus_message_append(message, "a(btbs)", 1, 1, priority, 1, "");
    for (int direction = 0; direction < 2; ++direction)
        ::sd_bus_message_append(message, "a(btssssuutt)", 1, 1, priority, "", "", "", "", 0U, 0U, none, any);
    for (int depth = 0; depth < 3; ++depth) ::sd_bus_message_close_container(message);
    ::sd_bus_message_append(message, groups.c_str(), 0);
    ::sd_bus_message_append(message, "a(ss)bs", 0, 0, "session");
    for (int depth = 0; depth < 2; ++depth) must(::sd_bus_message_close_container(message), "policy");
}

// Passes the listening socket to the broker and stays connected until the broker ends.
int control(int fd, int listener) {
    sd_bus* bus = nullptr;
    sd_bus_message* call = nullptr;
    must(::sd_bus_new(&bus), "sd_bus_new");
    must(::sd_bus_set_fd(bus, fd, fd), "controller");
    must(::sd_bus_start(bus), "controller");
    must(::sd_bus_message_new_method_call(bus, &call, nullptr, "/org/bus1/DBus/Broker", "org.bus1.DBus.Broker", "AddListener"),
         "AddListener");
    must(::sd_bus_message_append(call, "oh", "/org/bus1/DBus/Listener/0", listener), "AddListener");
    appendOpenPolicy(call);
    must(::sd_bus_call(bus, call, 0, nullptr, nullptr), "AddListener");
    traffic::sayReady();
    while (::sd_bus_wait(bus, UINT64_MAX) >= 0 && ::sd_bus_process(bus, nullptr) >= 0) {
    }
    return 0;
}

int becomeBroker(const std::string& directory) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::snprintf(address.sun_path, sizeof address.sun_path, "%s/bus", directory.c_str());
    const int listener = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (::bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 || ::listen(listener, 64) != 0)
        traffic::fail(address.sun_path);
    int pair[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM, 0, pair) != 0) traffic::fail("socketpair");
    const pid_t child = ::fork();
    if (child < 0) traffic::fail("fork");
    if (child == 0) {
        ::close(pair[0]);
        return control(pair[1], listener);
    }
    ::close(pair[1]);
    const std::string controller = std::to_string(pair[0]);
    const std::string machine(32, '0');
    ::execlp("dbus-broker", "dbus-broker", "--controller", controller.c_str(), "--machine-id", machine.c_str(), "--max-bytes",
             "100000000", "--max-fds", "10000", "--max-matches", "100000", "--max-objects", "1000000", nullptr);
    traffic::fail("dbus-broker");
}

}  // namespace

int main(int argc, char** argv) {
    const std::string_view role = argc > 2 ? argv[1] : "";
    if (role == "broker") return becomeBroker(argv[2]);
    if (role == "upstream") return playUpstream(argv[2]);
    if (role == "relay") return playRelay(argv[2]);
    if (role == "client") return playClient(argv[2], traffic::Options{{argv + 3, argv + argc}});
    std::fprintf(stderr, "usage: peer_sdbus broker|upstream|relay DIR | client DIR [KEY=VALUE...]\n");
    return 2;
}
