#!/usr/bin/env bash
# Signs an EFI application for Secure Boot (Authenticode, sbsign):
#
#   tools/sign-efi.sh IN.efi OUT.efi CERT_OUT.cer
#
# With SIGN_KEY=FILE and SIGN_CERT=FILE (a PEM private key and its PEM
# certificate) in the environment it signs with those: a fleet's own key.
# Otherwise it signs with the project key, which it generates once (openssl,
# RSA 2048, ten years) into keys/ at the repository root, or into
# $TARVIK_KEYS_DIR: tarvik-db.key, its certificate tarvik-db.crt (PEM) and
# tarvik-db.cer (DER, the form firmware setup menus enroll). keys/ is
# ignored by git; keep it, since every stick signed before depends on it.
#
# CERT_OUT receives the signing certificate in DER, to be put on the stick
# next to the application for enrollment.
set -euo pipefail

[[ $# -eq 3 ]] || { echo "usage: $0 IN.efi OUT.efi CERT_OUT.cer" >&2; exit 2; }
in=$1
out=$2
cert_out=$3
[[ -f "$in" ]] || { echo "sign-efi: no such file: $in" >&2; exit 1; }
for tool in sbsign openssl; do
  command -v "$tool" >/dev/null || { echo "sign-efi: $tool not found (Debian packages sbsigntool, openssl)" >&2; exit 1; }
done

key=${SIGN_KEY:-}
cert=${SIGN_CERT:-}
if [[ -n "$key" || -n "$cert" ]]; then
  [[ -f "$key" && -f "$cert" ]] || { echo "sign-efi: SIGN_KEY and SIGN_CERT must both name files" >&2; exit 1; }
else
  dir=${TARVIK_KEYS_DIR:-$(cd "$(dirname "$0")/.." && pwd)/keys}
  key=$dir/tarvik-db.key
  cert=$dir/tarvik-db.crt
  if [[ ! -f "$key" || ! -f "$cert" ]]; then
    echo "sign-efi: generating the project's signing key in $dir"
    mkdir -p "$dir"
    chmod 700 "$dir"
    openssl req -new -x509 -newkey rsa:2048 -nodes -sha256 -days 3650 \
      -subj "/CN=Tarvik Secure Boot signing key $(date +%Y-%m-%d)/" \
      -keyout "$key.tmp" -out "$cert.tmp" 2>/dev/null
    chmod 600 "$key.tmp"
    openssl x509 -in "$cert.tmp" -outform DER -out "$dir/tarvik-db.cer"
    mv -f "$key.tmp" "$key"
    mv -f "$cert.tmp" "$cert"
  fi
fi

tmp="$out.tmp.$$"
trap 'rm -f "$tmp" "$tmp.log" "$cert_out.tmp.$$"' EXIT
if ! sbsign --key "$key" --cert "$cert" --output "$tmp" "$in" >"$tmp.log" 2>&1; then
  cat "$tmp.log" >&2
  echo "sign-efi: sbsign failed" >&2
  exit 1
fi
openssl x509 -in "$cert" -outform DER -out "$cert_out.tmp.$$"
mv -f "$tmp" "$out"
mv -f "$cert_out.tmp.$$" "$cert_out"
echo "sign-efi: signed $out with $cert ($(openssl x509 -in "$cert" -noout -subject))"
