// World files hold what the upstream services say, in their own records, and the conversion into elements of /hmx is the
// bridge's. So they are compared as upstream documents, which the running system and recordings with --upstream have, too.

#include "sides.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <future>
#include <optional>

#include "hmx/client/elements.h"
#include "hmx/recording/moment.h"
#include "hmx/recording/reader.h"
#include "hmx/recording/recorder.h"
#include "hmx/recording/times.h"
#include "input_manager.h"
#include "kelo/path.h"
#include "managers.h"
#include "text.h"
#include "world_file.h"

namespace hmxctl {
namespace {

using hmx::recording::Entry;
using hmx::recording::EntryKind;
using hmx::recording::Moment;
using hmx::recording::Reader;
using hmx::recording::Source;
using hmxsim::ManagerId;

// What a word of the command line names. Thread: any (a value).
struct Named {
    std::string word;
    std::string file{};  // "": the running system
    std::string time{};  // of the recording; "": none was given
    bool isWorld = false;
};

bool exists(const std::string& file) {
    std::error_code ignored;
    return file == "-" || std::filesystem::exists(file, ignored);
}

// Recordings begin with a head or, if it was lost, with an entry; both are one line.
bool isRecording(const std::string& file) {
    std::ifstream stream{file};
    std::string begin(64, '\0');
    stream.read(begin.data(), static_cast<std::streamsize>(begin.size()));
    std::erase_if(begin, [](char c) { return c == ' ' || c == '\t'; });
    return begin.starts_with("{\"recording\"") || begin.starts_with("{\"t\"");
}

Named named(const std::string& word) {
    if (word == "live") return {.word = word};
    Named named{.word = word, .file = word};
    const std::size_t at = word.rfind('@');
    if (!exists(word) && at != std::string::npos && exists(word.substr(0, at))) {
        named.file = word.substr(0, at);
        named.time = word.substr(at + 1);
    }
    if (!exists(named.file))
        throw usageError("diff: there is no file " + named.file, "A and B are recordings, world files, or live");
    if (named.file != "-") named.isWorld = named.time.empty() && !isRecording(named.file);
    return named;
}

std::string partOf(const std::string& name) {
    return kelo::Path::replacePattern("/*", {name});
}

// Reads the sides. Thread: main.
class SideReader {
public:
    SideReader(Context& context, Texts& texts) : context_{context}, texts_{texts} {}

    Side recording(const Named& which) {
        Side side = begin(which);
        const std::string file = hmx::recording::rereadable(which.file);
        std::vector<hmx::recording::Problem> problems;
        if (which.time.empty()) {
            side.isWhole = true;
            Reader reader{file};
            while (std::optional<Entry> entry = reader.next()) side.history.take(std::move(*entry));
            problems = reader.problems();
        } else {
            const auto end = [&] { return hmx::recording::endOf(file); };
            const auto at = hmx::recording::parseTime(which.time, Reader{file}.head(), end);
            const Moment moment = hmx::recording::momentAt(file, at, &problems);
            for (const auto& [key, state] : moment.sources()) {
                if (state.isKnown) side.history.answer(state.source, state.since, state.document);
                if (state.kind != EntryKind::state && state.kind != EntryKind::ended)
                    side.history.silence(state.source, state.since, state.kind);
            }
        }
        for (const auto& problem : problems) {
            side.complaints.push_back(which.file + ":" + std::to_string(problem.line) + ": " + problem.what);
        }
        return side;
    }

    Side world(const Named& which) {
        Side side = begin(which);
        side.isWorld = true;
        try {
            hmxsim::World world = hmxsim::readWorld(hmxsim::Document::fromFile(which.file));
            const std::string displays{servicePathOf(ManagerId::display)};
            const std::string input{servicePathOf(ManagerId::input)};
            const std::string popups{servicePathOf(ManagerId::popup)};
            take(side, {displays, "/displays"}, world.displaysInfo);
            take(side, {displays, "/displayables"}, world.displayablesInfo);
            take(side, {displays, "/layerConfig"}, world.layerConfig);
            for (const hmxsim::InputDisplay& display : world.inputDisplays) {
                take(side, {input, partOf(display.name)}, sortedRegions(world, display, {}));
            }
            for (const hmxsim::PopupDisplay& display : world.popupDisplays) {
                std::vector<kelo::hmx::popups::Popup> all;
                for (const hmxsim::PopupState& state : display.popups) all.push_back(state.popup);
                take(side, {popups, partOf(display.name)}, all);
            }
        } catch (const hmxsim::DocumentError& error) {
            throw usageError("diff: " + std::string{error.what()}, which.file + " is neither a recording nor a world file");
        }
        return side;
    }

