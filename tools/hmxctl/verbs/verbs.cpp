#include "verbs/verbs.h"

#include <algorithm>
#include <array>

namespace hmxctl {
namespace {

constexpr std::string_view elementHelp =
    "An element is a UUID, the first digits of a UUID (at least four), a URI, or a name:\n"
    "  displays/Driver_Display                      the display's name\n"
    "  displayables/1001, displayables/Map_Main     the displayable's number, or its name\n"
    "  layerconfigurations/Driver_Display           the name of its display\n"
    "  popups/Driver_Display/Hint                   display and name; the name alone if only one display has it\n"
    "  regionconfigurations/Driver_Display/HMI_ID_ANDROID_DRIVER[/SUBCOMPONENT]\n";

constexpr std::array table{
    Verb{.name = "list",
         .words = "RESOURCE [KEY=VALUE | KEY:=JSON ...]",
         .summary = "Show the elements of a resource",
         .details = "Keys are members that the elements must match (visible=true), and fields=a,b, limit=N, offset=N and\n"
                    "offsetId=UUID, which select what is shown. Objects and arrays cannot be matched.\n"
                    "Popups are listed by display; without display=NAME, the popups of all displays are collected.\n"
                    "Region configurations cannot be listed: see `hmxctl tree`.\n",
         .fewest = 1,
         .most = anyNumber,
         .options = validation,
         .first = FirstWord::resource,
         .run = runList},
    Verb{.name = "get",
         .words = "RESOURCE/ELEMENT [fields=a,b]",
         .summary = "Show one element",
         .details = elementHelp,
         .fewest = 1,
         .most = anyNumber,
         .options = validation,
         .first = FirstWord::element,
         .run = runGet},
    Verb{.name = "watch",
         .words = "RESOURCE[/ELEMENT] [KEY=VALUE | KEY:=JSON ...]",
         .summary = "Follow a resource or an element as it changes",
         .details = "In the foreground of a terminal, the table is redrawn in place; otherwise every event is a line. With\n"
                    "-o json or jsonl, an event is {\"event\": E, ...}, where E is snapshot, changed, removed, source-down or\n"
                    "source-up. A slow reader may miss intermediate states, never the last one.\n"
                    "Fails with 4 if the service is not there at the start. Later it waits for the service to return. With\n"
                    "--timeout, it waits at most that long both times. With --no-reconnect, it does not wait: it ends with 4\n"
                    "(lost) or 9 (ended by the service). --for sets how long to watch; then it ends with 0, or with 5 if\n"
                    "--until was given. --until ends it with 0 when the expression is true; see `hmxctl help wait`.\n"
                    "Of one element, the only key is fields=a,b.\n",
         .fewest = 1,
         .most = anyNumber,
         .options = validation | watching | lasting,
         .first = FirstWord::target,
         .run = runWatch},
    Verb{.name = "wait",
         .words = "RESOURCE[/ELEMENT] [KEY=VALUE ...] EXPRESSION",
         .summary = "Wait until an expression about an element or a resource is true, or until an element is removed",
         .details =
             "Operators: == != < <= > >= && || ! and parentheses; values: true, false, null, numbers, 'text', members such\n"
             "as visible or resolution.width. An absent member is null. Prints what it has waited for if -o is given.\n"
             "Of a whole resource: any CONDITION, all CONDITION, none CONDITION, and count or count(CONDITION), which is a\n"
             "number. A condition alone is one about any element. KEY=VALUE chooses the elements, as for `list`.\n"
             "The expression `removed` waits until the element is not there any more, or has never been.\n"
             "Ends with 5 if the expression does not become true within --timeout.\n"
             "Examples: hmxctl wait popups/Driver_Display/Incoming_Call 'visible == true' --timeout 3s\n"
             "          hmxctl wait popups display=Driver_Display 'none visible == true'\n"
             "          hmxctl wait popups 'count(requested == true) >= 2'\n"
             "          hmxctl wait regionconfigurations/Driver_Display/HMI_ID_ANDROID_DRIVER removed\n",
         .fewest = 2,
         .most = anyNumber,
         .options = validation | appearing | condition,
         .first = FirstWord::target,
         .run = runWait},
    Verb{.name = "record",
         .words = "[RESOURCE ...]",
         .summary = "Record in a file what the resources show and how it changes",
         .details =
             "Without RESOURCE, everything: displays, displayables, layer configurations, the popups of every display, and\n"
             "the region configurations without a subcomponent. One with a subcomponent must be named, and is recorded\n"
             "besides the others: regionconfigurations/Driver_Display/HMI_ID_ANDROID_DRIVER/climate.\n"
             "-o names the file (hmx-DATE-TIME.jsonl); - is standard output. A file that exists is not replaced.\n"
             "It ends with SIGINT (Ctrl-C) or SIGTERM, after --for, or when the expression of --until is true for the\n"
             "elements recorded; see `hmxctl help wait`. With --until, it ends with 5 if --for is over first.\n"
             "--last keeps the latest part in memory, and writes it at the end or on SIGUSR1, then each time into a new\n"
             "file: hmx.jsonl, hmx-2.jsonl, ... How far back it reaches is limited by memory, and said when it is written.\n"
             "Services that are away are waited for. `man hmxctl` tells more; docs/recording.md is the format.\n"
             "Examples: hmxctl record -o cockpit.jsonl --for 10m --upstream\n"
             "          hmxctl record --last 60s --until 'suppressed == true' -o fault.jsonl\n"
             "          hmxctl record -o - | zstd >cockpit.jsonl.zst\n",
         .fewest = 0,
         .most = anyNumber,
         .options = validation | lasting | filing | liveOnly,
         .first = FirstWord::target,
         .run = runRecord},
    Verb{.name = "insert",
         .words = "regionconfigurations [-f FILE] [KEY=VALUE | KEY:=JSON ...]",
         .summary = "Add an element",
         .details =
             "The body is the document in the file (-f - reads standard input), with the keys from the command line added or\n"
             "replaced. It is checked before it is sent. Prints the URI of the element.\n",
         .fewest = 1,
         .most = anyNumber,
         .options = validation | bodyFile | liveOnly,
         .first = FirstWord::resource,
         .run = runInsert},
    Verb{.name = "update",
         .words = "RESOURCE/ELEMENT [-f FILE] [KEY=VALUE | KEY:=JSON ...]",
         .summary = "Change an element",
         .details =
             "The body is built as for `insert`. Example: hmxctl update popups/Driver_Display/Incoming_Call requested=true\n",
         .fewest = 1,
         .most = anyNumber,
         .options = validation | bodyFile | liveOnly,
         .first = FirstWord::element,
         .run = runUpdate},
    Verb{.name = "delete",
         .words = "RESOURCE/ELEMENT",
         .summary = "Remove an element",
         .details = "The bridge can delete only regions that were inserted since it started.\n"
                    "Example: hmxctl delete regionconfigurations/Driver_Display/HMI_ID_ANDROID_DRIVER\n",
         .fewest = 1,
         .most = anyNumber,
         .options = validation | liveOnly,
         .first = FirstWord::element,
         .run = runDelete},
    Verb{.name = "describe",
         .words = "[RESOURCE]",
         .summary = "Show members, types, commands and parameters of the resources",
         .details = "Needs no service.\n",
         .fewest = 0,
         .most = 1,
         .first = FirstWord::resource,
         .run = runDescribe},
    Verb{.name = "tree",
         .words = "[DISPLAY ...]",
         .summary = "Show displays, their layers from top to bottom, and the popups and touch regions on them",
         .details =
             "Touch regions are read from the input manager directly; if it is missing, they are left out, with a message.\n",
         .fewest = 0,
         .most = anyNumber,
         .first = FirstWord::display,
         .run = runTree},
    Verb{.name = "hit",
         .words = "DISPLAY X Y",
         .summary = "Show which input region receives a touch, and which regions it covers",
         .details =
             "Regions of the topmost layer come first; within a layer, those that the input manager lists first. The topmost\n"
             "region under the touch receives it and covers the others. These receive it, too, until one is exclusive or\n"
             "drops it. hitOutside widens a region if no other region of its layer is hit; notifyOutside tells a region of\n"
             "touches elsewhere; translateX and translateY move the coordinates that it sees.\n",
         .fewest = 3,
         .most = 3,
         .first = FirstWord::display,
         .run = runHit},
    Verb{.name = "explain",
         .words = "RESOURCE/ELEMENT | regions/DISPLAY/NUMBER",
         .summary = "Show why an element is, or is not, shown or touched",
         .details = "Each line is OK, WARNING or PROBLEM, the most decisive first, with what would change it. A touch region is\n"
                    "named by its display and the number that `hmxctl tree` shows, or by its HMI for all of them.\n"
                    "Examples: hmxctl explain popups/Driver_Display/Incoming_Call\n"
                    "          hmxctl explain displayables/Map_Main\n"
                    "          hmxctl explain regions/Driver_Display/3\n",
         .fewest = 1,
         .most = 1,
         .first = FirstWord::element,
         .run = runExplain},
    Verb{.name = "diff",
         .words = "A B",
         .summary = "Show the differences between recordings, world files and the running system",
         .details =
             "A and B are recordings (FILE, or FILE@TIME for the state at that time), world files of hmxsim, or live.\n"
             "Elements are compared by id, members by value. Two whole recordings are compared as sequences of states,\n"
             "element by element, whenever they came: both must end alike, and where one has states between two that both\n"
             "have, the other must have the same or none, since a slow reader skips states. World files are compared with\n"
             "what the upstream services say. Ends with 10 if there are differences.\n"
             "Examples: hmxctl diff before.jsonl after.jsonl --ignore requestData\n"
             "          hmxctl diff fault.jsonl@12.5s live\n",
         .fewest = 2,
         .most = 2,
         .options = comparing | liveOnly,
         .first = FirstWord::none,
         .run = runDiff},
    Verb{.name = "uuid",
         .words = "RESOURCE/NAME ... | --name TEXT",
         .summary = "Compute the ids and URIs of elements, offline",
         .details = elementHelp,
         .fewest = 0,
         .most = anyNumber,
         .options = idParts,
         .first = FirstWord::element,
         .run = runUuid},
    Verb{.name = "services",
         .words = "",
         .summary = "Show the services of the domain and their state",
         .details = "alive    it answers\n"
                    "stale    its process has ended and left the socket\n"
                    "hung     its process exists but does not answer\n"
                    "full     it has as many clients as it accepts\n"
                    "refused  it belongs to another user, and accepts only that user\n",
         .run = runServices},
    Verb{.name = "call",
         .words = "SERVICE COMMAND PATH [BODY | KEY=VALUE | KEY:=JSON ...] [-f FILE]",
         .summary = "Send any request to any service and show its answer",
         .details = "BODY is JSON, sent in the encoding of --mime.\n"
                    "Examples: hmxctl call /hmx retrieve /popups display=Driver_Display\n"
                    "          hmxctl call /hmxinputmanager update /Driver_Display/power true\n",
         .fewest = 3,
         .most = anyNumber,
         .options = bodyFile | keepOpen,
         .first = FirstWord::service,
         .run = runCall},
    Verb{.name = "status",
         .words = "[SERVICE]",
         .summary = "Show counters, limits, clients and pending requests of a service (/hmx)",
         .details = "",
         .fewest = 0,
         .most = 1,
         .options = liveOnly,
         .first = FirstWord::service,
         .run = runStatus},
    Verb{.name = "trace",
         .words = "[SERVICE] [CHANNEL=LEVEL ...]",
         .summary = "Show or change what a service (/hmx) logs",
         .details =
             "Without CHANNEL=LEVEL, shows the channels and the lowest level of each that is logged: 1 is the progress of\n"
             "requests, 2 start-up, 3 something wrong in what was asked or sent, 4 failures; 5 shows nothing.\n"
             "* stands for all channels. A change lasts until the service ends or gets SIGHUP.\n"
             "Example: hmxctl trace HMX_TOLU_BRIDGE_POPUPS=1\n",
         .fewest = 0,
         .most = anyNumber,
         .options = liveOnly,
         .first = FirstWord::channel,
         .run = runTrace},
    Verb{.name = "policy",
         .words = "check [DIRECTORY] | test USER COMMAND PATH",
         .summary = "Show what the policy says, and what it decides",
         .details =
             "check reads the files as a service would, and shows what is wrong with them, or their rules. Ends with 10 if\n"
             "something is wrong. DIRECTORY is KELO_POLICY_DIR, else /etc/kelo/policy.d.\n"
             "test shows which rule decides whether a user may do something at /hmx (or at --service), or, with the command\n"
             "publish, whether a service of that user is trusted. Ends with 6 if not. Needs no service.\n"
             "Examples: hmxctl policy test navigation update /popups/49672281-529f-523d-99be-78c450b2a56a\n"
             "          hmxctl policy test display publish /hmxdisplaymanager\n",
         .fewest = 1,
         .most = 4,
         .options = liveOnly,
         .first = FirstWord::policyCommand,
         .run = runPolicy},
    Verb{.name = "doctor",
         .words = "",
         .summary = "Show what is wrong with the services and their surroundings",
         .details =
             "Looks at the runtime directory, the services and their processes, limits that were met, slow upstream\n"
             "services, versions and environment. Each line is OK, WARNING or PROBLEM, with what to do. Ends with 10 if\n"
             "there is a PROBLEM, else with 0. --report also writes a JSON document for a bug report: what was found, the\n"
             "facts it rests on, the status of each service, and the last lines of their logs. It contains no documents\n"
             "of clients or services unless --with-payloads is given.\n",
         .options = reporting | liveOnly,
         .run = runDoctor},
    Verb{.name = "sim",
         .words = "set|add|remove|popup|fault|plan|world|requests|replay [...]",
         .summary = "Drive the simulated services of hmxsim",
         .details =
             "set COLLECTION/NAME KEY=VALUE ...    change an element; KEY:=null removes a member\n"
             "add COLLECTION KEY=VALUE ...         add one; a popup to popups/DISPLAY\n"
             "remove COLLECTION/NAME               remove one\n"
             "popup DISPLAY/NAME KEY=VALUE ...     the same as set popups/DISPLAY/NAME\n"
             "fault [SERVICE [KEY=VALUE ...]]      show the faults, or make a service fail: delay_ms, jitter_ms, silence,\n"
             "                                     status, garble, close, crash, reopen_ms, count, probability, seed, now\n"
             "fault SERVICE clear                  make it work again\n"
             "plan [-f FILE | clear]               show, start or cancel changes at set times\n"
             "world                                the world as it is now, as the JSON of a world file\n"
             "requests [clear]                     what arrived at the simulated services\n"
             "replay [run | pause]                 what a replay is at, and what clients have changed meanwhile\n"
             "COLLECTION is displays, displayables, layers, input or popups; SERVICE is displaymanager, inputmanager or\n"
             "popupmanager. With -f, the body is the document in the file.\n"
             "Example: hmxctl sim popup Driver_Display/Incoming_Call requested=true\n"
             "         hmxctl sim fault displaymanager delay_ms=200 probability=0.5 seed=7\n",
         .fewest = 1,
         .most = anyNumber,
         .options = bodyFile | validation | liveOnly,
         .first = FirstWord::simCommand,
         .run = runSim},
    Verb{.name = "completion",
         .words = "bash|zsh|fish",
         .summary = "Print the completion script of a shell",
         .details = "bash: source <(hmxctl completion bash)\n"
                    "zsh:  hmxctl completion zsh > \"${fpath[1]}/_hmxctl\"\n"
                    "fish: hmxctl completion fish > ~/.config/fish/completions/hmxctl.fish\n",
         .fewest = 1,
         .most = 1,
         .first = FirstWord::shell,
         .run = runCompletion},
    Verb{.name = "help",
         .words = "[VERB]",
         .summary = "Show this help, or that of a verb",
         .details = "",
         .fewest = 0,
         .most = 1,
         .first = FirstWord::verb,
         .run = runHelp},
    Verb{.name = "version", .words = "", .summary = "Show the version", .details = "", .run = runVersion},
    Verb{.name = "__complete",
         .words = "LINE",
         .summary = "",
         .details = "",
         .fewest = 0,
         .most = anyNumber,
         .run = runComplete,
         .hidden = true},
};

}  // namespace

std::span<const Verb> verbs() noexcept {
    return table;
}

const Verb* findVerb(std::string_view name) noexcept {
    const auto* found = std::find_if(table.begin(), table.end(), [=](const Verb& verb) { return verb.name == name; });
    return found == table.end() ? nullptr : found;
}

std::vector<std::string> verbNames() {
    std::vector<std::string> names;
    for (const Verb& verb : table) {
        if (!verb.hidden) names.emplace_back(verb.name);
    }
    return names;
}

}  // namespace hmxctl
