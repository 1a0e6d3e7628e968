#!/usr/bin/env bash
# Filters the output of a long command (ninja with NINJA_STATUS='[%f/%t] ', ctest, apt-get with APT::Status-Fd=1). Lines that
# only report progress become one line, which is redrawn on a terminal and printed every 10 s elsewhere; nothing is shown in the
# first 2 s on a terminal. Other lines are passed on.
# Usage: COMMAND | progress.sh WHAT
set -euo pipefail
what=$1
trap '' INT # the interrupt is for the command before the pipe, whose last output is still wanted
step='^\[([0-9]+)/([0-9]+)\] '
passed='^ *([0-9]+)/([0-9]+) Test +#[0-9]+: .* (Passed|\*\*\*Skipped) +[0-9.]+ sec *$'
noise='^( *Start +[0-9]+: .*|Test project .*|ninja: no work to do\.|ninja: Entering directory.*)$'
apt='^(dl|pm)status:[^:]*:([0-9]+)[^:]*:'
apt_noise='^(Selecting|Preparing|Unpacking|Setting|Processing|\(Reading|Extracting|Created|update-|Preconfiguring|Scanning|debconf|pm|dl|media|No |Running|Created symlink)'

terminal=
[ -t 1 ] && terminal=yes
shown_at=0
drawn=
state=
draw() {
    if [ -n "$terminal" ]; then
        [ "$SECONDS" -ge 2 ] && [ "$state $SECONDS" != "$drawn" ] || return 0
        printf '\r\033[K%s: %s, %s s' "$what" "$state" "$SECONDS"
        drawn="$state $SECONDS"
    elif [ $((SECONDS - shown_at)) -ge 10 ]; then
        printf '%s: %s, %s s\n' "$what" "$state" "$SECONDS"
        shown_at=$SECONDS
    fi
}
clear_line() {
    [ -z "$terminal" ] || [ -z "$drawn" ] || printf '\r\033[K'
    drawn=
}

line=
while :; do
    code=0
    IFS= read -r -t 1 part || code=$?
    line+=$part
    if [ "$code" -gt 128 ]; then # no input for a second
        [ -z "$state" ] || draw
        continue
    fi
    if [[ $line =~ $step || $line =~ $passed ]]; then
        state="${BASH_REMATCH[1]} of ${BASH_REMATCH[2]}"
        draw
    elif [[ $what = setup && $line =~ $apt ]]; then
        [ "${BASH_REMATCH[1]}" = dl ] && state="downloading, ${BASH_REMATCH[2]} %" || state="installing, ${BASH_REMATCH[2]} %"
        draw
    elif ! [[ $line =~ $noise || ( $what = setup && $line =~ $apt_noise ) ]] && { [ "$code" -eq 0 ] || [ -n "$line" ]; }; then
        clear_line
        [ "$what" = setup ] || printf '%s\n' "$line"
    fi
    line=
    [ "$code" -eq 0 ] || break
done
clear_line
