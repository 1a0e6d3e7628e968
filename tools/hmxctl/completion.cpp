// The shells' scripts pass the line to the hidden verb __complete and offer what it prints, so all knowledge about the command
// line is in one place. A candidate that ends in "/" or "=" is a beginning: no space follows it.

#include "completion.h"

#include <algorithm>
#include <array>
#include <cstdlib>

#include "args.h"
#include "simulation.h"
#include "verbs/verbs.h"

namespace hmxctl {
namespace {

constexpr std::string_view bashScript = R"script(# bash completion of hmxctl
_hmxctl() {
    local line="${COMP_LINE:0:COMP_POINT}" cur="${COMP_WORDS[COMP_CWORD]}" word
    # bash divides words at "=" and ":" too; what stands before in the same word is not its to replace.
    [[ $cur == [=:] || $cur == ":=" ]] && cur=""
    local whole='(([^[:space:]\\]|\\.)*)$'
    [[ $line =~ $whole ]]
    local kept="${BASH_REMATCH[1]%"$cur"}"
    COMPREPLY=()
    while IFS=$'\t' read -r word _; do
        printf -v word %q "$word"
        word=${word//\\,/,} # it would not be the beginning that was typed
        [[ $word == "$kept"* ]] && COMPREPLY+=("${word#"$kept"}")
    done < <("$1" __complete -- "$line" 2>/dev/null)
    [[ ${#COMPREPLY[@]} -eq 1 && ${COMPREPLY[0]} == *[/=] ]] && compopt -o nospace
}
complete -o default -F _hmxctl hmxctl
)script";

constexpr std::string_view zshScript = R"script(#compdef hmxctl
# zsh completion of hmxctl
_hmxctl() {
    local -a whole begun shown
    local word about
    if [[ ${words[CURRENT-1]} == (-f|--file|--from|--report|--runtime-dir) ]]; then
        _files
        return
    fi
    while IFS=$'\t' read -r word about; do
        if [[ $word == *[/=] ]]; then
            begun+=("$word")
        else
            whole+=("$word")
            shown+=("$word${about:+  -- $about}")
        fi
    done < <("${words[1]}" __complete -- "${(j: :)words[1,CURRENT]}" 2>/dev/null)
    if [[ ${(j::)shown} == ${(j::)whole} ]]; then
        compadd -- "${whole[@]}"
    else
        compadd -l -d shown -- "${whole[@]}"
    fi
    compadd -S '' -- "${begun[@]}"
    (( ${#whole} + ${#begun} ))
}
if [[ $funcstack[1] == _hmxctl ]]; then
    _hmxctl "$@"
else
    compdef _hmxctl hmxctl
fi
)script";

constexpr std::string_view fishScript = R"script(# fish completion of hmxctl
complete -c hmxctl -f -a '(hmxctl __complete -- (commandline -cp) 2>/dev/null)'
complete -c hmxctl -s f -l file -r -F
complete -c hmxctl -l runtime-dir -r -F
complete -c hmxctl -l from -r -F
complete -c hmxctl -l report -r -F
)script";

constexpr std::array<std::pair<std::string_view, std::string_view>, 3> scripts{
    {{"bash", bashScript}, {"zsh", zshScript}, {"fish", fishScript}}};

constexpr std::array<std::string_view, 18> optionsWithValue{
    "--from", "--at",   "--speed", "-o",     "--output", "--timeout", "--mime", "--runtime-dir", "--domain",
    "-f",     "--file", "--count", "--name", "--for",    "--until",   "--last", "--report",      "--ignore"};

bool takesValue(const std::string& option) {
    return std::find(optionsWithValue.begin(), optionsWithValue.end(), option) != optionsWithValue.end();
}

// Collects what begins with the word that is being typed. Thread: one at a time.
class Offers {
public:
    explicit Offers(std::string current) : current_{std::move(current)} {}

    const std::string& current() const noexcept { return current_; }

    void offer(std::string word, std::string_view about = {}) {
        if (word.compare(0, current_.size(), current_) == 0) found_.push_back({std::move(word), std::string{about}});
    }
    template <class Words>
    void offerAll(const Words& words, const std::string& before = {}) {
        for (const auto& word : words) offer(before + std::string{word});
    }

    std::vector<Candidate> take() { return std::move(found_); }

private:
    std::string current_;
    std::vector<Candidate> found_;
};

void offerOptionValues(Offers& out, const std::string& option, const Verb* verb) {
    const bool isFile = verb != nullptr && (verb->options & filing) != 0;  // the shell knows files
    if ((option == "-o" || option == "--output") && !isFile) out.offerAll(std::array{"table", "json", "jsonl", "raw"});
    if (option == "--speed") out.offerAll(std::array{"max"});
    if (option == "--mime") out.offerAll(std::array{"json", "msgpack", "ixobin"});
}

void offerElements(Offers& out, NameSource& names, bool elementNeeded) {
    const std::size_t slash = out.current().find('/');
    if (slash == std::string::npos) {
        for (const Resource& resource : resources()) {
            out.offer(std::string{resource.name} + (elementNeeded ? "/" : ""));
        }
        return;
    }
    const Resource* resource = findResource(out.current().substr(0, slash));
    if (resource == nullptr) return;
    const std::string before = std::string{resource->name} + "/";
    if (isListable(*resource)) return out.offerAll(names.elements(*resource), before);
    // Nobody lists them, but their names are made of what a new one may say.
    const kelo::hmx::Route* insert = findRoute(*resource, kelo::commands::insert, false);
    const MemberDescription* displays = insert == nullptr ? nullptr : findMember(insert->body().members, "display");
    const MemberDescription* hmis = insert == nullptr ? nullptr : findMember(insert->body().members, "hmi");
    if (displays == nullptr || hmis == nullptr) return;
    for (const std::string_view display : displays->enumValues) {
        out.offerAll(hmis->enumValues, before + std::string{display} + "/");
    }
}

// Touch regions: of the displays that have some, their numbers are not known without asking.
void offerRegions(Offers& out, NameSource& names) {
    const std::string before = "regions/";
    if (!out.current().starts_with(before)) return out.offer(before);
    for (const std::string& display : names.elements(*findResource("displays"))) out.offer(before + display + "/");
}

void offerKeys(Offers& out, Members members) {
    for (const MemberDescription& member : members) out.offer(std::string{member.key} + "=", kelo::record::typeText(member));
}

// "key=", or the values of a key that has but a few. `element`: what `fields` names members of, if anything.
void offerAssignments(Offers& out, NameSource& names, Members members, Members element = {}) {
    const std::size_t equals = out.current().find('=');
    if (equals == std::string::npos) {
        return offerKeys(out, members);
    }
    const std::string key = out.current().substr(0, equals);
    const MemberDescription* member = findMember(members, key);
    if (member == nullptr) return;
    if (member->kind == kelo::record::Kind::boolean) out.offerAll(std::array{"true", "false"}, key + "=");
    out.offerAll(member->enumValues, key + "=");
    if (key == "display" && member->enumValues.empty()) out.offerAll(names.elements(*findResource("displays")), "display=");
    if (key == "fields") {
        const std::size_t comma = out.current().rfind(',');
        const std::string before = comma == std::string::npos ? key + "=" : out.current().substr(0, comma + 1);
        const std::string given = "," + before.substr(key.size() + 1);
        for (const std::string& name : keysOf(element)) {
            if (given.find("," + name + ",") == std::string::npos) out.offer(before + name);
        }
    }
}

// What follows the action; `words` begin with that.
void offerSimWord(Offers& out, const std::vector<std::string>& words, NameSource& names) {
    const std::string& action = words.front();
    if (action == "requests" || action == "plan") {
        if (words.size() == 1) out.offer("clear");
    } else if (action == "replay") {
        if (words.size() == 1) out.offerAll(std::array{"run", "pause"});
    } else if (action == "fault") {
        if (words.size() == 1) return out.offerAll(simManagers);
        if (words.size() == 2) out.offer("clear");
        for (const std::string_view key : faultKeys) out.offer(std::string{key} + "=");
    } else if (action == "popup") {
        if (words.size() == 1) return out.offerAll(names.elements(*findResource("popups")));
        offerKeys(out, findCollection("popups")->record().members);
    } else if (words.size() > 1) {
        const Collection* collection = findCollection(words[1].substr(0, words[1].find('/')));
        if (collection != nullptr && collection->record != nullptr && action != "remove") {
            offerKeys(out, collection->record().members);
        }
    } else {
        for (const Collection& each : collections()) {
            const std::string before = std::string{each.name} + "/";
            if (action == "add" && !each.isPerDisplay()) {
                out.offer(std::string{each.name});
            } else if (!out.current().starts_with(before)) {
                out.offer(before);
            } else {
                out.offerAll(names.elements(*findResource(action == "add" ? "displays" : each.resource)), before);
            }
        }
    }
}

void offerChannels(Offers& out, NameSource& names, const std::string& service) {
    const std::size_t equals = out.current().find('=');
    if (equals != std::string::npos)
        return out.offerAll(std::array{"0", "1", "2", "3", "4", "5"}, out.current().substr(0, equals + 1));
    for (const std::string& channel : names.channels(service)) out.offer(channel + "=");
}

void offerFirstWord(Offers& out, const Verb& verb, NameSource& names) {
    switch (verb.first) {
        case FirstWord::resource:
            for (const Resource& resource : resources()) {
                if (verb.name == "list" && !isListable(resource)) continue;
                if (verb.name == "insert" && findRoute(resource, kelo::commands::insert, false) == nullptr) continue;
                out.offer(std::string{resource.name});
            }
            return;
        case FirstWord::element:
            if (verb.name == "explain") offerRegions(out, names);
            return offerElements(out, names, true);
        case FirstWord::target:
            return offerElements(out, names, false);
        case FirstWord::display:
            return out.offerAll(names.elements(*findResource("displays")));
        case FirstWord::service:
            return out.offerAll(names.services());
        case FirstWord::verb:
            return out.offerAll(verbNames());
        case FirstWord::shell:
            return out.offerAll(completionShells());
        case FirstWord::simCommand:
            return out.offerAll(simActions);
        case FirstWord::channel:
            out.offerAll(names.services());
            return offerChannels(out, names, std::string{hmxService});
        case FirstWord::policyCommand:
            return out.offerAll(std::array{"check", "test"});
        case FirstWord::none:
            if (verb.name == "diff") out.offer("live");
            return;
    }
}

void offerFurtherWord(Offers& out, const Verb& verb, const std::vector<std::string>& words, NameSource& names) {
    if (verb.name == "call" && words.size() == 1) return out.offerAll(std::array{"retrieve", "insert", "update", "delete"});
    if (verb.name == "sim") return offerSimWord(out, words, names);
    if (verb.name == "trace") {
        return offerChannels(out, names, words.front().starts_with('/') ? words.front() : std::string{hmxService});
    }
    if (verb.name == "policy" && words.front() == "test" && words.size() == 2) {
        return out.offerAll(std::array{"retrieve", "insert", "update", "delete", "publish"});
    }
    if (verb.name == "tree") return out.offerAll(names.elements(*findResource("displays")));
    if (verb.name == "uuid") return offerElements(out, names, true);
    if (verb.name == "record") return offerElements(out, names, false);
    const Resource* resource = findResource(words.front().substr(0, words.front().find('/')));
    if (resource == nullptr) return;
    const kelo::hmx::Route* changes = verb.name == "insert"   ? findRoute(*resource, kelo::commands::insert, false)
                                      : verb.name == "update" ? findRoute(*resource, kelo::commands::update, true)
                                                              : nullptr;
    if (changes != nullptr) offerAssignments(out, names, changes->body().members);
    if (verb.name == "wait" && words.front().find('/') == std::string::npos) {
        out.offerAll(std::array{"any", "all", "none", "count"});
        return offerAssignments(out, names, parametersOf(*resource), resource->element().members);
    }
    if (verb.name == "wait") out.offer("removed");
    if (verb.name == "wait") return out.offerAll(keysOf(resource->element().members));
    if (verb.name == "list" || verb.name == "watch" || verb.name == "get") {
        offerAssignments(out, names, parametersOf(*resource), resource->element().members);
    }
}

}  // namespace

std::vector<std::string> splitLine(std::string_view line) {
    std::vector<std::string> words;
    std::string word;
    bool inWord = false;
    char quote = '\0';
    for (std::size_t i = 0; i < line.size(); ++i) {
        const char c = line[i];
        if (quote == '\0' && (c == ' ' || c == '\t')) {
            if (inWord) words.push_back(std::exchange(word, {}));
            inWord = false;
            continue;
        }
        inWord = true;
        if (c == quote) {
            quote = '\0';
        } else if (quote == '\0' && (c == '"' || c == '\'')) {
            quote = c;
        } else if (c == '\\' && quote != '\'' && i + 1 < line.size()) {
            word += line[++i];
        } else {
            word += c;
        }
    }
    words.push_back(std::move(word));
    return words;
}

std::string optionValue(std::string_view line, std::string_view option) {
    const std::vector<std::string> words = splitLine(line);
    std::string value;
    for (std::size_t i = 1; i < words.size(); ++i) {
        const std::string& word = words[i];
        if (words[i - 1] == option) value = word;
        if (word.size() > option.size() && word.starts_with(option) && word[option.size()] == '=') {
            value = word.substr(option.size() + 1);
        }
    }
    const char* home = value.starts_with("~/") ? std::getenv("HOME") : nullptr;
    return home == nullptr ? value : home + value.substr(1);
}

std::vector<Candidate> complete(std::string_view line, NameSource& names) {
    const std::vector<std::string> typed = splitLine(line);
    Offers out{typed.back()};
    const Verb* verb = nullptr;
    std::vector<std::string> words;
    std::string option;  // that the next word is the value of
    for (std::size_t i = 1; i + 1 < typed.size(); ++i) {
        const std::string& word = typed[i];
        if (!option.empty()) {
            option.clear();
        } else if (takesValue(word)) {
            option = word;
        } else if (word.size() < 2 || word.front() != '-') {
            if (verb != nullptr) {
                words.push_back(word);
            } else if ((verb = findVerb(word)) == nullptr) {
                return {};
            }
        }
    }
    if (typed.size() < 2) return {};
    if (!option.empty()) {
        offerOptionValues(out, option, verb);
    } else if (out.current().starts_with('-')) {
        out.offerAll(optionNames(verb));
    } else if (verb == nullptr) {
        for (const Verb& each : verbs()) {
            if (!each.hidden) out.offer(std::string{each.name}, each.summary);
        }
    } else if (words.size() < verb->most) {
        if (words.empty()) {
            offerFirstWord(out, *verb, names);
        } else {
            offerFurtherWord(out, *verb, words, names);
        }
    }
    return out.take();
}

std::string_view completionScript(std::string_view shell) noexcept {
    const auto* found = std::find_if(scripts.begin(), scripts.end(), [=](const auto& each) { return each.first == shell; });
    return found == scripts.end() ? std::string_view{} : found->second;
}

std::vector<std::string> completionShells() {
    std::vector<std::string> shells;
    shells.reserve(scripts.size());
    for (const auto& [shell, script] : scripts) shells.emplace_back(shell);
    return shells;
}

}  // namespace hmxctl