    // `other` has what is asked for, besides what the system itself shows.
    Side live(const Named& which, const History& other) {
        Side side = begin(which);
        std::vector<Source> sources;
        const auto add = [&](const Source& source) {
            if (std::find(sources.begin(), sources.end(), source) == sources.end()) sources.push_back(source);
        };
        bool upstream = false;
        bool hmx = other.sources().empty();
        for (const auto& [key, history] : other.sources()) {
            (history.source.service == hmxService ? hmx : upstream) = true;
            add(history.source);
        }
        if (hmx) {
            for (const Source& source : hmx::recording::Plan::everything().sources) add(source);
        }
        for (const char* path : {"/displays", "/displayables", "/layerConfig"}) {
            if (upstream) add({std::string{servicePathOf(ManagerId::display)}, path});
        }
        for (std::size_t i = 0; i < sources.size(); ++i) {
            const Json document = ask(side, Source{sources[i]});
            const bool isHmx = sources[i].service == hmxService;
            if (sources[i].path != "/displays") continue;
            for (const Json& display : member(document, isHmx ? "data" : "infoForAllDisplays")) {
                const std::string name = text(display, "name");
                if (name.empty()) continue;
                if (isHmx) {
                    add({std::string{hmxService}, "/popups", Json{{"display", name}}});
                } else {
                    add({std::string{servicePathOf(ManagerId::input)}, partOf(name)});
                    add({std::string{servicePathOf(ManagerId::popup)}, partOf(name)});
                }
            }
        }
        return side;
    }

private:
    Side begin(const Named& which) const { return {which.word, History{texts_, context_.arguments.ignored}}; }

    template <class T>
    static void take(Side& side, const Source& source, const T& value) {
        util::ByteBufferWriter bytes{4096};
        const kelo::MimeType json{kelo::mimetypes::MimeTypeID::json};
        (void)kelo::writeDocument(bytes, json, kelo::BodyView::of(value));
        side.history.answer(source, {}, decode(kelo::Payload::borrow(bytes.bytes(), json)));
    }

    Json ask(Side& side, const Source& source) const {
        try {
            const Service service = context_.client.run(context_.client.service(source.service, context_.deadline));
            const Query query{"retrieve", source.path, source.parameters};
            Json document = decode(context_.client.run(service.request(query, context_.deadline)).payload);
            side.history.answer(source, {}, document);
            return document;
        } catch (const Error& error) {
            if (!error.isPassing() && !error.isNotFound() && error.kind() != Error::Kind::refused) throw failureOf(error);
            const EntryKind kind = error.isNotFound()  ? EntryKind::missing
                                   : error.isPassing() ? EntryKind::lost
                                                       : EntryKind::failed;
            side.history.silence(source, {}, kind);
            const std::string complaint = failureOf(error).what();
            const auto known = std::find(side.complaints.begin(), side.complaints.end(), complaint);
            if (kind != EntryKind::missing && known == side.complaints.end()) side.complaints.push_back(complaint);
        }
        return nullptr;
    }

    Context& context_;
    Texts& texts_;
};

}  // namespace

std::vector<Side> readSides(Context& context, const std::vector<std::string>& words, Texts& texts) {
    std::vector<Named> names;
    for (const std::string& word : words) names.push_back(named(word));
    if (words[0] == "-" && words[1] == "-") throw usageError("diff: standard input can be only one of the two");
    // Files are read beside each other. A running system is asked for what they hold.
    std::vector<Texts> own(names.size());
    std::vector<std::future<Side>> files(names.size());
    for (std::size_t i = 0; i < names.size(); ++i) {
        if (names[i].file.empty()) continue;
        files[i] = std::async(std::launch::async, [&, i] {
            SideReader reader{context, own[i]};
            return names[i].isWorld ? reader.world(names[i]) : reader.recording(names[i]);
        });
    }
    std::vector<std::optional<Side>> sides(names.size());
    for (std::size_t i = 0; i < names.size(); ++i) {
        if (files[i].valid()) sides[i] = files[i].get();
    }
    const History nothing{texts, {}};
    for (std::size_t i = 0; i < names.size(); ++i) {
        if (!sides[i]) sides[i] = SideReader{context, own[i]}.live(names[i], sides[1 - i] ? sides[1 - i]->history : nothing);
    }
    const bool endsCount = sides[0]->isWhole != sides[1]->isWhole;
    std::vector<Side> read;
    for (std::optional<Side>& side : sides) {
        for (const std::string& complaint : side->complaints) context.note(complaint);
        side->history.countBy(texts);
        if (endsCount) side->history.keepEnd();
        read.push_back(std::move(*side));
    }
    return read;
}

}  // namespace hmxctl
