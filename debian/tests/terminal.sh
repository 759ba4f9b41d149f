# Read by the tests that need a terminal. start COMMAND begins a session in a directory of its own, which is also HOME, and
# goes there; the shell's prompt is "ready> ". press KEY... presses keys. wait_for TEXT waits until the screen shows the
# text, at most 20 seconds. stop ends the session and removes the directory.
# shellcheck shell=sh

start() {
    directory=$(mktemp -d)
    cd "$directory" || exit
    trap stop EXIT
    env -i HOME="$directory" PATH="$PATH" LANG=C.UTF-8 TERM=screen PS1='ready> ' tmux -L "kpe$$" -f /dev/null \
        new-session -d -x 100 -y 30 "$1"
}

stop() {
    terminal kill-server 2>/dev/null || true
    cd / || exit
    rm -rf "$directory"
}

terminal() {
    tmux -L "kpe$$" "$@"
}

press() {
    for key in "$@"; do terminal send-keys "$key"; done
}

wait_for() {
    for _ in $(seq 200); do
        terminal capture-pane -p | grep -qF -e "$1" && return 0
        sleep 0.1
    done
    echo "the screen does not show: $1" >&2
    terminal capture-pane -p >&2
    return 1
}
