#!/usr/bin/env bash
# Boots a Tarvik disk image (tools/make-image.sh) on a QEMU q35 machine with
# OVMF firmware.
#
#   tools/qemu.sh [options] IMAGE [-- EXTRA_QEMU_ARGS...]
#
# The machine has no display and no network; the firmware's only console is
# the serial port, so the text modes the application sees are those of the
# firmware's serial terminal (80x25, 80x50, 100x31). With --vga it has QEMU's
# standard VGA card as well (still no window): the firmware then joins its
# graphics console and the serial terminal in one console, which offers
# 80x25 and 100x31. A reset of the guest ends QEMU (-no-reboot), with status
# 0: the application's cold reset at exit.
#
# Options:
#   -m, --memory MIB       guest memory in MiB (default 256, or $TARVIK_QEMU_MEMORY)
#   --smp N                N processors (default 1, or $TARVIK_QEMU_SMP); OVMF
#                          offers the MP services over them
#   --accel auto|kvm|tcg   accelerator (default auto, or $TARVIK_QEMU_ACCEL):
#                          KVM when /dev/kvm is usable and backed by kvm_intel
#                          or kvm_amd, else TCG
#   --console terminal     the serial console on this terminal (default),
#                          through tools/serial-console.py, which shows the
#                          firmware's box drawing as UTF-8 and turns this
#                          terminal's keys into the firmware's; Ctrl-] quits
#   --console monitor      the serial console on this terminal as QEMU has it,
#                          with the QEMU monitor on Ctrl-A c; Ctrl-A x quits
#   --console stdio        the serial console on plain stdin/stdout and no
#                          monitor, for a program that drives the guest
#   --vga                  add QEMU's standard VGA card (-vga std) to the machine;
#                          the serial console stays where --console puts it
#   --disk FILE[,PROP=VAL...]
#                          one more raw disk on the next AHCI port (up to 5);
#                          PROPs go to the ide-hd device, e.g.
#                          rotation_rate=7200,model=TVK-HDD,serial=D0001
#   --nvme FILE[,serial=S][,error_sector=N][,PROP=VAL...]
#                          one more raw disk as an NVMe drive, a controller of
#                          its own with one namespace (up to 4); serial defaults
#                          to TVKNVME1, TVKNVME2, …; error_sector=N makes every
#                          read covering 512-byte sector N fail with EIO
#                          (blkdebug); other PROPs go to the nvme device, e.g.
#                          mdts=5
#   --secure-boot snakeoil|ms
#                          Secure Boot enforced: OVMF_CODE_4M.secboot.fd on an
#                          SMM machine with the variable store protected, and
#                          a copy of OVMF_VARS_4M.snakeoil.fd (db: Debian's
#                          test certificate /usr/share/ovmf/PkKek-1-snakeoil.pem)
#                          or OVMF_VARS_4M.ms.fd (db: Microsoft's keys)
#   --dry-run              print the QEMU command line instead of running it
#   --smbios               print the SMBIOS values given to the guest as
#                          KEY=VALUE lines and exit
#   -h, --help             this text
#
# Environment: TARVIK_OVMF_CODE and TARVIK_OVMF_VARS override the firmware
# files (default: Debian's OVMF_CODE_4M.fd and OVMF_VARS_4M.fd).
set -euo pipefail

# ---- SMBIOS values ------------------------------------------------------------
# The machine identity the guest reads from its SMBIOS tables. Tests compare
# the System Information screen against these (tools/qemu.sh --smbios).
SMBIOS_BIOS_VENDOR="Tarvik Test Firmware"
SMBIOS_BIOS_VERSION="TVK.QEMU.1.02"
SMBIOS_BIOS_DATE="03/14/2024"
SMBIOS_BIOS_RELEASE="1.2"
SMBIOS_SYSTEM_MANUFACTURER="Tarvik Test Lab"
SMBIOS_SYSTEM_PRODUCT="Tarvik QEMU Q35"
SMBIOS_SYSTEM_VERSION="Rev 1.0"
SMBIOS_SYSTEM_SERIAL="TVK-QEMU-0001"
SMBIOS_PROCESSOR_MANUFACTURER="Tarvik Virtual Silicon"
# Long enough to wrap in the processor box of an 80-column screen.
SMBIOS_PROCESSOR_VERSION="Tarvik Virtual Processor Model 64 @ 2.00GHz"

smbios_keys=(BIOS_VENDOR BIOS_VERSION BIOS_DATE BIOS_RELEASE SYSTEM_MANUFACTURER SYSTEM_PRODUCT
  SYSTEM_VERSION SYSTEM_SERIAL PROCESSOR_MANUFACTURER PROCESSOR_VERSION)

# A value inside a QEMU option: commas are doubled.
qv() { printf '%s' "${1//,/,,}"; }

usage() {
  sed -n '2,/^set -euo/{/^set -euo/d;s/^# \{0,1\}//;p}' "$0" >&2
  exit "${1:-2}"
}

memory=${TARVIK_QEMU_MEMORY:-256}
smp=${TARVIK_QEMU_SMP:-1}
accel=${TARVIK_QEMU_ACCEL:-auto}
console=terminal
vga=none
secure_boot=
dry_run=0
image=
disks=()
nvmes=()
extra=()

