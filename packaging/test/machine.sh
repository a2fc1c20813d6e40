#!/bin/bash
# shellcheck disable=SC2154 # "base" is the including script's
# Sourced by scripts/package-test and scripts/service-test: the Debian 12 root that they lay their
# machines over. Wants "base" to be its directory, and die and say to be there.

makeBase() {
    [[ -e $base/etc/debian_version ]] && return
    command -v debootstrap >/dev/null || die "debootstrap is not installed"
    say "a Debian 12 root in $base"
    # procps: what every node has that was not installed as small as possible.
    debootstrap --variant=minbase --include=procps bookworm "$base.new" http://deb.debian.org/debian >/dev/null
    mv -T "$base.new" "$base"
}

# nextPackage DEBS NAME FILE: the package of that name as a later version would be, in FILE.
nextPackage() {
    local parts
    parts=$(mktemp -d /var/tmp/kelsh-next.XXXXXX)
    dpkg-deb -R "$1/$2"_[0-9]*.deb "$parts/root"
    sed -i 's/^Version: .*/Version: 99.0/' "$parts/root/DEBIAN/control"
    dpkg-deb --root-owner-group -b "$parts/root" "$3" >/dev/null
    rm -rf "$parts"
}
