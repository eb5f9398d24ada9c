#!/bin/sh
# Installs those packages of tools/packages.txt that this machine lacks; does nothing when all are
# there. Needs root, or sudo.
set -eu
cd "$(dirname "$0")"
missing=
for package in $(sed 's/#.*//' packages.txt); do
  dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed' ||
    missing="$missing $package"
done
[ -n "$missing" ] || exit 0
echo "installing:$missing"
sudo=
[ "$(id -u)" = 0 ] || sudo=sudo
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -qq
# shellcheck disable=SC2086
$sudo apt-get install -y -qq --no-install-recommends $missing >/dev/null