while [[ $# -gt 0 ]]; do
  case "$1" in
    -m | --memory) memory=${2:?}; shift 2 ;;
    --smp) smp=${2:?}; shift 2 ;;
    --accel) accel=${2:?}; shift 2 ;;
    --console) console=${2:?}; shift 2 ;;
    --disk) disks+=("${2:?}"); shift 2 ;;
    --nvme) nvmes+=("${2:?}"); shift 2 ;;
    --vga) vga=std; shift ;;
    --secure-boot) secure_boot=${2:?}; shift 2 ;;
    --dry-run) dry_run=1; shift ;;
    --smbios)
      for key in "${smbios_keys[@]}"; do
        var=SMBIOS_$key
        printf '%s=%s\n' "$key" "${!var}"
      done
      exit 0 ;;
    -h | --help) usage 0 ;;
    --) shift; extra=("$@"); break ;;
    -*) echo "qemu.sh: unknown option $1" >&2; usage ;;
    *)
      [[ -z "$image" ]] || { echo "qemu.sh: one image only" >&2; usage; }
      image=$1; shift ;;
  esac
done

[[ -n "$image" ]] || usage
[[ -f "$image" ]] || { echo "qemu.sh: no such image: $image" >&2; exit 1; }
[[ "$memory" =~ ^[0-9]+$ ]] || { echo "qemu.sh: --memory takes MiB" >&2; exit 1; }
[[ "$smp" =~ ^[1-9][0-9]*$ ]] || { echo "qemu.sh: --smp takes a number of processors" >&2; exit 1; }
[[ ${#disks[@]} -le 5 ]] || { echo "qemu.sh: at most 5 extra disks" >&2; exit 1; }
[[ ${#nvmes[@]} -le 4 ]] || { echo "qemu.sh: at most 4 NVMe drives" >&2; exit 1; }

qemu=$(command -v qemu-system-x86_64 || true)
[[ -n "$qemu" ]] || { echo "qemu.sh: qemu-system-x86_64 not found (Debian package qemu-system-x86)" >&2; exit 1; }

ovmf_code=${TARVIK_OVMF_CODE:-}
ovmf_vars=${TARVIK_OVMF_VARS:-}
machine=q35,smbios-entry-point-type=32
secure_args=()
case "$secure_boot" in
  "") ;;
  snakeoil | ms)
    ovmf_code=${ovmf_code:-/usr/share/OVMF/OVMF_CODE_4M.secboot.fd}
    ovmf_vars=${ovmf_vars:-/usr/share/OVMF/OVMF_VARS_4M.$secure_boot.fd}
    # The secure-boot firmware keeps its variables behind SMM.
    machine=$machine,smm=on
    secure_args=(-global driver=cfi.pflash01,property=secure,value=on) ;;
  *) echo "qemu.sh: --secure-boot is snakeoil or ms" >&2; exit 1 ;;
esac
if [[ -z "$ovmf_code" ]]; then
  for suffix in _4M ""; do
    if [[ -f /usr/share/OVMF/OVMF_CODE$suffix.fd && -f /usr/share/OVMF/OVMF_VARS$suffix.fd ]]; then
      ovmf_code=/usr/share/OVMF/OVMF_CODE$suffix.fd
      ovmf_vars=${ovmf_vars:-/usr/share/OVMF/OVMF_VARS$suffix.fd}
      break
    fi
  done
fi
[[ -f "$ovmf_code" && -f "$ovmf_vars" ]] || {
  echo "qemu.sh: OVMF firmware not found (Debian package ovmf)" >&2
  exit 1
}

case "$accel" in
  auto)
    # KVM when this user may open /dev/kvm and the kernel runs it on the
    # processor's virtualisation extensions (kvm_intel or kvm_amd). Other KVM
    # back ends, such as the paravirtual one of some cloud sandboxes, run only
    # enlightened Linux guests and stop the firmware with an internal error.
    # QEMU still falls back to TCG when KVM cannot start at all.
    if [[ -r /dev/kvm && -w /dev/kvm ]] && [[ -d /sys/module/kvm_intel || -d /sys/module/kvm_amd ]]; then
      accel_args=(-accel kvm -accel tcg)
    else
      accel_args=(-accel tcg)
    fi ;;
  kvm) accel_args=(-accel kvm) ;;
  tcg) accel_args=(-accel tcg) ;;
  *) echo "qemu.sh: --accel is auto, kvm or tcg" >&2; exit 1 ;;
esac

wrapper=()
case "$console" in
  terminal)
    console_args=(-serial stdio)
    if [[ -t 0 && -t 1 ]]; then
      wrapper=(python3 "$(dirname "$0")/serial-console.py")
    fi ;;
  # mon:stdio puts the terminal in raw mode and multiplexes the monitor on it:
  # Ctrl-C goes to the guest, Ctrl-A x ends QEMU.
  monitor) console_args=(-serial mon:stdio) ;;
  stdio) console_args=(-serial stdio) ;;
  *) echo "qemu.sh: --console is terminal, monitor or stdio" >&2; exit 1 ;;
