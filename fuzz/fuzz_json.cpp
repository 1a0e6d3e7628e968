// Any bytes as JSON; an independent parser must come to the same result.
#include <algorithm>

#include "walk.h"

namespace {

enum class Verdict { document, none, undecided };

// Thread: one at a time.
class Judge final : public nlohmann::json_sax<nlohmann::json> {
public:
    // Undecided where the two may differ: a number beyond a double's range, which is valid JSON; more levels than we read; a byte
    // order mark; and a zero byte, which the other parser takes for the end.
    Verdict judge(fuzz::Bytes bytes) {
        if (std::find(bytes.begin(), bytes.end(), 0) != bytes.end()) return Verdict::undecided;
        if (bytes.size() >= 3 && bytes[0] == 0xef && bytes[1] == 0xbb && bytes[2] == 0xbf) return Verdict::undecided;
        const bool isDocument = nlohmann::json::sax_parse(bytes.begin(), bytes.end(), this);
        if (isNumberTooLarge_ || deepest_ > 64) return Verdict::undecided;
        return isDocument ? Verdict::document : Verdict::none;
    }

    bool null() override { return true; }
    bool boolean(bool) override { return true; }
    bool number_integer(number_integer_t) override { return true; }
    bool number_unsigned(number_unsigned_t) override { return true; }
    bool number_float(number_float_t, const string_t&) override { return true; }
    bool string(string_t&) override { return true; }
    bool binary(binary_t&) override { return true; }
    bool start_object(std::size_t) override { return begin(); }
    bool key(string_t&) override { return true; }
    bool end_object() override { return end(); }
    bool start_array(std::size_t) override { return begin(); }
    bool end_array() override { return end(); }
    bool parse_error(std::size_t, const std::string&, const nlohmann::detail::exception& error) override {
        constexpr int numberOverflow = 406;
        isNumberTooLarge_ = error.id == numberOverflow;
        return false;
    }

private:
    bool begin() {
        deepest_ = std::max(deepest_, ++depth_);
        return true;
    }
    bool end() {
        --depth_;
        return true;
    }

    int depth_ = 0;
    int deepest_ = 0;
    bool isNumberTooLarge_ = false;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const bool isDocument = fuzz::walk(fuzz::MimeTypeID::json, {data, size});
    const Verdict verdict = Judge{}.judge({data, size});
    fuzz::require(verdict == Verdict::undecided || isDocument == (verdict == Verdict::document), "another parser agrees");
    return 0;
}
