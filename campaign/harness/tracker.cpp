#include "harness/tracker.h"

#include "kelo/request.h"
#include "kelo/response_handler.h"

namespace campaign {
namespace {

using testing_support::Watched;

class Answer final : public kelo::IResponseHandler<kelo::Response> {
public:
    explicit Answer(Watched<Tracker::Books>& books) : books_{books} {}
    bool onNext(const kelo::Response&) override {
        books_.change([](auto& books) { ++books.answered; });
        return true;
    }
    void onError(const kelo::Response& response) override {
        const bool isUnsent = response.reason().find("not sent") != std::string_view::npos;
        books_.change([&](auto& books) { ++(isUnsent ? books.refused : books.lost); });
    }
    void onCompleted() override {}
    bool isOneShot() const override { return true; }

private:
    Watched<Tracker::Books>& books_;
};

}  // namespace

Tracker::Tracker(const std::string& directory, const std::string& servicePath) {
    kelo::runtime::RuntimeOptions options;
    options.directory = directory;
    options.applicationName = "tracker";
    runtime_ = kelo::runtime::createRuntime(options);
    if (!runtime_->start(0)) throw Failure{"a tracker's runtime does not start"};
    runtime_->trackService(servicePath, *this, 0);
}

void Tracker::added(const kelo::runtime::KeloServiceTrackerInfo& info) {
    books.change([&](Books& book) {
        ++book.added;
        if (book.isAlive) ++book.outOfTurn;
        book.isAlive = true;
        book.pid = info.pid;
        book.aliveAt = Clock::now();
    });
    if (resolver_ == kelo::runtime::IKeloRuntime::UNDEFINED_RESOLVER_HANDLE) resolver_ = runtime_->openResolver(info, *this);
}

void Tracker::removed() {
    books.change([](Books& book) {
        ++book.removed;
        if (!book.isAlive) ++book.outOfTurn;
        book.isAlive = false;
    });
}

void Tracker::resolved(std::uint64_t, kelo::IKeloApi* api) {
    books.change([](Books& book) {
        ++book.resolved;
        if (book.resolved != book.gone + 1) ++book.outOfTurn;
    });
    api->request(kelo::Request{"retrieve", "/r/echo"}, std::make_unique<Answer>(books));
}

void Tracker::gone() {
    books.change([](Books& book) {
        ++book.gone;
        if (book.resolved != book.gone) ++book.outOfTurn;
    });
}

}  // namespace campaign
