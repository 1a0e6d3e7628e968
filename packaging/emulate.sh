#!/bin/sh
# Runs a program that was built for another architecture, through qemu-user. The program has a script of its name in the folder
# "emulated" beside it and takes that for its own name, so that it can start itself, and others can start it there.
# Usage: emulate.sh PROGRAM [ARGUMENT...]; emulate.sh --make PROGRAM makes the script and runs nothing
set -eu
make_only=
if [ "$1" = --make ]; then
    make_only=yes
    shift
fi
program=$(realpath "$1")
shift
folder=${program%/*}/emulated
script=$folder/${program##*/}
if [ ! -x "$script" ]; then
    mkdir -p "$folder"
    # shellcheck disable=SC2016  # the script's own name and arguments
    printf '#!/bin/sh\nexec qemu-aarch64 -0 "$0" "%s" "$@"\n' "$program" >"$script.$$"
    chmod +x "$script.$$"
    mv "$script.$$" "$script"
fi
[ -n "$make_only" ] || exec "$script" "$@"
