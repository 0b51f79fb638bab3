# The common part of the scripts: their help, the packages that they need, and the build. Sourced,
# not run.
. scripts/packages.sh

# Prints the comment at the head of the script.
print_help() {
  sed -n '2,/^[^#]/s/^# \{0,1\}//p' "scripts/$(basename "$0")"
}

wrong_usage() {
  print_help >&2
  exit 2
}

# build PRESET [TARGET...]: configures and builds; shows the progress on a terminal, and the output
# on failure.
build() {
  local preset=$1 log
  shift
  [ $# -gt 0 ] || set -- all
  log=$(mktemp)
  if ! { cmake --preset "$preset" && cmake --build "build/$preset" --target "$@"; } 2>&1 |
       tee "$log" | show_progress; then
    cat "$log" >&2
    rm -f "$log"
    exit 1
  fi
  rm -f "$log"
}

# Shows in one line how far a build is, if standard error is a terminal.
show_progress() {
  if [ ! -t 2 ]; then
    cat >/dev/null
    return
  fi
  local line
  while IFS= read -r line; do
    case $line in
      \[*/*\]*) printf '\r\033[K  built %s' "${line%%]*}]" >&2 ;;
    esac
  done
  printf '\r\033[K' >&2
}

if [ "${1:-}" = --help ]; then
  print_help
  exit
fi
