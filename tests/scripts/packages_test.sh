#!/usr/bin/env bash
# Tries scripts/packages.sh where dpkg-query, apt-get, sudo and id are stand-ins that keep a diary.
# Usage: packages_test.sh ROOT
set -u
root=$1
work=$(mktemp -d)
trap 'rm -rf -- "$work"' EXIT
mkdir "$work/bin"
failures=0

stand_in() {
  { echo '#!/bin/bash'; cat; } >"$work/bin/$1"
  chmod +x "$work/bin/$1"
}
for tool in bash comm env sed sort; do
  ln -s "$(command -v "$tool")" "$work/bin/$tool"
done
stand_in dpkg-query <<'END'
# "removed" is known to dpkg but not installed, "missing" is not known.
echo "here installed"
echo "removed config-files"
exit 1
END
stand_in apt-get <<'END'
echo "apt-get[$DEBIAN_FRONTEND] $*" >>"$DIARY"
echo "chatter of apt-get"
[[ ${!#} != unknown && ( $* != *update || -z ${NO_LISTS-} ) ]]
END
stand_in id <<'END'
echo "$USER_ID"
END

# try WHAT STATUS DIARY VARIABLES PACKAGE...: runs require_packages with a user and sees what it does.
try() {
  local what=$1 status=$2 diary=$3 variables=$4
  shift 4
  : >"$work/diary"
  env -u DEBIAN_FRONTEND PATH="$work/bin" DIARY="$work/diary" $variables bash -c \
    'source "$0"; require_packages "$@"' "$root/scripts/packages.sh" "$@" \
    >"$work/out" 2>"$work/err"
  local got=$?
  if [[ $got -eq $status && $(<"$work/diary") == "$diary" && ! -s $work/out ]]; then
    return
  fi
  printf 'FAILED: %s: status %s, diary and output:\n' "$what" "$got"
  cat "$work/diary" "$work/out" "$work/err"
  failures=$((failures + 1))
}
error_is() {
  [[ $(<"$work/err") == "$1" ]] && return
  printf 'FAILED: the error should be "%s", not\n' "$1"
  cat "$work/err"
  failures=$((failures + 1))
}
calls() {
  printf '%sapt-get[noninteractive] -q update\n' "$1"
  printf '%sapt-get[noninteractive] -q install -y --no-install-recommends %s' "$1" "$2"
}

try "nothing missing" 0 "" USER_ID=0 here
error_is ""
try "root" 0 "$(calls "" "missing removed")" USER_ID=0 here removed missing
try "stale lists" 0 "$(calls "" missing)" "USER_ID=0 NO_LISTS=1" missing
try "a package that does not exist" 1 "$(calls "" "missing unknown")" USER_ID=0 unknown missing
try "a user without sudo" 1 "" USER_ID=1000 here missing removed
error_is "These Debian packages are missing, install them as root: missing removed"
try "a user who needs nothing" 0 "" USER_ID=1000 here

stand_in sudo <<'END'
printf 'sudo ' >>"$DIARY"
exec "$@"
END
try "a user with sudo" 0 "$(calls "sudo " missing)" USER_ID=1000 here missing

[[ $failures -eq 0 ]]
