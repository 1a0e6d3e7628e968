#!/usr/bin/env python3
"""Completes command lines in the shells that are installed. Usage: completion.py BIN_DIR"""

import json
import shutil
import sys

from cockpit import Cockpit

# Passes to the scripts what readline, zsh's line editor and fish's own tool pass, and prints what the scripts offer.
SHELLS = {
    "bash": r"""
        source <(hmxctl completion bash)
        compopt() { :; }
        complete -p hmxctl | grep -q _hmxctl || exit 9
        COMP_LINE=$1 COMP_POINT=${#1}
        # Splits a line as readline does: also at = and :, and not at a blank after a backslash.
        mapfile -t COMP_WORDS < <(grep -oP '(\\.|[^\s=:\\])+|[=:]+' <<<"$1")
        [[ $1 == *[[:space:]] ]] && COMP_WORDS+=("")
        COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
        _hmxctl hmxctl
        printf '%s\n' "${COMPREPLY[@]}"
    """,
    "zsh": r"""
        compdef() { : }
        _files() { print -- FILES }
        compadd() { while [[ $1 != -- ]]; do shift; done; shift; (( $# )) && print -l -- "$@"; return 0 }
        source <(hmxctl completion zsh)
        words=(${(z)1}) CURRENT=${#words}
        [[ $1 == *" " ]] && { words+=(""); CURRENT=${#words} }
        _hmxctl
    """,
    "fish": r"""
        hmxctl completion fish | source
        complete -C"$argv[1]" | string replace -r '\t.*' ''
    """,
}

# The input, and the words offered for its last word. (bash is offered only what follows = or :.)
CASES = [
    ("hmxctl li", ["list"]),
    ("hmxctl get displays/C", ["displays/Cluster_Display", "displays/Co_Driver_Display"]),
    ("hmxctl update popups/Driver_Display/Vol", ["popups/Driver_Display/Volume"]),
    ("hmxctl -o json tree Cl", ["Cluster_Display"]),
    ("hmxctl list displays --no-v", ["--no-validate"]),
    ("hmxctl get regionconfigurations/Driver_Display/HMI_ID_ANDROID_DRIVER_", ["regionconfigurations/Driver_Display/HMI_ID_ANDROID_DRIVER_POPUP"]),
    ("hmxctl sim fault p", ["popupmanager"]),
    ("hmxctl sim set layers/Cl", ["layers/Cluster_Display"]),
    ("hmxctl sim popup Driver_Display/Hint requ", ["requested=", "requestData="]),
    ("hmxctl call /hmxi", ["/hmxinputmanager"]),
    ("hmxctl list displays touchSupport=f", ["touchSupport=false"]),
    ("hmxctl list displays fields=name,touchSupport,to", []),
    ("hmxctl list displays fields=name,to", ["fields=name,touchSupport"]),
    ("hmxctl --domain other get displays/C", []),
    ("hmxctl record popups --for 3s lay", ["layerconfigurations"]),
    ("hmxctl wait popups/Driver_Display/Volume re", ["removed", "requested", "requestData"]),
    ("hmxctl get displayables/Map\\ o", ["displayables/Map of Rome"]),
]


def offered(cockpit, shell, line):
    done = cockpit.run([shell, "-c", SHELLS[shell], *([] if shell == "fish" else [shell]), line])
    if done.stderr:
        raise RuntimeError(f"{shell}: {line}: {done.stderr}")
    words = [word.replace("\\", "") for word in done.stdout.split("\n") if word]
    last = line.split(" ")[-1]
    kept = last[: last.rfind("=") + 1] if shell == "bash" else ""
    return sorted(kept + word for word in words)


def main():
    failed = 0
    with Cockpit(sys.argv[1]) as cockpit:
        shells = [shell for shell in SHELLS if shutil.which(shell)]
        spaced = {"id": 4711, "name": "Map of Rome"}
        added = cockpit.ctl("sim", "add", "displayables", "-f", "-", stdin=None, input=json.dumps(spaced))
        if added.returncode != 0:
            sys.exit(added.stderr)
        for shell in shells:
            for line, expected in CASES:
                got = offered(cockpit, shell, line)
                if got != sorted(expected):
                    failed += 1
                    print(f"{shell}: '{line}' offers {got} instead of {sorted(expected)}")
        cockpit.stop("hmxtolubridge")
        if offered(cockpit, "bash", "hmxctl get displays/") or offered(cockpit, "bash", "hmxctl se") != ["services"]:
            failed += 1
            print("without a service there are no names, but all else")
    print(f"completion: {len(CASES)} lines in {', '.join(shells)}, {failed} wrong")
    sys.exit(1 if failed else 0)


if __name__ == "__main__":
    main()
