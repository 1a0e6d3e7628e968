#include "harness/client.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace campaign {

Client::Client(const std::string& socket, std::string_view service) : fd_{connectTo(socket)} {
    if (fd_ < 0) throw Failure{"cannot connect to " + socket + ": " + std::strerror(errno)};
    if (!send(testing_support::helloFrame(service)) || !serveUntil([&] { return greeted_; })) {
        close();
        throw Failure{"no hello from " + socket};
    }
}

void Client::close() {
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
    lost_ = true;
}

bool Client::send(const Bytes& bytes) {
    for (std::size_t sent = 0; sent < bytes.size();) {
        const auto size = ::send(fd_, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (size > 0) {
            sent += static_cast<std::size_t>(size);
        } else if (errno == EAGAIN) {
            pollfd ready{fd_, POLLIN | POLLOUT, 0};
            if (::poll(&ready, 1, 10'000) <= 0) throw Failure{"a peer takes nothing for ten seconds"};
            if ((ready.revents & POLLIN) != 0) take();
        } else if (errno != EINTR) {
            return false;
        }
    }
    return true;
}

std::uint64_t Client::ask(std::string_view command, std::string_view path, bool oneShot, std::string_view payload) {
    const std::uint64_t id = ++last_;
    Asked& asked = asked_[id];
    asked.sentAt = Clock::now();
    asked.oneShot = oneShot;
    ++open_;
    send(testing_support::requestFrame(id, command, path, oneShot, payload));
    return id;
}

void Client::cancel(std::uint64_t id) {
    Asked& asked = asked_.at(id);
    if (!asked.isOver() && !std::exchange(asked.cancelled, true)) --open_;
    send(answerFrame(campaign::cancel, 0, id, 0, {}));
}

void Client::take() {
    if (!reader_.receive(fd_)) lost_ = true;
    while (const auto frame = reader_.take()) {
        if (frame->type == hello) {
            greeted_ = true;
            continue;
        }
        const auto found = asked_.find(frame->id);
        if (found == asked_.end()) {
            ++(frame->id != 0 && frame->id <= forgotten_ ? endedTwice_ : foreign_);
            continue;
        }
        Asked& asked = found->second;
        if (asked.isOver()) ++endedTwice_;
        if (frame->type == next) ++asked.values;
        asked.status = frame->status();
        if (keepsAnswers) asked.answer = frame->payload;
        if (frame->isEnd()) {
            ++asked.ends;
            asked.endedAt = Clock::now();
            if (asked.ends == 1 && !asked.cancelled) --open_;
        }
        if (onAnswer) onAnswer(found->first, asked);
    }
}

bool Client::serveUntil(const std::function<bool()>& done, milliseconds patience) {
    const auto end = Clock::now() + patience;
    while (!done()) {
        if (lost_) return false;
        const auto left = std::chrono::ceil<milliseconds>(end - Clock::now()).count();
        pollfd ready{fd_, POLLIN, 0};
        if (::poll(&ready, 1, static_cast<int>(std::max<decltype(left)>(left, 0))) > 0) take();
        if (left <= 0) return done();
    }
    return true;
}

const Asked& Client::call(std::string_view command, std::string_view path, std::string_view payload, milliseconds patience) {
    const std::uint64_t id = ask(command, path, true, payload);
    const Asked& asked = asked_.at(id);
    serveUntil([&] { return asked.isOver(); }, patience);
    return asked;
}

const std::string& Client::get(std::string_view path, std::string_view payload) {
    const Asked& asked = call("retrieve", path, payload);
    if (!asked.isOver() || asked.status / 100 != 2) {
        throw Failure{"retrieve of " + std::string{path} + ": " +
                      (asked.isOver() ? std::to_string(asked.status) + " " + asked.answer : "no answer")};
    }
    return asked.answer;
}

void Client::forgetEnded() {
    std::erase_if(asked_, [](const auto& entry) { return entry.second.isOver(); });
    forgotten_ = last_;
}

}  // namespace campaign
