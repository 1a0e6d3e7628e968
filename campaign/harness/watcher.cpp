#include "harness/watcher.h"

#include <fstream>
#include <utility>

namespace campaign {

Elements elementsOf(const Json& list, bool& distinct) {
    Elements elements;
    distinct = true;
    for (const Json& element : list) distinct = elements.emplace(element.at("id").get<std::string>(), element).second && distinct;
    return elements;
}

RawWatcher::RawWatcher(const Stage& stage, std::string path, std::string payload)
    : stage_{stage}, path_{std::move(path)}, payload_{std::move(payload)} {}

void RawWatcher::serve() {
    if (!client_ || client_->isLost()) {
        id_ = 0;
        state_.reset();
        client_.reset();
        try {
            client_ = std::make_unique<Client>(stage_.socket("/hmx"));
        } catch (const Failure&) {
            return;
        }
        client_->onAnswer = [this](std::uint64_t id, const Asked& asked) {
            if (id != id_ || asked.isOver()) return;
            ++values_;
            if (asked.values > 1 && asked.answer == last_) ++repeats_;
            last_ = asked.answer;
            bool distinct = false;
            state_ = elementsOf(Json::parse(asked.answer).at("data"), distinct);
            if (!distinct) ++duplicates_;
        };
    }
    client_->serveUntil([] { return false; }, milliseconds{0});
    if (id_ != 0 && client_->at(id_).isOver()) {
        id_ = 0;
        state_.reset();
        client_->forgetEnded();
        nextTry_ = Clock::now() + milliseconds{5};
    }
    if (id_ == 0 && Clock::now() >= nextTry_) id_ = client_->ask("retrieve", path_, false, payload_);
}

ProgramWatcher::ProgramWatcher(const Stage& stage, std::string name, std::vector<std::string> arguments)
    : stage_{stage}, name_{std::move(name)}, arguments_{std::move(arguments)} {
    start();
}

void ProgramWatcher::start() {
    ++generation_;
    read_ = 0;
    isDown_ = false;
    state_.reset();
    process_ = stage_.start(arguments_, {"KELO_TRACE=*=5"}, name_ + std::to_string(generation_) + ".out");
}

void ProgramWatcher::restart() {
    process_->kill();
    start();
}

void ProgramWatcher::serve() {
    std::ifstream in{stage_.folder() + "/" + name_ + std::to_string(generation_) + ".out"};
    in.seekg(static_cast<std::streamoff>(read_));
    for (std::string line; std::getline(in, line) && !in.eof();) {
        read_ += line.size() + 1;
        apply(Json::parse(line));
    }
}

void ProgramWatcher::apply(const Json& event) {
    ++events_;
    const std::string kind = event.at("event");
    if (kind == "source-down") {
        if (std::exchange(isDown_, true)) ++outOfTurn_;
        state_.reset();
    } else if (kind == "source-up") {
        if (!std::exchange(isDown_, false)) ++outOfTurn_;
    } else if (kind == "snapshot") {
        if (isDown_ || state_) ++outOfTurn_;
        bool distinct = false;
        state_ = elementsOf(event.at("elements"), distinct);
        if (!distinct) ++duplicates_;
    } else if (isDown_ || !state_) {
        ++outOfTurn_;
    } else if (kind == "removed") {
        if (state_->erase(event.at("id")) == 0) ++duplicates_;
    } else {
        Json& element = (*state_)[event.at("id")];
        if (element == event.at("element")) ++duplicates_;
        element = event.at("element");
    }
}

}  // namespace campaign
