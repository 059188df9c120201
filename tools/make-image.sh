#!/usr/bin/env bash
# Builds a bootable USB disk image without root:
#
#   tools/make-image.sh OUT.img EFI_FILE [SRC[=DEST]...]
#
# The image is a raw disk with a GPT whose single partition is an EFI System
# Partition formatted FAT32. EFI_FILE becomes \EFI\BOOT\BOOTX64.EFI, the path
# that firmware boots from removable media. Each extra SRC (a file or a
# directory) is copied to the root of the volume, or to DEST when given
# (for example Log.log=/Log/Log.log); missing directories of DEST are created.
#
# Environment: TARVIK_IMAGE_MB sets the disk size in MiB (default 64).
set -euo pipefail

usage() {
  echo "usage: $0 OUT.img EFI_FILE [SRC[=DEST]...]" >&2
  exit 2
}
[[ $# -ge 2 ]] || usage
out=$1
efi=$2
shift 2
[[ -f "$efi" ]] || { echo "make-image: no such file: $efi" >&2; exit 1; }

size_mb=${TARVIK_IMAGE_MB:-64}
[[ "$size_mb" =~ ^[0-9]+$ && "$size_mb" -ge 40 ]] || {
  echo "make-image: TARVIK_IMAGE_MB must be a number of MiB, at least 40 (FAT32)" >&2
  exit 1
}

# sfdisk sits in /usr/sbin, which is not on every user's PATH.
sfdisk=$(PATH="$PATH:/usr/sbin:/sbin" command -v sfdisk || true)
[[ -n "$sfdisk" ]] || { echo "make-image: sfdisk not found (Debian package fdisk)" >&2; exit 1; }
for tool in mformat mmd mcopy; do
  command -v "$tool" >/dev/null || { echo "make-image: $tool not found (Debian package mtools)" >&2; exit 1; }
done

sector=512
part_start=2048                                  # 1 MiB, the usual alignment
total_sectors=$((size_mb * 1024 * 1024 / sector))
# The backup GPT takes the last 33 sectors; end the partition on a 1 MiB
# boundary before it.
part_sectors=$(( (total_sectors - 33 - part_start) / 2048 * 2048 ))
esp_type=C12A7328-F81F-11D2-BA4B-00A0C93EC93B

tmp="$out.tmp.$$"
trap 'rm -f "$tmp"' EXIT
rm -f "$tmp"
truncate -s "$((total_sectors * sector))" "$tmp"

"$sfdisk" --quiet --no-reread --no-tell-kernel "$tmp" >/dev/null <<EOF
label: gpt
label-id: 5441524B-4449-4147-8000-000000000001
unit: sectors
first-lba: $part_start
start=$part_start, size=$part_sectors, type=$esp_type, uuid=5441524B-4449-4147-8000-000000000002, name="EFI System Partition"
EOF

export MTOOLS_SKIP_CHECK=1
vol="$tmp@@$((part_start * sector))"
# FAT32 with the partition's real start as its hidden sectors. Fixed disk,
# partition and volume identifiers keep images of the same files comparable.
mformat -i "$vol" -F -T "$part_sectors" -H "$part_start" -h 64 -s 32 -N 54564B31 -v TARVIK ::
mmd -i "$vol" ::/EFI ::/EFI/BOOT
mcopy -i "$vol" "$efi" ::/EFI/BOOT/BOOTX64.EFI

for spec in "$@"; do
  src=${spec%%=*}
  dest=
  [[ "$spec" == *=* ]] && dest=${spec#*=}
  [[ -e "$src" ]] || { echo "make-image: no such file: $src" >&2; exit 1; }
  if [[ -z "$dest" ]]; then
    mcopy -s -i "$vol" "$src" ::/
    continue
  fi
  dest=${dest//\\//}
  dest=/${dest#/}
  # Create each missing directory on the way to DEST.
  dir=${dest%/*}
  path=
  IFS=/ read -r -a parts <<<"${dir#/}"
  for part in "${parts[@]}"; do
    [[ -n "$part" ]] || continue
    path="$path/$part"
    mdir -i "$vol" "::$path" >/dev/null 2>&1 || mmd -i "$vol" "::$path"
  done
  mcopy -s -i "$vol" "$src" "::$dest"
done

mv -f "$tmp" "$out"
trap - EXIT
