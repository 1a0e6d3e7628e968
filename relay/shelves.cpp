#include "shelves.h"

#include <utility>

#include "hmx/client/document.h"
#include "names.h"

namespace hmxrelay {
namespace {

template <class Element>
class ElementShelf final : public Shelf {
public:
    explicit ElementShelf(hmx::replica::Resource<Element>& resource) : resource_{resource} {}

    std::shared_ptr<void> read(const kelo::Payload& document) const override {
        return std::make_shared<Element>(hmx::client::recordOf<Element>(document));
    }
    void set(const std::string& part, const std::vector<std::shared_ptr<void>>& elements) override {
        typename hmx::replica::Resource<Element>::Elements typed;
        typed.reserve(elements.size());
        for (const auto& element : elements) typed.push_back(std::static_pointer_cast<Element>(element));
        resource_.set(part, std::move(typed));
    }
    void lose(const std::string& part, const kelo::Response& why) override { resource_.lose(part, why); }
    void remove(const std::string& part) override { resource_.remove(part); }

private:
    hmx::replica::Resource<Element>& resource_;
};

// Its only element of each part is the answer itself.
class AnswerShelf final : public Shelf {
public:
    explicit AnswerShelf(UpstreamAnswers& answers) : answers_{answers} {}

    std::shared_ptr<void> read(const kelo::Payload& document) const override { return std::make_shared<kelo::Payload>(document); }
    void set(const std::string& part, const std::vector<std::shared_ptr<void>>& elements) override {
        if (!elements.empty()) answers_.set(part, *std::static_pointer_cast<kelo::Payload>(elements.front()));
    }
    void lose(const std::string& part, const kelo::Response& why) override { answers_.lose(part, why); }
    void remove(const std::string& part) override { answers_.remove(part); }

private:
    UpstreamAnswers& answers_;
};

template <class Element>
std::unique_ptr<Shelf> shelfOf(hmx::replica::Resource<Element>& resource) {
    return std::make_unique<ElementShelf<Element>>(resource);
}

}  // namespace

Shelves::Shelves(kelo::IResourceHandler& changes) : replica_{changes} {
    shelves_.emplace("displays", shelfOf(replica_.displays()));
    shelves_.emplace("displayables", shelfOf(replica_.displayables()));
    shelves_.emplace("layerconfigurations", shelfOf(replica_.layerconfigurations()));
    shelves_.emplace("popups", shelfOf(replica_.popups()));
    shelves_.emplace(regions, shelfOf(replica_.regionconfigurations()));
    shelves_.emplace(inputManager, std::make_unique<AnswerShelf>(inputManager_));
    shelves_.emplace(displayManager, std::make_unique<AnswerShelf>(displayManager_));
}

Shelf* Shelves::find(std::string_view resource) noexcept {
    const auto found = shelves_.find(resource);
    return found == shelves_.end() ? nullptr : found->second.get();
}

}  // namespace hmxrelay
