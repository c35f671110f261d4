#!/usr/bin/env bash
# Runs clang-tidy over every source file of the preset "clang", as many at a time as there are
# processors. Usage: scripts/tidy.sh, after `cmake --preset clang`.
#
# A file takes some ten seconds, so a clean result is remembered under the hash of all that it rests
# on: the file and the project headers it includes, its compile command, the tidy settings and the
# versions of the packages. Findings are never remembered.
set -u
root=$(dirname -- "$(dirname -- "$(readlink -f -- "${BASH_SOURCE[0]}")")")
cd -- "$root" || exit 1
source scripts/packages.sh
database=build/clang/compile_commands.json
# Beside the caches of other tools, so that a fresh clone profits from it too.
clean=${XDG_CACHE_HOME:-${HOME:-/root}/.cache}/tessivane/tidy
mkdir -p "$clean"
list=build/tidy.list

# settings_hash: what every file's result rests on.
settings_hash() {
  {
    cat .clang-tidy tests/.clang-tidy bench/.clang-tidy scripts/tidy.sh
    clang-tidy --version
    package_versions "${check_packages[@]}"
  } | sha256sum
}

# tidy_file FILE COMMAND, with COMMAND as a line of shell.
tidy_file() {
  local file=$1 command=$2 headers key output
  # When this fails, clang-tidy below tells why.
  if headers=$(eval "$command -MM -MT x -o /dev/stdout" 2>/dev/null); then
    # Where the clone lies does not matter.
    key=$({
      printf '%s\n' "$settings" "$command"
      sed -e 's/^x://' -e 's/ \\$//' <<<"$headers" | xargs sha256sum
    } | sed -e "s|$root/||g" | sha256sum)
    key=$clean/${key%% *}
    [[ -e $key ]] && touch "$key" && return 0
  fi
  if output=$(clang-tidy -p build/clang --quiet "$file" 2>&1); then
    echo "${file#"$root"/}: clean"
    [[ -n ${key-} ]] && touch "$key"
    return 0
  fi
  grep -v '^[0-9]* warnings\? generated\.$' <<<"$output"
  return 1
}
export -f tidy_file
settings=$(settings_hash)
export root clean settings

# The database has one line for a command and, after it, one for its file. Generated sources, which
# lie in the build folder, are left out.
sed -n -e 's/^ *"command": "\(.*\)",$/\1/p' -e 's/^ *"file": "\(.*\)",\{0,1\}$/\1/p' "$database" |
  sed -e 's/\\\(["\\]\)/\1/g' |
  while IFS= read -r command && IFS= read -r file; do
    [[ $file == "$root"/build/* ]] || printf '%s\0%s\0' "$file" "$command"
  done >"$list"

# What no target compiles would never be looked at.
status=0
while IFS= read -r file; do
  if ! grep -qzxF -- "$root/$file" "$list"; then
    echo "$file: no target of the preset clang compiles it"
    status=1
  fi
done < <(find src tests bench fuzz -name '*.cpp')

xargs -0 -r -n 2 -P "$(nproc)" bash -c 'tidy_file "$@"' tidy <"$list" || status=1
find "$clean" -type f -mtime +30 -delete
exit $status