esac

# The firmware writes its variables; every run gets a private copy of the
# template. The copy is opened on fd 3 and unlinked at once, so nothing is
# left behind however QEMU ends; QEMU opens it again through /dev/fd/3.
vars_fd_path=/dev/fd/3
if [[ $dry_run -eq 0 ]]; then
  vars_tmp=$(mktemp "${TMPDIR:-/tmp}/tarvik-ovmf-vars.XXXXXX")
  cp "$ovmf_vars" "$vars_tmp"
  exec 3<>"$vars_tmp"
  rm -f "$vars_tmp"
fi

args=(
  -machine "$machine"
  "${secure_args[@]}"
  "${accel_args[@]}"
  -m "$memory"
  -smp "$smp"
  -nodefaults
  -no-user-config
  -vga "$vga"
  -display none
  -nic none
  -no-reboot
  -drive "if=pflash,format=raw,unit=0,readonly=on,file=$(qv "$ovmf_code")"
  -drive "if=pflash,format=raw,unit=1,file=$vars_fd_path"
  -drive "if=none,id=boot,format=raw,file=$(qv "$image")"
  -device ide-hd,drive=boot,bus=ide.0,bootindex=0
  "${console_args[@]}"
  -smbios "type=0,vendor=$(qv "$SMBIOS_BIOS_VENDOR"),version=$(qv "$SMBIOS_BIOS_VERSION"),date=$(qv "$SMBIOS_BIOS_DATE"),release=$SMBIOS_BIOS_RELEASE,uefi=on"
  -smbios "type=1,manufacturer=$(qv "$SMBIOS_SYSTEM_MANUFACTURER"),product=$(qv "$SMBIOS_SYSTEM_PRODUCT"),version=$(qv "$SMBIOS_SYSTEM_VERSION"),serial=$(qv "$SMBIOS_SYSTEM_SERIAL")"
  -smbios "type=4,manufacturer=$(qv "$SMBIOS_PROCESSOR_MANUFACTURER"),version=$(qv "$SMBIOS_PROCESSOR_VERSION")"
)

port=1
for disk in "${disks[@]}"; do
  file=${disk%%,*}
  props=
  [[ "$disk" == *,* ]] && props=,${disk#*,}
  [[ -f "$file" ]] || { echo "qemu.sh: no such disk: $file" >&2; exit 1; }
  args+=(-drive "if=none,id=disk$port,format=raw,file=$(qv "$file")"
    -device "ide-hd,drive=disk$port,bus=ide.$port$props")
  port=$((port + 1))
done

# A string inside JSON: backslashes and quotes escaped.
json_string() {
  local v=${1//\\/\\\\}
  printf '"%s"' "${v//\"/\\\"}"
}

index=1
for nvme in "${nvmes[@]}"; do
  file=${nvme%%,*}
  [[ -f "$file" ]] || { echo "qemu.sh: no such disk: $file" >&2; exit 1; }
  serial=TVKNVME$index
  error_sector=
  props=
  if [[ "$nvme" == *,* ]]; then
    IFS=, read -r -a items <<<"${nvme#*,}"
    for item in "${items[@]}"; do
      case "$item" in
        serial=*) serial=${item#serial=} ;;
        error_sector=*) error_sector=${item#error_sector=} ;;
        *) props+=",$item" ;;
      esac
    done
  fi
  if [[ -n "$error_sector" ]]; then
    [[ "$error_sector" =~ ^[0-9]+$ ]] || { echo "qemu.sh: error_sector takes a sector number" >&2; exit 1; }
    # blkdebug under a raw layer: the raw layer's reads reach it as read_aio.
    args+=(-blockdev "{\"driver\":\"raw\",\"node-name\":\"nvme$index\",\"file\":{\"driver\":\"blkdebug\",\"image\":{\"driver\":\"file\",\"filename\":$(json_string "$file")},\"inject-error\":[{\"event\":\"read_aio\",\"errno\":5,\"sector\":$error_sector,\"once\":false}]}}")
  else
    args+=(-blockdev "{\"driver\":\"raw\",\"node-name\":\"nvme$index\",\"file\":{\"driver\":\"file\",\"filename\":$(json_string "$file")}}")
  fi
  args+=(-device "nvme,drive=nvme$index,serial=$(qv "$serial")$props")
  index=$((index + 1))
done
args+=("${extra[@]}")

if [[ $dry_run -eq 1 ]]; then
  # Quote only what a shell would split.
  for arg in "$qemu" "${args[@]}"; do
    if [[ "$arg" =~ ^[A-Za-z0-9_./=,:@%+-]+$ ]]; then
      printf '%s ' "$arg"
    else
      printf "'%s' " "${arg//\'/\'\\\'\'}"
    fi
  done
  printf '\n'
  exit 0
fi

if [[ "$console" == monitor && -t 1 ]]; then
  # The guest leaves colours and cursor state behind; restore them after.
  status=0
  "$qemu" "${args[@]}" || status=$?
  printf '\033[0m\033[?25h\n'
  exit "$status"
fi
exec "${wrapper[@]}" "$qemu" "${args[@]}"
