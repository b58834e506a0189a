# Installs the packages that a command needs and that are missing. ./dev sources this file.
# shellcheck shell=bash

readonly -A packages=(
  [build]="cmake ninja-build python3"
  [linux]="g++ libc6-dev liburing-dev"
  [clang]="clang lld llvm g++ libc6-dev"
  [coverage]="clang-19 libclang-rt-19-dev lld-19 llvm-19"
  [windows]="g++-mingw-w64-x86-64-posix gcc-mingw-w64-x86-64-posix wine64 python3-minimal"
  [arm64]="g++-aarch64-linux-gnu make qemu-user"
  [example]="libcli11-dev"
  [tools]="libcli11-dev nlohmann-json3-dev"
  [tests]="gdb googletest libcli11-dev lldb locales pkg-config"
  [bench]="libbenchmark-dev libjemalloc2 libmimalloc2.0 libtbbmalloc2 libtcmalloc-minimal4"
  [package]="dpkg-dev file gzip help2man"
  [docs]="furo python3 python3-myst-parser python3-sphinx"
  [report]="python3-matplotlib"
  [checks]="clang-format clang-tidy libclang-rt-14-dev python3 spin"
)

# missing_packages PART ...
missing_packages() {
  local part package
  for part in "$@"; do
    for package in ${packages[$part]}; do
      dpkg-query -W -f '${db:Status-Status}\n' "$package" 2> /dev/null | grep -qx installed ||
        printf '%s\n' "$package"
    done
  done | sort -u
}

as_root() {
  if ((EUID == 0)); then
    "$@"
  elif command -v sudo > /dev/null; then
    sudo "$@"
  else
    echo "dev: installing packages needs root: run this as root, or install sudo" >&2
    return 1
  fi
}

# setup PART ...: what the parts need; every part but arm64, bench, coverage, docs and package if none
# is named
setup() {
  mkdir -p build
  (($# > 0)) || set -- build linux clang windows example tools tests checks
  local missing
  mapfile -t missing < <(missing_packages "$@")
  ((${#missing[@]} > 0)) || return 0
  printf '\n\033[1m==> Installing %s\033[0m\n' "${missing[*]}"
  local log=build/setup.log
  {
    as_root env DEBIAN_FRONTEND=noninteractive apt-get update -qq &&
      as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq \
        --no-install-recommends "${missing[@]}"
  } > "$log" 2>&1 || {
    tail -n 20 "$log"
    echo "dev: the packages could not be installed; the whole log is $log" >&2
    return 1
  }
}
