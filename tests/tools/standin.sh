# Shared by the stand-in tools, which source it from their node's install directory.
#
# A node's machine is the directory $KELNODE_PATH/standin:
#   calls       one line per call: the tool's name and each argument in brackets
#   TOOL.do     what the tool is to do: "fail", "garbage", "hang" (until the file "release" is
#               there), "exit N"; without it the tool works. The first line counts.
#   chip, cmos, nvram...   the hardware, as plain files
# shellcheck shell=sh

machine="${KELNODE_PATH}standin"
# In case a tool is started with an empty search path.
PATH="${PATH:-/usr/sbin:/usr/bin:/sbin:/bin}"

# Records the call as one line with a single write, so that calls at the same time do not mix.
record_call() {
    tool=$1
    shift
    line=$tool
    for argument in "$@"; do
        line="$line [$argument]"
    done
    printf '%s\n' "$line" >>"$machine/calls"
}

# Does what TOOL.do says, if anything. Returns only when the tool is to work.
obey() {
    tool=$1
    [ -e "$machine/$tool.do" ] || return 0
    read -r order number <"$machine/$tool.do" || true
    case $order in
    fail)
        echo "$tool: cannot access the hardware" >&2
        exit 1
        ;;
    garbage)
        printf '\001\377\376garbage \033[2J%%s\n'
        exit 7
        ;;
    exit)
        exit "$number"
        ;;
    hang)
        echo "$tool: started" >>"$machine/hanging"
        while [ ! -e "$machine/release" ]; do
            sleep 0.05
        done
        ;;
    esac
}

# The driver that the flash program needs.
require_driver() {
    grep -qx romio "$machine/loaded" 2>/dev/null && return 0
    echo "$1: the romio driver is not loaded" >&2
    exit 1
}
