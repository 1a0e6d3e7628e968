#include "traffic.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <thread>

namespace traffic {

void fail(const std::string& what) {
    std::fprintf(stderr, "%s: %s: %s\n", program_invocation_short_name, what.c_str(), std::strerror(errno));
    std::exit(1);
}

void sayReady() {
    std::puts("ready");
    std::fflush(stdout);
}

Options::Options(std::span<char*> arguments) {
    for (const std::string argument : arguments) {
        const auto end = argument.find('=');
        if (end == std::string::npos) {
            errno = EINVAL;
            fail(argument);
        }
        values_[argument.substr(0, end)] = argument.substr(end + 1);
    }
}

std::string Options::text(std::string_view key, std::string_view otherwise) const {
    const auto found = values_.find(key);
    return found == values_.end() ? std::string{otherwise} : found->second;
}

std::size_t Options::number(std::string_view key, std::size_t otherwise) const {
    const auto found = values_.find(key);
    return found == values_.end() ? otherwise : std::stoul(found->second);
}

std::string displayList() {
    std::string list = R"({"infoForAllDisplays":[)";
    const char* const names[] = {"Driver_Display", "Co_Driver_Display", "Cluster_Display", "Lower_Display"};
    for (int i = 0; i < 4; ++i) {
        if (i > 0) list += ',';
        list += R"({"id":)" + std::to_string(i + 1) + R"(,"internalid":)" + std::to_string(i + 100) + R"(,"name":")" + names[i] +
                R"(","touchSupport":true,"terminal":)" + std::to_string(i) +
                R"(,"compositing":true,"resolution":{"width":1920,"height":720},"updateRate":60,"connector":"DP-)" +
                std::to_string(i + 1) + "\"}";
    }
    return list + "]}";
}

Load::Load(const Options& options)
    : count{options.number("count", 1)},
      warmUp{options.number("warm_up", 0)},
      inFlight{options.number("in_flight", 1)},
      clients{options.number("clients", 1)} {}

Book::Book(const Load& load) : load_{load}, total_{load.count + load.warmUp}, begin_(total_ + 1) {
    nanoseconds_.reserve(load.count);
}

std::size_t Book::ask(Clock::time_point due) {
    begin_[++asked_] = due;
    return asked_;
}

void Book::answer(std::size_t number, std::size_t bytes, Clock::time_point now) {
    if (++answered_ > load_.warmUp) nanoseconds_.push_back((now - begin_.at(number)).count());
    bytes_ = bytes;
}

double microsecondsAt(std::vector<std::int64_t>& nanoseconds, double share) {
    std::sort(nanoseconds.begin(), nanoseconds.end());
    return static_cast<double>(nanoseconds.at(static_cast<std::size_t>(share * static_cast<double>(nanoseconds.size() - 1)))) /
           1000.0;
}

void measure(const Load& load, const std::function<void(Book&)>& client) {
    const auto cpuSeconds = [] {
        timespec time{};
        ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
    };
    std::vector<Book> books(load.clients, Book{load});
    std::vector<std::thread> threads;
    const double cpuBefore = cpuSeconds();
    const auto begin = Clock::now();
    for (std::size_t i = 1; i < books.size(); ++i) threads.emplace_back([&, i] { client(books[i]); });
    client(books[0]);
    for (auto& thread : threads) thread.join();
    const double seconds = std::chrono::duration<double>(Clock::now() - begin).count();
    const double cpu = cpuSeconds() - cpuBefore;

    std::vector<std::int64_t> all;
    for (const Book& book : books) all.insert(all.end(), book.nanoseconds_.begin(), book.nanoseconds_.end());
    const auto requests = static_cast<double>((load.count + load.warmUp) * load.clients);
    std::printf(R"({"p50_us":%.2f,"p99_us":%.2f,"per_second":%.0f,"cpu_us":%.3f,"answer_bytes":%zu,"requests":%.0f})"
                "\n",
                microsecondsAt(all, 0.5), microsecondsAt(all, 0.99), requests / seconds, cpu / requests * 1e6, books[0].bytes_,
                requests);
}

}  // namespace traffic
