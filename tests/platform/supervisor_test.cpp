#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/mman.h>

#include <cerrno>
#include <future>
#include <map>

#include "comm/active_object.h"
#include "kelo/func_call_event.h"
#include "kelo/supervisor/kept_state.h"
#include "kelo/supervisor/notifier.h"
#include "kelo/supervisor/watchdog.h"
#include "support/eventually.h"
#include "support/notify_socket.h"
#include "support/temporary_directory.h"

namespace {

using kelo::supervisor::KeptState;
using kelo::supervisor::Notifier;
using kelo::supervisor::Watchdog;
using testing_support::NotifySocket;

// An environment variable that is set for a while.
class Variable {
public:
    Variable(const char* name, const std::string& value) : name_{name} { ::setenv(name, value.c_str(), 1); }
    Variable(const Variable&) = delete;
    Variable& operator=(const Variable&) = delete;
    ~Variable() { ::unsetenv(name_); }

private:
    const char* const name_;
};

TEST(Notifier, SendsToPathsAndAbstractNamesAndNothingWithoutOne) {
    const testing_support::TemporaryDirectory directory;
    for (const std::string& address : {directory / "notify", "@hmx-test-" + std::to_string(::getpid())}) {
        NotifySocket supervisor{address};
        const Variable socket{"NOTIFY_SOCKET", address};
        const Notifier notifier;
        EXPECT_TRUE(notifier.isWanted());
        EXPECT_TRUE(notifier.tell("READY=1\nSTATUS=a"));
        EXPECT_TRUE(notifier.insist("FDSTORE=1", STDIN_FILENO));
        EXPECT_EQ(supervisor.take(), "READY=1\nSTATUS=a");
        EXPECT_TRUE(supervisor.kept.empty());
        EXPECT_EQ(supervisor.take(), "FDSTORE=1");
        EXPECT_EQ(supervisor.kept.size(), 1U);
        while (notifier.tell("WATCHDOG=1")) {
        }
        EXPECT_EQ(errno, EAGAIN) << "a supervisor that is stuck holds nobody up";
    }
    for (const char* useless : {"", "relative", "vsock:2:1"}) {
        const Variable socket{"NOTIFY_SOCKET", useless};
        const Notifier notifier;
        EXPECT_FALSE(notifier.isWanted()) << useless;
        EXPECT_TRUE(notifier.tell("READY=1"));
    }
}

TEST(Watchdog, ShowsLifeOnlyIfEveryWorkerHasAnswered) {
    const testing_support::TemporaryDirectory directory;
    NotifySocket supervisor{directory / "notify"};
    const Variable socket{"NOTIFY_SOCKET", directory / "notify"};
    const Notifier notifier;
    const auto isOff = [&] { return Watchdog{notifier}.turn() == Watchdog::TimePoint::max(); };
    EXPECT_TRUE(isOff());
    EXPECT_TRUE((Variable{"WATCHDOG_USEC", "soon"}, isOff()));
    const Variable interval{"WATCHDOG_USEC", "200000"};
    EXPECT_TRUE((Variable{"WATCHDOG_PID", "1"}, isOff())) << "it is meant for another process";
    const Variable process{"WATCHDOG_PID", std::to_string(::getpid())};
    comm::ActiveObject idle{"idle"};
    comm::ActiveObject stuck{"stuck"};
    Watchdog watchdog{notifier};
    const auto isContent = [&] { return watchdog.turn() - Watchdog::TimePoint::clock::now() > std::chrono::milliseconds{50}; };
    const auto signs = [&] {
        int count = 0;
        while (supervisor.take(0) == "WATCHDOG=1") ++count;
        return count;
    };
    EXPECT_TRUE(isContent()) << "half of the time that is granted";
    EXPECT_EQ(signs(), 1);
    EXPECT_TRUE(testing_support::eventually(isContent));
    EXPECT_EQ(signs(), 1);
    std::promise<void> release;
    kelo::post(stuck, [future = release.get_future().share()] { future.wait(); });
    EXPECT_TRUE(testing_support::eventually(isContent)) << "the question of the last sign was asked before";
    EXPECT_EQ(signs(), 1);
    for (int i = 0; i < 30; ++i) {
        EXPECT_FALSE(isContent());
        std::this_thread::sleep_for(std::chrono::milliseconds{1});
    }
    EXPECT_EQ(signs(), 0);
    release.set_value();
    EXPECT_TRUE(testing_support::eventually(isContent)) << "as soon as it answers";
    EXPECT_EQ(signs(), 1);
}

const KeptState::Form form{.name = "test", .version = 3, .bytes = 2000};

std::UUID idOf(unsigned number) {
    return std::UUID{{static_cast<std::uint8_t>(number)}};
}
std::span<const std::uint8_t> bytesOf(const std::string& text) {
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

// "<number>=<text> " of each record.
std::string contentOf(const KeptState& state) {
    std::string all;
    state.visit([&](const std::UUID& id, std::span<const std::uint8_t> bytes) {
        all += std::to_string(id.bytes()[0]) + "=" + std::string{bytes.begin(), bytes.end()} + " ";
    });
    return all;
}

std::unique_ptr<KeptState> made() {
    std::string why;
    auto state = KeptState::create(form, why);
    EXPECT_NE(state, nullptr) << why;
    return state;
}

// What a process finds that takes the file over now; "-" and the reason if it is refused.
std::string found(int file, const KeptState::Form& expected = form) {
    std::string why;
    const auto state = KeptState::adopt(::dup(file), expected, why);
    return state == nullptr ? "-" + why : contentOf(*state);
}

TEST(KeptState, TheNextProcessFindsWhatWasPutInTheOrderOfTheFirstPut) {
    const auto state = made();
    const struct {
        unsigned id;
        const char* text;  // null: erased
        const char* found;
    } steps[] = {
        {1, "a", "1=a "},
        {2, "b", "1=a 2=b "},
        {1, "longer", "1=longer 2=b "},
        {3, "", "1=longer 2=b 3= "},
        {2, nullptr, "1=longer 3= "},
        {2, "c", "1=longer 3= 2=c "},
        {9, nullptr, "1=longer 3= 2=c "},
        {1, nullptr, "3= 2=c "},
    };
    for (const auto& [id, text, expected] : steps) {
        EXPECT_TRUE(text == nullptr ? state->erase(idOf(id)) : state->put(idOf(id), bytesOf(text)));
        EXPECT_EQ(found(state->descriptor()), expected);
    }
    state->tidy();
    EXPECT_EQ(found(state->descriptor()), "3= 2=c ");
    EXPECT_FALSE(state->put(idOf(4), bytesOf(std::string(2000, 'x')))) << "more than it may hold";
    EXPECT_EQ(errno, ENOSPC);
    // Much more than there is room for, one after the other.
    for (int i = 0; i < 500; ++i) EXPECT_TRUE(state->put(idOf(3), bytesOf(std::string(900, static_cast<char>('a' + i % 26)))));
    EXPECT_EQ(found(state->descriptor()), "3=" + std::string(900, 'f') + " 2=c ");
}

// A process may be killed between any two writes. The file is copied after each of them.
TEST(KeptState, WhateverWriteIsTheLastTheStateIsThatBeforeOrAfterTheCall) {
    const auto state = made();
    for (unsigned id = 0; id < 6; ++id) EXPECT_TRUE(state->put(idOf(id), bytesOf(std::string(100, static_cast<char>('a' + id)))));
    const std::size_t size = static_cast<std::size_t>(::lseek(state->descriptor(), 0, SEEK_END));
    const auto imageOf = [&] {
        std::string image(size, '\0');
        EXPECT_EQ(::pread(state->descriptor(), image.data(), size, 0), static_cast<ssize_t>(size));
        return image;
    };
    const std::function<void()> changes[] = {
        [&] { state->put(idOf(1), bytesOf("changed")); },
        [&] { state->erase(idOf(2)); },
        [&] { state->tidy(); },
        [&] { state->put(idOf(7), bytesOf("after the tidying")); },
    };
    const auto copy = made();
    for (const auto& change : changes) {
        const std::string old = imageOf();
        const std::string before = found(state->descriptor());
        change();
        const std::string now = imageOf();
        const std::string after = found(state->descriptor());
        // Headers are written last, each by one call; of the rest, any part may have been written.
        std::string image = old;
        const auto check = [&](const std::string& expected) {
            ASSERT_EQ(::pwrite(copy->descriptor(), image.data(), size, 0), static_cast<ssize_t>(size));
            ASSERT_EQ(found(copy->descriptor()), expected);
        };
        for (const bool isHeaderToo : {false, true}) {
            for (std::size_t at = 0; at < size; ++at) {
                if (image[at] == now[at] || now[at] == '\0' || (at % (size / 2) < 64 && !isHeaderToo)) continue;
                image[at] = now[at];
                if (!isHeaderToo) check(before);
            }
        }
        check(after);
        EXPECT_EQ(after == before, &change == &changes[2]);
    }
}

TEST(KeptState, WhatIsDamagedOrForeignIsRefusedAsAWhole) {
    const auto state = made();
    for (const char* text : {"first", "second", "third"}) EXPECT_TRUE(state->put(idOf(7), bytesOf(text)));
    EXPECT_TRUE(state->put(idOf(8), bytesOf("fourth")));
    const std::string whole = found(state->descriptor());
    EXPECT_EQ(whole, "7=third 8=fourth ");
    const std::size_t used = 64 + 4 * 32 + 22;
    for (std::size_t at = 0; at < used; ++at) {
        const auto place = static_cast<off_t>(::lseek(state->descriptor(), 0, SEEK_END) / 2) + static_cast<off_t>(at);
        char byte = 0;
        ASSERT_EQ(::pread(state->descriptor(), &byte, 1, place), 1);
        const char other = static_cast<char>(byte ^ 0x10);
        ASSERT_EQ(::pwrite(state->descriptor(), &other, 1, place), 1);
        const bool isPadding = at >= 40 && at < 64;
        EXPECT_EQ(found(state->descriptor()).front() == '-', !isPadding) << at;
        ASSERT_EQ(::pwrite(state->descriptor(), &byte, 1, place), 1);
    }
    EXPECT_EQ(found(state->descriptor()), whole);
    EXPECT_EQ(found(state->descriptor(), {.name = "test", .version = 4, .bytes = 2000}), "-it is of version 3, not 4");
    EXPECT_EQ(found(state->descriptor(), {.name = "test", .version = 3, .bytes = 50}), "-a record is damaged");
    EXPECT_EQ(found(state->descriptor(), {.name = "test", .version = 3, .bytes = 1'000'000}), whole)
        << "a later program may want more";
    EXPECT_EQ(found(STDIN_FILENO), "-it is not a memory file of fixed size");
    const int open = ::memfd_create("open", MFD_CLOEXEC | MFD_ALLOW_SEALING);
    EXPECT_EQ(found(open), "-it is not a memory file of fixed size");
    EXPECT_EQ(::fcntl(open, F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW), 0);
    EXPECT_EQ(found(open), "-it has an impossible size");
    ::close(open);
}

TEST(KeptState, IsHandedToTheSupervisorWhenItIsMade) {
    EXPECT_EQ(KeptState::open(Notifier{}, form), nullptr) << "nobody would keep it";
    const testing_support::TemporaryDirectory directory;
    NotifySocket supervisor{directory / "notify"};
    const Variable socket{"NOTIFY_SOCKET", directory / "notify"};
    const auto state = KeptState::open(Notifier{}, form);
    ASSERT_NE(state, nullptr);
    EXPECT_EQ(supervisor.take(), "FDSTORE=1\nFDNAME=test");
    EXPECT_TRUE(state->put(idOf(1), bytesOf("later")));
    EXPECT_EQ(found(supervisor.kept.at(0).second), "1=later ");
}

}  // namespace
