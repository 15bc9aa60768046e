#!/usr/bin/env bash
# Installs the Debian packages the project builds with, when any is missing.
set -euo pipefail

packages=(cmake g++ make libgtest-dev libgmock-dev libbenchmark-dev libxml2-dev libpng-dev binutils)
missing=()
for p in "${packages[@]}"; do
  dpkg -s "$p" >/dev/null 2>&1 || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

if [ "$(id -u)" -ne 0 ]; then
  echo "setup: missing packages: ${missing[*]} (run as root to install them)" >&2
  exit 1
fi
echo "setup: installing ${missing[*]}"
apt-get update -qq
DEBIAN_FRONTEND=noninteractive apt-get install -y -qq "${missing[@]}"
