#!/usr/bin/env bash
# Installs the Debian packages the project builds with, when any is missing,
# and the German locale that the file tests switch to (a host with a decimal
# comma must still get decimal points in the applet's files).
set -euo pipefail

# dpkg-dev and file: cpack's Debian packages (dpkg-shlibdeps); pkgconf: the
# install test builds a consumer with pkg-config; libedit: the tool shell's
# line editing; ffmpeg: the tests read the tool's frame streams with it;
# python3-*: the Python package and its tests; cpp-httplib and turbojpeg:
# the HTTP server and the live image of `pelagon serve`; chromium and nodejs:
# its browser test, with the driver pinned in tests/browser/package-lock.json.
packages=(cmake g++ make libgtest-dev libgmock-dev libbenchmark-dev libxml2-dev libxml2-utils libpng-dev libcli11-dev nlohmann-json3-dev binutils
          locales clang libclang-rt-14-dev dpkg-dev file pkgconf ffmpeg libedit-dev libcpp-httplib-dev libturbojpeg0-dev chromium nodejs
          python3-dev pybind11-dev python3-numpy python3-pytest)
missing=()
for p in "${packages[@]}"; do
  dpkg -s "$p" >/dev/null 2>&1 || missing+=("$p")
done

test_locale=de_DE.UTF-8
has_locale() {
  locale -a 2>/dev/null | grep -qix 'de_DE\.utf-\?8'
}

# The browser driver of the page's test, exactly as the lockfile pins it,
# into tests/browser/node_modules (git-ignored); again only when the lockfile
# changed since.
browser_driver() {
  local dir stamp
  dir="$(cd "$(dirname "$0")/.." && pwd)/tests/browser"
  stamp="$dir/node_modules/.package-lock.json"
  if ! command -v npm >/dev/null 2>&1; then
    echo "setup: npm missing: the browser test of pelagon serve will be skipped" >&2
    return 0
  fi
  if [ ! -f "$stamp" ] || [ "$dir/package-lock.json" -nt "$stamp" ]; then
    echo "setup: installing the browser driver (npm ci in tests/browser)"
    (cd "$dir" && npm ci --no-audit --no-fund --loglevel=error)
  fi
}

[ ${#missing[@]} -eq 0 ] && has_locale && { browser_driver; exit 0; }

if [ "$(id -u)" -ne 0 ]; then
  [ ${#missing[@]} -eq 0 ] || echo "setup: missing packages: ${missing[*]} (run as root to install them)" >&2
  has_locale || echo "setup: locale $test_locale missing (run as root to generate it; its tests skip)" >&2
  [ ${#missing[@]} -eq 0 ] && { browser_driver; exit 0; }
  exit 1
fi
if [ ${#missing[@]} -ne 0 ]; then
  echo "setup: installing ${missing[*]}"
  apt-get update -qq
  DEBIAN_FRONTEND=noninteractive apt-get install -y -qq "${missing[@]}"
fi
if ! has_locale; then
  echo "setup: generating locale $test_locale"
  touch /etc/locale.gen
  if grep -q "^# *$test_locale UTF-8" /etc/locale.gen; then
    sed -i "s/^# *$test_locale UTF-8/$test_locale UTF-8/" /etc/locale.gen
  elif ! grep -q "^$test_locale UTF-8" /etc/locale.gen; then
    echo "$test_locale UTF-8" >>/etc/locale.gen
  fi
  locale-gen >/dev/null
fi
browser_driver
