#!/usr/bin/env bash
# Installs the Debian packages that the named kinds of work need and that are not there yet.
set -euo pipefail

declare -A sets=(
  [build]="gcc g++ libc6-dev binutils cmake ninja-build"
  [tool]="pkg-config libcups2-dev libpng-dev libtiff-dev lowdown"
  [test]="libgtest-dev libgmock-dev bash-completion libtiff-tools mandoc netpbm parallel python3 python3-pil pkg-config zsh"
  [reference]="doxygen"
  [bench]="libbenchmark-dev python3"
  [peers]="debian-policy poppler-utils graphicsmagick libvips-tools netpbm time libopencv-imgproc-dev libopencv-core-dev libyuv-dev libpixman-1-dev"
  [figures]="llvm python3"
  [demo]="python3 poppler-utils"
  [gallery]="python3 python3-pil poppler-utils fonts-dejavu-core"
  [clang]="clang libclang-rt-14-dev"
  [arm]="gcc-arm-linux-gnueabihf g++-arm-linux-gnueabihf libc6-dev-armhf-cross googletest"
  [aarch64]="gcc-aarch64-linux-gnu g++-aarch64-linux-gnu libc6-dev-arm64-cross googletest"
  [i386]="gcc-12-multilib g++-12-multilib googletest"
  [powerpc]="gcc-powerpc-linux-gnu g++-powerpc-linux-gnu libc6-dev-powerpc-cross googletest"
  [s390x]="gcc-s390x-linux-gnu g++-s390x-linux-gnu libc6-dev-s390x-cross googletest"
  [wasm]="clang lld llvm wasi-libc libclang-rt-14-dev-wasm32 libc++-16-dev-wasm32 libc++abi-16-dev-wasm32 python3"
  [browser]="nodejs chromium chromium-driver python3-selenium python3-pil"
  [qemu]="qemu-user"
  [queue]="cups cups-filters ghostscript printer-driver-gutenprint"
  [musl]="musl-tools"
  [simulated]="libsimde-dev"
  [abi]="abigail-tools"
  [coverage]="gcovr"
  [valgrind]="valgrind libc6-dbg"
  [packages]="build-essential debhelper lintian python3 debootstrap debian-archive-keyring"
  [lint]="clang clang-format clang-tidy cppcheck shellcheck"
)

packages=()
for set in "$@"; do
  if [[ -z ${sets[$set]:-} ]]; then
    echo "install-deps.sh: no set '$set'; there are: ${!sets[*]}" >&2
    exit 2
  fi
  read -ra names <<<"${sets[$set]}"
  packages+=("${names[@]}")
done

if ! command -v dpkg-query >/dev/null; then
  echo "This is not a Debian system; these Debian packages are expected in some form: ${packages[*]}"
  exit 0
fi

missing=()
for package in "${packages[@]}"; do
  status=$(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null || true)
  [[ $status == installed || " ${missing[*]} " == *" $package "* ]] || missing+=("$package")
done
((${#missing[@]})) || exit 0

as_root=()
if ((EUID != 0)); then
  as_root=(sudo)
  if ! command -v sudo >/dev/null; then
    echo "Please install these packages as root, then try again: ${missing[*]}" >&2
    exit 1
  fi
fi

echo "Installing: ${missing[*]}"
log=$(mktemp)
trap 'rm -f "$log"' EXIT
apt() {
  "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -q -o DPkg::Lock::Timeout=300 "$@" \
    </dev/null >>"$log" 2>&1
}
if ! { apt update && apt install --no-install-recommends -y "${missing[@]}"; }; then
  tail -n 20 "$log" >&2
  echo "These packages could not be installed: ${missing[*]}" >&2
  exit 1
fi
