#!/usr/bin/env bash
# Builds the Debian package with CPack and checks its contents list and its control fields:
# the programs, modules, plug-in, manual page, completions and desktop entry under /usr, nothing
# of the tests or headers, and dependencies computed from the binaries by dpkg-shlibdeps.
#   package-test.sh BUILD_DIR
#
# CPack stages and writes the package in a temporary folder of the test's own, so the test runs
# beside the others: nothing in the build folder is rebuilt and no package lands there (CTest runs
# after the build, so the binaries are the ones just built). Only CMake's install_manifest.txt is
# rewritten there, as by every install; nothing reads it.
set -euo pipefail
build=$1
fail() { echo "package test: $*" >&2; exit 1; }

work=$(mktemp -d "${TMPDIR:-/tmp}/sorvel-package.XXXXXX")
trap 'rm -rf "$work"' EXIT
cpack --config "$build/CPackConfig.cmake" -B "$work/cpack" -D CPACK_OUTPUT_FILE_PREFIX="$work/out" \
  >"$work/cpack.log" 2>&1 || { tail -30 "$work/cpack.log"; fail "cpack failed"; }
debs=("$work"/out/sorvel_*.deb)
deb=${debs[0]}
[ -f "$deb" ] || fail "no package in $work/out"

contents=$(dpkg-deb -c "$deb" | awk '{print $6}')
for path in ./usr/bin/sorvel ./usr/bin/sorvel-sandbox ./usr/bin/sorvel-demo-tracks ./usr/lib/sorvel/plugins/sorvel.so \
            ./usr/lib/sorvel/libkvxnet.so ./usr/share/man/man1/sorvel.1.gz ./usr/share/applications/sorvel.desktop \
            ./usr/share/bash-completion/completions/sorvel ./usr/share/zsh/vendor-completions/_sorvel \
            ./usr/share/icons/hicolor/32x32/apps/sorvel.png; do
  grep -qx -- "$path" <<<"$contents" || fail "$path is not in the package"
done
if grep -Eq '/include/|_tests$|_bench$|fuzzer|broken_theme' <<<"$contents"; then
  fail "the package holds what is not for users: $(grep -E '/include/|_tests$|_bench$|fuzzer|broken_theme' <<<"$contents")"
fi

info=$(dpkg-deb -I "$deb")
depends=$(sed -n 's/^ Depends: //p' <<<"$info")
for library in libc6 libcurl4 libsndfile1 libsoxr0 libsecret-1-0 libpango-1.0-0 libcairo2 libpugixml1v5 libsqlite3-0 fonts-liberation; do
  grep -q "\b$library\b" <<<"$depends" || fail "Depends lacks $library: $depends"
done
grep -q '^ Architecture: amd64\|^ Architecture: arm64' <<<"$info" || fail "no binary architecture: $info"
grep -q '^ Version: [0-9]' <<<"$info" || fail "no version: $info"
echo "package test: $(basename "$deb"), Depends: $depends"
