#!/usr/bin/env bash
# Installs a build into a fresh prefix and uses it as a packager and a user
# would, from folders outside the build tree: a consumer built with CMake
# and one built with pkg-config, the installed tool, no trace of the build
# tree in what was installed, and the Debian package of the same install.
#   bash tests/install/run.sh build/release
set -euo pipefail
[ $# -eq 1 ] || { echo "usage: $0 BUILD_DIR" >&2; exit 2; }
source_dir=$(cd "$(dirname "$0")/../.." && pwd)
build=$(cd "$1" && pwd)
work=$(mktemp -d "${TMPDIR:-/tmp}/pelagon-install.XXXXXX")
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix
consumer=$source_dir/tests/install/consumer
mkdir -p "$work/run"
passed=0 failed=0

# step TITLE FUNCTION: runs the function in the folder outside the build tree,
# in a subshell that stops at its first failing command (which it would not
# do inside an `if`), its output shown only when it fails.
step() {
  local status=0
  (cd "$work/run" && set -e && "$2") >"$work/log" 2>&1 || status=$?
  if [ "$status" -eq 0 ]; then
    echo "PASS $1"
    passed=$((passed + 1))
  else
    echo "FAIL $1"
    sed 's/^/    /' "$work/log"
    failed=$((failed + 1))
  fi
}

# Nothing from the caller's environment may point the programs at the build.
clean_env() { env -u PELAGON_APPLET -u LD_LIBRARY_PATH "$@"; }

install_build() {
  cmake --install "$build" --prefix "$prefix"
  test -f "$(pc_file)"
}
# Wherever <libdir> is (lib, lib64, lib/<triplet>).
pc_file() { find "$prefix" -path '*/pkgconfig/pelagon.pc' | head -n 1; }

cmake_consumer() {
  cmake -S "$consumer" -B "$work/cmake-consumer" -DCMAKE_PREFIX_PATH="$prefix"
  cmake --build "$work/cmake-consumer"
  clean_env "$work/cmake-consumer/consumer"
}

pkgconfig_consumer() {
  local libdir applet
  PKG_CONFIG_PATH=$(dirname "$(pc_file)")
  export PKG_CONFIG_PATH
  libdir=$(realpath -s "$(pkg-config --variable=libdir pelagon)")
  applet=$(pkg-config --variable=applet pelagon)
  test -f "$applet"
  # shellcheck disable=SC2046 # the flags are meant to split into words
  g++ -o "$work/pc-consumer" "$consumer/consumer.cpp" -DEXPECTED_APPLET="\"$applet\"" \
      $(pkg-config --cflags --libs pelagon) -Wl,-rpath,"$libdir"
  clean_env "$work/pc-consumer"
}

installed_tool() {
  clean_env "$prefix/bin/pelagon" info | tee "$work/out"
  grep -qE "^library +$prefix/.*/pelagon/applets/libPelagon.so$" "$work/out"
  clean_env "$prefix/bin/pelagon" --set FG_CAMERASIMULATOR_ENABLE=FG_CAMERASIMULATOR acquire -n 2 -o frames
  test -s frames/frame-0002.png
  # $PELAGON_APPLET overrides the installed applet.
  if PELAGON_APPLET=$work/none "$prefix/bin/pelagon" info 2>"$work/err"; then return 1; fi
  grep -F "$work/none" "$work/err"
}

# The Python package, when the build has one: imported from the prefix's
# site folder, it finds the installed applet and grabs a frame.
python_interpreter() {
  if compgen -G "$build/python/pelagon/_native*.so" >/dev/null; then
    sed -n 's/^Python_EXECUTABLE:[A-Z]*=//p' "$build/CMakeCache.txt"
  fi
}
python_package() {
  local site python
  python=$(python_interpreter)
  site=$(find "$prefix" -type d -path '*/dist-packages/pelagon' | head -n 1)
  test -n "$site"
  clean_env PYTHONPATH="$(dirname "$site")" PYTHONDONTWRITEBYTECODE=1 "$python" -c '
import sys, pelagon
prefix = sys.argv[1]
assert pelagon.__file__.startswith(prefix), pelagon.__file__
with pelagon.Grabber() as g:
    assert g.applet.startswith(prefix) and g.applet.endswith("/pelagon/applets/libPelagon.so"), g.applet
    g["FG_CAMERASIMULATOR_ENABLE"] = "FG_CAMERASIMULATOR"
    frame = g.snapshot()
    print(g.applet, frame.array.shape, frame.array.mean())
' "$prefix"
}

# Text files by content; the binaries by their RUNPATHs, which alone would
# let the installed programs quietly load the build tree's libraries.
no_build_paths() {
  if grep -rIlF "$build" "$prefix"; then return 1; fi
  local f
  while IFS= read -r f; do
    if readelf -d "$f" 2>/dev/null | grep -E 'R(UN)?PATH' | grep -F "$build"; then return 1; fi
  done < <(find "$prefix" -type f)
}

debian_package() {
  cpack -G DEB --config "$build/CPackConfig.cmake" -B "$work/package"
  local deb wanted
  deb=$(find "$work/package" -maxdepth 1 -name 'pelagon_*.deb' | head -n 1)
  dpkg-deb -c "$deb" >"$work/contents"
  for wanted in /usr/lib/pelagon/applets/libPelagon.so /usr/bin/pelagon /usr/include/pelagon/vboard/grabber.h \
                /PelagonConfig.cmake /pelagon.pc; do
    grep -qF "$wanted" "$work/contents" || { echo "missing from the package: $wanted"; return 1; }
  done
  if [ -n "$(python_interpreter)" ]; then
    grep -qF /usr/lib/python3/dist-packages/pelagon/__init__.py "$work/contents"
  fi
  # dpkg-shlibdeps filled in the dependencies.
  dpkg-deb -f "$deb" Depends | grep libc6
  # The packaged tree works wherever it is unpacked.
  dpkg-deb -x "$deb" "$work/unpacked"
  clean_env "$work/unpacked/usr/bin/pelagon" info | grep -E "^library +$work/unpacked/usr/"
}

step "cmake --install $1 into a fresh prefix" install_build
step "consumer built with find_package(Pelagon) opens the installed applet and acquires a frame" cmake_consumer
step "consumer built with pkg-config opens the installed applet and acquires a frame" pkgconfig_consumer
step "installed pelagon runs info and acquire from another folder" installed_tool
if [ -n "$(python_interpreter)" ]; then
  step "installed Python package imports from the prefix, opens the installed applet and grabs a frame" python_package
fi
step "no installed file names the build tree" no_build_paths
step "cpack -G DEB packages the install" debian_package
echo "install: $passed passed, $failed failed"
[ "$failed" -eq 0 ]
