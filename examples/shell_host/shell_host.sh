#!/bin/sh
# A host as a shell script: has zvupdate check for an update, tells how the download goes, lets
# zvupdate show its window when the installer is ready, and hears what the user has chosen.
#
# It reads the events without a JSON parser, which zvupdate's form of them allows: a line begins with
# {"event":"NAME", members come in a fixed order without blanks between them, and numbers and actions
# are plain words. Of JSON's marks in texts only \" and \\ are undone, the two that a path is likely
# to have. A host that wants the release notes, too, is better off with a parser. Copy what you need;
# docs/helper-process.md says what else there is to know of zvupdate.
set -u

# The identifier under which the update service knows this product, and the version that runs.
product_id=SampleApp
product_version=2100
product_name='Sample App'
# Whose preferences hold the user's wish to be updated.
application=Example/SampleApp
directory=${XDG_DATA_HOME:-$HOME/.local/share}/$application/updates

# Prints the text that is the member $2 of the event $1. Prints nothing of null.
text_of() {
    printf '%s\n' "$1" | sed \
        -e '/[{,]"'"$2"'":"/!d' \
        -e 's/^.*[{,]"'"$2"'":"\(\([^"\\]*\\.\)*[^"\\]*\)".*/\1/' \
        -e 's/\\\(["\\]\)/\1/g'
}

tell_progress() {
    received=${1#*'"received":'}
    received=${received%%[!0-9]*}
    total=${1#*'"total":'}
    total=${total%%[!0-9]*} # Nothing is left of null.
    [ "${total:-0}" -eq 0 ] || echo "Downloading: $((100 * received / total)) %"
}

# Does what the application does with an event. One that is not known here is a newer zvupdate's, and
# means nothing to this host.
handle() {
    case $1 in
    '{"event":"result","code":'[346]*) text_of "$1" message ;;
    '{"event":"offer",'*)
        version=$(text_of "$1" version)
        echo "Version ${version:-?} is available." ;;
    '{"event":"progress",'*) tell_progress "$1" ;;
    '{"event":"ready",'*) echo "Ready to install: $(text_of "$1" path)" ;;
    '{"event":"window","action":"update"'*)
        echo 'The installer is open; the application would end now, to be replaced.' ;;
    '{"event":"window","action":"cancel"'*) echo 'The user does not want it now.' ;;
    '{"event":"window",'*) echo 'The window was closed without a choice.' ;;
    '{"event":"failed",'*) text_of "$1" reason >&2 ;;
    esac
}

follow() {
    while IFS= read -r event; do
        handle "$event"
    done <&3
}

# What zvupdate has received is kept, and the next check goes on from there. Ctrl-C comes to it from
# the terminal as well; the second signal ends it at once, which does no harm.
stop() {
    stopped=yes
    kill -TERM "$helper" 2>/dev/null
}

# A named pipe, rather than "|", so that the script knows the process that it may have to stop.
mkdir -p "$directory" && mkfifo "$directory/events.$$" || exit 1
zvupdate check --json --product-id "$product_id" --product-version "$product_version" \
    --directory "$directory" --application "$application" \
    --show-window --product-name "$product_name" >"$directory/events.$$" </dev/null &
helper=$!
stopped=
trap stop INT TERM HUP
exec 3<"$directory/events.$$"
rm "$directory/events.$$"

follow
[ -z "$stopped" ] || follow # The signal has cut the reading short.
wait "$helper"
status=$?
case $status in
127) echo 'zvupdate cannot be started; install it, or add its folder to PATH' >&2 ;;
esac
exit "$status"
