#!/bin/sh
# Stands in for the script around lUpdate, which switches the drivers over. All that it needs lies
# beside it.
tools="${KELNODE_PATH}tools"
for part in load_ipmi_driver bmc_driver_off kcs.cfg; do
    if [ ! -e "$tools/$part" ]; then
        echo "lUpdate.sh: $part is missing"
        exit 1
    fi
done
"$tools/bmc_driver_off" && "$tools/lUpdate" "$@" && "$tools/load_ipmi_driver"
