#!/usr/bin/env bash
# Checks that the README's two commands work as written both as root on a machine without sudo
# and as an ordinary user with sudo, without the cost of running them for real: the commands
# run in a copy of the repository whose build, test and package steps are stand-ins that record
# how they were called (who, and through sudo or not): as root, apt-get runs directly; as a
# user, through sudo, and nothing else does. Takes about a second; run by .ci/run.
#   bash scripts/check-readme-commands.sh      # as root (checks both cases) or as a user (one)
set -euo pipefail
cd "$(dirname "$0")/.."
repo=$PWD

fail() { echo "check-readme-commands: $*" >&2; exit 1; }

# The commands: the lines of the README's first ```sh block, without their comments.
mapfile -t commands < <(awk '/^```sh/{inside=1; next} /^```/{if (inside) exit} inside' README.md |
                         sed 's/[[:space:]]*#.*$//' | sed '/^[[:space:]]*$/d')
[ ${#commands[@]} -eq 2 ] || fail "expected two commands in the README's first sh block, found ${#commands[@]}"
for command in "${commands[@]}"; do
  case "$command" in
    sudo\ *) fail "'$command' begins with sudo: a fresh Debian root shell has none" ;;
  esac
done

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
chmod 755 "$work"

# A copy of the repository's entry scripts; build.sh, the Windows leg, this check, the natc binary
# and the package tools are stand-ins that log "<what> uid=<uid> sudo=<0|1>" to $work/log.
make_tree() {
  local tree=$1
  mkdir -p "$tree/scripts" "$tree/.ci" "$tree/build/tools/natc" "$tree/bin"
  cp README.md "$tree/"
  cp scripts/setup.sh scripts/run-main.sh scripts/test-all.sh "$tree/scripts/"
  cp .ci/run "$tree/.ci/run"
  local record='echo "$(basename "$0") $* uid=$(id -u) sudo=${NATC_VIA_SUDO:-0}" >> '"$work/log"
  printf '#!/usr/bin/env bash\n%s\n' "$record" > "$tree/scripts/build.sh"
  printf '#!/usr/bin/env bash\n%s\n' "$record" > "$tree/scripts/test-windows.sh"
  printf '#!/usr/bin/env bash\n%s\n' "$record" > "$tree/scripts/check-readme-commands.sh"
  printf '#!/usr/bin/env bash\n%s\n' "$record" > "$tree/build/tools/natc/natc"
  for tool in ctest apt-get; do
    printf '#!/usr/bin/env bash\n%s\n' "$record" > "$tree/bin/$tool"
  done
  # One package is missing, so that setup.sh has to install it.
  printf '#!/usr/bin/env bash\n[ "${*: -1}" = build-essential ] && exit 1\nprintf "install ok installed"\n' \
    > "$tree/bin/dpkg-query"
  chmod -R a+rX "$tree"
  chmod a+x "$tree/bin/"* "$tree/scripts/build.sh" "$tree/build/tools/natc/natc"
}

# Runs both commands in $tree as the identity given by the prefix words; checks the log.
run_case() {
  local name=$1 tree=$2 expect_install=$3
  shift 3
  : > "$work/log"
  chmod a+w "$work/log"
  for command in "${commands[@]}"; do
    (cd "$tree" && "$@" env PATH="$tree/bin:/usr/bin:/bin" bash -c "$command") > "$work/out" 2>&1 ||
      { cat "$work/out" >&2; fail "$name: '$command' failed"; }
  done
  grep -q "^apt-get install .* $expect_install" "$work/log" ||
    { cat "$work/log" >&2; fail "$name: packages were not installed with $expect_install"; }
  grep -q "^build.sh release" "$work/log" || fail "$name: the build did not run"
  grep -q "^natc run" "$work/log" || fail "$name: natc run did not run"
  grep -q "^ctest " "$work/log" || fail "$name: the tests did not run"
  grep -q "^test-windows.sh" "$work/log" || fail "$name: the Windows leg did not run"
  if grep -v "^apt-get" "$work/log" | grep -q "sudo=1"; then
    fail "$name: something other than apt-get ran through sudo"
  fi
  echo "check-readme-commands: $name: ok"
}

# The user's sudo is a stand-in too: it marks what runs through it and runs it unchanged, so
# that no package tool ever runs for real.
user_sudo() {
  printf '#!/usr/bin/env bash\nexec env NATC_VIA_SUDO=1 "$@"\n' > "$1/bin/sudo"
  chmod a+x "$1/bin/sudo"
}

if [ "$(id -u)" -eq 0 ]; then
  # Root with no sudo anywhere: a stand-in that fails as a missing command does.
  make_tree "$work/root"
  printf '#!/usr/bin/env bash\necho "sudo: command not found" >&2\nexit 127\n' > "$work/root/bin/sudo"
  chmod a+x "$work/root/bin/sudo"
  run_case "root without sudo" "$work/root" "uid=0 sudo=0"
  # An ordinary user (nobody) with sudo.
  make_tree "$work/user"
  user_sudo "$work/user"
  chmod a+w "$work/user" "$work/user/build"
  run_case "user with sudo" "$work/user" "uid=65534 sudo=1" setpriv --reuid=65534 --regid=65534 --clear-groups
else
  make_tree "$work/user"
  user_sudo "$work/user"
  run_case "user with sudo" "$work/user" "uid=$(id -u) sudo=1"
  echo "check-readme-commands: root without sudo: not checked (run as root to check it)"
fi
