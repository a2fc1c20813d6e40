#!/bin/sh
# Stands in for romwrite.sh, which saves and writes the chip of R2 boards with the flashrom and
# chipprobe that lie beside it.
# Imitates: -y -B FILE (save), -y [-x] -F FILE (write; -x skips the identifier check).
# shellcheck source=tests/tools/standin.sh
. "${KELNODE_PATH}standin/standin.sh"
record_call romwrite.sh "$@"
obey romwrite.sh
beside=$(dirname "$0")
skip=no
while [ $# -gt 0 ]; do
    case $1 in
    -y) ;;
    -x) skip=yes ;;
    -B)
        "$beside/flashrom.x86_64" -r "$2" && "$beside/flashrom.x86_64" -v "$2"
        exit
        ;;
    -F)
        if [ $skip = no ] && ! "$beside/chipprobe.x86_64" -i -f "$2"; then
            echo "The image is not for this board."
            exit 1
        fi
        "$beside/flashrom.x86_64" -w "$2"
        exit
        ;;
    esac
    shift
done
echo "romwrite.sh: nothing to do" >&2
exit 2
