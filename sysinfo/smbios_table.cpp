#include "sysinfo/smbios_table.h"

#include "sysinfo/smbios_structures.h"

namespace tarvik {
namespace {

// Type, length and handle: the least a structure can hold.
constexpr UINTN HeaderBytes = sizeof(SmbiosHeader);

const SmbiosHeader& HeaderAt(const UINT8* Structure) { return *reinterpret_cast<const SmbiosHeader*>(Structure); }

const UINT8* TableEnd(const SmbiosTable& Table) { return Table.Start + Table.Length; }

// The structure after the one at Structure, or null when the one at
// Structure is broken or does not fit the table: a formatted area shorter
// than its header or past the end, or a string set whose closing double NUL
// is missing.
const UINT8* NextStructure(const SmbiosTable& Table, const UINT8* Structure) {
  const UINT8* End = TableEnd(Table);
  if (static_cast<UINTN>(End - Structure) < HeaderBytes) return nullptr;
  const UINT8 Length = HeaderAt(Structure).Length;
  if (Length < HeaderBytes || Length > static_cast<UINTN>(End - Structure)) return nullptr;
  for (const UINT8* P = Structure + Length; P + 1 < End; ++P) {
    if (P[0] == 0 && P[1] == 0) return P + 2;
  }
  return nullptr;
}

}  // namespace

const UINT8* FindSmbiosStructure(const SmbiosTable& Table, UINT8 Type, UINT32 Instance) {
  if (Table.Start == nullptr) return nullptr;
  const UINT8* Structure = Table.Start;
  UINT32 Seen = 0;
  // Each step moves on by at least a header and two NULs, so a walk until
  // the end of the table ends at the table's length at the latest.
  for (UINT32 Index = 0; Table.UntilEndOfTable || Index < Table.Structures; ++Index) {
    const UINT8* Next = NextStructure(Table, Structure);
    if (Next == nullptr) return nullptr;  // a broken structure is not handed out either
    const UINT8 Found = HeaderAt(Structure).Type;
    if (Found == Type && Seen++ == Instance) return Structure;
    if (Table.UntilEndOfTable && Found == static_cast<UINT8>(SmbiosType::EndOfTable)) return nullptr;
    Structure = Next;
  }
  return nullptr;
}

BOOLEAN FindSmbiosString(const SmbiosTable& Table, const UINT8* Record, UINTN Number, const UINT8** Text,
                         UINTN* Length) {
  if (Table.Start == nullptr || Record == nullptr) return FALSE;
  // Compared as addresses: Record comes from the caller and may point
  // anywhere, before the table or past its end.
  const UINTN Start = reinterpret_cast<UINTN>(Table.Start);
  const UINTN Address = reinterpret_cast<UINTN>(Record);
  if (Address < Start || Address - Start > Table.Length || Start + Table.Length - Address < HeaderBytes) return FALSE;
  const UINT8* End = TableEnd(Table);
  *Text = Record;
  *Length = 0;
  const UINT8 FormattedLength = HeaderAt(Record).Length;
  if (Number == 0 || FormattedLength < HeaderBytes || FormattedLength > static_cast<UINTN>(End - Record)) return TRUE;
  const UINT8* String = Record + FormattedLength;
  for (UINTN Current = 1;; ++Current) {
    const UINT8* P = String;
    while (P < End && *P != 0) ++P;
    if (P == End) return TRUE;  // unterminated: nothing trustworthy
    if (P == String) return TRUE;  // the empty string that ends the set
    if (Current == Number) {
      *Text = String;
      *Length = static_cast<UINTN>(P - String);
      return TRUE;
    }
    String = P + 1;
  }
}

}  // namespace tarvik
