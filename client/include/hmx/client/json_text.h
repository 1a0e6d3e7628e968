// A JSON text, read part by part: checked, but made into a tree only where one is wanted.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "hmx/client/document.h"
#include "util/serializer/structured_serializer.h"

namespace hmx::client {

// What cannot be read makes it bad; then everything else it says is empty. Refers to the text. Thread: one at a time.
class JsonText {
public:
    using Type = util::serializer::ValueType;

    explicit JsonText(std::string_view text);
    JsonText(const JsonText&) = delete;
    JsonText& operator=(const JsonText&) = delete;
    ~JsonText();

    // Of the next value.
    Type type() { return isBad_ ? Type::invalid : reader_->peek(); }

    // `each(key)` takes the value of each member of the object that comes next.
    template <class F>
    void members(F&& each) {
        for (note(isBad_ || reader_->beginObject()); !isAtObjectEnd(); note(isBad_ || reader_->endMember())) {
            std::string_view key;
            note(reader_->memberKey(key));
            if (!isBad_) each(std::string{key});
        }
        note(isBad_ || reader_->endObject());
    }
    // `each()` takes each element of the array that comes next.
    template <class F>
    void elements(F&& each) {
        for (note(isBad_ || reader_->beginArray()); !isAtArrayEnd(); note(isBad_ || reader_->endElement())) each();
        note(isBad_ || reader_->endArray());
    }
    // The text of the next value, checked.
    std::string_view value();
    // The text of the next value, which `take()` takes.
    template <class F>
    std::string_view textOf(F&& take) {
        (void)type();  // skips blanks
        const std::size_t begin = reader_->offset();
        take();
        return isBad_ ? std::string_view{} : text_.substr(begin, reader_->offset() - begin);
    }
    Json tree();
    std::string string();
    std::int64_t integer();
    bool boolean();

    // Whether it was read to its end, and is not bad.
    bool isDone();

private:
    void note(bool failed) { isBad_ = isBad_ || failed; }
    bool isAtObjectEnd();
    bool isAtArrayEnd();

    std::string_view text_;
    std::unique_ptr<util::serializer::IStructuredPullDeserializer> reader_;
    bool isBad_ = false;
};

// The tree of a text that was checked. Errors: Error, unreadable.
[[nodiscard]] Json treeOf(std::string_view text);

}  // namespace hmx::client
