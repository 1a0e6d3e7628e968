#include "request_log.h"

#include <iostream>
#include <nlohmann/json.hpp>

#include "core/documents.h"
#include "kelo/std/error_storage.h"
#include "tracing/channel.h"

namespace hmxsim {

namespace {

using nlohmann::ordered_json;

constexpr std::size_t mostKept = 1000;
constexpr std::size_t mostKeptBytes = 16U << 20U;

const tracing::Channel requestChannel{"HMXSIM_REQUESTS"};

// The body as JSON, whatever it was written in; false when it is no document.
bool asJson(const kelo::Payload& payload, ordered_json& json) {
    util::config::Value value;
    util::ByteBufferWriter buffer;
    const kelo::MimeType jsonType{kelo::mimetypes::MimeTypeID::json};
    if (kelo::readDocument(payload.bytes(), payload.mimeType(), kelo::ResultView::of(value)) ||
        kelo::writeDocument(buffer, jsonType, kelo::BodyView::of(value))) {
        std::ErrorStorage::ack();
        return false;
    }
    json = ordered_json::parse(buffer.bytes().begin(), buffer.bytes().end(), nullptr, false);
    return !json.is_discarded();
}

std::string hex(std::span<const std::uint8_t> bytes) {
    constexpr std::string_view digits = "0123456789abcdef";
    std::string text;
    text.reserve(bytes.size() * 2);
    for (const std::uint8_t byte : bytes) (text += digits[byte >> 4U]) += digits[byte & 15U];
    return text;
}

}  // namespace

bool RequestLog::recordTo(const std::string& file) {
    if (file == "-") {
        out_ = &std::cout;
        return false;
    }
    file_.open(file, std::ios::binary | std::ios::trunc);
    out_ = file_ ? &file_ : nullptr;
    return out_ == nullptr;
}

void RequestLog::add(std::string_view service, const kelo::Request& request, Time arrived) {
    const auto at = std::chrono::duration_cast<std::chrono::milliseconds>(arrived - start_);
    kept_.push_back({++count_, service, at, request});
    keptBytes_ += request.payload().bytes().size();
    if (out_ != nullptr) record(kept_.back());
    while (kept_.size() > mostKept || keptBytes_ > mostKeptBytes) {
        keptBytes_ -= kept_.front().request.payload().bytes().size();
        kept_.pop_front();
    }
}

std::string RequestLog::toJson(std::size_t bytes) const {
    std::deque<std::string> lines;
    // NOLINTNEXTLINE(modernize-loop-convert): backwards
    for (auto entry = kept_.rbegin(); entry != kept_.rend(); ++entry) {
        lines.push_front(lineOf(*entry));
        const std::size_t size = lines.front().size() + 2;
        if (size > bytes) {
            lines.pop_front();
            break;
        }
        bytes -= size;
    }
    std::string text = "[";
    for (const std::string& line : lines) (text += text.size() > 1 ? ",\n" : "") += line;
    return text += "]";
}

std::string RequestLog::lineOf(const Entry& entry) {
    const kelo::Request& request = entry.request;
    ordered_json line;
    line["number"] = entry.number;
    line["at_ms"] = entry.at.count();
    line["service"] = entry.service;
    line["command"] = request.command();
    line["path"] = request.path();
    line["oneShot"] = request.isOneShot();
    line["clientId"] = request.clientId();
    line["accept"] = request.accept();
    line["mimeType"] = request.contentType();
    for (const auto& [key, value] : request.headers().entries()) line["headers"][key] = value;
    line["bytes"] = request.payload().bytes().size();
    if (!request.payload().empty() && !asJson(request.payload(), line["body"])) {
        line.erase("body");
        line["bodyHex"] = hex(request.payload().bytes());
    }
    // A peer's texts need not be UTF-8.
    return line.dump(-1, ' ', false, ordered_json::error_handler_t::replace);
}

void RequestLog::record(const Entry& entry) {
    *out_ << lineOf(entry) << '\n' << std::flush;
    if (*out_) return;
    tracing::logC(requestChannel, 4, "requests are recorded no longer: the file cannot be written");
    out_ = nullptr;
}

}  // namespace hmxsim
