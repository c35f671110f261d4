# Which Debian 12 packages are needed, and how they get onto the machine. For sourcing.

build_packages=(
  cmake
  g++
  libasio-dev
  libcurl4-openssl-dev
  libfmt-dev
  libglib2.0-dev
  libicu-dev
  libsecret-1-dev
  libsimdjson-dev
  libsqlite3-dev
  libxcb1-dev
  ninja-build
  nlohmann-json3-dev
  pkgconf
  qt6-base-dev
)

check_packages=(
  "${build_packages[@]}"
  clang
  clang-format
  clang-tidy
  dbus-daemon
  git
  gnome-keyring
  libbenchmark-dev
  libgmock-dev
  libgtest-dev
  libssl-dev
)

fuzz_packages=(
  "${build_packages[@]}"
  clang
  libclang-rt-14-dev
)

# require_packages NAME...
#
# Installs those of the named packages that are missing. Touches nothing, the network included, when
# none is. Prints to standard error only. Returns non-zero when a package could not be installed.
require_packages() {
  # Without dpkg this is no Debian: CMake will say what it does not find.
  command -v dpkg-query >/dev/null || return 0
  local missing
  missing=$(LC_ALL=C comm -23 <(printf '%s\n' "$@" | LC_ALL=C sort -u) <(
    dpkg-query -W -f '${Package} ${db:Status-Status}\n' "$@" 2>/dev/null |
      sed -n 's/ installed$//p' | LC_ALL=C sort -u))
  [[ -z $missing ]] && return 0
  mapfile -t missing <<<"$missing"

  local as_root=()
  if [[ $(id -u) -ne 0 ]]; then
    if ! command -v sudo >/dev/null; then
      echo "These Debian packages are missing, install them as root: ${missing[*]}" >&2
      return 1
    fi
    as_root=(sudo)
  fi
  echo "Installing missing packages: ${missing[*]}" >&2
  as_root+=(env DEBIAN_FRONTEND=noninteractive apt-get -q)
  # A list that could not be fetched matters only if the installation fails.
  "${as_root[@]}" update >&2 </dev/null
  if ! "${as_root[@]}" install -y --no-install-recommends "${missing[@]}" >&2 </dev/null; then
    echo "These Debian packages could not be installed: ${missing[*]}" >&2
    return 1
  fi
}

# package_versions NAME...: one line a package.
package_versions() {
  dpkg-query -W -f '${Package} ${Version}\n' "$@" 2>/dev/null
}
