// The bridge's job over gRPC: a relay between a client and an upstream service over Unix sockets, all three with the callback
// interface, with the page made by RapidJSON. One program with three roles:
//
//     peer_grpc upstream|relay DIR
//     peer_grpc client DIR [KEY=VALUE...]          prints what it measured
#include <grpcpp/grpcpp.h>

#include <condition_variable>
#include <cstdio>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

#include "peer.grpc.pb.h"
#include "peer_page.h"
#include "traffic.h"

namespace {

using grpc::Status;

std::unique_ptr<peer::List::Stub> stubOf(const std::string& directory, const char* service) {
    grpc::ChannelArguments own;
    own.SetInt(GRPC_ARG_USE_LOCAL_SUBCHANNEL_POOL, 1);  // one connection for each stub
    return peer::List::NewStub(
        grpc::CreateCustomChannel("unix:" + directory + "/" + service, grpc::InsecureChannelCredentials(), own));
}

int serve(const std::string& directory, const char* service, peer::List::CallbackService& list) {
    grpc::ServerBuilder builder;
    builder.AddListeningPort("unix:" + directory + "/" + service, grpc::InsecureServerCredentials());
    builder.RegisterService(&list);
    const auto server = builder.BuildAndStart();
    if (!server) traffic::fail(service);
    traffic::sayReady();
    server->Wait();
    return 0;
}

class Upstream final : public peer::List::CallbackService {
    grpc::ServerUnaryReactor* Retrieve(grpc::CallbackServerContext* context, const peer::Question*,
                                       peer::Answer* answer) override {
        answer->set_document(list_);
        auto* const reactor = context->DefaultReactor();
        reactor->Finish(Status::OK);
        return reactor;
    }

    const std::string list_ = traffic::displayList();
};

class Relay final : public peer::List::CallbackService {
public:
    explicit Relay(const std::string& directory) : upstream_{stubOf(directory, "upstream")} {}

private:
    // A request on its way through the relay.
    struct Passage {
        grpc::ClientContext context;
        peer::Question question;
        peer::Answer answer;
    };

    grpc::ServerUnaryReactor* Retrieve(grpc::CallbackServerContext* context, const peer::Question* question,
                                       peer::Answer* answer) override {
        auto* const reactor = context->DefaultReactor();
        const auto passage = std::make_shared<Passage>();
        passage->question = *question;
        upstream_->async()->Retrieve(&passage->context, &passage->question, &passage->answer,
                                     [passage, answer, reactor](const Status& status) {
                                         thread_local peer::PageMaker pages;
                                         if (status.ok())
                                             answer->set_document(std::string{pages.page(passage->answer.document())});
                                         reactor->Finish(status);
                                     });
        return reactor;
    }

    const std::unique_ptr<peer::List::Stub> upstream_;
};

// One client. Its book is guarded by a lock, because answers come on gRPC's threads.
class Client {
public:
    Client(const std::string& directory, traffic::Book& book) : stub_{stubOf(directory, "relay")}, book_{book} {}

    void run() {
        std::unique_lock lock{mutex_};
        while (!book_.isFinished()) {
            while (book_.mayAsk()) ask(book_.ask());
            changed_.wait(lock, [this] { return book_.mayAsk() || book_.isFinished(); });
        }
    }

private:
    struct Call {
        grpc::ClientContext context;
        peer::Question question;
        peer::Answer answer;
    };

    void ask(std::size_t number) {
        const auto call = std::make_shared<Call>();
        call->context.set_wait_for_ready(true);
        call->question.set_path("/displays");
        call->question.set_mime_type("application/json");
        stub_->async()->Retrieve(&call->context, &call->question, &call->answer, [this, call, number](const Status& status) {
            if (!status.ok()) traffic::fail(status.error_message());
            const std::lock_guard lock{mutex_};
            book_.answer(number, call->answer.document().size());
            changed_.notify_one();
        });
    }

    const std::unique_ptr<peer::List::Stub> stub_;
    std::mutex mutex_;
    std::condition_variable changed_;
    traffic::Book& book_;
};

}  // namespace

int main(int argc, char** argv) {
    const std::string_view role = argc > 2 ? argv[1] : "";
    if (role == "upstream") {
        Upstream upstream;
        return serve(argv[2], "upstream", upstream);
    }
    if (role == "relay") {
        Relay relay{argv[2]};
        return serve(argv[2], "relay", relay);
    }
    if (role == "client") {
        traffic::measure(traffic::Load{traffic::Options{{argv + 3, argv + argc}}}, [&](traffic::Book& book) {
            Client{argv[2], book}.run();
        });
        return 0;
    }
    std::fprintf(stderr, "usage: peer_grpc upstream|relay DIR | client DIR [KEY=VALUE...]\n");
    return 2;
}
