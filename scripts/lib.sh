# Shared by scripts/test and scripts/run-demo: installs what is missing and configures builds.
# shellcheck shell=bash

QV_ROOT="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"

# Debian packages the build, the tests and the demo need.
QV_PACKAGES=(
  cmake ninja-build g++ pkg-config
  clang libclang-rt-14-dev          # libFuzzer targets
  libenet-dev                       # client protocol
  qtbase5-dev                       # application object, paths, HTTP
  libgtest-dev libgmock-dev googletest libbenchmark-dev
  libgdal-dev                       # scenery builder's elevation import
)

qv_install_deps() {
  local missing=()
  local pkg
  for pkg in "${QV_PACKAGES[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q "install ok installed"; then
      missing+=("$pkg")
    fi
  done
  if [ ${#missing[@]} -eq 0 ]; then
    return 0
  fi
  echo "Installing missing packages: ${missing[*]}"
  local sudo=""
  if [ "$(id -u)" -ne 0 ]; then
    sudo="sudo"
  fi
  # A fresh machine has no package lists yet.
  $sudo apt-get update
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y --no-install-recommends "${missing[@]}"
}

qv_jobs() {
  nproc 2>/dev/null || echo 2
}

# qv_configure BUILD_DIR [cmake options...]
qv_configure() {
  local dir="$1"
  shift
  cmake -S "$QV_ROOT" -B "$dir" -G Ninja "$@"
}

qv_build() {
  cmake --build "$1" -j "$(qv_jobs)"
}
