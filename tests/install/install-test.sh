#!/usr/bin/env bash
# Installs the build into a temporary DESTDIR, moves the installed tree elsewhere, and runs the
# moved `sorvel publish` on a demo track against the embedded sandbox, with no variable pointing
# anywhere: the program must find its modules and its plug-in from where it stands. Also checks
# what is installed (and that nothing else is), the RUNPATHs, the desktop entry and the bash
# completion. Nothing is installed into the machine's own folders.
#   install-test.sh BUILD_DIR
set -euo pipefail
build=$1
work=$(mktemp -d "${TMPDIR:-/tmp}/sorvel-install.XXXXXX")
trap 'rm -rf "$work"' EXIT
fail() { echo "install test: $*" >&2; exit 1; }

DESTDIR="$work/stage" cmake --install "$build" --prefix /opt/sorvel >"$work/install.log" ||
  { cat "$work/install.log"; fail "cmake --install failed"; }
mv "$work/stage/opt/sorvel" "$work/moved"
tree=$work/moved

# Exactly what a user runs, and nothing of the tests, benchmarks, fuzzers or headers.
expected="bin/sorvel
bin/sorvel-demo-tracks
bin/sorvel-sandbox
lib/sorvel/libkvxaudio.so
lib/sorvel/libkvxgui.so
lib/sorvel/libkvxnet.so
lib/sorvel/libkvxsecurity.so
lib/sorvel/libkvxsystem.so
lib/sorvel/libkvxtext.so
lib/sorvel/plugins/sorvel.so
share/applications/sorvel.desktop
share/bash-completion/completions/sorvel
share/icons/hicolor/32x32/apps/sorvel.png
share/man/man1/sorvel.1.gz
share/zsh/vendor-completions/_sorvel"
actual=$(cd "$tree" && find . -type f | sed 's|^\./||' | LC_ALL=C sort)
[ "$actual" = "$expected" ] || fail "installed files differ:
$(diff <(echo "$expected") <(echo "$actual") || true)"

# Every program and module finds what it links relative to itself.
for file in bin/sorvel lib/sorvel/plugins/sorvel.so lib/sorvel/libkvxgui.so; do
  runpath=$(readelf -d "$tree/$file" | sed -n 's/.*(RUNPATH).*\[\(.*\)\]/\1/p')
  case $runpath in
    '$ORIGIN'*) ;;
    *) fail "$file has RUNPATH '$runpath', not one relative to itself" ;;
  esac
done

# The moved program publishes a demo track to its embedded sandbox, loading the moved plug-in.
home=$work/home
mkdir -p "$home"
# Nothing of the caller's environment but the search path, the private keyring's bus and the
# sanitizers' settings.
run() {
  local keep=()
  for name in DBUS_SESSION_BUS_ADDRESS ASAN_OPTIONS LSAN_OPTIONS UBSAN_OPTIONS TSAN_OPTIONS; do
    [ -n "${!name:-}" ] && keep+=("$name=${!name}")
  done
  env -i PATH=/usr/bin:/bin HOME="$home" LANG=C.UTF-8 "${keep[@]}" "$@"
}
run "$tree/bin/sorvel-demo-tracks" "$work/demo" >/dev/null || fail "sorvel-demo-tracks failed"
version=$(run "$tree/bin/sorvel" --version)
grep -Eq '^sorvel [0-9]+\.[0-9]+\.[0-9]+ \(commit [0-9a-f]{7,}' <<<"$version" || fail "sorvel --version: $version"
demos=("$work"/demo/*.flac)
demo=${demos[0]}
if ! run env LD_DEBUG=libs "$tree/bin/sorvel" publish --no-progress "$demo" >"$work/out" 2>"$work/err"; then
  grep -v '^ *[0-9]*:' "$work/err" >&2 || true
  fail "the moved sorvel publish failed"
fi
grep -q "uploaded to" "$work/out" || fail "no upload reported: $(cat "$work/out")"
grep -q "calling init: $tree/lib/sorvel/plugins/sorvel.so" "$work/err" || fail "the moved plug-in was not the one loaded"
grep -q "calling init: $tree/bin/../lib/sorvel/libkvxnet.so" "$work/err" || fail "the moved modules were not the ones loaded"
if grep -q "calling init: $build/" "$work/err"; then fail "something was loaded from the build folder"; fi

# A plug-in folder of the user's comes first.
mkdir -p "$home/.local/share/sorvel/plugins"
cp "$tree/lib/sorvel/plugins/sorvel.so" "$home/.local/share/sorvel/plugins/"
run env LD_DEBUG=libs "$tree/bin/sorvel" products >/dev/null 2>"$work/err" || fail "sorvel products failed"
grep -q "calling init: $home/.local/share/sorvel/plugins/sorvel.so" "$work/err" || fail "the user's plug-in folder was not searched first"

# Without a plug-in anywhere the program says where it looked, and nothing is loaded from the build.
rm "$tree/lib/sorvel/plugins/sorvel.so" "$home/.local/share/sorvel/plugins/sorvel.so"
status=0
run "$tree/bin/sorvel" products >/dev/null 2>"$work/err" || status=$?
[ "$status" = 4 ] || fail "no plug-in: exit $status, not 4"
grep -q "no plug-in sorvel.so found; looked in:" "$work/err" || fail "no plug-in: $(cat "$work/err")"
grep -qx "  $tree/lib/sorvel/plugins" "$work/err" || fail "the installed folder is not named: $(cat "$work/err")"

# The manual page reads, the desktop entry is valid, the completion offers commands and options.
# Checks read a whole output before they search it: under pipefail, `producer | grep -q` fails
# whenever grep has found its line and gone before the producer's last write (SIGPIPE).
manual=$(gzip -dc "$tree/share/man/man1/sorvel.1.gz")
grep -q '^\.SH "*EXIT STATUS' <<<"$manual" || fail "the manual page has no EXIT STATUS section"
desktop-file-validate "$tree/share/applications/sorvel.desktop" || fail "the desktop entry is not valid"
complete_words() {
  bash -c 'source "$1"; shift; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); _sorvel; printf "%s\n" "${COMPREPLY[@]}"' \
    _ "$tree/share/bash-completion/completions/sorvel" "$@"
}
[ "$(complete_words sorvel pu)" = "publish" ] || fail "completion of 'sorvel pu': $(complete_words sorvel pu)"
offers() { grep -qx -- "$1" <<<"$2"; }
offers --new-product "$(complete_words sorvel publish --new)" || fail "no --new-product after publish"
offers --settle "$(complete_words sorvel publish --se)" || fail "no --settle after publish"
signout_words=$(complete_words sorvel signout --)
offers --forget "$signout_words" || fail "no --forget after signout"
if offers --product "$signout_words"; then fail "signout offers --product"; fi
echo "install test: installed, moved and published from $tree"
