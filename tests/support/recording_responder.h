// A responder that records what is sent to the client.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "kelo/resource_handler.h"
#include "kelo/std/error_storage.h"

namespace support {

// What the clients of one or several requests get; outlives their responders.
struct Answers {
    std::vector<std::string> events;  // "next", "error" or "completed" with `describe` of the response, and "gone"
    std::vector<kelo::Response> responses;
    int errorCode = 0;           // the code in the error store at the last error
    bool finishOnNext = false;   // what next returns
    std::function<void()> then;  // called first in every next, if set, as if sending had called another handler

    std::vector<std::string> take() { return std::exchange(events, {}); }
};

// "200 application/json {...} to client-1".
inline std::string describe(const kelo::Response& response) {
    std::string text = std::to_string(response.status());
    const auto add = [&text](std::string_view before, std::string_view part) {
        if (!part.empty()) text.append(before).append(part);
    };
    add(" ", response.getMimeTypeText());
    add(" ", response.payload().text());
    add(" to ", response.clientId());
    return text;
}

class RecordingResponder final : public kelo::IResponder {
public:
    explicit RecordingResponder(Answers& answers) : answers_{answers} {}
    ~RecordingResponder() override { answers_.events.emplace_back("gone"); }
    bool next(const kelo::Response& response) override {
        if (const auto then = std::exchange(answers_.then, nullptr)) then();
        note("next ", response);
        return answers_.finishOnNext;
    }
    void error(const kelo::Response& response) override {
        answers_.errorCode = std::ErrorStorage::current().code;
        note("error ", response);
    }
    void completed() override { answers_.events.emplace_back("completed"); }

private:
    void note(const std::string& event, const kelo::Response& response) {
        answers_.events.push_back(event + describe(response));
        answers_.responses.push_back(response);
    }

    Answers& answers_;
};

inline std::unique_ptr<kelo::IResponder> respondTo(Answers& answers) {
    return std::make_unique<RecordingResponder>(answers);
}

}  // namespace support
