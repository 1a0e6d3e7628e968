#!/usr/bin/env bash
# Reads what a long command prints (ninja with NINJA_STATUS='[%f/%t] ', ctest, apt-get with APT::Status-Fd=1) and passes on what a
# person has to read: of the lines that only say how far it is, one that is redrawn on a terminal, elsewhere one every 10 s; nothing
# at all of what takes less than 2 s. With RESULT_FILE, counts go there. Usage: COMMAND | progress.sh WHAT
set -euo pipefail
what=$1
trap '' INT # the command in front of the pipe is interrupted, and its last words are wanted
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
    if [ "$code" -gt 128 ]; then # nothing for a second
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
