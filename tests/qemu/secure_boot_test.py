#!/usr/bin/env python3
"""Secure Boot enforced on OVMF (tools/qemu.sh --secure-boot snakeoil, whose db
holds Debian's test certificate): TarvikDiag.efi signed by tools/sign-efi.sh
with that certificate's key boots to the main screen; the unsigned image and
the signed one with one byte of code changed are refused by the firmware.
"""

import os
import re
import shutil
import subprocess
import sys
import unittest

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import qemu_session  # noqa: E402
from qemu_session import QemuSession  # noqa: E402

SNAKEOIL_KEY = "/usr/share/ovmf/PkKek-1-snakeoil.key"  # passphrase "snakeoil"
SNAKEOIL_CERT = "/usr/share/ovmf/PkKek-1-snakeoil.pem"
MAIN_SCREEN = "Use Arrow keys to change between options"
REFUSED = "Access Denied"


def text_section_offset(path):
    """File offset of the .text section's raw data."""
    sections = subprocess.run(["llvm-readobj", "--sections", path], check=True, capture_output=True, text=True).stdout
    return int(re.search(r"Name: \.text\b.*?PointerToRawData: (0x[0-9A-Fa-f]+)", sections, re.S).group(1), 16)


def make_images(efi_file, work):
    """The signed, unsigned and tampered disk images, by name."""
    work = os.path.abspath(work)
    os.makedirs(work, exist_ok=True)
    key = os.path.join(work, "snakeoil.key")
    subprocess.run(["openssl", "pkey", "-in", SNAKEOIL_KEY, "-passin", "pass:snakeoil", "-out", key], check=True)
    signed = os.path.join(work, "signed.efi")
    env = dict(os.environ, SIGN_KEY=key, SIGN_CERT=SNAKEOIL_CERT)
    subprocess.run([os.path.join(qemu_session.TOOLS, "sign-efi.sh"), efi_file, signed, os.path.join(work, "db.cer")],
                   check=True, env=env, stdout=subprocess.DEVNULL)
    tampered = os.path.join(work, "tampered.efi")
    shutil.copyfile(signed, tampered)
    with open(tampered, "r+b") as f:
        f.seek(text_section_offset(tampered) + 0x40)
        byte = f.read(1)
        f.seek(-1, os.SEEK_CUR)
        f.write(bytes([byte[0] ^ 0x01]))
    return {name: qemu_session.make_image(os.path.join(work, name + ".img"), efi)
            for name, efi in (("signed", signed), ("unsigned", efi_file), ("tampered", tampered))}


class SecureBootTest(unittest.TestCase):
    efi_file = work = None

    @classmethod
    def setUpClass(cls):
        cls.images = make_images(cls.efi_file, cls.work)

    def test_the_signed_image_boots_and_the_others_are_refused(self):
        for name, boots in (("unsigned", False), ("tampered", False), ("signed", True)):
            with self.subTest(name), QemuSession(self.images[name], secure_boot="snakeoil") as q:
                q.wait_for(MAIN_SCREEN if boots else REFUSED)
                if not boots:
                    # The disk's boot option itself, not some other one.
                    self.assertRegex(q.output, r"failed to load Boot\d+ .*Sata\(.*: Access Denied")
                    self.assertNotIn(MAIN_SCREEN, q.output)
                else:
                    self.assertNotIn(REFUSED, q.output)


if __name__ == "__main__":
    qemu_session.main(SecureBootTest, __doc__, "the application to sign and boot (TarvikDiag.efi)", options=["work"])
