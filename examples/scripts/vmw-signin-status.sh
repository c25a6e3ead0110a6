#!/bin/sh
# How the sign-in through the client went, for the sign-in monitor, which asks every 3 seconds while
# the client runs, until there is an outcome, first for the user:
#
#   vmw-signin-status.sh user       prints signin:USER:DOMAIN:OUTCOME, of which the monitor reports
#                                   USER/DOMAIN, or USER if the domain is blank
#   vmw-signin-status.sh success    prints something only if the user was signed in
#   vmw-signin-status.sh error      prints something only if the sign-in failed
#
# Without an outcome nothing is printed. The monitor does not look at the exit status: 0, or 2 for
# other arguments.
#
# The outcome stands in /run/ov-event-logger/signin: three lines, each ended by a line feed, that
# hold "success" or "error", the user and the domain, which may be empty. The folder must belong to
# root, or to the account that the sign-in hook runs as, and nobody else may write to it: whoever
# can write there decides what is reported. A hook, as root:
#
#     #!/bin/sh
#     # signin-hook success|error USER DOMAIN; signin-hook clear when the client starts or ends
#     set -eu
#     umask 022
#     folder=/run/ov-event-logger
#     mkdir -p "$folder"
#     [ "$1" != clear ] || { rm -f "$folder/signin"; exit; }
#     printf '%s\n%s\n%s\n' "$1" "$2" "$3" >"$folder/signin.new"
#     mv -fT "$folder/signin.new" "$folder/signin"
#
# The rename lets the outcome appear at once and whole. Without the clearing, the next run of the
# client would be reported with the outcome of the last one.
#
# In names, a colon, a slash and a control character become "_", so that they cannot pass for
# another user or domain; an empty user is "unknown". A file that has not three whole lines within
# its first 4096 bytes, a link, a pipe and the like count as no file. An outcome counts from its
# second second on: one that came between the monitor's questions for the user and for the outcome
# would be reported without the user.
#
# Install as /usr/lib/orvan/ov-event-logger/vmw-signin-status.sh.
set -u
LC_ALL=C
export LC_ALL

STATE=/run/ov-event-logger/signin
STATE_BYTES=4096
SETTLED=2 # whole seconds: at least one has passed
LINE_FEED='
'

case $#$* in
    1success | 1error | 1user) ;;
    *) echo "Usage: $0 success|error|user" >&2; exit 2 ;;
esac

[ -f "$STATE" ] || exit 0

# Read without waiting and without following a link, whatever has come into the file's place since.
# The full stop keeps the line feeds at the end.
state=$(dd "if=$STATE" bs="$STATE_BYTES" count=1 iflag=nofollow,nonblock 2>/dev/null |
    tr '\000-\011\013-\037\177:/' '[_*]'; echo .)
case $state in
    *"$LINE_FEED"*"$LINE_FEED"*"$LINE_FEED"*) ;;
    *) exit 0 ;;
esac
outcome=${state%%"$LINE_FEED"*}
state=${state#*"$LINE_FEED"}
user=${state%%"$LINE_FEED"*}
state=${state#*"$LINE_FEED"}
domain=${state%%"$LINE_FEED"*}

case $outcome in
    success | error) ;;
    *) exit 0 ;;
esac

trimmed() {
    text=${1#"${1%%[! ]*}"}
    text=${text%"${text##*[! ]}"}
}

if [ "$1" = user ]; then
    trimmed "$user"
    user=${text:-unknown}
    trimmed "$domain"
    # The monitor drops empty fields before it counts them, and takes a blank one for no domain.
    printf 'signin:%s:%s:%s\n' "$user" "${text:- }" "$outcome"
elif [ "$1" = "$outcome" ]; then
    # The rename sets the change time. An outcome from before the clock was set back counts.
    age=$(($(date +%s) - $(stat -c %Z "$STATE"))) || exit 0
    if [ "$age" -lt 0 ] || [ "$age" -ge "$SETTLED" ]; then
        echo "$outcome"
    fi
fi
