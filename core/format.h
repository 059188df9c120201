// The application's UEFI-style formatter: wide format strings, arguments
// passed as EFIAPI (ms_abi) variable arguments.
#pragma once

#include "efi/base.h"

namespace tarvik {

// Formats Format with Args into Buffer, which holds Capacity characters
// including the terminator. Writes at most Capacity - 1 characters and always
// terminates when Capacity > 0; never writes past the buffer. Returns the
// number of characters written, terminator excluded.
//
// Conversions: %s (CHAR16*), %a (CHAR8*), %c (wide character), %d/%i (INT32),
// %u (UINT32), %x/%X (hexadecimal of the low 32 bits), %p (pointer), %r (text
// of an EFI_STATUS), %% ; the l/L modifier makes d, i, u, x, X take 64-bit
// values. Flags: '-' left-justify, '0' zero-pad, ',' thousands grouping,
// '+' and ' ' sign; width as digits or '*'; precision ".n" (or ".*") limits %s.
// As in the firmware's print library, a '\n' in the format string (not in a
// %s argument) is written as "\r\n", and "\n\r" also as "\r\n".
//
// Details: a null %s or %a argument prints "<null string>"; %a widens each
// byte; %c of NUL writes only the padding; %p prints 16 upper-case hex digits;
// padding is with spaces unless '0' is given, and zeros go after the sign;
// '-' wins over '0'; a negative '*' width left-justifies, a negative '*'
// precision counts as none; precision does not apply to numbers; ',' groups
// decimal conversions only; '+' and ' ' affect %d and %i only. A conversion
// character that is not listed is not a conversion: the text from the '%' up
// to it is written as it stands ("%q" gives "%q", a trailing '%' gives '%').
// Truncation may cut a number or a "\r\n" pair.
// A null Buffer counts as Capacity 0, a null Format as an empty one.
UINTN FormatV(CHAR16* Buffer, UINTN Capacity, const CHAR16* Format, VA_LIST Args);

// The formatter's own short text of a status, used by %r: "Success" for 0,
// the names of errors 1-28 and 31-35 and of warnings 1-7. Returns null for any
// other value (errors 29 and 30 included); %r then prints the value as "0x"
// and 16 upper-case hexadecimal digits, e.g. "0x800000000000001D".
const CHAR16* StatusName(EFI_STATUS Status);

}  // namespace tarvik
