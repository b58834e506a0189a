# Installs the packages that the project needs and that are missing. ./dev sources this file.
# shellcheck shell=bash

# By line: compilers and linkers; Wine; the build; tests and the example; checks, native sanitizers
# and the model checker.
readonly packages=(
  clang lld llvm g++-mingw-w64-x86-64-posix gcc-mingw-w64-x86-64-posix g++ libc6-dev
  wine64
  cmake ninja-build
  googletest libcli11-dev locales
  clang-format clang-tidy libclang-rt-14-dev spin
)

missing_packages() {
  local package
  for package in "${packages[@]}"; do
    dpkg-query -W -f '${db:Status-Status}\n' "$package" 2> /dev/null | grep -qx installed ||
      printf '%s\n' "$package"
  done
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

setup() {
  mkdir -p build
  local missing
  mapfile -t missing < <(missing_packages)
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
