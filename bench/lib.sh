# Shared by the benchmark scripts that run the reference host (source it from the repository's
# root): builds the host and the demo-track tool of the default build, makes a private work folder
# with its own configuration and cache (removed on exit), and runs commands there against the
# embedded sandbox.
bin=build/default/bin
cmake --build --preset default --target sorvel_host sorvel-demo-tracks >/dev/null

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir -p "$work/config" "$work/cache"

# Runs its arguments with no service configured (the embedded sandbox, as on a fresh machine) and
# the work folder's configuration and cache.
with_embedded_sandbox() {
  env -u SORVEL_SERVER_URL -u SORVEL_LOGIN_URL -u SORVEL_PARTNER_ID -u SORVEL_PARTNER_KEY \
    XDG_CONFIG_HOME="$work/config" XDG_CACHE_HOME="$work/cache" "$@"
}
