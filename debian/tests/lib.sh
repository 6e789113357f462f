# shellcheck shell=bash
# What the tests of the installed packages share.

# shellcheck disable=SC2034  # used by those that read this file
work=${AUTOPKGTEST_TMP:-$(mktemp -d)}
readonly work

# connected PORT PROCESS: has descriptor 3 be a connection to a port that a process opens.
connected() {
    until exec 3<>"/dev/tcp/127.0.0.1/$1"; do
        kill -0 "$2" || return 1
        sleep 0.1
    done 2>/dev/null
}

# greets PORT PROGRAM: starts the first program and talks to it as a client does.
greets() {
    local port=$1 program greeting="" reply="" status=0
    "$2" "$port" &
    program=$!
    connected "$port" "$program"
    read -r -t 60 greeting <&3
    echo "are you there?" >&3
    read -r -t 60 reply <&3
    exec 3>&-
    echo "it said: $greeting, $reply"
    [ "$greeting/$reply" = "hello/are you there?" ] || status=1
    kill "$program"
    return "$status"
}
