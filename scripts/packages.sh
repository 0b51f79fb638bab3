# Debian and Ubuntu packages that the scripts need, and the functions that install them. Sourced by
# common.sh.

build_packages="g++ cmake make ninja-build pkg-config libsystemd-dev libutf8proc-dev libexpat1-dev"
sample_packages="libsqlite3-dev libssl-dev"
demo_packages="$build_packages $sample_packages dbus-daemon dbus-bin"
tool_packages="libcli11-dev nlohmann-json3-dev"
objc_packages="gobjc++ libgnustep-base-dev"
package_packages="dpkg-dev file"
loop_packages="libglib2.0-dev qt6-base-dev"
test_packages="$demo_packages $tool_packages $objc_packages $loop_packages $package_packages libgtest-dev libdbus-1-dev
  dbus-broker systemd xdg-dbus-proxy doxygen python3 python3-gi procps git"
reference_packages="doxygen python3"
picture_packages="$demo_packages qt6-base-dev libqt6svg6 xvfb openbox fonts-dejavu-core"
flatpak_packages="$demo_packages flatpak ostree"
bench_packages="$demo_packages libglib2.0-dev procps python3 strace btrfs-progs binutils util-linux"
instruction_packages="$demo_packages python3 util-linux valgrind"
check_packages="clang clang-format clang-tidy libclang-rt-dev"

# Prints the oldest libc++ version that has all of std::ranges, which a distribution's clang can
# read: that of Debian 12 if the package lists are not loaded yet.
libcxx_version() {
  local version
  for version in 16 17 18 19 20 21; do
    if apt-cache show "libc++-$version-dev" >/dev/null 2>&1; then
      printf '%s\n' "$version"
      return
    fi
  done
  printf '16\n'
}

# need_packages INSTALL PACKAGES: installs the missing ones if INSTALL is "yes", else names them and
# exits.
need_packages() {
  local install=$1 missing="" package log
  shift
  for package in "$@"; do
    dpkg-query -W -f '${db:Status-Status}\n' "$package" 2>/dev/null | grep -qx installed ||
      missing="$missing $package"
  done
  [ -z "$missing" ] && return 0
  if [ "$install" != yes ]; then
    printf 'These packages are missing:%s\nInstall them, or leave out --no-install.\n' "$missing" >&2
    exit 1
  fi
  local as_root=""
  if [ "$(id -u)" -ne 0 ]; then
    command -v sudo >/dev/null || {
      printf 'These packages are missing, and this needs root or sudo:%s\n' "$missing" >&2
      exit 1
    }
    as_root=sudo
  fi
  printf 'Installing:%s\n' "$missing"
  log=$(mktemp)
  # shellcheck disable=SC2086
  $as_root env DEBIAN_FRONTEND=noninteractive sh -c '
    apt-get -qq update && apt-get -qq install --yes --no-install-recommends "$@"
  ' sh $missing >"$log" 2>&1 || {
    cat "$log" >&2
    rm -f "$log"
    exit 1
  }
  rm -f "$log"
}
