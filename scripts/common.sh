# shellcheck shell=bash
# What both commands share; sourced, not run.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$root"
jobs=$(nproc)

step() { printf '\n== %s\n' "$*"; }

# need <package>...: installs what is missing, or says what to install.
need() {
  local missing=() package
  for package in "$@"; do
    if command -v dpkg-query >/dev/null && dpkg-query -W -f '${Status}' "$package" 2>/dev/null | grep -q 'ok installed'; then
      continue
    fi
    missing+=("$package")
  done
  [ ${#missing[@]} -eq 0 ] && return
  if command -v apt-get >/dev/null && [ "$(id -u)" -eq 0 ]; then
    step "Installing ${missing[*]}"
    export DEBIAN_FRONTEND=noninteractive
    apt-get update -qq
    apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
  elif command -v dpkg-query >/dev/null; then
    echo "Please install: ${missing[*]}   (sudo apt-get install ${missing[*]})"
    exit 1
  else
    echo "This is no Debian system; make sure that the equals of these packages are there: ${missing[*]}"
  fi
}

# The processor generations that this machine has, the best one to build for first.
cpu_generations() {
  case $(uname -m) in
    x86_64) ;;
    aarch64) echo armv8-a; return ;;
    *) echo portable; return ;;
  esac
  local flags
  flags=" $(grep -m1 '^flags' /proc/cpuinfo | cut -d: -f2) "
  has() {
    local flag
    for flag in "$@"; do
      case $flags in *" $flag "*) ;; *) return 1 ;; esac
    done
  }
  if ! has sse4_1 sse4_2 ssse3 popcnt cx16; then
    echo portable
  elif ! has avx2 bmi1 bmi2 fma f16c movbe abm; then
    echo x86-64-v2
  elif ! has avx512f avx512bw avx512cd avx512dq avx512vl; then
    echo x86-64-v3 x86-64-v2
  else
    echo x86-64-v3 x86-64-v2 x86-64-v4
  fi
}
cpu_generation() { cpu_generations | cut -d' ' -f1; }

# shellcheck disable=SC2034  # who sources this uses it
build_packages=(g++ cmake ninja-build libpng-dev libtiff-dev)

# build <preset> <target>... -- <cmake options>...
build() {
  local preset=$1 targets=()
  shift
  while [ $# -gt 0 ] && [ "$1" != -- ]; do targets+=("$1"); shift; done
  [ $# -gt 0 ] && shift
  cmake --preset "$preset" -DQELJ_CPU=native "$@" >/dev/null
  cmake --build "build/$preset" --parallel "$jobs" ${targets:+--target "${targets[@]}"}
}
