#!/usr/bin/env bash
# Installs the Debian packages needed to build and test Tarvik: the host and
# EFI toolchains, GoogleTest, libFuzzer, and QEMU with OVMF, mtools and sfdisk for the
# disk image and the boot tests. Does nothing when everything is present.
set -euo pipefail

packages=(
  make            # the top-level Makefile and CMake's generator
  cmake
  g++             # host program and unit tests
  clang           # clang++ for TarvikDiag.efi and the fuzz targets
  libclang-rt-14-dev # libFuzzer and the sanitizer runtimes of clang 14 (make fuzz)
  lld             # lld-link for TarvikDiag.efi
  libgtest-dev    # unit and host tests
  qemu-system-x86 # boot tests and `make qemu`
  ovmf            # UEFI firmware for QEMU
  mtools          # FAT file system of the disk image
  fdisk           # sfdisk: partition table of the disk image
  python3         # QEMU boot tests
  python3-pyte    # the terminal the QEMU boot tests read the screen through
  sbsigntool      # sbsign: `make image` signs BOOTX64.EFI for Secure Boot
  openssl         # the signing key and its certificate
  llvm            # llvm-readobj: the check of the EFI image's sections
  python3-jsonschema  # the results file checked against docs/results.schema.json
)

missing=()
for pkg in "${packages[@]}"; do
  status=$(dpkg-query -W -f='${db:Status-Abbrev}' "$pkg" 2>/dev/null || true)
  if [[ "$status" != ii* ]]; then
    missing+=("$pkg")
  fi
done

if [[ ${#missing[@]} -eq 0 ]]; then
  exit 0
fi

if [[ $(id -u) -ne 0 ]]; then
  echo "install-deps: missing Debian packages: ${missing[*]}" >&2
  echo "install-deps: install them as root with:" >&2
  echo "  apt-get update && apt-get install -y --no-install-recommends ${missing[*]}" >&2
  exit 1
fi

echo "install-deps: installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
apt-get update
apt-get install -y --no-install-recommends "${missing[@]}" </dev/null
